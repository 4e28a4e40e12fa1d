// The data objects that hosts meet: tag, name, and the form of the value.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace qaven::emv {

enum class Form {
    kBytes,
    kAid,
    kTemplate,
    kText,
    kDigits,
    kNumber, // binary, read as a decimal number
    kAmount,
    kDate,
    kTime,
    kAccountNumber,
    kTrack2,
    kTrackData,
    kIdentityNumber,
    kIdentityType,
    kPinData,
    kServiceCode,
    kCurrency,
    kCurrencies,
    kCountry,
    kDol,
    kTag,
    kTagList,
    kAip,
    kTvr,
    kTsi,
    kCid,
    kIad,
    kAfl,
    kCvmList,
    kCvmResults,
    kAuc,
    kTerminalCapabilities,
    kAdditionalTerminalCapabilities,
    kTerminalType,
    kTransactionType,
    kTtq,
    kResponseCode,
    kIssuerAuthentication,
    kScriptCommand,
    kScriptResult,
    kLogEntry,
    kResponseFormat1,
    kPriority,
};

// Those that are asked for by name.
inline constexpr std::uint32_t kTag4FAid = 0x4F;
inline constexpr std::uint32_t kTag5APan = 0x5A;
inline constexpr std::uint32_t kTag5F2ACurrencyCode = 0x5F2A;
inline constexpr std::uint32_t kTag83CommandTemplate = 0x83;
inline constexpr std::uint32_t kTag91IssuerAuthenticationData = 0x91;
inline constexpr std::uint32_t kTag9F36Atc = 0x9F36;
inline constexpr std::uint32_t kTag9F51ApplicationCurrencyCode = 0x9F51;

struct Tag {
    std::uint32_t tag;
    std::string_view name;
    Form form;
};

// In the order of their numbers.
std::span<const Tag> all_tags();

// Null for a tag that is not in the table.
const Tag* find_tag(std::uint32_t tag);

// The tag's name, or what can be said of a tag that is not in the table.
std::string_view tag_name(std::uint32_t tag);

Form tag_form(std::uint32_t tag);

} // namespace qaven::emv
