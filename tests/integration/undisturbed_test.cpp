// A whole session in which nothing goes wrong on the bus: what the library sends and receives,
// prints and traces. The three recordings were made with version 0.1.0 before it learnt to get in
// step with a reader that owes an answer, so a host and a card that are never disturbed must not
// notice that it can. Recordings of a later library would prove nothing here: do not renew them.
// One run makes the session under the launcher's capture, the next one reads the capture.
#include "at_the_counter.h"

#include "console.h"
#include "fixed_clock.h"
#include "recorded.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>

using namespace qaven::test;

namespace {

class UndisturbedSession : public AtTheCounter {};

TEST_F(UndisturbedSession, PrintsAndTracesWhatItAlwaysDid) {
    const FixedClock clock(2026, 1, 2, 3, 4, 5);
    const auto printed = printed_by([this] {
        get_card_information({});

        const auto arqc = read_and_generate().arqc;
        Reply reply;
        reply.script = {"put-data=9F79:000000020000"};
        hand_over(arqc, issuer_.answer(arqc.field55, reply));

        transaction_log(kDebit);
        load_log(kDebit, -1);

        // Outcomes that are no success, on the same sound bus.
        CardRequest stranger;
        stranger.aids = kUnknown;
        get_card_information(stranger);
        const auto declined = generate_arqc();
        hand_over(declined, issuer_.answer(declined.field55), 1);
    });
    EXPECT_EQ(printed.err, "");
    expect_recorded(printed.out, "undisturbed.lines");
    expect_recorded(trace_text(), "undisturbed.trace");
}

// A capture's fields are in the order of the machine that wrote it, which is this one.
template <typename T>
T number_at(std::span<const char> bytes, std::size_t at) {
    T number{};
    std::memcpy(&number, bytes.subspan(at, sizeof number).data(), sizeof number);
    return number;
}

std::string hex(std::span<const char> bytes) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string text;
    for (const char byte : bytes) {
        const auto value = static_cast<std::uint8_t>(byte);
        text += digits[value >> 4U];
        text += digits[value & 0x0FU];
    }
    return text;
}

// One event of Linux's USB monitor as a line, without its time and the numbers of transfer, bus and
// device: submitted or completed, kind of transfer, endpoint, status, length, setup, data.
std::string event_line(std::span<const char> event) {
    constexpr std::size_t header_size = 64;
    constexpr std::size_t setup_at = 40;
    std::ostringstream line;
    line << event[8] << ' ' << hex(event.subspan(9, 1)) << ' ' << hex(event.subspan(10, 1)) << ' '
         << number_at<std::int32_t>(event, 28) << ' ' << number_at<std::uint32_t>(event, 32) << ' '
         << hex(event.subspan(setup_at, 8)) << ' ' << hex(event.subspan(header_size)) << '\n';
    return line.str();
}

// The events in a pcapng file, whose blocks begin with type and length, from SET_CONFIGURATION on:
// in front of it the bus asks the reader for its descriptors, before any program can.
std::string traffic_of(std::span<const char> capture) {
    constexpr std::uint32_t enhanced_packet_block = 6;
    constexpr std::size_t size_at = 20;
    constexpr std::size_t packet_at = 28;
    std::string text;
    while (!capture.empty()) {
        const auto block = capture.first(number_at<std::uint32_t>(capture, 4));
        if (number_at<std::uint32_t>(block, 0) == enhanced_packet_block) {
            text += event_line(block.subspan(packet_at, number_at<std::uint32_t>(block, size_at)));
        }
        capture = capture.subspan(block.size());
    }
    const auto configured = text.find("S 02 00 -115 0 0009010000000000 ");
    return configured == std::string::npos ? text : text.substr(configured);
}

TEST(UndisturbedTraffic, IsWhatItAlwaysWas) {
    const char* const name = std::getenv("QAVEN_CAPTURE");
    ASSERT_NE(name, nullptr);
    std::ifstream file(name, std::ios::binary);
    ASSERT_TRUE(file) << name;
    const std::string capture{std::istreambuf_iterator<char>(file), {}};
    expect_recorded(traffic_of(capture), "undisturbed.traffic");
}

} // namespace
