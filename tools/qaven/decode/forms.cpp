// The forms that an input can have: told by its looks, or named by the user.
#include "tools/qaven/decode/forms.h"

#include "tools/emv/aid.h"
#include "tools/emv/commands.h"
#include "tools/emv/gbk.h"
#include "tools/emv/hex.h"
#include "tools/emv/number_shapes.h"
#include "tools/emv/status_words.h"
#include "tools/emv/tags.h"
#include "tools/emv/tlv.h"
#include "tools/emv/values.h"
#include "tools/qaven/decode/atr.h"
#include "tools/qaven/decode/bits.h"
#include "tools/qaven/decode/card_data.h"
#include "tools/qaven/decode/dol.h"
#include "tools/qaven/decode/explain.h"
#include "tools/qaven/decode/json_texts.h"
#include "tools/qaven/decode/lists.h"
#include "tools/qaven/decode/records.h"
#include "tools/qaven/decode/script_result.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace qaven::cli {

using namespace emv;

namespace {

using ExplainBytes = void (*)(Bytes, Outline&);

void explain_list(Bytes data, Outline& out) {
    explain_objects(data, 0, out);
}

// A form that is given in hexadecimal digits.
template <ExplainBytes Explain>
void from_digits(std::string_view text, Outline& out) {
    const HexText data = from_hex(text);
    // A list guards what is in it object by object, a command and a response their data.
    if (Explain != explain_list) {
        if (Explain != explain_response && Explain != explain_command) {
            out.privacy().learn(data.bytes);
        }
        if (!data.sound() || may_be_number(hex(data.bytes))) {
            out.distrust();
        }
    }
    Explain(data.bytes, out);
    if (data.stranger_at) {
        out.problem("at character " + std::to_string(*data.stranger_at) +
                    ": no hexadecimal digit: " + out.excerpt(text.substr(*data.stranger_at)));
    } else if (data.odd) {
        out.problem("at character " + std::to_string(text.size() - 1) +
                    ": the last digit has no partner");
    }
}

template <Form ValueForm>
void explain_as(Bytes value, Outline& out) {
    const std::string text = shown_value(ValueForm, value, "", out.privacy());
    if (!text.empty()) {
        out.line(text, is_told_value(ValueForm, value));
    }
    explain_value(ValueForm, value, out);
}

void explain_entries(Bytes data, Outline& out) {
    explain_dol(data, 0, out);
}

void explain_status(Bytes data, Outline& out) {
    if (data.size() != 2) {
        out.problem("a status word has 2 bytes, " + std::to_string(data.size()) + " are here");
        return;
    }
    out.line(status_line(data[0] * 256U + data[1]));
}

void explain_tag(Bytes data, Outline& out) {
    const auto read = read_tag(data, 0);
    if (const Fault* const fault = std::get_if<Fault>(&read)) {
        out.problem("at byte " + std::to_string(fault->at) + ": " + fault->why);
        return;
    }
    const TagBytes tag = std::get<TagBytes>(read);
    out.line(tag_text(tag.tag) + ' ' + std::string(tag_name(tag.tag)));
    if (tag.size < data.size()) {
        out.problem("at byte " + std::to_string(tag.size) + ": the tag has ended");
    }
}

void explain_track2(std::string_view text, Outline& out) {
    out.line(readable(track2_text(trimmed(text), out.privacy())));
    if (trimmed(text).find_first_of("Dd=") == std::string_view::npos) {
        out.problem("track 2 has D or = behind the account number");
    }
}

void explain_account_number(std::string_view text, Outline& out) {
    const std::string_view number = trimmed(text);
    out.line(readable(account_number_text(number, out.privacy())));
    if (is_account_number(number)) {
        out.line("the check digit is right");
    } else {
        out.problem("the check digit is wrong, or this is no account number");
    }
}

void explain_aid(Bytes data, Outline& out) {
    out.line(aid_text(data), is_registered(data));
}

using enum Form;

constexpr auto kForms = std::to_array<InputForm>({
    {"tlv", "data objects", from_digits<explain_list>},
    {"tag", "a tag", from_digits<explain_tag>},
    {"dol", "data object list", from_digits<explain_entries>},
    {"apdu", "command to the card", from_digits<explain_command>},
    {"response", "response of the card", from_digits<explain_response>},
    {"sw", "status word", from_digits<explain_status>},
    {"atr", "answer to reset", from_digits<explain_atr>},
    {"aid", "application identifier", from_digits<explain_aid>},
    {"aip", "application interchange profile (82)", from_digits<explain_as<kAip>>},
    {"afl", "application file locator (94)", from_digits<explain_as<kAfl>>},
    {"auc", "application usage control (9F07)", from_digits<explain_as<kAuc>>},
    {"cid", "cryptogram information data (9F27)", from_digits<explain_as<kCid>>},
    {"cvm", "cardholder verification method list (8E)", from_digits<explain_as<kCvmList>>},
    {"cvmr", "cardholder verification method results (9F34)", from_digits<explain_as<kCvmResults>>},
    {"cvr", "card verification results", from_digits<explain_cvr>},
    {"iad", "issuer application data (9F10)", from_digits<explain_as<kIad>>},
    {"tvr", "terminal verification results (95)", from_digits<explain_as<kTvr>>},
    {"tsi", "transaction status information (9B)", from_digits<explain_as<kTsi>>},
    {"termcap", "terminal capabilities (9F33)", from_digits<explain_as<kTerminalCapabilities>>},
    {"addcap", "additional terminal capabilities (9F40)",
     from_digits<explain_as<kAdditionalTerminalCapabilities>>},
    {"termtype", "terminal type (9F35)", from_digits<explain_as<kTerminalType>>},
    {"ttq", "terminal transaction qualifiers (9F66)", from_digits<explain_as<kTtq>>},
    {"pan", "account number (PAN)", explain_account_number},
    {"track2", "track 2", explain_track2},
    {"script", "issuer script result (DF31)", explain_script_result_text},
    {"appdata", "application data text (LpAppData)", explain_application_data},
    {"cardinfo", "card information text (IcInfo)", explain_card_information},
    {"txdata", "transaction data text (aryInput, Txdata)", explain_transaction_data},
    {"txlog", "transaction log text (TxDtailRet)", explain_transaction_log},
    {"loadlog", "load log text", explain_load_log},
    {"taglist", "letters of wanted fields (TagList)", explain_tag_list_letters},
    {"aidlist", "AIDs with | between them (AIDList)", explain_aid_list},
    {"json", "what the library is given or answers", explain_json},
});

// All objects that can be told apart have tags of the table.
bool knows_all_tags(Bytes data) {
    for (std::size_t at = 0; at < data.size();) {
        if (is_filling(data[at])) {
            ++at;
            continue;
        }
        const auto read = read_object(data, at);
        const Object* const object = std::get_if<Object>(&read);
        if (object == nullptr) {
            break;
        }
        if (find_tag(object->tag) == nullptr) {
            return false;
        }
        at += object->size();
    }
    return true;
}

bool begins_with_known_tag(Bytes data) {
    const auto read = read_tag(data, 0);
    const TagBytes* const tag = std::get_if<TagBytes>(&read);
    return tag != nullptr && find_tag(tag->tag) != nullptr;
}

bool is_known_tag(Bytes data) {
    const auto read = read_tag(data, 0);
    const TagBytes* const tag = std::get_if<TagBytes>(&read);
    return tag != nullptr && tag->size == data.size() && find_tag(tag->tag) != nullptr;
}

bool is_track2(std::string_view text) {
    const std::size_t separator = text.find_first_of("Dd=");
    if (separator == std::string_view::npos || separator < 12 || separator > 19) {
        return false;
    }
    std::string_view rest = text.substr(separator + 1);
    while (!rest.empty() && (rest.back() == 'F' || rest.back() == 'f')) {
        rest.remove_suffix(1);
    }
    return all_digits(text.substr(0, separator)) && rest.size() >= 4 && all_digits(rest);
}

const InputForm* form_of_digits(std::string_view text) {
    const HexText data = from_hex(text);
    if (data.odd || data.bytes.empty()) {
        // Cut off in the middle of a byte; what is there of it still says what it is.
        return begins_with_known_tag(data.bytes) ? form_named("tlv") : nullptr;
    }
    if (const InputForm* const form = form_of_bytes(data.bytes)) {
        return form;
    }
    if (data.bytes.size() > 4 && !command_name(data.bytes[0], data.bytes[1]).empty()) {
        return form_named("apdu");
    }
    if (begins_with_known_tag(data.bytes)) {
        return form_named("tlv");
    }
    // Nothing else begins with these bytes, so this is an answer with something wrong.
    return data.bytes[0] == 0x3B || data.bytes[0] == 0x3F ? form_named("atr") : nullptr;
}

const InputForm* form_of_records(std::string_view text) {
    const LetterRecords read = letter_records(text);
    if (read.records.empty() && !read.stops_at) {
        return nullptr;
    }
    if (read.records.empty()) {
        // A single record, cut off.
        const bool headed = text.size() >= 4 && all_digits(text.substr(1, 3));
        return !headed || text[0] < 'A' || text[0] > 'Z' ? nullptr
               : text[0] <= 'O'                          ? form_named("cardinfo")
                                                         : form_named("txdata");
    }
    const auto has = [&](char letter) {
        return std::ranges::find(read.records, letter, &LetterRecord::letter) != read.records.end();
    };
    const char first = read.records.front().letter;
    if (first >= 'A' && first <= 'O') {
        return form_named("cardinfo");
    }
    if (first == 'P' && read.records.front().value.size() == 4) {
        return form_named("loadlog");
    }
    return form_named(has('W') || has('X') ? "txlog" : "txdata");
}

// Internationally registered, as nearly all are; a card information may begin with an empty account
// number, A000, but then another field follows.
bool is_aid(std::string_view text) {
    const HexText data = from_hex(text);
    const bool sized = data.bytes.size() >= 5 && data.bytes.size() <= 16 && data.sound();
    return sized && data.bytes[0] == 0xA0 && data.bytes[1] == 0x00 &&
           letter_records(text).stops_at.has_value();
}

bool is_field_list(std::string_view text) {
    return std::ranges::all_of(
               text, [](char c) { return c == '|' || c == ' ' || (c >= 'A' && c <= 'O'); }) &&
           text.find('|') != std::string_view::npos;
}

bool is_aid_list(std::string_view text) {
    return text.find('|') != std::string_view::npos &&
           std::ranges::all_of(text, [](char c) { return c == '|' || digit_value(c) >= 0; });
}

} // namespace

