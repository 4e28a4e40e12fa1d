// The lock and the clock of the process.
#include "support/operation.h"

#include <pthread.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string_view>

namespace qaven::operation {

namespace {

// What the clock can count to without running over.
constexpr std::chrono::milliseconds kLongestDeadline = std::chrono::hours(24 * 365);

// Of the operation that holds the lock.
struct Progress {
    int depth = 0;
    int exchanges = 0;
    std::uint64_t serial = 0;
    Clock::time_point deadline{};
};

std::recursive_mutex& mutex() {
    static std::recursive_mutex only;
    return only;
}

Progress& progress() {
    static Progress only;
    return only;
}

// The child of a fork has one thread, and no operation of it has begun. A lock that another thread
// held at that moment would never be given back.
void begin_anew() {
    std::construct_at(&mutex());
    progress() = Progress{};
}

[[gnu::constructor]] void watch_forks() {
    pthread_atfork(nullptr, nullptr, begin_anew);
}

std::chrono::milliseconds time_allowed() {
    const char* const value = std::getenv(kDeadlineVariable);
    if (value == nullptr) {
        return kDefaultDeadline;
    }
    const std::string_view text = value;
    std::int64_t milliseconds = 0;
    const auto [end, error] = std::from_chars(text.begin(), text.end(), milliseconds);
    if (error != std::errc{} || end != text.end() || milliseconds < 0) {
        return kDefaultDeadline;
    }
    return std::min(std::chrono::milliseconds(milliseconds), kLongestDeadline);
}

} // namespace

Lock::Lock() {
    mutex().lock();
}

Lock::~Lock() {
    mutex().unlock();
}

Scope::Scope() {
    Progress& now = progress();
    if (now.depth++ == 0) {
        const auto allowed = time_allowed();
        now.exchanges = 0;
        ++now.serial;
        now.deadline = allowed.count() == 0 ? Clock::time_point{} : Clock::now() + allowed;
    }
}

Scope::~Scope() {
    Progress& now = progress();
    if (--now.depth == 0) {
        now.exchanges = 0;
        now.deadline = Clock::time_point{};
    }
}

Clock::time_point deadline() {
    return progress().deadline;
}

std::uint64_t serial() {
    return progress().serial;
}

bool over() {
    return progress().exchanges >= kMaxExchanges ||
           (progress().deadline != Clock::time_point{} && Clock::now() >= progress().deadline);
}

void count_exchange() {
    if (progress().depth > 0) {
        ++progress().exchanges;
    }
}

} // namespace qaven::operation
