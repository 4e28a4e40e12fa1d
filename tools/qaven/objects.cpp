// The objects that a request for an issuer and a TC consist of.
#include "objects.h"

#include "card_text.h"
#include "number.h"
#include "terminal.h"
#include "tools/emv/code_words.h"
#include "tools/emv/date_time.h"
#include "tools/emv/money.h"

#include <algorithm>
#include <array>

namespace tool {

namespace {

// Both amounts travel with the terminal's currency, which is always this one.
constexpr std::string_view kTerminalCurrency = "0156";

struct Named {
    std::string_view code;
    std::string_view name;
};

constexpr std::array kObjects{
    Named{"9F26", "cryptogram"},
    Named{"9F27", "kind of cryptogram"},
    Named{"9F10", "issuer application data"},
    Named{"9F37", "unpredictable number"},
    Named{"9F36", "transaction counter"},
    Named{"95", "verification results"},
    Named{"9F13", "last online counter"},
    Named{"9A", "date"},
    Named{"9C", "type"},
    Named{"9F02", "amount"},
    Named{"5F2A", "currency"},
    Named{"5A", "card number"},
    Named{"5F34", "card sequence number"},
    Named{"82", "application profile"},
    Named{"9F1A", "country"},
    Named{"9F03", "other amount"},
    Named{"9F33", "terminal capabilities"},
    Named{"9F63", "card product"},
};

constexpr std::array kCryptograms{Named{"00", "AAC, declined"}, Named{"40", "TC, approved"},
                                  Named{"80", "ARQC, to be asked online"}};

std::string with_code(std::string_view name, std::string_view code) {
    return std::string(name) + " (" + std::string(code) + ")";
}

std::string cryptogram_kind(std::string_view value) {
    const auto* const kind = std::ranges::find(kCryptograms, value, &Named::code);
    return kind == kCryptograms.end() ? std::string(value) : with_code(kind->name, value);
}

std::string counter(std::string_view value) {
    return with_code(std::to_string(number_in(value, 16)), value);
}

std::string in_words(const HexObject& object, bool show_pan) {
    const std::string& value = object.value;
    if (object.tag == "5A") {
        const std::string pan = value.substr(0, value.find('F'));
        return show_pan ? pan : masked_number(pan);
    }
    if (object.tag == "9F02" || object.tag == "9F03") {
        return amount_text(value, kTerminalCurrency);
    }
    if (object.tag == "5F2A") {
        return currency_text(value);
    }
    if (object.tag == "9A") {
        return date_text(value);
    }
    if (object.tag == "9C") {
        return transaction_type_text(value);
    }
    if (object.tag == "9F27") {
        return cryptogram_kind(value);
    }
    if (object.tag == "9F36" || object.tag == "9F13") {
        return counter(value);
    }
    return value;
}

unsigned byte_at(std::string_view hex, std::size_t at) {
    return static_cast<unsigned>(number_in(hex.substr(std::min(at, hex.size()), 2), 16));
}

} // namespace

std::vector<HexObject> read_objects(std::string_view hex) {
    std::vector<HexObject> objects;
    while (hex.size() >= 4) {
        // Tags of these lists have one byte or two, lengths one.
        const std::size_t tag_digits = (byte_at(hex, 0) & 0x1FU) == 0x1FU ? 4 : 2;
        const std::size_t digits = std::size_t{2} * byte_at(hex, tag_digits);
        const std::size_t head = tag_digits + 2;
        if (hex.size() < head + digits) {
            break;
        }
        objects.push_back(
            {std::string(hex.substr(0, tag_digits)), std::string(hex.substr(head, digits))});
        hex.remove_prefix(head + digits);
    }
    return objects;
}

std::optional<std::string> object_value(const std::vector<HexObject>& objects,
                                        std::string_view tag) {
    const auto object = std::ranges::find(objects, tag, &HexObject::tag);
    return object == objects.end() ? std::nullopt : std::optional(object->value);
}

void print_objects(const std::vector<HexObject>& objects, bool show_pan) {
    for (const HexObject& object : objects) {
        const auto* const named = std::ranges::find(kObjects, object.tag, &Named::code);
        std::string label = "  " + object.tag;
        label.resize(8, ' ');
        label += named == kObjects.end() ? "" : named->name;
        print_field(label, in_words(object, show_pan));
    }
}

} // namespace tool
