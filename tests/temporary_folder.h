// A working directory of a run's own: the library writes its trace log where the host program
// stands.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace qaven::test {

class TemporaryFolder {
  public:
    TemporaryFolder() : start_(std::filesystem::current_path()) {
        std::string pattern = (std::filesystem::temp_directory_path() / "qaven-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("cannot create " + pattern);
        }
        folder_ = pattern;
        std::filesystem::current_path(folder_);
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::current_path(start_, ignored);
        std::filesystem::remove_all(folder_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  private:
    std::filesystem::path start_;
    std::filesystem::path folder_;
};

} // namespace qaven::test
