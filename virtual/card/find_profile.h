// Where card profiles are found.
#pragma once

#include <filesystem>
#include <string>

namespace qaven::virtual_plug {

// A path if `name` has a slash or names an existing file; otherwise NAME.json in the profile
// folder: $QAVEN_PROFILE_DIR if set, else the installed one, else the source tree's (not in a
// package). Throws std::runtime_error if there is no such profile.
[[nodiscard]] std::filesystem::path find_profile(const std::string& name);

} // namespace qaven::virtual_plug
