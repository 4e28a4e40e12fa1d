// The texts around data objects: application data, the card sequence number field, whole JSON.
#include "tools/qaven/decode/json_texts.h"

#include "tools/emv/gbk.h"
#include "tools/emv/hex.h"
#include "tools/emv/latin1.h"
#include "tools/qaven/decode/card_data.h"
#include "tools/qaven/decode/records.h"
#include "tools/qaven/decode/script_result.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>

namespace qaven::cli {

using namespace emv;

namespace {

constexpr std::size_t kCountDigits = 6;

std::size_t announced_bytes(std::string_view text) {
    std::size_t count = 0;
    for (const char digit : text.substr(0, kCountDigits)) {
        count = 10 * count + static_cast<std::size_t>(digit - '0');
    }
    return count;
}

bool begins_with_count(std::string_view text) {
    return text.size() >= kCountDigits && all_digits(text.substr(0, kCountDigits));
}

void explain_step(std::string_view text, Outline& out) {
    if (text.empty()) {
        out.line("empty: the ARQC step was not asked for");
        return;
    }
    explain_json(text, out);
}

void explain_status(std::string_view text, Outline& out) {
    out.line(trimmed(text) == "0" ? "the host approved" : "the host declined");
}

void explain_nothing(std::string_view text, Outline& out) {
    out.line(out.excerpt(text));
}

constexpr auto kKeys = std::to_array<Key>({
    {"IcInfo", "card information", explain_card_information},
    {"IcARQC", "answer of the ARQC step", explain_step},
    {"LpAppData", "application data", explain_application_data},
    {"ARQC", "data of the authorisation request (field 55)", explain_objects_text},
    {"Field60", "card sequence number field", explain_sequence_field},
    {"Scriptresult", "issuer script result", explain_script_result_text},
    {"TC", "data of the transaction certificate", explain_objects_text},
    {"TxDtailRet", "transaction log", explain_transaction_log},
    {"TagList", "wanted fields", explain_tag_list_letters},
    {"AIDList", "applications", explain_aid_list},
    {"aryInput", "transaction data", explain_transaction_data},
    {"isReadArqc", "whether the ARQC step runs", explain_nothing},
    {"Txdata", "transaction data", explain_transaction_data},
    {"ARPC", "issuer's answer", explain_objects_text},
    {"Status", "host status", explain_status, true},
    {"LoadLog", "load log", explain_load_log},
});

// Arrays and objects in one another: what is printed, or taken apart once more, goes as deep. Hosts
// need three levels.
bool is_nested_too_deep(std::string_view json) {
    constexpr int kDeepest = 64;
    int depth = 0;
    bool quoted = false;
    for (std::size_t at = 0; at < json.size() && depth <= kDeepest; ++at) {
        const char character = json[at];
        if (character == '"') {
            quoted = !quoted;
        } else if (quoted) {
            at += character == '\\' ? 1 : 0;
        } else if (character == '{' || character == '[') {
            ++depth;
        } else if (character == '}' || character == ']') {
            --depth;
        }
    }
    return depth > kDeepest;
}

void explain_member(const Member& member, Outline& out) {
    const Key* const known = find_key(member.key);
    if (known == nullptr) {
        out.line(readable(out.privacy().guarded(member.key)) + ": " + out.excerpt(member.value));
        return;
    }
    out.line(member.key + ": " + std::string(known->what));
    const auto nest = out.nest();
    if (known->number == member.text) {
        out.problem(known->number ? "has to be a number: the library refuses a text here"
                                  : "has to be a text: the library refuses anything else here");
    }
    known->explain(member.value, out);
}

} // namespace

const Key* find_key(std::string_view key) {
    const auto* const known = std::ranges::find(kKeys, key, &Key::key);
    return known != kKeys.end() ? known : nullptr;
}

bool is_application_data(std::string_view text) {
    text = trimmed(text);
    return begins_with_count(text) && text.size() > kCountDigits &&
           looks_like_hex(text.substr(kCountDigits)) &&
           text.size() - kCountDigits == 2 * announced_bytes(text);
}

void explain_application_data(std::string_view text, Outline& out) {
    text = trimmed(text);
    if (text.empty()) {
        out.line("empty");
        return;
    }
    if (!begins_with_count(text)) {
        out.problem("application data begin with six decimal digits");
        return;
    }
    const std::size_t announced = announced_bytes(text);
    const HexText data = from_hex(text.substr(kCountDigits));
    out.line(std::to_string(announced) + " bytes announced");
    if (data.stranger_at) {
        out.problem("at character " + std::to_string(kCountDigits + *data.stranger_at) +
                    ": no hexadecimal digit");
    }
    if (data.odd || data.bytes.size() != announced) {
        out.problem(std::to_string(data.bytes.size()) + " bytes are there" +
                    (data.odd ? " and half a one" : ""));
    }
    explain_objects(data.bytes, 0, out);
}

void explain_objects_text(std::string_view text, Outline& out) {
    if (trimmed(text).empty()) {
        out.line("empty");
        return;
    }
    const HexText data = from_hex(text);
    explain_objects(data.bytes, 0, out);
    if (data.stranger_at) {
        out.problem("at character " + std::to_string(*data.stranger_at) +
                    ": no hexadecimal digit: " +
                    in_quotes(out.privacy().guarded(text.substr(*data.stranger_at))));
    } else if (data.odd) {
        out.problem("the last digit has no partner");
    }
}

void explain_sequence_field(std::string_view text, Outline& out) {
    constexpr std::string_view kHead("`\x03", 2);
    if (text.empty()) {
        out.line("empty: the card has no PAN sequence number");
    } else if (text.starts_with(kHead)) {
        out.line("PAN sequence number: " +
                 readable(out.privacy().guarded(text.substr(kHead.size()))));
    } else {
        out.problem("begins with other bytes than 60 03: " + out.excerpt(text));
    }
}

std::optional<std::vector<Member>> json_members(std::string_view text) {
    if (is_nested_too_deep(text)) {
        return std::nullopt;
    }
    // The order of the members is the order of the steps.
    const auto object = nlohmann::ordered_json::parse(latin1_to_utf8(text), nullptr, false);
    if (!object.is_object()) {
        return std::nullopt;
    }
    std::vector<Member> members;
    for (const auto& [key, value] : object.items()) {
        const std::string printed = value.is_string() ? value.get<std::string>() : value.dump();
        members.push_back({utf8_to_latin1(key), utf8_to_latin1(printed), value.is_string()});
    }
    return members;
}

void explain_json(std::string_view text, Outline& out) {
    const auto members = json_members(text);
    if (!members) {
        out.problem(
            std::string(is_nested_too_deep(text) ? "nested too deep: " : "not a JSON object: ") +
            out.excerpt(text));
        return;
    }
    for (const Member& member : *members) {
        explain_member(member, out);
    }
}

} // namespace qaven::cli
