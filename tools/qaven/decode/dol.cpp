// Lists of what a card wants to be told.
#include "tools/qaven/decode/dol.h"

#include "tools/emv/tags.h"
#include "tools/emv/tlv.h"

namespace qaven::cli {

using namespace emv;

void explain_dol(Bytes list, std::size_t start, Outline& out) {
    std::size_t total = 0;
    for (std::size_t at = 0; at < list.size();) {
        const auto read = read_tag(list, at);
        if (const Fault* const fault = std::get_if<Fault>(&read)) {
            out.problem("at byte " + std::to_string(start + fault->at) + ": " + fault->why);
            return;
        }
        const TagBytes tag = std::get<TagBytes>(read);
        at += tag.size;
        if (at >= list.size()) {
            out.problem("at byte " + std::to_string(start + at) +
                        ": the list ends before the length of object " + tag_text(tag.tag));
            return;
        }
        out.line(tag_text(tag.tag) + ' ' + std::string(tag_name(tag.tag)) + ", " +
                 std::to_string(list[at]) + (list[at] == 1 ? " byte" : " bytes"));
        total += list[at];
        ++at;
    }
    out.line("together " + std::to_string(total) + " bytes");
}

void explain_tag_list(Bytes list, Outline& out) {
    for (std::size_t at = 0; at < list.size();) {
        const auto read = read_tag(list, at);
        if (const Fault* const fault = std::get_if<Fault>(&read)) {
            out.problem("at byte " + std::to_string(fault->at) + " of the list: " + fault->why);
            return;
        }
        const TagBytes tag = std::get<TagBytes>(read);
        out.line(tag_text(tag.tag) + ' ' + std::string(tag_name(tag.tag)));
        at += tag.size;
    }
}

bool is_dol_of_known_tags(Bytes list) {
    std::size_t entries = 0;
    for (std::size_t at = 0; at < list.size(); ++entries) {
        const auto read = read_tag(list, at);
        const TagBytes* const tag = std::get_if<TagBytes>(&read);
        if (tag == nullptr || find_tag(tag->tag) == nullptr || at + tag->size >= list.size()) {
            return false;
        }
        // Terminals are not asked for what only cards have.
        const Form form = tag_form(tag->tag);
        if (form == Form::kTemplate || form == Form::kDol || form == Form::kResponseFormat1) {
            return false;
        }
        at += tag->size + 1;
    }
    return entries > 1;
}

} // namespace qaven::cli
