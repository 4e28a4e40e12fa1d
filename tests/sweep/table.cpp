// Columns of text, and the comparison with the file of expected results.
#include "table.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>
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

bool check_expected(const std::string& text, const std::filesystem::path& file, bool write) {
    if (write) {
        std::ofstream(file) << text;
        return true;
    }
    std::ifstream stream(file);
    const std::string expected{std::istreambuf_iterator<char>(stream), {}};
    if (expected == text) {
        return true;
    }
    std::istringstream wanted(expected);
    std::istringstream found(text);
    std::string wanted_line;
    std::string found_line;
    for (int number = 1;; ++number) {
        const bool more_wanted = static_cast<bool>(std::getline(wanted, wanted_line));
        const bool more_found = static_cast<bool>(std::getline(found, found_line));
        if (!more_wanted || !more_found || wanted_line != found_line) {
            std::cerr << file.string() << ':' << number << ": outcomes have changed\n"
                      << "  expected: " << (more_wanted ? wanted_line : "(nothing more)") << '\n'
                      << "  found:    " << (more_found ? found_line : "(nothing more)") << '\n';
            return false;
        }
    }
}

} // namespace qaven::sweep
