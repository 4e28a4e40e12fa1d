// Quantiles by rank, and texts.
#include "measures.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <functional>
#include <iterator>

namespace qaven::bench {
namespace {

constexpr double lower_quarter = 0.25;
constexpr double upper_quarter = 0.75;
constexpr double microseconds_in_a_millisecond = 1000;

std::string number(const char* format, double value) {
    constexpr std::size_t enough = 32;
    std::array<char, enough> text{};
    std::snprintf(text.data(), text.size(), format, value);
    return text.data();
}

} // namespace

double Times::quantile(double part) const {
    if (times_.empty()) {
        return NAN;
    }
    std::vector<double> sorted = times_;
    const auto rank = static_cast<std::ptrdiff_t>(part * static_cast<double>(sorted.size() - 1));
    std::nth_element(sorted.begin(), sorted.begin() + rank, sorted.end());
    return sorted[static_cast<std::size_t>(rank)];
}

std::string Times::text() const {
    return time_text(median()) + " (" + time_text(quantile(lower_quarter)) + " to " +
           time_text(quantile(upper_quarter)) + ")";
}

std::string time_text(double microseconds) {
    return microseconds < microseconds_in_a_millisecond
               ? number("%.0f µs", microseconds)
               : number("%.2f ms", microseconds / microseconds_in_a_millisecond);
}

std::string ratio_text(const Times& ours, const Times& theirs) {
    return number("%.3f", ours.median() / theirs.median());
}

std::string paired_ratio_text(const Times& ours, const Times& theirs) {
    std::vector<double> ratios;
    std::ranges::transform(ours.all(), theirs.all(), std::back_inserter(ratios), std::divides<>{});
    const Times spread(std::move(ratios));
    return number("%.3f", spread.median()) + " (" + number("%.2f", spread.quantile(lower_quarter)) +
           " to " + number("%.2f", spread.quantile(upper_quarter)) + ")";
}

std::string row(const std::vector<std::string>& cells) {
    std::string line = "|";
    for (const auto& cell : cells) {
        line += ' ' + cell + " |";
    }
    return line + '\n';
}

std::string head(const std::vector<std::string>& cells) {
    std::string line = row(cells) + '|';
    for (std::size_t i = 0; i < cells.size(); ++i) {
        line += i == 0 ? "---|" : "---:|";
    }
    return line + '\n';
}

} // namespace qaven::bench
