// Folders that last as long as the test that made them.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace qaven::test {

class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "qaven-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("cannot create " + pattern);
        }
        path_ = pattern;
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
};

// A working directory of a run's own: the library writes its trace log where the host program
// stands.
class WorkingFolder {
  public:
    WorkingFolder() : start_(std::filesystem::current_path()) {
        std::filesystem::current_path(folder_.path());
    }
    ~WorkingFolder() {
        std::error_code ignored;
        std::filesystem::current_path(start_, ignored);
    }
    WorkingFolder(const WorkingFolder&) = delete;
    WorkingFolder& operator=(const WorkingFolder&) = delete;

  private:
    std::filesystem::path start_;
    TemporaryFolder folder_;
};

} // namespace qaven::test
