// Where card profiles are found.
#pragma once

#include <filesystem>
#include <string>

namespace qaven::virtual_card {

// What a --profile option names. A path if `name` has a slash or names an existing file; otherwise
// NAME.json (or NAME, if it ends so) in the profile folder: $QAVEN_PROFILE_DIR if set, else the
// installed one, else the source tree's (not in a package). Throws std::runtime_error with the
// reason or with the folders that were looked in.
[[nodiscard]] std::filesystem::path find_profile(const std::string& name);

} // namespace qaven::virtual_card
