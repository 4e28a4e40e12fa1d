// The process-wide reader object and the rules of its connection.
#include "engine/session.h"

#include "qaven/qaven.h"
#include "support/diagnostics.h"

#include <array>

namespace qaven::session {

namespace {

constexpr int kReaderVendor = 0x2F7A;
constexpr int kReaderProduct = 0x4417;

// The contact slot that a teller uses answers on interface 2; the other one on interface 1.
constexpr std::array kSlotInterfaces{2, 1};

constexpr int kPrintedStatusBytes = 10;

// The only reader connection of the process: zero at load, never destroyed.
constinit CCID ccid{};

// The last transfer found the reader unplugged. Its handle is still held, but nothing will ever be
// answered through it.
constinit bool reader_gone = false;

bool slot_holds_card() {
    std::array<unsigned char, CCID::kPacketSize> status{};
    ccid.GetSlotStatus(status.data());
    for (const unsigned char byte : std::span(status).first(kPrintedStatusBytes)) {
        diagnostics::text("%02x ", byte);
    }
    diagnostics::text("\n");
    return status[CCID::kStatusByte] != CCID::kNoCardPresent;
}

} // namespace

int exchange(unsigned char* cmd, int cmd_len, unsigned char* resp, int* resp_len, int timeout_ms) {
    const int result = ccid.interact_apdu(cmd, cmd_len, resp, resp_len, timeout_ms);
    reader_gone = reader_gone || result == LIBUSB_ERROR_NO_DEVICE;
    return result;
}

bool live() {
    return ccid.handle != nullptr && ccid.interface_claimed && !reader_gone;
}

int open_with_card() {
    for (const int interface : kSlotInterfaces) {
        ccid.open(kReaderVendor, kReaderProduct, interface);
        reader_gone = false;
        ccid.poweron();
        if (slot_holds_card()) {
            return 0;
        }
        ccid.poweroff();
        ccid.close();
    }
    return QAVEN_NO_CARD;
}

void end() {
    // An opening that found no reader has still started libusb.
    if (ccid.handle == nullptr && !ccid.library_started) {
        return;
    }
    ccid.poweroff();
    ccid.close();
}

Visit::Visit() : opened_(!live()), result_(opened_ ? open_with_card() : 0) {}

Visit::~Visit() {
    if (opened_) {
        end();
    }
}

EndUnlessKept::~EndUnlessKept() {
    if (!kept_) {
        end();
    }
}

} // namespace qaven::session
