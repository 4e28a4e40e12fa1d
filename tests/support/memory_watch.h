// What the library does with the memory of the process: allocations that fail, and what stands in
// memory when it is given back. Programs with these are linked with operator new and delete of
// their own, and with calloc wrapped.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace qaven::test {

// Work of the test's own inside a call of the library, such as the fake bus's: not watched.
class Unwatched {
  public:
    Unwatched() { ++depth; }
    ~Unwatched() { --depth; }
    Unwatched(const Unwatched&) = delete;
    Unwatched& operator=(const Unwatched&) = delete;

    static inline thread_local int depth = 0; // 0: this thread is watched
};

// While one lives, the nth allocation of this thread from its beginning fails, cJSON's included.
class FailingAllocation {
  public:
    explicit FailingAllocation(std::size_t nth);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    // False when there were fewer.
    bool failed() const;
};

// While one lives, memory that this thread gives back is searched for these bytes.
class FreedMemory {
  public:
    explicit FreedMemory(const std::vector<std::string>& secrets);
    ~FreedMemory();
    FreedMemory(const FreedMemory&) = delete;
    FreedMemory& operator=(const FreedMemory&) = delete;

    // How many blocks still held one of them.
    std::size_t findings() const;
};

} // namespace qaven::test
