// Script commands as they are written on a command line; the CVR in words.
#include <algorithm>
#include <array>
#include <charconv>
#include <stdexcept>

#include "issuer.h"

namespace qaven::virtual_issuer {

namespace card = virtual_card;

namespace {

constexpr std::size_t longest_script_data = 255 - card::script_mac_size;

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    for (;;) {
        const std::size_t end = text.find(separator);
        parts.push_back(text.substr(0, end));
        if (end == std::string_view::npos) {
            return parts;
        }
        text.remove_prefix(end + 1);
    }
}

[[noreturn]] void refuse(std::string_view command, std::string_view why) {
    throw std::runtime_error("Script command \"" + std::string(command) + "\" " + std::string(why) +
                             ".");
}

Bytes hex_argument(std::string_view command, std::string_view text) {
    const auto bytes = card::from_hex(text);
    if (!bytes || bytes->size() > longest_script_data) {
        refuse(command, "needs hexadecimal text that fits a command");
    }
    return *bytes;
}

std::uint8_t number_argument(std::string_view command, std::string_view text, unsigned largest) {
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number == 0 ||
        number > largest) {
        refuse(command, "needs a number from 1 to " + std::to_string(largest));
    }
    return static_cast<std::uint8_t>(number);
}

ScriptCommand pin_change(std::string_view text, std::string_view digits) {
    const bool only_digits = digits.find_first_not_of("0123456789") == std::string_view::npos;
    if (!only_digits || digits.size() < 4 || digits.size() > 12) {
        refuse(text, "needs a PIN of 4 to 12 digits");
    }
    const card::Cryptogram block = card::make_pin_block(digits);
    ScriptCommand command;
    command.header = {0x84, 0x24, 0x00, 0x02};
    command.data.assign(block.begin(), block.end());
    command.encipher_as_pin = true;
    return command;
}

ScriptCommand put_data(std::string_view text, std::string_view argument) {
    const auto parts = split(argument, ':');
    const auto tag = card::from_hex(parts[0]);
    if (parts.size() != 2 || !tag || tag->size() != 2) {
        refuse(text, "has to be put-data=TAG:VALUE with a tag of two bytes");
    }
    ScriptCommand command;
    command.header = {0x04, 0xDA, (*tag)[0], (*tag)[1]};
    command.data = hex_argument(text, parts[1]);
    return command;
}

ScriptCommand update_record(std::string_view text, std::string_view argument) {
    constexpr unsigned sfi_shift = 3;
    constexpr std::uint8_t by_number = 0x04;
    const auto parts = split(argument, ':');
    if (parts.size() != 3) {
        refuse(text, "has to be update-record=SFI:NUMBER:RECORD");
    }
    const std::uint8_t sfi = number_argument(text, parts[0], 30);
    ScriptCommand command;
    command.header = {0x04, 0xDC, number_argument(text, parts[1], 255),
                      static_cast<std::uint8_t>((sfi << sfi_shift) | by_number)};
    command.data = hex_argument(text, parts[2]);
    return command;
}

ScriptCommand plain(std::string_view text, std::string_view argument) {
    const Bytes bytes = hex_argument(text, argument);
    ScriptCommand command;
    constexpr std::size_t data_at = 5;
    if (bytes.size() < data_at || bytes[4] != bytes.size() - data_at) {
        refuse(text, "has to be CLA INS P1 P2 Lc and Lc bytes");
    }
    std::copy_n(bytes.begin(), command.header.size(), command.header.begin());
    command.data.assign(bytes.begin() + data_at, bytes.end());
    command.secured = false;
    return command;
}

} // namespace

ScriptCommand parse_script_command(std::string_view text) {
    struct Bare {
        std::string_view name;
        std::uint8_t ins;
    };
    constexpr std::array<Bare, 4> bare_commands{{{"application-block", 0x1E},
                                                 {"application-unblock", 0x18},
                                                 {"card-block", 0x16},
                                                 {"pin-unblock", 0x24}}};
    for (const Bare& bare : bare_commands) {
        if (text == bare.name) {
            ScriptCommand command;
            command.header = {0x84, bare.ins, 0x00, 0x00};
            return command;
        }
    }
    const std::size_t equals = text.find('=');
    const std::string_view name = text.substr(0, equals);
    const std::string_view argument =
        equals == std::string_view::npos ? std::string_view() : text.substr(equals + 1);
    if (name == "pin-change") {
        return pin_change(text, argument);
    }
    if (name == "put-data") {
        return put_data(text, argument);
    }
    if (name == "update-record") {
        return update_record(text, argument);
    }
    if (name == "plain") {
        return plain(text, argument);
    }
    refuse(text, "is not known");
}

std::vector<std::string> describe(const card::Cvr& results) {
    namespace cvr = card::cvr;
    std::vector<std::string> phrases;
    const std::uint8_t outcome = results[cvr::outcome_byte];
    const std::uint8_t second = outcome & cvr::second_mask;
    phrases.emplace_back((outcome & cvr::first_mask) == cvr::first_arqc ? "first cryptogram: ARQC"
                                                                        : "first cryptogram: AAC");
    if (second == cvr::second_tc) {
        phrases.emplace_back("second cryptogram: TC");
    } else if (second == cvr::second_aac) {
        phrases.emplace_back("second cryptogram: AAC");
    } else {
        phrases.emplace_back("second cryptogram not requested yet");
    }
    struct Bit {
        std::size_t byte;
        std::uint8_t mask;
        std::string_view phrase;
    };
    // The card says with one bit that it verified a PIN and with another that the PIN was wrong.
    const bool wrong_pin = (outcome & cvr::pin_verification_failed) != 0;
    const std::array<Bit, 11> bits{{
        {cvr::outcome_byte, cvr::issuer_authentication_failed, "issuer authentication failed"},
        {cvr::outcome_byte, cvr::pin_verification_performed,
         wrong_pin ? "PIN verification performed by the card" : "PIN verified by the card"},
        {cvr::outcome_byte, cvr::pin_verification_failed, "PIN was wrong"},
        {cvr::outcome_byte, cvr::unable_to_go_online, "terminal could not go online"},
        {cvr::history_byte, cvr::last_online_not_completed,
         "the online transaction before was not completed"},
        {cvr::history_byte, cvr::pin_try_limit_exceeded, "no PIN tries left"},
        {cvr::history_byte, cvr::new_card, "new card"},
        {cvr::history_byte, cvr::last_issuer_authentication_failed,
         "issuer authentication failed in the transaction before"},
        {cvr::history_byte, cvr::last_issuer_authentication_missing,
         "no issuer authentication in the transaction before"},
        {cvr::script_byte, cvr::script_failed, "a script command failed in the transaction before"},
        {cvr::script_byte, cvr::dynamic_data_signed, "dynamic data signed by the card"},
    }};
    for (const Bit& bit : bits) {
        if ((results.at(bit.byte) & bit.mask) != 0) {
            phrases.emplace_back(bit.phrase);
        }
    }
    const unsigned count = results[cvr::script_byte] >> cvr::script_count_shift;
    if (count > 0) {
        phrases.push_back(std::to_string(count) +
                          " script command(s) received in the transaction before");
    }
    return phrases;
}

} // namespace qaven::virtual_issuer