std::span<const InputForm> all_forms() {
    return kForms;
}

const InputForm* form_named(std::string_view name) {
    const auto* const found = std::ranges::find(kForms, name, &InputForm::name);
    return found != kForms.end() ? found : nullptr;
}

const InputForm* form_of_bytes(std::span<const unsigned char> bytes) {
    if (bytes.empty()) {
        return nullptr;
    }
    if (is_atr(bytes)) {
        return form_named("atr");
    }
    if (bytes.size() == 2 && !is_known_tag(bytes) &&
        looks_like_status(bytes[0] * 256U + bytes[1])) {
        return form_named("sw");
    }
    if (is_known_tag(bytes)) {
        return form_named("tag");
    }
    // Read as an object, success would be an empty certificate.
    const bool succeeds = bytes.size() > 2 && bytes[bytes.size() - 2] == 0x90 && bytes.back() == 0;
    if (succeeds && is_response(bytes) && begins_with_known_tag(bytes)) {
        return form_named("response");
    }
    const bool objects = is_object_list(bytes) && !is_filling(bytes[0]);
    if (objects && knows_all_tags(bytes)) {
        return form_named("tlv");
    }
    if (is_afl(bytes)) {
        return form_named("afl");
    }
    if (is_dol_of_known_tags(bytes)) {
        return form_named("dol");
    }
    if (is_response(bytes) && bytes.size() > 2 && begins_with_known_tag(bytes)) {
        return form_named("response");
    }
    if (is_command(bytes)) {
        return form_named("apdu");
    }
    return objects ? form_named("tlv") : nullptr;
}

const InputForm* guessed_form(std::string_view text) {
    const std::string_view content = trimmed(text);
    if (content.starts_with('{')) {
        return form_named("json");
    }
    if (content.starts_with("DF3105")) {
        return form_named("script");
    }
    if (is_track2(content)) {
        return form_named("track2");
    }
    if (is_account_number(content)) {
        return form_named("pan");
    }
    if (is_application_data(content)) {
        return form_named("appdata");
    }
    if (is_field_list(content)) {
        return form_named("taglist");
    }
    if (is_aid_list(content)) {
        return form_named("aidlist");
    }
    if (looks_like_hex(content)) {
        if (const InputForm* const form = form_of_digits(content)) {
            return form;
        }
        if (is_aid(content)) {
            return form_named("aid");
        }
    }
    // Count bytes of a log can be anything, blanks among them.
    if (has_log_counts(text)) {
        return form_named("txlog");
    }
    return form_of_records(text);
}

} // namespace qaven::cli
