// Looking up a card profile by name.
#include "virtual/card/find_profile.h"

#include <cstdlib>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace qaven::virtual_card {
namespace {

namespace fs = std::filesystem;

std::vector<fs::path> profile_folders() {
    if (const char* const folder = std::getenv("QAVEN_PROFILE_DIR")) {
        return {folder};
    }
    std::vector<fs::path> folders;
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    if (!error) {
        folders.push_back(program.parent_path() / QAVEN_PROFILES_FROM_PROGRAM);
    }
#ifdef QAVEN_PROFILES_OF_SOURCE_TREE
    folders.emplace_back(QAVEN_PROFILES_OF_SOURCE_TREE);
#endif
    return folders;
}

} // namespace

fs::path find_profile(const std::string& name) {
    std::error_code error;
    if (name.find('/') != std::string::npos) {
        if (!fs::exists(fs::status(name, error))) {
            throw std::runtime_error("Profile " + name + " cannot be read: " + error.message() +
                                     ".");
        }
        return name;
    }
    // A folder that happens to have the name of a shipped card does not hide it.
    if (fs::exists(name, error) && !fs::is_directory(name, error)) {
        return name;
    }
    const std::string file = name.ends_with(".json") ? name : name + ".json";
    std::string looked;
    for (const auto& folder : profile_folders()) {
        fs::path candidate = folder / file;
        if (fs::exists(candidate, error)) {
            return candidate;
        }
        looked += (looked.empty() ? "" : ", ") + folder.lexically_normal().string();
    }
    if (fs::is_directory(name, error)) {
        return name; // about which the reading has a plainer sentence
    }
    throw std::runtime_error("there is no card profile '" + name + "' (looked in " + looked + ")");
}

} // namespace qaven::virtual_card
