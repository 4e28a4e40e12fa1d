// One call of the host at a time, and none for ever: the lock that every call takes, and the time
// and the number of exchanges that one operation may use.
#pragma once

#include "support/boundary.h"

#include <chrono>
#include <cstdint>
#include <utility>

namespace qaven::operation {

using Clock = std::chrono::steady_clock;

// A card that answers each command just in time could keep an operation busy for days. No honest
// transaction comes near these.
constexpr std::chrono::milliseconds kDefaultDeadline{120'000};
constexpr int kMaxExchanges = 4096;

// Names the number of milliseconds that an operation may take; 0 for no end. Read when an operation
// begins.
constexpr const char* kDeadlineVariable = "QAVEN_DEADLINE";

// Keeps other threads out. One thread may hold it several times: operations call each other.
class Lock {
  public:
    Lock();
    ~Lock();
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
};

// What a host calls to have something done with the card. Operations that it is made of are part of
// it: the outermost one starts the clock.
class Scope {
  public:
    Scope();
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

  private:
    Lock lock_;
};

// The moment after which nothing more is sent; the clock's zero when there is none.
Clock::time_point deadline();

// True when the operation has used up its time or its exchanges.
bool over();

// Another number for each operation: what is said of one does not hold for the next.
std::uint64_t serial();

// Counts one exchange of the operation.
void count_exchange();

// The body of an exported function that uses the reader or what operations share.
template <typename Result, typename Body>
Result locked(Result on_exception, Body&& body) noexcept {
    const Lock lock;
    return guarded(on_exception, std::forward<Body>(body));
}

// The body of an exported function that is an operation.
template <typename Result, typename Body>
Result run(Result on_exception, Body&& body) noexcept {
    const Scope scope;
    return guarded(on_exception, std::forward<Body>(body));
}

} // namespace qaven::operation
