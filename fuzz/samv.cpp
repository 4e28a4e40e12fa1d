// Feeds the security module's replies to the identity-card transport and commands, and what a card
// holds to the text conversions.
// Input: the mode and the calls (one chunk), then what a Wire takes, in raw mode reports, in card
// mode replies.
#include "idcard/icc.h"
#include "support/demand.h"
#include "support/guarded.h"
#include "support/wire.h"

#include <algorithm>
#include <cstdio>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using qaven::fuzz::Bytes;
using qaven::fuzz::demand;
using qaven::fuzz::Guarded;
using qaven::fuzz::Input;
using qaven::fuzz::Wire;
namespace idcard = qaven::idcard;

// Sizes of text and photograph stand in front of them.
constexpr std::size_t kBlockHead = 4;

void parse_text(std::span<const std::uint8_t> block) {
    Bytes text = Input::exact(block);
    text.resize(idcard::kBaseTextUsed);
    idcard_base_info_parse(text.data());
}

void command(Input& script) {
    const unsigned char cmd = script.byte();
    const unsigned char parameter = script.byte();
    // Kept from input to input: clearing 64 KiB each time is most of what an input costs.
    static Guarded<unsigned char, idcard::kSamvDataCapacity> out;
    unsigned long length = 0;
    if (samv_cmd(cmd, parameter, out.data(), &length) != 0) {
        return;
    }
    demand(length < idcard::kSamvDataCapacity, "data and checksum fit");
    const std::span<const std::uint8_t> data(out.data(), length);
    if (data.size() >= kBlockHead + idcard::kBaseTextUsed) {
        parse_text(data.subspan(kBlockHead, idcard::kBaseTextUsed));
    }
    print_buf(nullptr, out.data(), std::min<unsigned long>(length, 100));
}

void write(Input& script) {
    Bytes data = Input::exact(script.chunk());
    usb_device_write(data.data(), data.size());
}

void read(Input& script) {
    const unsigned tries = script.below(4);
    unsigned long length = 0;
    int result = 0;
    if (script.below(2) == 0) {
        Guarded<unsigned char, idcard::kReportSize> report;
        result = usb_device_read(report.data(), &length, dump_recv_completed, tries);
    } else {
        static Guarded<unsigned char, idcard::kReplyCapacity> reply;
        result = usb_device_read(reply.data(), &length, idcard_recv_completed, tries);
    }
    demand(result <= 0 && length <= idcard::kReplyCapacity, "no more than a reply can be");
}

void judge_completeness(Input& script) {
    Bytes reply = Input::exact(script.chunk());
    const int complete = idcard_recv_completed(reply.data(), reply.size());
    demand(complete == 0 || reply.size() >= idcard::kFrameHeadSize, "a length field first");
}

void convert(Input& script) {
    Bytes out(script.byte());
    Bytes in = Input::exact(script.chunk());
    auto* const text = reinterpret_cast<char*>(out.data());
    if (script.below(2) == 0) {
        ucs2_utf8(in.data(), in.size(), text, out.size());
    } else {
        ucs2_utf8(reinterpret_cast<char*>(in.data()), in.size(), text, out.size());
    }
    demand(out.empty() || in.empty() || std::ranges::count(out, 0) > 0, "a text has an end");
}

void pack(Input& script) {
    const auto hex = Input::text(script.chunk());
    Bytes out((hex.size() - 1) / 2);
    demand(hex2bcd(hex.data(), hex.size() - 1, out.data()) == 0, "always 0");
}

void show(Input& script) {
    auto title = Input::text(script.chunk());
    Bytes bytes = Input::exact(script.chunk());
    print_buf(title.data(), bytes.data(), bytes.size());
    print(static_cast<log_level>(script.below(6)), "%s", title.data());
    usage(title.data());
}

// A host that has not got what it hands in.
void nothing_handed_in() {
    unsigned long length = 0;
    unsigned char byte = 0;
    char text = '\0';
    demand(usb_device_write(nullptr, 1) < 0, "a refusal");
    demand(usb_device_read(nullptr, &length, dump_recv_completed, 1) < 0, "a refusal");
    demand(usb_device_read(&byte, nullptr, dump_recv_completed, 1) < 0, "a refusal");
    demand(usb_device_read(&byte, &length, nullptr, 1) < 0, "a refusal");
    demand(samv_cmd(0x20, 0x01, nullptr, &length) < 0, "a refusal");
    demand(samv_cmd(0x20, 0x01, &byte, nullptr) < 0, "a refusal");
    demand(idcard_recv_completed(nullptr, 100) == 0, "nothing is not complete");
    demand(ucs2_utf8(static_cast<char*>(nullptr), 2, &text, 1) < 0, "a refusal");
    idcard_base_info_parse(nullptr);
    print_buf(nullptr, nullptr, 10);
}

void run(Input& script) {
    switch (script.below(11)) {
    case 0:
        usb_device_open();
        break;
    case 1:
        usb_device_close();
        break;
    case 2:
        write(script);
        break;
    case 3:
        read(script);
        break;
    case 4:
        judge_completeness(script);
        break;
    case 5:
        parse_text(script.chunk());
        break;
    case 6:
        convert(script);
        break;
    case 7:
        pack(script);
        break;
    case 8:
        show(script);
        break;
    case 10:
        nothing_handed_in();
        break;
    default:
        command(script);
        break;
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Messages and dumps go to standard output, which nobody reads here.
    static const bool silenced = std::freopen("/dev/null", "w", stdout) != nullptr;
    demand(silenced, "a place for messages");
    Input input(data, size);
    Input script(input.long_chunk());
    const auto mode = script.below(2) == 0 ? Wire::Mode::kCard : Wire::Mode::kRaw;
    Wire wire(input, mode);
    usb_device_open();
    while (!script.empty()) {
        wire.next_operation();
        run(script);
    }
    wire.disconnect();
    return 0;
}
