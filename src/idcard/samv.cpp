// SAM-V frames: ten bytes out, up to 65542 bytes in.
#include "idcard/hid_transport.h"
#include "idcard/messages.h"
#include "support/diagnostics.h"

#include <algorithm>
#include <array>
#include <span>

namespace qaven::idcard {

namespace {

constexpr std::size_t kLengthAt = 5;
constexpr std::size_t kSw3At = 9;
constexpr std::size_t kDataAt = 10;
constexpr std::uint8_t kSw3Success = 0x90;
constexpr std::uint8_t kSw3Found = 0x9F;
// The length of a reply counts SW1 SW2, SW3 and the checksum even when there is no data.
constexpr std::size_t kShortestLength = 4;
constexpr std::size_t kChecksumSize = 1;

// The security module thinks for seconds when it searches for a card: 1000 polls, 10 ms apart.
constexpr unsigned int kReplyTries = 1000;

constexpr int kTransportFailure = -1;
constexpr int kSamvRefusal = -2;

std::array<std::uint8_t, 10> command_frame(std::uint8_t cmd, std::uint8_t para) {
    std::array<std::uint8_t, 10> frame{0xAA, 0xAA, 0xAA, 0x96, 0x69, 0x00, 0x03, cmd, para, 0x00};
    for (std::size_t i = kLengthAt; i < frame.size() - kChecksumSize; ++i) {
        frame.back() ^= frame[i];
    }
    return frame;
}

std::size_t length_field(std::span<const std::uint8_t> frame) {
    return (static_cast<std::size_t>(frame[kLengthAt]) << 8U) | frame[kLengthAt + 1];
}

void trace(const char* title, std::span<const std::uint8_t> bytes) {
    diagnostics::text("%s", title);
    dump_rows(bytes, [](const char* row) { diagnostics::text("%s", row); });
}

bool is_whole(std::span<const std::uint8_t> reply) {
    return reply.size() >= kFrameHeadSize && reply.size() >= length_field(reply) + kFrameHeadSize;
}

int run_command(std::uint8_t cmd, std::uint8_t para, std::span<std::uint8_t> out,
                unsigned long& out_len) {
    auto command = command_frame(cmd, para);
    if (send_reports(command) < 0) {
        return kTransportFailure;
    }
    trace("tx:\n", command);

    static std::array<std::uint8_t, kReplyCapacity> reply;
    std::size_t received = 0;
    if (receive_reports(reply, received, is_whole, kReplyTries) < 0) {
        return kTransportFailure;
    }

    // A reader that never answered has left zeros, and they read as a refusal.
    const std::uint8_t sw3 = reply[kSw3At];
    if (sw3 != kSw3Success && sw3 != kSw3Found) {
        diagnostics::text("%sCommand failed, SW3 = 0x%02X\n%s", colour_of(LOG_LEVEL_ERROR), sw3,
                          kColourEnd);
        return kSamvRefusal;
    }
    const std::size_t length = length_field(reply);
    if (length < kShortestLength) {
        return kTransportFailure;
    }

    const auto frame = std::span(reply).first(length + kFrameHeadSize);
    trace("recv:\n", frame);
    const auto data_and_checksum = frame.subspan(kDataAt);
    std::ranges::copy(data_and_checksum, out.begin());
    out_len = data_and_checksum.size() - kChecksumSize;
    return 0;
}

} // namespace

} // namespace qaven::idcard

namespace idcard = qaven::idcard;

int idcard_recv_completed(unsigned char* buf, unsigned long len) {
    return buf != nullptr && idcard::is_whole({buf, len}) ? 1 : 0;
}

int samv_cmd(unsigned char cmd, unsigned char para, unsigned char* out, unsigned long* out_len) {
    if (out == nullptr || out_len == nullptr) {
        return idcard::kTransportFailure;
    }
    return idcard::run_command(cmd, para, {out, idcard::kSamvDataCapacity}, *out_len);
}
