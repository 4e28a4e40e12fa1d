// Masks.
#include "card_text.h"

#include "tools/emv/utf8.h"

#include <algorithm>
#include <vector>

namespace tool {

namespace {

constexpr std::size_t kShownHead = 6;
constexpr std::size_t kShownTail = 4;

} // namespace

std::string masked_number(std::string_view number) {
    std::vector<std::string_view> characters;
    while (!number.empty()) {
        const std::size_t size = std::max<std::size_t>(character_size(number), 1);
        characters.push_back(number.substr(0, size));
        number.remove_prefix(size);
    }
    const bool longer = characters.size() > kShownHead + kShownTail;
    std::string text;
    for (std::size_t i = 0; i < characters.size(); ++i) {
        const bool shown = longer && (i < kShownHead || i + kShownTail >= characters.size());
        text += shown ? characters[i] : "*";
    }
    return text;
}

std::string masked_track2(std::string_view track2, char separator) {
    const std::size_t at = track2.find(separator);
    std::string text = masked_number(track2.substr(0, at));
    if (at != std::string_view::npos) {
        text += separator;
        text.append(track2.size() - at - 1, '*');
    }
    return text;
}

} // namespace tool
