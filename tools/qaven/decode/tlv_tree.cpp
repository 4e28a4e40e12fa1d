// Data objects as a tree of lines.
#include "decode/tlv_tree.h"

#include "decode/aid.h"
#include "decode/apdu.h"
#include "decode/dol.h"
#include "decode/number_shapes.h"
#include "decode/tags.h"
#include "decode/tlv.h"
#include "decode/values.h"

namespace tool {

namespace {

constexpr std::uint32_t kCommandTemplate = 0x83;

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
        const bool is_aid = object.tag == 0x4F || object.tag == 0x84 || object.tag == 0x9F06;
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
        const std::string text = unknown ? left_over(object.value)
                                 : is_aid
                                     ? aid_text(object.value)
                                     : value_text(form, object.value, currency_, out_.privacy());
        // The command's own explanation repeats its digits, but for a PIN.
        const bool self_explaining = form == Form::kScriptCommand;
        out_.line(text.empty() || self_explaining ? head : head + ": " + text,
                  is_aid                           ? is_registered(object.value)
                  : object.tag == kCommandTemplate ? are_fields(digits)
                                                   : !unknown && is_told(form, object.value));
        const auto nest = out_.nest();
        if (form == Form::kDol) {
            explain_dol(object.value, start + object.at + object.head, out_);
        } else if (object.tag == kCommandTemplate) {
            explain_command_template(object.value);
        } else {
            explain_value(form, object.value, out_);
        }
    }

    void explain_command_template(Bytes value) {
        if (value.empty()) {
            out_.line("empty: the card asks for nothing");
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

} // namespace

void explain_objects(Bytes data, std::size_t start, Outline& out) {
    constexpr std::uint32_t kTransactionCurrency = 0x5F2A;
    constexpr std::uint32_t kApplicationCurrency = 0x9F51;
    Bytes currency = find_object(data, kTransactionCurrency);
    if (currency.empty()) {
        currency = find_object(data, kApplicationCurrency);
    }
    Tree(hex(currency), out).list(data, start, 0);
}

} // namespace tool
