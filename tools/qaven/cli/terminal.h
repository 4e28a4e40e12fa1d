// What people see: labelled fields, tables, marks in colour, and the line that says what is being
// waited for.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qaven::cli {

enum class Colour { kNone, kBold, kGreen, kRed, kYellow };

// The text in a colour when standard output is a terminal that wants colours (NO_COLOR).
std::string coloured(Colour colour, std::string_view text);

// UTF-8 text without its control characters and what is no UTF-8, each shown as a question mark: a
// card, a command line or the name of a process must not steer the terminal.
std::string printable(std::string_view text);

// "label   value". width: of the column of labels.
void print_field(std::string_view label, std::string_view value, std::size_t width = 32);

// A line over a group of fields.
void print_heading(std::string_view text);

// Columns as wide as their widest cell; the last may hold wide characters. The first row names the
// columns. Columns whose name begins with '>' are aligned to the right.
using Row = std::vector<std::string>;
void print_table(const std::vector<Row>& rows);

// False when something that was printed could not be written to standard output.
bool output_written();
// True when standard output is a pipe that nobody reads any more.
bool output_reader_gone();
inline constexpr const char* kNotWritten = "cannot write to standard output";

// "qaven: waiting for ..." on standard error.
void say_waiting(bool quiet, std::string_view what);

} // namespace qaven::cli
