// Script commands as they are written on a command line; the CVR in words.
#include <algorithm>
#include <array>
#include <charconv>
#include <stdexcept>

#include "virtual/card/apdu.h"
#include "virtual/issuer/issuer.h"

namespace qaven::virtual_issuer {

namespace card = virtual_card;

namespace {

// The classes of commands that end in a MAC (ISO/IEC 7816-4:2005, 5.1.1).
constexpr std::uint8_t kClaInterindustrySecureMessaging = 0x04;
constexpr std::uint8_t kClaSecureMessaging = 0x84;

constexpr std::size_t kLongestScriptData = 255 - card::kScriptMacSize;

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
    if (!bytes || bytes->size() > kLongestScriptData) {
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
    command.header = {kClaSecureMessaging, card::ins::kPinChange, 0x00, 0x02};
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
    command.header = {kClaInterindustrySecureMessaging, card::ins::kPutData, (*tag)[0], (*tag)[1]};
    command.data = hex_argument(text, parts[1]);
    return command;
}

ScriptCommand update_record(std::string_view text, std::string_view argument) {
    constexpr unsigned kSfiShift = 3;
    constexpr std::uint8_t kByNumber = 0x04;
    const auto parts = split(argument, ':');
    if (parts.size() != 3) {
        refuse(text, "has to be update-record=SFI:NUMBER:RECORD");
    }
    const std::uint8_t sfi = number_argument(text, parts[0], 30);
    ScriptCommand command;
    command.header = {kClaInterindustrySecureMessaging, card::ins::kUpdateRecord,
                      number_argument(text, parts[1], 255),
                      static_cast<std::uint8_t>((sfi << kSfiShift) | kByNumber)};
    command.data = hex_argument(text, parts[2]);
    return command;
}

ScriptCommand plain(std::string_view text, std::string_view argument) {
    const Bytes bytes = hex_argument(text, argument);
    ScriptCommand command;
    constexpr std::size_t kDataAt = 5;
    if (bytes.size() < kDataAt || bytes[4] != bytes.size() - kDataAt) {
        refuse(text, "has to be CLA INS P1 P2 Lc and Lc bytes");
    }
    std::copy_n(bytes.begin(), command.header.size(), command.header.begin());
    command.data.assign(bytes.begin() + kDataAt, bytes.end());
    command.secured = false;
    return command;
}

} // namespace

ScriptCommand parse_script_command(std::string_view text) {
    struct Bare {
        std::string_view name;
        std::uint8_t ins;
    };
    constexpr std::array<Bare, 4> kBareCommands{
        {{"application-block", card::ins::kApplicationBlock},
         {"application-unblock", card::ins::kApplicationUnblock},
         {"card-block", card::ins::kCardBlock},
         {"pin-unblock", card::ins::kPinChange}}};
    for (const Bare& bare : kBareCommands) {
        if (text == bare.name) {
            ScriptCommand command;
            command.header = {kClaSecureMessaging, bare.ins, 0x00, 0x00};
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
    refuse(text, "is unknown");
}

std::vector<std::string> describe(const card::Cvr& results) {
    namespace cvr = card::cvr;
    std::vector<std::string> phrases;
    const std::uint8_t outcome = results[cvr::kOutcomeByte];
    const std::uint8_t second = outcome & cvr::kSecondMask;
    phrases.emplace_back((outcome & cvr::kFirstMask) == cvr::kFirstArqc ? "first cryptogram: ARQC"
                                                                        : "first cryptogram: AAC");
    if (second == cvr::kSecondTc) {
        phrases.emplace_back("second cryptogram: TC");
    } else if (second == cvr::kSecondAac) {
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
    const bool wrong_pin = (outcome & cvr::kPinVerificationFailed) != 0;
    const std::array<Bit, 11> bits{{
        {cvr::kOutcomeByte, cvr::kIssuerAuthenticationFailed, "issuer authentication failed"},
        {cvr::kOutcomeByte, cvr::kPinVerificationPerformed,
         wrong_pin ? "PIN verification performed by the card" : "PIN verified by the card"},
        {cvr::kOutcomeByte, cvr::kPinVerificationFailed, "PIN was wrong"},
        {cvr::kOutcomeByte, cvr::kUnableToGoOnline, "terminal could not go online"},
        {cvr::kHistoryByte, cvr::kLastOnlineNotCompleted,
         "the previous online transaction was not completed"},
        {cvr::kHistoryByte, cvr::kPinTryLimitExceeded, "no PIN tries left"},
        {cvr::kHistoryByte, cvr::kNewCard, "new card"},
        {cvr::kHistoryByte, cvr::kLastIssuerAuthenticationFailed,
         "issuer authentication failed in the previous transaction"},
        {cvr::kHistoryByte, cvr::kLastIssuerAuthenticationMissing,
         "no issuer authentication in the previous transaction"},
        {cvr::kScriptByte, cvr::kScriptFailed,
         "a script command failed in the previous transaction"},
        {cvr::kScriptByte, cvr::kDynamicDataSigned, "dynamic data signed by the card"},
    }};
    for (const Bit& bit : bits) {
        if ((results.at(bit.byte) & bit.mask) != 0) {
            phrases.emplace_back(bit.phrase);
        }
    }
    const unsigned count = results[cvr::kScriptByte] >> cvr::kScriptCountShift;
    if (count > 0) {
        phrases.push_back(std::to_string(count) +
                          " script command(s) received in the previous transaction");
    }
    return phrases;
}

} // namespace qaven::virtual_issuer
