// The commands run as programs.
#pragma once

#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace qaven::cli::test {

struct Ending {
    int status; // exit status, or -1 for one that a signal ended
    std::string output;
    std::string errors;
};

// Runs to its end, with this on standard input.
Ending run(const std::vector<std::string>& arguments, const std::string& input = "");

// A program that is running; ended for good when nobody waits for it any more.
class Program {
  public:
    explicit Program(const std::vector<std::string>& arguments, const std::string& input = "");
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    ~Program();

    // Reads its output until the text is there. False when a few seconds have passed without it.
    bool says(std::string_view text);

    // What it has said so far.
    const std::string& output() const { return output_; }

    void interrupt() const;

    // What remains of its output and errors, and its end.
    Ending end();

  private:
    bool read_once(int milliseconds);

    pid_t process_ = -1;
    int output_end_ = -1;
    int errors_end_ = -1;
    std::string output_;
};

} // namespace qaven::cli::test
