// The card's answers, a host's requests, and a bus on which everything succeeds.
#include "card.h"

#include "engine/card/apdu.h"
#include "qaven/qaven.h"
#include "support/hex.h"
#include "tests/support/libusb_stand_in.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qaven::bench {

namespace {

using Bytes = std::vector<unsigned char>;

class SoundBus final : public test::LibusbStandIn {
  public:
    SoundBus() { plug(test::ccid_reader()); }

  private:
    int bulk_transfer(test::Transfer& transfer) override {
        transfer.moved = transfer.data.size();
        return 0;
    }
    int control_transfer(test::ControlTransfer& transfer) override {
        return bulk_transfer(transfer);
    }
};

struct Inserted {
    std::size_t records = 0;
    std::size_t log_entries = 0;
};

Inserted inserted;

constexpr int kNotFound = 0x6A83;

std::string byte_hex(std::size_t value) {
    return std::string(hex::text(std::array{static_cast<unsigned char>(value)}));
}

std::string object(const std::string& tag, const std::string& value) {
    return tag + byte_hex(value.size() / 2) + value;
}

constexpr const char* kFci = "8408A000000333010101";

// The fields of a log record, 49 bytes.
constexpr const char* kLogFormat = "9F4F199A039F21039F02069F03069F1A025F2A029F4E149C019F3602";

std::string response(std::span<const unsigned char> command) {
    const std::size_t number = command[2];
    switch (command[1]) {
    case 0xA4:
        return object("6F", kFci + object("9F4D", "0B" + byte_hex(inserted.log_entries)));
    case 0xA8:
        return object("80", "7C000801" + byte_hex(inserted.records) + "00");
    case 0xB2:
        if (command[3] >> 3U == 1) {
            return number <= inserted.records ? object("70", object("DF01", std::string(48, '5')))
                                              : "";
        }
        return number <= inserted.log_entries ? std::string(90, '1') : "";
    case 0xCA:
        return command[2] == 0x9F && command[3] == 0x4F ? kLogFormat : "";
    default:
        return "";
    }
}

int ask(int (*entry_point)(const char*, char*, char*, int, int), const char* request) {
    static std::array<char, QAVEN_RESMSG_SIZE> resmsg;
    static std::array<char, QAVEN_ERRMSG_SIZE> errmsg;
    resmsg.fill('\0');
    const int result = entry_point(request, resmsg.data(), errmsg.data(), 0, 0);
    return result != 0 || std::string_view(resmsg.data()).size() < 20 ? -1 : 0;
}

} // namespace

QuickCard::QuickCard(std::size_t records, std::size_t log_entries) {
    static SoundBus bus;
    inserted = {records, log_entries};
    setenv("QAVEN_DIAGNOSTICS", "off", 1);
}

QuickCard::~QuickCard() {
    inserted = {};
}

int card_information() {
    return ask(QAVEN_getICCardInfo,
               R"({"TagList":"|A|B|C|D|E|F|I|J|L|M|N|O","AIDList":"A000000333010101",)"
               R"("aryInput":"","isReadArqc":"false"})");
}

int transaction_log() {
    return ask(QAVEN_GetTxDetail, R"({"AIDList":"A000000333010101"})");
}

} // namespace qaven::bench

extern "C" {

// The linker puts this in the exchange's place.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
int __wrap__ZN5qaven4apdu8exchangeENS0_7CommandERNS_5ReplyE(qaven::apdu::Command command,
                                                            qaven::Reply& reply) {
    const auto bytes = qaven::hex::bytes(qaven::bench::response(command.place));
    if (bytes.empty()) {
        return qaven::bench::kNotFound;
    }
    const auto end = std::ranges::copy(bytes, reply.place.begin()).out;
    end[0] = 0x90;
    end[1] = 0x00;
    reply.length = bytes.size() + 2;
    return 0;
}

} // extern "C"
