// Coloured messages and hex rows.
#pragma once

#include "idcard/icc.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace qaven::idcard {

inline constexpr const char* kColourEnd = "\033[0m";

const char* colour_of(log_level level);

// A formatted text in the colour of its level, on standard output.
[[gnu::format(printf, 2, 3)]] void message(log_level level, const char* format, ...);

inline constexpr std::size_t kDumpRowSize = 16;

// A row of at most 16 bytes as "%02X " each, ended by a newline.
using DumpRow = std::array<char, kDumpRowSize * 3 + 2>;
DumpRow dump_row(std::span<const std::uint8_t> bytes);

// Hands the bytes row by row, as text, to emit.
template <typename Emit>
void dump_rows(std::span<const std::uint8_t> bytes, Emit emit) {
    while (!bytes.empty()) {
        const auto row = bytes.first(bytes.size() < kDumpRowSize ? bytes.size() : kDumpRowSize);
        emit(dump_row(row).data());
        bytes = bytes.subspan(row.size());
    }
}

} // namespace qaven::idcard
