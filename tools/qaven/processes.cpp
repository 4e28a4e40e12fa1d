// The processes of the machine and their descriptors, in /proc.
#include "tools/qaven/processes.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace qaven::cli {

namespace {

namespace fs = std::filesystem;

// Processes come and go while this looks: a folder that ends early has no more entries.
std::vector<fs::path> entries_of(const fs::path& folder) {
    std::vector<fs::path> entries;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        entries.push_back(entry->path());
    }
    return entries;
}

bool is_process(const fs::path& entry) {
    return std::isdigit(static_cast<unsigned char>(entry.filename().native().front())) != 0;
}

bool has_open(const fs::path& process, const std::string& file) {
    const std::vector<fs::path> descriptors = entries_of(process / "fd");
    return std::ranges::any_of(descriptors, [&file](const fs::path& descriptor) {
        std::error_code ignored;
        return fs::read_symlink(descriptor, ignored) == file;
    });
}

std::string name_of(const fs::path& process) {
    std::ifstream file(process / "comm");
    std::string name;
    std::getline(file, name);
    return name;
}

} // namespace

std::vector<std::string> programs_at(const std::string& file) {
    const std::string own = std::to_string(getpid());
    std::vector<std::string> programs;
    for (const fs::path& entry : entries_of("/proc")) {
        if (is_process(entry) && entry.filename() != own && has_open(entry, file)) {
            programs.push_back(name_of(entry) + " (process " + entry.filename().string() + ")");
        }
    }
    return programs;
}

} // namespace qaven::cli
