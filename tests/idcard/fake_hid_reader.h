// The part of libusb that the identity-card utilities call, as a stage for tests: every call is
// written down, every answer is set by the test, and pauses pass at once.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

namespace idcard_test {

using Bytes = std::vector<unsigned char>;

struct ControlTransfer {
    unsigned request_type;
    unsigned request;
    unsigned value;
    unsigned index;
    unsigned length;
    unsigned timeout;
    Bytes data; // what the host sent; empty for a read

    bool operator==(const ControlTransfer&) const = default;
};

struct FakeHidReader {
    // Answers.
    bool attached = true;
    int init_result = 0;
    int driver_active_result = 0;
    int detach_result = 0;
    int claim_result = 0;
    std::deque<Bytes> input_reports;        // once empty, reports are all zeros
    std::map<std::size_t, int> failures_at; // index of a control transfer -> libusb code

    // What happened.
    std::vector<std::string> calls; // everything but transfers, e.g. "claim 0"
    std::vector<ControlTransfer> transfers;
    std::vector<unsigned> pauses_us;

    // Queues a reply, cut into reports; the last report of it is as short as it comes out.
    void answer(const Bytes& reply);

    [[nodiscard]] std::vector<Bytes> sent() const;
    [[nodiscard]] std::size_t reports_asked_for() const;
};

FakeHidReader& reader();

} // namespace idcard_test
