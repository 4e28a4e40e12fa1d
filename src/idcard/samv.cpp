// SAM-V frames: ten bytes out, up to 65542 bytes in.
#include "idcard/messages.h"
#include "support/diagnostics.h"

#include <algorithm>
#include <array>
#include <span>

namespace diagnostics = qaven::diagnostics;
using namespace qaven::idcard;

namespace {

constexpr std::size_t length_at = 5;
constexpr std::size_t sw3_at = 9;
constexpr std::size_t data_at = 10;
constexpr unsigned char sw3_success = 0x90;
constexpr unsigned char sw3_found = 0x9F;
// The length of a reply counts SW1 SW2, SW3 and the checksum even when there is no data.
constexpr std::size_t shortest_length = 4;
constexpr std::size_t checksum_size = 1;

// The security module thinks for seconds when it searches for a card: 1000 polls, 10 ms apart.
constexpr unsigned int reply_tries = 1000;

constexpr int transport_failure = -1;
constexpr int samv_refusal = -2;

std::array<unsigned char, 10> command_frame(unsigned char cmd, unsigned char para) {
    std::array<unsigned char, 10> frame{0xAA, 0xAA, 0xAA, 0x96, 0x69, 0x00, 0x03, cmd, para, 0x00};
    for (std::size_t i = length_at; i < frame.size() - checksum_size; ++i) {
        frame.back() ^= frame[i];
    }
    return frame;
}

std::size_t length_field(const unsigned char* frame) {
    return (static_cast<std::size_t>(frame[length_at]) << 8) | frame[length_at + 1];
}

void trace(const char* title, std::span<const unsigned char> bytes) {
    diagnostics::text("%s", title);
    dump_rows(bytes, [](const char* row) { diagnostics::text("%s", row); });
}

} // namespace

int idcard_recv_completed(unsigned char* buf, unsigned long len) {
    if (buf == nullptr || len < frame_head_size) {
        return 0;
    }
    return len >= length_field(buf) + frame_head_size ? 1 : 0;
}

int samv_cmd(unsigned char cmd, unsigned char para, unsigned char* out, unsigned long* out_len) {
    if (out == nullptr || out_len == nullptr) {
        return transport_failure;
    }

    auto command = command_frame(cmd, para);
    if (usb_device_write(command.data(), command.size()) < 0) {
        return transport_failure;
    }
    trace("tx:\n", command);

    static std::array<unsigned char, reply_capacity> reply;
    unsigned long received = 0;
    if (usb_device_read(reply.data(), &received, idcard_recv_completed, reply_tries) < 0) {
        return transport_failure;
    }

    // A reader that never answered has left zeros, and they read as a refusal.
    const unsigned char sw3 = reply[sw3_at];
    if (sw3 != sw3_success && sw3 != sw3_found) {
        diagnostics::text("%sCommand failed, SW3 = 0x%02X\n%s", colour_of(LOG_LEVEL_ERROR), sw3,
                          colour_end);
        return samv_refusal;
    }
    const std::size_t length = length_field(reply.data());
    if (length < shortest_length) {
        return transport_failure;
    }

    const auto frame = std::span(reply).first(length + frame_head_size);
    trace("recv:\n", frame);
    const auto data_and_checksum = frame.subspan(data_at);
    std::ranges::copy(data_and_checksum, out);
    *out_len = data_and_checksum.size() - checksum_size;
    return 0;
}
