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

struct KnownTag {
    std::uint32_t tag;
    std::string_view name;
    Form form;
};

// In the order of their numbers.
std::span<const KnownTag> all_tags();

// Null for a tag that is not in the table.
const KnownTag* find_tag(std::uint32_t tag);

// The tag's name, or what can be said of a tag that is not in the table.
std::string_view tag_name(std::uint32_t tag);

Form tag_form(std::uint32_t tag);

} // namespace qaven::emv
