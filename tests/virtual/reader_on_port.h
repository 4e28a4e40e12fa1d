// The reader in a port, a host that sends packets as bytes, and a clock that stands still.
#pragma once

#include "echo_card.h"
#include "hex.h"
#include "virtual/reader/reader.h"
#include "virtual/usb/port.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

namespace virtual_test {

namespace usb = qaven::virtual_usb;
namespace reader = qaven::virtual_reader;

inline constexpr std::size_t packet_size = 64;

// The packets that the host library makes of an APDU: it counts the last packet from the APDU's
// length, not from the bytes still unsent.
inline std::vector<Bytes> library_packets(const Bytes& apdu, std::uint8_t seq) {
    Bytes staging =
        Bytes{0x6F, static_cast<std::uint8_t>(apdu.size()), 0, 0, 0, 0, seq, 0, 0, 0} + apdu;
    const std::size_t message = staging.size();
    staging.resize(message + 2 * packet_size);
    const auto piece = [&staging](std::size_t from, std::size_t size) {
        const auto begin = staging.begin() + static_cast<std::ptrdiff_t>(from);
        return Bytes(begin, begin + static_cast<std::ptrdiff_t>(size));
    };
    const std::size_t further = message / packet_size;
    std::vector<Bytes> packets{piece(0, apdu.size() > 54 ? packet_size : message)};
    for (std::size_t i = 1; i <= further; ++i) {
        packets.push_back(
            piece(i * packet_size, i < further ? packet_size : apdu.size() % packet_size));
    }
    return packets;
}

class ReaderOnPort : public testing::Test {
  protected:
    void plug(const reader::Behaviour& behaviour = {}, std::vector<usb::Fault> faults = {}) {
        device_.emplace(nullptr, &card_, behaviour);
        port_.emplace(*device_, nullptr, std::move(faults));
        port_->enumerate(now_);
    }

    // Submits one bulk-OUT transfer on slot 2.
    usb::Completion send(const Bytes& data) {
        return transfer({.id = ++id_,
                         .endpoint = reader::kSlot2.bulk_out,
                         .data = data,
                         .length = data.size()});
    }

    usb::Completion receive(std::size_t room = packet_size) {
        return transfer({.id = ++id_, .endpoint = reader::kSlot2.bulk_in, .length = room});
    }

    std::string answer_to(const Bytes& message) {
        send(message);
        return show(receive().data);
    }

    void power_on() {
        send(hex("62 00 00 00 00 00 00 00 00 00"));
        ASSERT_EQ(receive().data.at(7), 0);
    }

    usb::Completion transfer(usb::Urb urb) {
        const auto id = urb.id;
        EXPECT_EQ(port_->submit(std::move(urb), now_), 0);
        return completion_of(id);
    }

    // A transfer that is still in flight has status -EINPROGRESS here.
    usb::Completion completion_of(std::uint64_t id) {
        auto& all = port_->completions();
        const auto found = std::find_if(all.begin(), all.end(), [id](const auto& completion) {
            return completion.urb.id == id;
        });
        if (found == all.end()) {
            usb::Completion pending;
            pending.status = -EINPROGRESS;
            return pending;
        }
        usb::Completion completion = std::move(*found);
        all.erase(found);
        return completion;
    }

    EchoCard card_;
    std::optional<reader::Reader> device_;
    std::optional<usb::Port> port_;
    usb::TimePoint now_ = usb::TimePoint(std::chrono::hours(1));
    std::uint64_t id_ = 0;
};

} // namespace virtual_test
