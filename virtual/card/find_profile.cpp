// Looking up a card profile by name.
#include "virtual/plug/profile.h"

#include <cstdlib>
#include <stdexcept>
#include <vector>

namespace qaven::virtual_plug {
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
    if (name.find('/') != std::string::npos || fs::exists(name, error)) {
        if (!fs::exists(name, error)) {
            throw std::runtime_error("there is no card profile " + name);
        }
        return name;
    }
    std::string looked;
    for (const auto& folder : profile_folders()) {
        fs::path candidate = folder / (name + ".json");
        if (fs::exists(candidate, error)) {
            return candidate;
        }
        looked += (looked.empty() ? "" : ", ") + folder.lexically_normal().string();
    }
    throw std::runtime_error("there is no card profile '" + name + "' (looked in " + looked + ")");
}

} // namespace qaven::virtual_plug
