// What is known about an input: lines, indented by what they belong to.
#include "decode/outline.h"

#include <utility>

namespace tool {

void Outline::line(std::string text) {
    lines_.push_back({depth_, std::move(text)});
}

void Outline::problem(const std::string& text) {
    has_problems_ = true;
    line("! " + text);
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
