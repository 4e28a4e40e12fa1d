// Output that is committed beside the tests.
#pragma once

#include <string>

namespace qaven::cli::test {

// Compares with the committed file, line by line. With QAVEN_RENEW_EXPECTED in the environment the
// file is written instead, and the test fails once, for somebody to look at what has changed.
void expect_committed(const std::string& name, const std::string& text);

} // namespace qaven::cli::test
