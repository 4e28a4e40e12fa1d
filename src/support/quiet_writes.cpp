// The signals are blocked for this thread alone; the host's handlers and other threads never know.
#include "support/quiet_writes.h"

#include <array>
#include <ctime>

namespace qaven {

namespace {

constexpr std::array kSignals{SIGPIPE, SIGXFSZ};

} // namespace

QuietWrites::QuietWrites() {
    sigset_t pending{};
    sigpending(&pending);
    sigemptyset(&raised_by_writes_);
    for (const int signal : kSignals) {
        if (sigismember(&pending, signal) == 0) {
            sigaddset(&raised_by_writes_, signal);
        }
    }
    pthread_sigmask(SIG_BLOCK, &raised_by_writes_, &mask_before_);
}

QuietWrites::~QuietWrites() {
    // A write's signal goes to the thread that wrote, so it is pending here or nowhere.
    const timespec now{};
    while (sigtimedwait(&raised_by_writes_, nullptr, &now) > 0) {
    }
    pthread_sigmask(SIG_SETMASK, &mask_before_, nullptr);
}

} // namespace qaven
