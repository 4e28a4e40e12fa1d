// What the transfers tell of the connection that the library itself holds. It stands outside the
// reader object, whose layout hosts are compiled with, and is guarded by the lock of the
// operations.
#pragma once

#include <array>
#include <chrono>

namespace qaven::link {

struct State {
    // Since the device was opened a transfer failed, or a reply was refused, not whole, or only
    // asked for time: what the reader sends next may answer an earlier command.
    bool disturbed = false;

    bool numbers_replies = false;  // a reply since then carried another bSeq than 0
    bool reply_unfinished = false; // the rest of the last reply is still to come

    std::array<unsigned char, 10> reply_header{}; // of the last reply to a command APDU
};

// Makes an object the library's own; at load.
void watch(const void* object);

// The state of the library's own object. What the objects of hosts tell goes nowhere.
State& of(const void* object);

// The moment after which an object transfers nothing more; the clock's zero for no end. Objects of
// hosts know no operation.
std::chrono::steady_clock::time_point deadline_of(const void* object);

} // namespace qaven::link
