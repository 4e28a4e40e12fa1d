// Texts that a committed file holds byte for byte.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace qaven::test {

inline std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

// Line by line first, which says more when they differ.
inline void expect_recorded(const std::string& text, const std::string& name) {
    std::ifstream file(std::string(QAVEN_EXPECTED_TRACES) + "/" + name, std::ios::binary);
    ASSERT_TRUE(file) << name;
    const std::string expected{std::istreambuf_iterator<char>(file), {}};
    const auto lines = lines_of(text);
    const auto expected_lines = lines_of(expected);
    for (std::size_t at = 0; at < std::min(lines.size(), expected_lines.size()); ++at) {
        ASSERT_EQ(lines[at], expected_lines[at]) << name << " line " << at + 1;
    }
    EXPECT_EQ(lines.size(), expected_lines.size()) << name;
    EXPECT_EQ(text == expected, true) << name;
}

} // namespace qaven::test
