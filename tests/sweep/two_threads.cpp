// Two threads of a host that take turns: a call is one at a time by contract, and whoever keeps it
// with a lock of the host's own shares nothing else between threads. Built with the thread
// sanitizer, which stops the program at the first unordered access; in every build each turn is to
// be a whole transaction.
#include "desk.h"

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <mutex>
#include <thread>

using namespace qaven;
using namespace qaven::sweep;

namespace {

constexpr int turns_of_each = 10;

// The host's lock, which also makes the threads alternate.
class Turns {
  public:
    template <typename Work>
    void take(int thread, const Work& work) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this, thread] { return next_ == thread; });
        work();
        next_ = 1 - next_;
        changed_.notify_all();
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int next_ = 0;
};

int take_turns() {
    const QuietHost host;
    const SetUp set_up{.name = "debit", .profile = "debit"};
    const test::IssuerDesk issuer(set_up.profile);
    Desk desk(set_up, issuer);
    desk.bus().plug();

    Turns turns;
    std::atomic<int> complete = 0;
    const auto teller = [&](int thread) {
        for (int turn = 0; turn < turns_of_each; ++turn) {
            turns.take(thread, [&] { complete += desk.transaction().complete ? 1 : 0; });
        }
    };
    std::thread first(teller, 0);
    std::thread second(teller, 1);
    first.join();
    second.join();

    std::cout << complete << " of " << 2 * turns_of_each << " transactions complete\n";
    return complete == 2 * turns_of_each ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

int main() {
    try {
        return take_turns();
    } catch (const std::exception& error) {
        std::cerr << "qaven-two-threads: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
}
