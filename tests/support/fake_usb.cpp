// What the script of a test makes of each call.
#include "tests/support/fake_usb.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <utility>

namespace qaven::test {

namespace {

template <typename... Values>
std::string formatted(const char* format, Values... values) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

bool is_transfer(const std::string& line) {
    return line.starts_with("bulk_") || line.starts_with("control_");
}

} // namespace

FakeUsb::~FakeUsb() {
    require_all_given_back();
    for (const std::string& what : violations_) {
        ADD_FAILURE() << "USB: " << what;
    }
}

void FakeUsb::answer(std::string_view packet) {
    answer(bytes(packet));
}

void FakeUsb::answer(Bytes packet) {
    in_.push_back({0, std::move(packet)});
}

void FakeUsb::answer_failure(int code, std::string_view partial) {
    in_.push_back({code, bytes(partial)});
}

void FakeUsb::answer_control(Bytes data) {
    control_in_.push_back(std::move(data));
}

void FakeUsb::fail(Call call, int code) {
    failures_[call].push_back(code);
}

void FakeUsb::fail_bulk(int nth, int code, std::string_view partial) {
    bulk_failures_[bulk_count_ + nth] = {code, bytes(partial)};
}

void FakeUsb::fail_control(int nth, int code) {
    control_failures_[control_count_ + nth] = code;
}

std::vector<std::string> FakeUsb::transfers() const {
    std::vector<std::string> lines;
    std::ranges::copy_if(log_, std::back_inserter(lines), is_transfer);
    return lines;
}

std::vector<std::string> FakeUsb::sent() const {
    std::vector<std::string> packets;
    for (const std::string& line : log_) {
        if (line.starts_with("bulk_out") || line.starts_with("control_out")) {
            packets.push_back(line.substr(line.rfind(' ') + 1));
        }
    }
    return packets;
}

int FakeUsb::reads() const {
    return static_cast<int>(std::ranges::count_if(log_, [](const std::string& line) {
        return line.starts_with("bulk_in") || line.starts_with("control_in");
    }));
}

void FakeUsb::violation(std::string what) {
    violations_.push_back(std::move(what));
}

std::vector<std::string> FakeUsb::take_violations() {
    return std::exchange(violations_, {});
}

std::optional<int> FakeUsb::outcome(Call call) {
    std::deque<int>& queue = failures_[call];
    if (queue.empty()) {
        return std::nullopt;
    }
    const int code = queue.front();
    queue.pop_front();
    return code;
}

void FakeUsb::claimed(int interface) {
    if (on_claim) {
        on_claim(interface);
    }
}

void FakeUsb::closed() {
    if (on_close) {
        on_close();
    }
}

// What the test wants this very transfer to fail with.
const FakeUsb::InTransfer* FakeUsb::bulk_failure() const {
    const auto found = bulk_failures_.find(bulk_count_);
    return found != bulk_failures_.end() ? &found->second : nullptr;
}

int FakeUsb::bulk_transfer(Transfer& transfer) {
    const unsigned endpoint = transfer.endpoint;
    const auto line =
        transfer.in()
            ? formatted("bulk_in %02X %zu %ums", endpoint, transfer.data.size(),
                        transfer.timeout_ms)
            : formatted("bulk_out %02X %ums ", endpoint, transfer.timeout_ms) + hex(transfer.data);
    log_.push_back(line);
    ++bulk_count_;
    if (transfer.in()) {
        return transfer_in(transfer);
    }
    const int code = transfer_out(transfer);
    if (code == 0 && on_packet) {
        on_packet(transfer.data);
    }
    if (code != 0 && on_lost_packet) {
        on_lost_packet();
    }
    return code;
}

int FakeUsb::transfer_out(Transfer& transfer) const {
    if (transfer.obstacle != 0) {
        return transfer.obstacle;
    }
    if (const auto* failure = bulk_failure()) {
        transfer.moved = std::min(failure->data.size(), transfer.data.size());
        return failure->code;
    }
    transfer.moved = transfer.data.size();
    return 0;
}

int FakeUsb::transfer_in(Transfer& transfer) {
    if (transfer.obstacle != 0) {
        return transfer.obstacle;
    }
    if (const auto* failure = bulk_failure()) {
        return transfer.deliver(failure->code, failure->data);
    }
    if (in_.empty()) {
        return LIBUSB_ERROR_TIMEOUT;
    }
    const InTransfer next = std::move(in_.front());
    in_.pop_front();
    return transfer.deliver(next.code, next.data);
}

int FakeUsb::control_transfer(ControlTransfer& transfer) {
    const auto setup =
        formatted("%02X %02X %04X %04X ", unsigned{transfer.type}, unsigned{transfer.request},
                  unsigned{transfer.value}, unsigned{transfer.index});
    log_.push_back(transfer.in()
                       ? "control_in " + setup +
                             formatted("%zu %ums", transfer.data.size(), transfer.timeout_ms)
                       : "control_out " + setup + formatted("%ums ", transfer.timeout_ms) +
                             hex(transfer.data));
    if (transfer.obstacle != 0) {
        return transfer.obstacle;
    }
    ++control_count_;
    if (const auto failure = control_failures_.find(control_count_);
        failure != control_failures_.end()) {
        return failure->second;
    }
    if (!transfer.in()) {
        transfer.moved = transfer.data.size();
        return 0;
    }
    Bytes answer(transfer.data.size());
    if (!control_in_.empty()) {
        answer = std::move(control_in_.front());
        control_in_.pop_front();
    }
    return transfer.deliver(0, answer);
}

} // namespace qaven::test
