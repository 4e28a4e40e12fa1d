// Columns of text, and the comparison with the file of expected results.
#include "table.h"

#include "digest.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <utility>

namespace qaven::sweep {

namespace {

// What a text takes on a screen: a Chinese character is three bytes of UTF-8 and two columns wide.
std::size_t width(const std::string& text) {
    std::size_t columns = 0;
    for (const char byte : text) {
        const auto value = static_cast<unsigned char>(byte);
        if (value < 0x80U) {
            ++columns;
        } else if (value >= 0xC0U) {
            columns += 2;
        }
    }
    return columns;
}

// Rows by their words: how wide a column is depends on other sections.
class Section {
  public:
    void add(const std::string& line) {
        std::istringstream words(line);
        std::string word;
        while (words >> word) {
            digest_.add(word).add(" ");
        }
        ++rows_;
    }

    [[nodiscard]] std::string line(const std::string& title) const {
        std::ostringstream text;
        text << std::hex << std::setw(16) << std::setfill('0') << digest_.value() << ' ' << std::dec
             << std::setw(4) << std::setfill(' ') << rows_ << "  " << title << '\n';
        return text.str();
    }

  private:
    test::Digest digest_;
    std::size_t rows_ = 0;
};

std::string digests(const std::string& table) {
    std::istringstream lines(table);
    std::string result;
    std::string title = "headings";
    std::string line;
    Section section;
    while (std::getline(lines, line)) {
        if (!line.empty()) {
            section.add(line);
        } else if (std::getline(lines, line)) {
            result += section.line(title);
            title = line;
            section = {};
        }
    }
    return result + section.line(title);
}

bool compare(const std::string& text, const std::filesystem::path& file) {
    std::ifstream stream(file);
    std::istringstream found(text);
    std::string wanted_line;
    std::string found_line;
    for (int number = 1;; ++number) {
        const bool more_wanted = static_cast<bool>(std::getline(stream, wanted_line));
        const bool more_found = static_cast<bool>(std::getline(found, found_line));
        if (!more_wanted && !more_found) {
            return true;
        }
        if (!more_wanted || !more_found || wanted_line != found_line) {
            std::cerr << file.string() << ':' << number << ": outcomes have changed\n"
                      << "  expected: " << (more_wanted ? wanted_line : "(nothing more)") << '\n'
                      << "  found:    " << (more_found ? found_line : "(nothing more)") << '\n';
            return false;
        }
    }
}

} // namespace

Table::Table(std::vector<std::string> headings) : columns_(headings.size()) {
    rows_.push_back(std::move(headings));
}

void Table::row(std::vector<std::string> cells) {
    cells.resize(columns_);
    rows_.push_back(std::move(cells));
}

void Table::section(const std::string& text) {
    rows_.push_back({text});
}

std::string Table::text() const {
    std::vector<std::size_t> widths(columns_, 0);
    for (const auto& cells : rows_) {
        if (cells.size() == columns_) {
            for (std::size_t column = 0; column < columns_; ++column) {
                widths[column] = std::max(widths[column], width(cells[column]));
            }
        }
    }
    std::ostringstream out;
    for (const auto& cells : rows_) {
        if (cells.size() != columns_) {
            out << '\n' << cells.front() << '\n';
            continue;
        }
        std::string line;
        for (std::size_t column = 0; column < columns_; ++column) {
            line += cells[column];
            line.append(widths[column] - width(cells[column]) + 2, ' ');
        }
        line.erase(line.find_last_not_of(' ') + 1);
        out << line << '\n';
    }
    return out.str();
}

std::string ranges(const std::vector<std::size_t>& numbers,
                   const std::map<std::size_t, std::size_t>& order) {
    std::string text;
    for (std::size_t first = 0; first < numbers.size();) {
        std::size_t last = first;
        while (last + 1 < numbers.size() &&
               order.at(numbers[last + 1]) == order.at(numbers[last]) + 1) {
            ++last;
        }
        text += (text.empty() ? "" : " ") + std::to_string(numbers[first]);
        if (last > first) {
            text += "-" + std::to_string(numbers[last]);
        }
        first = last + 1;
    }
    return text;
}

bool check_expected(const std::string& sweep, const std::string& text, bool thorough, bool write) {
    const std::filesystem::path expected =
        std::filesystem::path(QAVEN_SWEEP_EXPECTED) / (sweep + (thorough ? "-all.txt" : ".txt"));
    const std::string known = thorough ? digests(text) : text;
    if (thorough) {
        const auto whole = std::filesystem::path(QAVEN_SWEEP_TABLES) / (sweep + "-all.txt");
        std::ofstream(whole) << text;
        std::cerr << "the table of all cases: " << whole.string() << '\n';
    }
    if (write) {
        std::ofstream(expected) << known;
        return true;
    }
    return compare(known, expected);
}

} // namespace qaven::sweep
