// Times, what is typical of them, and how they are printed.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace qaven::bench {

using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<double, std::micro>;

template <typename Work>
Microseconds time_of(const Work& work) {
    const auto start = Clock::now();
    work();
    return Clock::now() - start;
}

class Times {
  public:
    Times() = default;
    explicit Times(std::vector<double> times) : times_(std::move(times)) {}

    void add(Microseconds time) { times_.push_back(time.count()); }
    [[nodiscard]] bool empty() const { return times_.empty(); }
    [[nodiscard]] double median() const { return quantile(0.5); }

    // In microseconds; `part` of the times are at most this.
    [[nodiscard]] double quantile(double part) const;

    [[nodiscard]] const std::vector<double>& all() const { return times_; }

    // "median (lower quartile to upper quartile)"
    [[nodiscard]] std::string text() const;

  private:
    std::vector<double> times_;
};

// In a unit that suits it.
std::string time_text(double microseconds);

// Of the medians.
std::string ratio_text(const Times& ours, const Times& theirs);

// For times taken turn by turn: the median of the turns' ratios, which what else the machine does
// moves least, and their quartiles.
std::string paired_ratio_text(const Times& ours, const Times& theirs);

// A row of a table in markdown.
std::string row(const std::vector<std::string>& cells);

// The same with the line below it that makes it the head.
std::string head(const std::vector<std::string>& cells);

} // namespace qaven::bench
