// The table of a sweep's outcomes: what is printed, and what is checked in as expected results.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace qaven::sweep {

// Rows of text cells under headings, laid out in columns. Rows keep their order.
class Table {
  public:
    explicit Table(std::vector<std::string> headings);

    void row(std::vector<std::string> cells);
    // A line of its own across all columns.
    void section(const std::string& text);

    [[nodiscard]] std::string text() const;

  private:
    std::vector<std::vector<std::string>> rows_; // a section is a row of one cell
    std::size_t columns_;
};

// Numbers as ranges: "3-7 12". `order` gives the rank that neighbours are judged by, so that every
// second transfer can make one range.
std::string ranges(const std::vector<std::size_t>& numbers,
                   const std::map<std::size_t, std::size_t>& order);

// Compares what a sweep printed with tests/sweep/expected, or writes it there. The sample's table
// is there as it stands. Of the table of all cases there is a line for each section: a digest of
// its rows, their number, and the section; the table itself is left in the build folder, to be
// compared with that of an earlier build. False, with the first difference on standard error, when
// something else is expected.
bool check_expected(const std::string& sweep, const std::string& text, bool thorough, bool write);

} // namespace qaven::sweep
