// The trace log of the working directory, which main.cpp makes a fresh temporary one.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace qaven::test {

// Starts a test with no trace log.
class TraceLog {
  public:
    TraceLog() { clear(); }
    ~TraceLog() { clear(); }
    TraceLog(const TraceLog&) = delete;
    TraceLog& operator=(const TraceLog&) = delete;

    void clear() const { std::filesystem::remove(file_); }

    bool exists() const { return std::filesystem::exists(file_); }

    std::string text() const {
        std::ifstream file(file_, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

  private:
    std::filesystem::path file_ = std::filesystem::absolute("Qm_ic.log");
};

} // namespace qaven::test
