// Writing into what a host's own world has closed or limited, without a signal that would end the
// host.
#pragma once

#include <csignal>

namespace qaven {

// While one lives, no write of this thread raises SIGPIPE or SIGXFSZ; the write's error is all that
// is left of it. Signals that were pending before stay so.
class QuietWrites {
  public:
    QuietWrites();
    ~QuietWrites();
    QuietWrites(const QuietWrites&) = delete;
    QuietWrites& operator=(const QuietWrites&) = delete;

  private:
    sigset_t raised_by_writes_{};
    sigset_t mask_before_{};
};

} // namespace qaven
