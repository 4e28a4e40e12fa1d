// Between the library and libusb, and between it and its trace file: this program has functions of
// their names, through which the library's calls go. They keep what is transferred and how long
// things take.
#pragma once

#include "measures.h"

#include <libusb.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace qaven::bench {

// One bulk transfer.
struct Transfer {
    unsigned char endpoint = 0;
    std::vector<std::uint8_t> data; // sent; or room for so many bytes to receive
    unsigned timeout_ms = 0;
    int received = 0;
};

using Tape = std::vector<Transfer>;

// The handle that the library opened last.
libusb_device_handle* librarys_handle();

// The same transfers again, by bare libusb; throws if one fails. Returns how many of the answers
// have another length than those on the tape.
int replay(const Tape& tape, libusb_device_handle* handle);

struct Part {
    Microseconds time{};
    int count = 0;

    void add(Microseconds more) {
        time += more;
        ++count;
    }
};

// What the time of a piece of work goes to.
struct Parts {
    Part transfers;
    Part trace; // from the opening of the file to its closing, line by line

    // Calls that come before and after the transfers, by name: start, enumeration, open, claim,
    // release, close, end.
    std::map<std::string, Part> connection;

    [[nodiscard]] Part whole_connection() const;
};

// As long as it lives, the library finds that its trace file cannot be opened.
class WithoutTrace {
  public:
    WithoutTrace();
    WithoutTrace(const WithoutTrace&) = delete;
    WithoutTrace& operator=(const WithoutTrace&) = delete;
    WithoutTrace(WithoutTrace&&) = delete;
    WithoutTrace& operator=(WithoutTrace&&) = delete;
    ~WithoutTrace();
};

void start_recording(Tape& tape);
void start_timing(Parts& parts);
void stop();

// The bulk transfers that `work` makes the library do.
template <typename Work>
Tape record(const Work& work) {
    Tape tape;
    start_recording(tape);
    work();
    stop();
    return tape;
}

template <typename Work>
Parts parts_of(const Work& work) {
    Parts parts;
    start_timing(parts);
    work();
    stop();
    return parts;
}

} // namespace qaven::bench
