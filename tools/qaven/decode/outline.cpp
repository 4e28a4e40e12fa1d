// What is known about an input: lines, indented by what they belong to.
#include "decode/outline.h"

#include "decode/known_numbers.h"
#include "decode/text.h"

#include <utility>

namespace tool {

void Outline::line(std::string text) {
    lines_.push_back({depth_, std::move(text)});
}

void Outline::problem(const std::string& text) {
    has_problems_ = true;
    line("! " + text);
}

std::string Outline::excerpt(std::string_view text) {
    constexpr std::size_t kMost = 1000;
    if (text.size() <= kMost) {
        return in_quotes(privacy_.guarded(text));
    }
    // A number across the cut is masked as the whole that it is.
    const std::string shown = privacy_.guarded(text.substr(0, kMost + 8 * kLongestNumber));
    return in_quotes(std::string_view(shown).substr(0, kMost)) + " (" +
           std::to_string(text.size() - kMost) + " more characters left out)";
}

std::string Outline::text() const {
    std::string all;
    for (const Line& line : lines_) {
        all.append(2 * static_cast<std::size_t>(line.depth), ' ');
        all += distrusted_ ? privacy_.guarded(line.text) : privacy_.redacted(line.text);
        all += '\n';
    }
    return all;
}

} // namespace tool
