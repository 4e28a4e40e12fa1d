// Feeds whatever a reader puts on its bulk endpoint to the members of CCID and Myusb, called in
// any order.
// Input: the calls (one chunk), then what a Wire in raw mode takes.
#include "support/demand.h"
#include "support/guarded.h"
#include "support/wire.h"
#include "usb/ccid.h"

#include <algorithm>
#include <array>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using qaven::fuzz::Bytes;
using qaven::fuzz::demand;
using qaven::fuzz::Guarded;
using qaven::fuzz::Input;
using qaven::fuzz::Wire;

constexpr int kVendor = 0x2F7A;
constexpr int kProduct = 0x4417;
constexpr int kUsualTimeout = 1000;

// Mostly the slots that exist.
int interface_number(Input& script) {
    constexpr std::array kNumbers{2, 1, 0, 3, 9, 10, -1, 1'000'000};
    return kNumbers[script.below(kNumbers.size())];
}

int timeout(Input& script) {
    constexpr std::array kTimeouts{kUsualTimeout, 1, 0, -1, 10'000};
    return kTimeouts[script.below(kTimeouts.size())];
}

void open(CCID& reader, Input& script) {
    // An identifier that is not on the bus now and then.
    const int product = script.below(8) == 7 ? 0x1234 : kProduct;
    if (script.below(2) == 0) {
        demand(reader.open(kVendor, product, interface_number(script)) == 0, "always 0");
    } else {
        demand(reader.open(kVendor, product) == 0, "always 0");
    }
}

void interact(CCID& reader, Input& script) {
    // Lengths around the packet sizes and the largest ones, filled with one byte.
    constexpr std::array<std::size_t, 10> kLengths{0, 5, 54, 55, 64, 118, 119, 260, 65544, 65545};
    const unsigned choice = script.below(2 * kLengths.size() + 1);
    Bytes apdu = choice < kLengths.size() ? Bytes(kLengths[choice], script.byte())
                                          : Input::exact(script.chunk());
    const bool lies = choice == 2 * kLengths.size();
    Guarded<unsigned char, CCID::kReplyBufferSize> response;
    int length = -1;
    const int result = reader.interact_apdu(apdu.data(), lies ? -1 : static_cast<int>(apdu.size()),
                                            response.data(), &length, timeout(script));
    demand(result <= 0, "0 or a negative code");
    demand(length <= CCID::kReplyBufferSize, "a length that the buffer holds");
}

void exchange_whole_messages(CCID& reader, Input& script) {
    Guarded<unsigned char, 256> message;
    int length = -1;
    const int result = script.below(2) == 0
                           ? reader.read(message.data(), &length)
                           : reader.readTimeout(message.data(), &length, timeout(script));
    demand(result <= 0 && length >= 0 && length <= 255, "a length of one byte");
}

void exchange_raw_bytes(CCID& reader, Input& script) {
    Bytes bytes(script.byte());
    const auto size = static_cast<int>(bytes.size());
    switch (script.below(3)) {
    case 0:
        reader.Myusb::write(bytes.data(), size);
        break;
    case 1:
        reader.Myusb::read(bytes.data(), size);
        break;
    default:
        reader.Myusb::readTimeout(bytes.data(), size, timeout(script));
        break;
    }
    // A length below zero never reaches the reader.
    demand(reader.Myusb::readTimeout(bytes.data(), -1, kUsualTimeout) < 0, "a refusal");
    demand(reader.transferred >= 0 && reader.transferred <= size, "no more than was asked for");
}

void write(CCID& reader, Input& script) {
    Bytes bytes = Input::exact(script.chunk());
    const auto size = static_cast<int>(bytes.size());
    reader.write(bytes.data(), script.below(8) == 7 ? -size : size);
}

void slot_status(CCID& reader) {
    Guarded<unsigned char, CCID::kPacketSize> status;
    reader.GetSlotStatus(status.data());
}

void run(CCID& reader, Input& script) {
    switch (script.below(12)) {
    case 0:
        open(reader, script);
        break;
    case 1:
        reader.setInterface(interface_number(script));
        break;
    case 2:
        reader.poweron();
        break;
    case 3:
        reader.poweroff();
        break;
    case 4:
        slot_status(reader);
        break;
    case 5:
        write(reader, script);
        break;
    case 6:
        exchange_whole_messages(reader, script);
        break;
    case 7:
        exchange_raw_bytes(reader, script);
        break;
    case 8:
        reader.close();
        break;
    case 9:
        reader.Myusb::init(kVendor, kProduct);
        break;
    case 10:
        reader.Myusb::open();
        break;
    default:
        interact(reader, script);
        break;
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    Input script(input.long_chunk());
    Wire wire(input, Wire::Mode::kRaw);
    CCID reader{};
    reader.open(kVendor, kProduct, 2);
    while (!script.empty()) {
        wire.next_operation();
        run(reader, script);
    }
    reader.close();
    return 0;
}
