// The data objects that hosts meet: tag, name, and the form of the value.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace tool {

enum class Form {
    kBytes,
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
    kTagList,
    kInterchangeProfile,
    kTerminalVerification,
    kTransactionStatus,
    kCryptogramInformation,
    kIssuerApplicationData,
    kFileLocator,
    kVerificationMethods,
    kVerificationResults,
    kUsageControl,
    kTerminalCapabilities,
    kMoreTerminalCapabilities,
    kTerminalType,
    kTransactionType,
    kTransactionQualifiers,
    kResponseCode,
    kIssuerAuthentication,
    kScriptCommand,
    kScriptResult,
    kLogEntry,
    kResponseFormat1,
    kPriority,
};

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

} // namespace tool
