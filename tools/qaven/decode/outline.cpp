// What is known about an input: lines, indented by what they belong to.
#include "tools/qaven/decode/outline.h"

#include "tools/emv/gbk.h"
#include "tools/emv/known_numbers.h"

#include <algorithm>
#include <utility>

namespace qaven::cli {

using namespace emv;

void Outline::line(std::string text) {
    line(std::move(text), false);
}

void Outline::told(std::string text) {
    line(std::move(text), true);
}

void Outline::line(std::string text, bool is_told) {
    lines_.push_back({depth_, std::move(text), is_told});
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

bool Outline::hides() const {
    return std::ranges::any_of(lines_, [this](const Line& line) {
        return !line.is_told && privacy_.hidden(line.text) != privacy_.redacted(line.text);
    });
}

bool Outline::line_of(const std::string& head, const Outline& single) {
    if (single.lines_.size() != 1) {
        return false;
    }
    const Line& only = single.lines_.front();
    line(head + single.shown(only), only.is_told);
    return true;
}

std::string Outline::shown(const Line& line) const {
    if (line.is_told && !distrusted_) {
        return privacy_.redacted(line.text);
    }
    return distrusted_ || has_problems_ ? privacy_.guarded(line.text) : privacy_.hidden(line.text);
}

std::string Outline::text() const {
    std::string all;
    for (const Line& line : lines_) {
        all.append(2 * static_cast<std::size_t>(line.depth), ' ');
        all += shown(line);
        all += '\n';
    }
    return all;
}

} // namespace qaven::cli
