// Output that is committed beside the tests.
#include "golden.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <vector>

namespace qaven::cli::test {

namespace {

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

} // namespace

void expect_committed(const std::string& name, const std::string& text) {
    const std::string path = std::string(QAVEN_DECODE_EXPECTED) + "/" + name + ".txt";
    if (std::getenv("QAVEN_RENEW_EXPECTED") != nullptr) {
        std::ofstream(path, std::ios::binary) << text;
        ADD_FAILURE() << path << " is written anew; look at the difference, then test again";
        return;
    }
    std::ifstream file(path, std::ios::binary);
    ASSERT_TRUE(file) << path << " is not there; QAVEN_RENEW_EXPECTED=1 writes it";
    const std::string expected{std::istreambuf_iterator<char>(file), {}};
    EXPECT_EQ(lines_of(text), lines_of(expected)) << name;
    EXPECT_EQ(text == expected, true) << name;
}

} // namespace qaven::cli::test
