// A trace log as people read it.
#include "tools/qaven/decode/trace_printer.h"

#include "tools/emv/commands.h"
#include "tools/emv/date_time.h"
#include "tools/emv/gbk.h"
#include "tools/emv/hex.h"
#include "tools/qaven/decode/card_data.h"
#include "tools/qaven/decode/decode.h"
#include "tools/qaven/decode/forms.h"
#include "tools/qaven/decode/json_texts.h"
#include "tools/qaven/decode/trace_labels.h"

#include <algorithm>

namespace qaven::cli {

using namespace emv;

namespace {

constexpr std::size_t kLongValue = 16;

bool is_text(Bytes bytes) {
    return !bytes.empty() && std::ranges::all_of(bytes, [](unsigned char byte) {
        return byte >= 0x20 || byte == '\t' || byte == '\r' || byte == '\n';
    }) && std::ranges::any_of(bytes, [](unsigned char byte) { return byte < 0x7F; });
}

// A number in the digits must not be torn apart by the end of a row.
void print_rows(std::string_view shown, Outline& out) {
    constexpr std::size_t kDigits = 64;
    for (std::size_t at = 0; at < shown.size(); at += kDigits) {
        out.told(std::string(shown.substr(at, kDigits)));
    }
}

// A card's log record has no tags: date, time, amounts one after the other.
bool is_log_record(std::string_view digits) {
    constexpr std::size_t kDate = 6;
    return digits.size() >= 2 * kDate && is_date(digits.substr(0, kDate)) &&
           is_time(digits.substr(kDate, kDate));
}

// What may be seen of the digits of a dump: what is in them has to be known before.
std::string shown_digits(Bytes bytes, const InputForm* form, Privacy& privacy) {
    const std::string digits = hex(bytes);
    Outline explained(privacy);
    if (form == nullptr) {
        privacy.learn(bytes);
        return guessed_form(digits) != nullptr ? privacy.guarded(digits)
               : is_log_record(digits)         ? privacy.redacted(digits)
                                               : privacy.hidden(digits);
    }
    return !decode(digits, form, explained) ? privacy.guarded(digits)
           : explained.hides()              ? privacy.hidden(digits)
                                            : privacy.redacted(digits);
}

// Explains a value whose form nothing but its looks tells; says nothing when they do not.
bool explain_by_looks(std::string_view value, Outline& out) {
    constexpr std::size_t kLeast = 4;
    const InputForm* const form = value.size() >= kLeast ? guessed_form(value) : nullptr;
    if (form == nullptr) {
        return false;
    }
    Outline trial(out.privacy());
    return decode(value, form, trial) && decode(value, form, out);
}

} // namespace

std::string TracePrinter::text(const TraceEntry& entry) {
    Outline out(privacy_);
    privacy_.learn(entry.text);
    if (entry.kind == TraceEntry::Kind::kDump) {
        dump(entry, out);
    } else {
        line(entry.text, out);
    }
    return out.text();
}

bool TracePrinter::seen_before(std::string_view value) {
    return value.size() >= kLongValue && !seen_.emplace(value).second;
}

void TracePrinter::line(std::string_view text, Outline& out) {
    if (const TraceStep* const step = find_step(text)) {
        const std::string words = readable(trimmed(text)) + " (" + std::string(step->what) + ')';
        if (!step->is_entry_point) {
            const auto nest = out.nest();
            out.line(words);
            return;
        }
        seen_.clear();
        if (begun_) {
            out.line("");
        }
        begun_ = true;
        out.line(words);
        return;
    }
    const auto nest = out.nest();
    if (const TraceLabel* const label = find_label(text)) {
        const std::string head = readable(label->label.substr(0, label->label.size() - 1)) + " (" +
                                 std::string(label->what) + ')';
        labelled(head, label->explain, text.substr(label->label.size()), out);
        return;
    }
    unknown(text, out);
}

void TracePrinter::labelled(const std::string& head, Explain explain, std::string_view value,
                            Outline& out) {
    if (seen_before(value)) {
        out.line(head + ": as above");
        return;
    }
    if (explain == explain_json) {
        out.line(head);
        const auto nest = out.nest();
        members(value, out);
        return;
    }
    // What is one line belongs beside its label.
    Outline trial(privacy_);
    explain(value, trial);
    if (trial.text().empty()) {
        out.line(head + ": (empty)");
        return;
    }
    if (!trial.has_problems() && out.line_of(head + ": ", trial)) {
        return;
    }
    out.line(head);
    const auto nest = out.nest();
    explain(value, out);
}

void TracePrinter::members(std::string_view json, Outline& out) {
    const auto parsed = json_members(json);
    if (!parsed) {
        out.line("cut off, or not a JSON object:");
        const auto nest = out.nest();
        out.line(readable(out.privacy().guarded(json)));
        return;
    }
    for (const Member& member : *parsed) {
        const Key* const key = find_key(member.key);
        const std::string head = readable(out.privacy().guarded(member.key)) +
                                 (key != nullptr ? " (" + std::string(key->what) + ')' : "");
        if (key == nullptr) {
            out.line(head + ": " + in_quotes(out.privacy().guarded(member.value)));
        } else {
            const bool nested = json_members(member.value).has_value();
            labelled(head, nested ? explain_json : key->explain, member.value, out);
        }
    }
}

// A line of the host's own, or of a library that says more.
void TracePrinter::unknown(std::string_view text, Outline& out) {
    constexpr std::string_view kBehindTitle = ": ";
    const std::size_t title = text.find(kBehindTitle);
    const bool titled = title != std::string_view::npos;
    const std::string_view value =
        trimmed(titled ? text.substr(title + kBehindTitle.size()) : text);
    const std::string head = titled ? readable(privacy_.guarded(text.substr(0, title))) : "a line";
    if (seen_before(value)) {
        out.line(head + ": as above");
        return;
    }
    Outline explained(privacy_);
    if (!explain_by_looks(value, explained)) {
        out.line(readable(privacy_.guarded(text)));
        return;
    }
    out.line(head);
    const auto nest = out.nest();
    explain_by_looks(value, out);
}

void TracePrinter::dump(const TraceEntry& entry, Outline& out) {
    const auto nest = out.nest();
    const std::string title =
        entry.text.empty() ? "HEX" : readable(out.privacy().guarded(entry.text));
    out.line(title + ", " + std::to_string(entry.bytes.size()) +
             (entry.bytes.size() == 1 ? " byte" : " bytes"));
    const auto inner = out.nest();
    if (carries_pin(entry.bytes)) {
        explain_command(entry.bytes, out);
        return;
    }
    const InputForm* const form = form_of_bytes(entry.bytes);
    print_rows(shown_digits(entry.bytes, form, out.privacy()), out);
    if (form != nullptr) {
        decode(hex(entry.bytes), form, out);
    } else if (is_text(entry.bytes)) {
        const std::string_view text = characters_of(entry.bytes);
        if (!explain_by_looks(text, out)) {
            out.line(in_quotes(out.privacy().guarded(text)));
        }
    }
}

} // namespace qaven::cli
