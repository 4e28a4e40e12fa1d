// Values that are lists or compounds with a layout of their own.
#include "tools/qaven/decode/lists.h"

#include "tools/emv/code_words.h"
#include "tools/emv/gbk.h"
#include "tools/emv/values.h"
#include "tools/qaven/decode/bits.h"

#include <algorithm>
#include <array>

namespace qaven::cli {

using namespace emv;

namespace {

struct Named {
    unsigned char code;
    std::string_view name;
};

constexpr auto kMethods = std::to_array<Named>({
    {0x00, "fail"},
    {0x01, "plaintext PIN, verified by the card"},
    {0x02, "enciphered PIN, verified online"},
    {0x03, "plaintext PIN, verified by the card, and signature"},
    {0x04, "enciphered PIN, verified by the card"},
    {0x05, "enciphered PIN, verified by the card, and signature"},
    {0x1E, "signature on paper"},
    {0x1F, "no verification required"},
    {0x20, "cardholder's identity document"},
});

constexpr auto kConditions = std::to_array<Named>({
    {0x00, "always"},
    {0x01, "if unattended cash"},
    {0x02, "if not unattended cash, manual cash or purchase with cashback"},
    {0x03, "if the terminal supports it"},
    {0x04, "if manual cash"},
    {0x05, "if purchase with cashback"},
    {0x06, "if in the application's currency and below X"},
    {0x07, "if in the application's currency and above X"},
    {0x08, "if in the application's currency and below Y"},
    {0x09, "if in the application's currency and above Y"},
});

constexpr auto kResults = std::to_array<Named>({
    {0x00, "result not known"},
    {0x01, "failed"},
    {0x02, "successful"},
});

constexpr std::size_t kAmounts = 8;
constexpr unsigned char kMethodMask = 0x3F;
constexpr unsigned char kGoOn = 0x40;

template <std::size_t Size>
const Named* find_name(const std::array<Named, Size>& table, unsigned code) {
    const auto* const found = std::ranges::find(table, code, &Named::code);
    return found != table.end() ? found : nullptr;
}

template <std::size_t Size>
std::string name_in(const std::array<Named, Size>& table, unsigned code) {
    const Named* const named = find_name(table, code);
    return named != nullptr ? std::string(named->name) : "unknown (" + hex(code, 2) + ')';
}

std::string method_text(unsigned char code) {
    return code == kMethodMask ? "none was performed" : name_in(kMethods, code & kMethodMask);
}

// One entry of an AFL.
struct FileRange {
    unsigned sfi;
    unsigned first;
    unsigned last;
    unsigned authenticated;
};

FileRange file_range(Bytes entry) {
    return {entry[0] / 8U, entry[1], entry[2], entry[3]};
}

constexpr std::size_t kFileRangeSize = 4;

bool can_exist(Bytes entry) {
    const FileRange range = file_range(entry);
    return entry[0] % 8U == 0 && range.sfi >= 1 && range.sfi <= 30 && range.first >= 1 &&
           range.last >= range.first && range.authenticated <= range.last - range.first + 1;
}

std::string records_text(const FileRange& range) {
    return range.first == range.last
               ? "record " + std::to_string(range.first)
               : "records " + std::to_string(range.first) + " to " + std::to_string(range.last);
}

constexpr std::size_t kProfileSize = 2;

constexpr std::size_t kCounterAt = 1;
constexpr std::size_t kCryptogramAt = 3;
constexpr std::size_t kCryptogramSize = 8;
constexpr std::size_t kIssuerDataAt = kCryptogramAt + kCryptogramSize;

// The issuer's cryptogram and response code.
constexpr std::size_t kWhole = kCryptogramSize + 2;

bool is_processing_options(Bytes value) {
    return value.size() > kProfileSize && is_afl(value.subspan(kProfileSize));
}

void explain_processing_options(Bytes value, Outline& out) {
    const Bytes profile = value.first(kProfileSize);
    out.line("82 application interchange profile (AIP): " + hex(profile));
    {
        const auto nest = out.nest();
        explain_aip(profile, out);
    }
    out.told("94 application file locator (AFL): " + hex(value.subspan(kProfileSize)));
    const auto nest = out.nest();
    explain_afl(value.subspan(kProfileSize), out);
}

void explain_cryptogram(Bytes value, Outline& out) {
    out.line("9F27 cryptogram information data (CID): " + hex(value[0], 2));
    {
        const auto nest = out.nest();
        explain_cid(value.first(1), out);
    }
    out.line("9F36 application transaction counter (ATC): " +
             value_text(Form::kNumber, value.subspan(kCounterAt, 2), "", out.privacy()));
    out.told("9F26 application cryptogram (AC): " +
             hex(value.subspan(kCryptogramAt, kCryptogramSize)));
    const Bytes issuer_data = value.subspan(kIssuerDataAt);
    if (!issuer_data.empty()) {
        out.line("9F10 issuer application data (IAD): " + hex(issuer_data),
                 is_pboc_iad(issuer_data));
        const auto nest = out.nest();
        explain_iad(issuer_data, out);
    }
}

} // namespace

void explain_afl(Bytes value, Outline& out) {
    std::size_t at = 0;
    for (; at + kFileRangeSize <= value.size(); at += kFileRangeSize) {
        const Bytes entry = value.subspan(at, kFileRangeSize);
        const FileRange range = file_range(entry);
        if (!can_exist(entry)) {
            out.problem("at byte " + std::to_string(at) + " of the file locator: " + hex(entry) +
                        " names no records");
            continue;
        }
        const std::string authenticated =
            range.authenticated == 0
                ? ""
                : ", the first " +
                      (range.authenticated == 1 ? "" : std::to_string(range.authenticated) + ' ') +
                      "for offline data authentication";
        out.line("SFI " + std::to_string(range.sfi) + ": " + records_text(range) + authenticated);
    }
    if (at < value.size()) {
        out.problem("at byte " + std::to_string(at) +
                    " of the file locator: entries have 4 bytes, " +
                    std::to_string(value.size() - at) + " are left");
    }
}

bool is_afl(Bytes value) {
    if (value.empty() || value.size() % kFileRangeSize != 0) {
        return false;
    }
    for (std::size_t at = 0; at < value.size(); at += kFileRangeSize) {
        if (!can_exist(value.subspan(at, kFileRangeSize))) {
            return false;
        }
    }
    return true;
}

void explain_cvm_list(Bytes value, Outline& out) {
    if (value.size() < kAmounts) {
        out.problem("a method list begins with two amounts of four bytes");
        return;
    }
    out.line("amount X " + value_text(Form::kNumber, value.first(4), "", out.privacy()) +
             ", amount Y " + value_text(Form::kNumber, value.subspan(4, 4), "", out.privacy()));
    std::size_t at = kAmounts;
    for (; at + 2 <= value.size(); at += 2) {
        const unsigned char code = value[at];
        out.line(hex(value.subspan(at, 2)) + ": " + name_in(kConditions, value[at + 1]) + ": " +
                 method_text(code) + "; otherwise " +
                 ((code & kGoOn) != 0 ? "the next method" : "verification fails"));
    }
    if (at < value.size()) {
        out.problem("at byte " + std::to_string(at) + " of the method list: half an entry");
    }
}

bool is_cvm_list(Bytes value) {
    if (value.size() <= kAmounts || value.size() % 2 != 0) {
        return false;
    }
    for (std::size_t at = kAmounts; at < value.size(); at += 2) {
        if (find_name(kMethods, value[at] & kMethodMask) == nullptr ||
            find_name(kConditions, value[at + 1]) == nullptr) {
            return false;
        }
    }
    return true;
}

void explain_cvm_results(Bytes value, Outline& out) {
    if (value.size() != 3) {
        out.problem("results have 3 bytes");
        return;
    }
    out.line("method: " + method_text(value[0]));
    out.line("condition: " + name_in(kConditions, value[1]));
    out.line(name_in(kResults, value[2]));
}

void explain_issuer_authentication(Bytes value, Outline& out) {
    if (value.size() < kWhole) {
        out.line("shorter than the cryptogram and response code of a PBOC issuer");
        return;
    }
    out.told("issuer's cryptogram (ARPC): " + hex(value.first(kCryptogramSize)));
    out.line("authorisation response code: " +
             value_text(Form::kResponseCode, value.subspan(kCryptogramSize, 2), "", out.privacy()));
    if (value.size() > kWhole) {
        out.line("further data: " + hex(value.subspan(kWhole)));
    }
}

bool is_pboc_issuer_authentication(Bytes value) {
    return value.size() == kWhole &&
           !response_code_words(characters_of(value.subspan(kCryptogramSize))).empty();
}

bool is_response_format_1(Bytes value) {
    return is_processing_options(value) ||
           (value.size() > kIssuerDataAt && is_pboc_iad(value.subspan(kIssuerDataAt)));
}

void explain_response_format_1(Bytes value, Outline& out) {
    if (is_processing_options(value)) {
        explain_processing_options(value, out);
    } else if (value.size() >= kIssuerDataAt) {
        explain_cryptogram(value, out);
    }
}

} // namespace qaven::cli
