// Colours and hex rows, for those who write to somewhere else than standard output.
#pragma once

#include "idcard/icc.h"

#include <array>
#include <cstddef>
#include <span>

namespace qaven::idcard {

inline constexpr const char* colour_end = "\033[0m";

const char* colour_of(log_level level);

inline constexpr std::size_t dump_row_size = 16;

// A row of at most 16 bytes as "%02X " each, ended by a newline.
using DumpRow = std::array<char, dump_row_size * 3 + 2>;
DumpRow dump_row(std::span<const unsigned char> bytes);

// Hands the bytes row by row, as text, to emit.
template <typename Emit>
void dump_rows(std::span<const unsigned char> bytes, Emit emit) {
    while (!bytes.empty()) {
        const auto row = bytes.first(bytes.size() < dump_row_size ? bytes.size() : dump_row_size);
        emit(dump_row(row).data());
        bytes = bytes.subspan(row.size());
    }
}

} // namespace qaven::idcard
