// How the command ends: its exit statuses, and the exceptions that lead to them.
#pragma once

#include <stdexcept>
#include <string>

namespace qaven::cli {

enum ExitStatus : int {
    kFine = 0,
    kFailed = 1,   // the operation failed
    kUsage = 2,    // the command line makes no sense
    kNoReader = 3, // there is no reader, or none that may be used
    kNoCard = 4,   // the reader holds no card
    kDeclined = 5, // the transaction was declined, as it should be after such an answer
};

// Ends the command with a sentence on standard error.
class Failure : public std::runtime_error {
  public:
    Failure(ExitStatus status, const std::string& sentence)
        : std::runtime_error(sentence), status_(status) {}

    ExitStatus status() const { return status_; }

  private:
    ExitStatus status_;
};

// The same for a command line that makes no sense; the way to the help follows the sentence.
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

} // namespace qaven::cli
