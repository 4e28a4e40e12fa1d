// Command and response APDUs inside the card, and its status words.
#pragma once

#include <cstdint>
#include <optional>
#include <utility>

#include "virtual/card/bytes.h"

namespace qaven::virtual_card {

// SW1 SW2 (ISO/IEC 7816-4:2005, 5.1.3).
namespace status {
inline constexpr std::uint16_t kSuccess = 0x9000;
inline constexpr std::uint16_t kBytesAvailable = 0x6100;
inline constexpr std::uint16_t kSelectedFileInvalidated = 0x6283;
inline constexpr std::uint16_t kAuthenticationFailed = 0x6300;
inline constexpr std::uint16_t kTriesLeft = 0x63C0;
inline constexpr std::uint16_t kWrongLength = 0x6700;
inline constexpr std::uint16_t kIncompatibleFileStructure = 0x6981;
inline constexpr std::uint16_t kAuthenticationMethodBlocked = 0x6983;
inline constexpr std::uint16_t kConditionsNotSatisfied = 0x6985;
inline constexpr std::uint16_t kNoCurrentEf = 0x6986;
inline constexpr std::uint16_t kIncorrectSecureMessaging = 0x6988;
inline constexpr std::uint16_t kIncorrectData = 0x6A80;
inline constexpr std::uint16_t kFunctionNotSupported = 0x6A81;
inline constexpr std::uint16_t kFileNotFound = 0x6A82;
inline constexpr std::uint16_t kRecordNotFound = 0x6A83;
inline constexpr std::uint16_t kIncorrectP1P2 = 0x6A86;
inline constexpr std::uint16_t kReferencedDataNotFound = 0x6A88;
inline constexpr std::uint16_t kOffsetOutsideFile = 0x6B00;
inline constexpr std::uint16_t kWrongLe = 0x6C00;
inline constexpr std::uint16_t kInsNotSupported = 0x6D00;
inline constexpr std::uint16_t kClaNotSupported = 0x6E00;
} // namespace status

// The instructions that the card knows (ISO/IEC 7816-4:2005, 5.1.2; EMV Book 3, 6.5).
namespace ins {
inline constexpr std::uint8_t kCardBlock = 0x16;
inline constexpr std::uint8_t kApplicationUnblock = 0x18;
inline constexpr std::uint8_t kApplicationBlock = 0x1E;
inline constexpr std::uint8_t kVerify = 0x20;
inline constexpr std::uint8_t kPinChange = 0x24;
inline constexpr std::uint8_t kExternalAuthenticate = 0x82;
inline constexpr std::uint8_t kGetChallenge = 0x84;
inline constexpr std::uint8_t kInternalAuthenticate = 0x88;
inline constexpr std::uint8_t kSelect = 0xA4;
inline constexpr std::uint8_t kGetProcessingOptions = 0xA8;
inline constexpr std::uint8_t kGenerateAc = 0xAE;
inline constexpr std::uint8_t kReadBinary = 0xB0;
inline constexpr std::uint8_t kReadRecord = 0xB2;
inline constexpr std::uint8_t kGetResponse = 0xC0;
inline constexpr std::uint8_t kGetData = 0xCA;
inline constexpr std::uint8_t kPutData = 0xDA;
inline constexpr std::uint8_t kUpdateRecord = 0xDC;
} // namespace ins

struct Command {
    std::uint8_t cla = 0;
    std::uint8_t ins = 0;
    std::uint8_t p1 = 0;
    std::uint8_t p2 = 0;
    // CLA INS P1 P2 Lc, as they enter the MAC of a script command.
    ByteView header;
    ByteView data;
    std::optional<std::uint8_t> le;

    // The most data bytes that the response may have: 256 for Le 00 (ISO/IEC 7816-4:2005, 5.1).
    std::optional<std::size_t> ne() const {
        constexpr std::size_t kMost = 256;
        if (!le) {
            return std::nullopt;
        }
        return *le == 0 ? kMost : *le;
    }
};

struct Response {
    Response(std::uint16_t status_word) : sw(status_word) {}
    Response(Bytes response_data, std::uint16_t status_word = status::kSuccess)
        : data(std::move(response_data)), sw(status_word) {}

    Bytes data;
    // SW1 SW2.
    std::uint16_t sw;
};

} // namespace qaven::virtual_card
