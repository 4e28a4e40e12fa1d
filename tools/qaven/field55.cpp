// Data objects in hex.
#include "tools/qaven/field55.h"

#include "common/tags.h"
#include "tools/emv/tags.h"
#include "tools/emv/tlv.h"
#include "tools/emv/values.h"
#include "tools/qaven/cli/terminal.h"

namespace qaven::cli {

using namespace emv;

std::string object_value(std::string_view objects, std::uint32_t tag) {
    return hex(find_object(from_hex(objects).bytes, tag));
}

void print_objects(std::string_view objects, bool show_pan) {
    const HexText data = from_hex(objects);
    const std::string currency = hex(find_object(data.bytes, kTag5F2ACurrencyCode));
    Privacy privacy(show_pan);
    for (std::size_t at = 0; at < data.bytes.size();) {
        const auto read = read_object(data.bytes, at);
        const Object* const object = std::get_if<Object>(&read);
        if (object == nullptr || !object->whole()) {
            return;
        }
        std::string label = "  " + tag_text(object->tag);
        label.resize(8, ' ');
        label += tag_name(object->tag);
        print_field(label, value_text(tag_form(object->tag), object->value, currency, privacy),
                    kObjectColumn);
        at += object->size();
    }
}

} // namespace qaven::cli
