// Calls of the JSON entry points.
#include "library.h"

#include "byte_characters.h"
#include "number.h"
#include "qaven/qaven.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>

namespace tool {

namespace {

using nlohmann::ordered_json;

constexpr const char* kTraceFile = "Qm_ic.log";

ordered_json with_characters(ordered_json request) {
    for (auto& value : request) {
        if (value.is_string()) {
            value = byte_characters(value.get<std::string>());
        }
    }
    return request;
}

std::streamoff trace_size() {
    std::ifstream trace(kTraceFile, std::ios::binary | std::ios::ate);
    return trace ? static_cast<std::streamoff>(trace.tellg()) : 0;
}

// The result on the last line "ret:CODE" that was written since the trace had that size.
int traced_result(std::streamoff since) {
    std::ifstream trace(kTraceFile, std::ios::binary);
    trace.seekg(since);
    const std::string text{std::istreambuf_iterator<char>(trace), {}};
    constexpr std::string_view label = "\nret:";
    const std::size_t line = text.rfind(label);
    return line == std::string::npos
               ? 0
               : number_in(std::string_view(text).substr(line + label.size()), 10);
}

struct Meaning {
    int code;
    const char* words;
};

constexpr std::array kMeanings{
    Meaning{QAVEN_NO_CARD, "the card's processing options have a form that is not taken"},
    Meaning{QAVEN_INVALID_CARD, "the card is invalid"},
    Meaning{QAVEN_NO_CRYPTOGRAM,
            "the card gave another cryptogram than the one asked for, or lacks "
            "a data object"},
    Meaning{QAVEN_BAD_RESPONSE, "data of the issuer or the card is missing or illegal"},
    Meaning{QAVEN_TIMEOUT, "the reader did not answer in time"},
    Meaning{QAVEN_BAD_HANDLE, "no reader is open"},
    Meaning{QAVEN_CARD_NOT_SEATED, "the card is not seated, or there is more than one"},
    Meaning{QAVEN_ILLEGAL_DATA, "the answer of the reader or the card is not usable"},
    Meaning{QAVEN_NO_LOAD_LOG, "the card keeps no load log"},
    Meaning{QAVEN_NO_APPLICATION, "the card has no application, or more than one, for the AID"},
    Meaning{QAVEN_NO_TAG_80, "the card's answer has no response template"},
    Meaning{0x6283, "the card's application is blocked"},
    Meaning{0x6300, "the card does not take the issuer's answer for genuine"},
    Meaning{0x6983, "the card's tries are used up"},
    Meaning{0x6984, "the card's data is invalid"},
    Meaning{0x6985, "the card is not in a state for this command"},
    Meaning{0x6988, "the card refuses a message authentication code"},
    Meaning{0x6A81, "the card is blocked, or does not know the command"},
    Meaning{0x6A82, "the card has no such application or file"},
    Meaning{0x6A83, "the card has no such record"},
    Meaning{0x6A88, "the card has no such data object"},
};

std::string hex(int status_word) {
    std::array<char, 16> digits{};
    std::snprintf(digits.data(), digits.size(), "%04X", static_cast<unsigned>(status_word));
    return digits.data();
}

} // namespace

std::string text_of(std::string_view json, std::string_view key) {
    const auto object = ordered_json::parse(byte_characters(json), nullptr, false);
    if (!object.is_object()) {
        return {};
    }
    return character_bytes(object.value(std::string(key), std::string()));
}

std::string json_object(std::string_view key, std::string_view text) {
    const ordered_json object{{std::string(key), byte_characters(text)}};
    return character_bytes(object.dump(1, '\t'));
}

std::string Answer::text(std::string_view key) const {
    return text_of(json, key);
}

Answer ask_library(EntryPoint entry_point, const ordered_json& request) {
    const std::string json = character_bytes(with_characters(request).dump());
    std::string resmsg(QAVEN_RESMSG_SIZE, '\0');
    std::string errmsg(QAVEN_ERRMSG_SIZE, '\0');
    const std::streamoff before = trace_size();
    Answer answer;
    answer.code = entry_point(json.c_str(), resmsg.data(), errmsg.data(), 0, 0);
    answer.json.assign(resmsg, 0, resmsg.find('\0'));
    if (answer.code == 0) {
        answer.code = traced_result(before);
    }
    return answer;
}

std::string explained(int code) {
    const auto* const meaning = std::ranges::find(kMeanings, code, &Meaning::code);
    const std::string number =
        code > 0 ? "status word " + hex(code) : "result " + std::to_string(code);
    return meaning == kMeanings.end() ? "the card or the reader refused (" + number + ")"
                                      : meaning->words + (" (" + number + ")");
}

} // namespace tool
