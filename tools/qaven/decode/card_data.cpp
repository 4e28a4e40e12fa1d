// Data objects, commands and responses as lines.
#include "tools/qaven/decode/card_data.h"

#include "common/tags.h"
#include "tools/emv/commands.h"
#include "tools/emv/number_shapes.h"
#include "tools/emv/status_words.h"
#include "tools/emv/tags.h"
#include "tools/emv/tlv.h"
#include "tools/emv/values.h"
#include "tools/qaven/decode/dol.h"
#include "tools/qaven/decode/explain.h"

namespace qaven::cli {

using namespace emv;

namespace {

class Tree {
  public:
    Tree(std::string currency, Outline& out) : currency_(std::move(currency)), out_(out) {}

    // False when the rest could not be understood.
    bool list(Bytes data, std::size_t start, int depth) {
        for (std::size_t at = 0; at < data.size();) {
            if (is_filling(data[at])) {
                at = pass_filling(data, at);
                continue;
            }
            const auto read = read_object(data, at);
            if (const Fault* const fault = std::get_if<Fault>(&read)) {
                out_.problem("at byte " + std::to_string(start + fault->at) + ": " + fault->why +
                             "; left: " + left_over(data.subspan(at)));
                return false;
            }
            const auto& object = std::get<Object>(read);
            if (!explain(object, start, depth)) {
                return false;
            }
            at += object.size();
        }
        return true;
    }

  private:
    std::size_t pass_filling(Bytes data, std::size_t at) {
        const std::size_t first = at;
        while (at < data.size() && data[at] == data[first]) {
            ++at;
        }
        out_.line(std::to_string(at - first) + " x " + hex(data[first], 2) + " filling");
        return at;
    }

    // What nobody can tell apart may hold a card number.
    std::string left_over(Bytes data) { return out_.privacy().guarded(hex(data)); }

    bool explain(const Object& object, std::size_t start, int depth) {
        const std::string head = tag_text(object.tag) + " (" + std::to_string(object.length) +
                                 ") " + std::string(tag_name(object.tag));
        if (!object.whole()) {
            return explain_cut(object, head, start, depth);
        }
        if (object.constructed) {
            out_.line(head);
            const auto nest = out_.nest();
            if (depth == kDeepestNesting) {
                out_.problem("at byte " + std::to_string(start + object.at) +
                             ": nested deeper than cards do");
                return false;
            }
            return list(object.value, start + object.at + object.head, depth + 1);
        }
        explain_primitive(object, head, start);
        return true;
    }

    void explain_primitive(const Object& object, const std::string& head, std::size_t start) {
        const Form form = tag_form(object.tag);
        const std::string digits = hex(object.value);
        const bool holds_number = form == Form::kAccountNumber || form == Form::kTrack2;
        if (!holds_number && is_packed_number(digits)) {
            // A damaged tag, or a card that keeps a number where none belongs.
            out_.line(head + ": " + account_number_text(digits, out_.privacy()));
            return;
        }
        const bool unknown = find_tag(object.tag) == nullptr;
        if (form == Form::kBytes) {
            out_.privacy().learn(object.value);
        }
        const std::string text = unknown
                                     ? left_over(object.value)
                                     : shown_value(form, object.value, currency_, out_.privacy());
        const bool is_told = object.tag == kTag83CommandTemplate
                                 ? are_fields(digits)
                                 : !unknown && is_told_value(form, object.value);
        // The command's own explanation repeats its digits, but for a PIN.
        const bool self_explaining = form == Form::kScriptCommand;
        out_.line(text.empty() || self_explaining ? head : head + ": " + text, is_told);
        const auto nest = out_.nest();
        if (form == Form::kDol) {
            explain_dol(object.value, start + object.at + object.head, out_);
        } else if (form == Form::kScriptCommand) {
            explain_command(object.value, out_);
        } else if (object.tag == kTag83CommandTemplate && object.value.empty()) {
            out_.line("empty: the card asks for nothing");
        } else {
            explain_value(form, object.value, out_);
        }
    }

