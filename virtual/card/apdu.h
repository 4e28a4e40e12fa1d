// Command and response APDUs inside the card, and the status words that it gives.
#pragma once

#include <cstdint>
#include <optional>
#include <utility>

#include "bytes.h"

namespace qaven::virtual_card {

namespace status {
constexpr std::uint16_t success = 0x9000;
constexpr std::uint16_t more_data = 0x6100;
constexpr std::uint16_t selected_file_blocked = 0x6283;
constexpr std::uint16_t authentication_failed = 0x6300;
constexpr std::uint16_t tries_left = 0x63C0;
constexpr std::uint16_t wrong_length = 0x6700;
constexpr std::uint16_t wrong_file_structure = 0x6981;
constexpr std::uint16_t pin_blocked = 0x6983;
constexpr std::uint16_t not_now = 0x6985;
constexpr std::uint16_t no_current_file = 0x6986;
constexpr std::uint16_t wrong_script_mac = 0x6988;
constexpr std::uint16_t wrong_data = 0x6A80;
constexpr std::uint16_t card_blocked = 0x6A81;
constexpr std::uint16_t file_not_found = 0x6A82;
constexpr std::uint16_t record_not_found = 0x6A83;
constexpr std::uint16_t wrong_parameters = 0x6A86;
constexpr std::uint16_t object_not_found = 0x6A88;
constexpr std::uint16_t wrong_offset = 0x6B00;
constexpr std::uint16_t wrong_expected_length = 0x6C00;
constexpr std::uint16_t unknown_instruction = 0x6D00;
constexpr std::uint16_t unknown_class = 0x6E00;
} // namespace status

struct Command {
    std::uint8_t instruction_class = 0;
    std::uint8_t instruction = 0;
    std::uint8_t p1 = 0;
    std::uint8_t p2 = 0;
    // CLA INS P1 P2 Lc, as they enter the MAC of a script command.
    ByteView header;
    ByteView data;
    std::optional<std::uint8_t> expected;

    // Le 00 asks for as much as a short response can hold.
    std::optional<std::size_t> expected_length() const {
        constexpr std::size_t most = 256;
        if (!expected) {
            return std::nullopt;
        }
        return *expected == 0 ? most : *expected;
    }
};

struct Response {
    Response(std::uint16_t refusal) : status_word(refusal) {}
    Response(Bytes answer, std::uint16_t outcome = status::success)
        : data(std::move(answer)), status_word(outcome) {}

    Bytes data;
    std::uint16_t status_word;
};

} // namespace qaven::virtual_card
