// Who has a file open.
#pragma once

#include <string>
#include <vector>

namespace qaven::cli {

// The other processes that have the file open, as far as this user can see them: "name (process
// 123)".
std::vector<std::string> programs_at(const std::string& file);

} // namespace qaven::cli