    bool explain_cut(const Object& object, const std::string& head, std::size_t start, int depth) {
        const Form form = tag_form(object.tag);
        const bool secret = form == Form::kAccountNumber || form == Form::kTrack2 ||
                            form == Form::kTrackData || form == Form::kIdentityNumber;
        // A command of a script is explained, and a PIN in it is not shown to anybody.
        const bool never = form == Form::kPinData || form == Form::kScriptCommand;
        const bool show = !object.constructed && !never && (!secret || out_.privacy().show_all());
        out_.line(show && !object.value.empty() ? head + ": " + left_over(object.value) : head);
        const auto nest = out_.nest();
        if (object.constructed && depth < kDeepestNesting) {
            if (!list(object.value, start + object.at + object.head, depth + 1)) {
                return false;
            }
        } else if (form == Form::kScriptCommand) {
            explain_command(object.value, out_);
        }
        out_.problem("at byte " + std::to_string(start + object.at + object.size()) +
                     ": the data end here; object " + tag_text(object.tag) + " announces " +
                     std::to_string(object.length) + " bytes, " +
                     std::to_string(object.value.size()) + " are there");
        return false;
    }

    std::string currency_;
    Outline& out_;
};

void explain_payload(const Command& command, Bytes apdu, Bytes data, Outline& out) {
    switch (command.payload) {
    case Payload::kPin:
        out.line("data: PIN block, never shown");
        return;
    case Payload::kName:
        out.line("name: " + shown_value(Form::kAid, data, "", out.privacy()),
                 is_told_value(Form::kAid, data));
        return;
    case Payload::kIssuerAuthentication:
        explain_value(Form::kIssuerAuthentication, data, out);
        return;
    case Payload::kObjects:
        if (is_object_list(data)) {
            explain_objects(data, 0, out);
            return;
        }
        break;
    case Payload::kObjectValue:
        out.line("value: " + shown_value(tag_form(tag_parameter(apdu)), data, "", out.privacy()));
        return;
    case Payload::kDolValues:
        // Amounts, codes, dates, one after the other.
        out.told("data: " + hex(data));
        return;
    case Payload::kBytes:
        break;
    }
    out.line("data: " + hex(data));
}

} // namespace

void explain_objects(Bytes data, std::size_t start, Outline& out) {
    Bytes currency = find_object(data, kTag5F2ACurrencyCode);
    if (currency.empty()) {
        currency = find_object(data, kTag9F51ApplicationCurrencyCode);
    }
    Tree(hex(currency), out).list(data, start, 0);
}

void explain_command(Bytes apdu, Outline& out) {
    if (apdu.size() < kCommandHeader) {
        out.problem("a command has 4 bytes at least, " + std::to_string(apdu.size()) + " are here");
        return;
    }
    const std::string_view name = command_name(apdu[0], apdu[1]);
    const std::string parameters = parameters_text(apdu);
    out.line(hex(apdu.first(kCommandHeader)) + ' ' +
             (name.empty() ? "unknown command" : std::string(name)) +
             (parameters.empty() || name.empty() ? "" : ": " + parameters));
    const auto nest = out.nest();
    const CommandParts parts = command_parts(apdu);
    if (!parts.fits) {
        out.problem("at byte 4: " + std::to_string(apdu[kCommandHeader]) +
                    " bytes of data are announced, " +
                    std::to_string(apdu.size() - kCommandHeader - 1) + " follow");
        return;
    }
    const Command* const command = find_command(apdu[1]);
    out.privacy().learn(parts.data);
    if (!parts.data.empty() && command != nullptr) {
        explain_payload(*command, apdu, parts.data, out);
    } else if (!parts.data.empty()) {
        out.line("data: " + hex(parts.data));
    }
    if (!parts.mac.empty()) {
        out.line("MAC: " + hex(parts.mac));
    }
    if (parts.le) {
        out.line("Le: " + (*parts.le == 0 ? "all there is, 256 bytes at most"
                                          : std::to_string(*parts.le) + " bytes"));
    }
}

void explain_response(Bytes apdu, Outline& out) {
    if (apdu.size() < 2) {
        out.problem("a response ends in a status word of 2 bytes");
        return;
    }
    const Bytes data = apdu.first(apdu.size() - 2);
    if (!data.empty()) {
        if (is_object_list(data)) {
            explain_objects(data, 0, out);
        } else {
            out.privacy().learn(data);
            // What is taken for the status word may be the end of a number.
            const std::string shown = out.privacy().guarded(hex(apdu));
            out.line("data: " + shown.substr(0, 2 * data.size()));
        }
    }
    out.line(status_line(apdu[apdu.size() - 2] * 256U + apdu.back()));
}

} // namespace qaven::cli
