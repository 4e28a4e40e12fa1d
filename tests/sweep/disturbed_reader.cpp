// Answers go from the reader into the queues of this object, some of them changed on the way.
#include "disturbed_reader.h"

#include <algorithm>

namespace qaven::sweep {

namespace {

using virtual_usb::Bytes;
using virtual_usb::Handshake;
using virtual_usb::Reply;
using virtual_usb::TimePoint;

constexpr std::size_t type_byte = 0;
constexpr std::size_t seq_byte = 6;
constexpr std::size_t status_byte = 7;
constexpr std::size_t error_byte = 8;

constexpr std::uint8_t data_block = 0x80;

// bStatus of a request for more time, and the multiple of BWT that is asked for.
constexpr std::uint8_t time_extension = 0x80;
constexpr std::uint8_t waiting_times = 1;

std::uint8_t in_endpoint_for(std::uint8_t out_endpoint) {
    return out_endpoint == virtual_reader::kSlot1.bulk_out ? virtual_reader::kSlot1.bulk_in
                                                           : virtual_reader::kSlot2.bulk_in;
}

} // namespace

std::string Disturbance::text() const {
    switch (kind) {
    case Kind::late:
        return "late by " + std::to_string(delay.count()) + " ms";
    case Kind::cut:
        return "cut after " + std::to_string(bytes) + " bytes";
    case Kind::extension:
        return "time-extension x" + std::to_string(extensions) + ", " +
               std::to_string(delay.count()) + " ms";
    case Kind::lost:
        return "lost";
    }
    return {};
}

void DisturbedReader::disturb(const Disturbance& disturbance) {
    announced_.push_back(disturbance);
}

std::set<std::uint8_t> DisturbedReader::answers_left() const {
    std::set<std::uint8_t> endpoints;
    for (const auto& [endpoint, queue] : queues_) {
        if (!queue.empty()) {
            endpoints.insert(endpoint);
        }
    }
    return endpoints;
}

Bytes DisturbedReader::device_descriptor() const {
    return reader_.device_descriptor();
}

Bytes DisturbedReader::configuration_descriptor() const {
    return reader_.configuration_descriptor();
}

Reply DisturbedReader::control(const virtual_usb::Setup& setup, std::span<const std::uint8_t> data,
                               TimePoint now) {
    return reader_.control(setup, data, now);
}

Handshake DisturbedReader::out(std::uint8_t endpoint, std::span<const std::uint8_t> packet,
                               TimePoint now) {
    const std::uint8_t in_endpoint = in_endpoint_for(endpoint);
    Queue& queue = queues_[in_endpoint];
    if (habits_.holds_off && !queue.empty() && queue.back().ready > now) {
        return Handshake::kNak;
    }
    const Handshake handshake = reader_.out(endpoint, packet, now);
    Bytes message;
    for (Reply reply = reader_.in(in_endpoint, now); reply.handshake == Handshake::kAck;
         reply = reader_.in(in_endpoint, now)) {
        message.insert(message.end(), reply.data.begin(), reply.data.end());
        if (reply.data.size() < virtual_reader::kBulkPacketSize) {
            take_answer(std::move(message), queue, now);
            message.clear();
        }
    }
    return handshake;
}

void DisturbedReader::take_answer(Bytes message, Queue& queue, TimePoint now) {
    if (silent_) {
        return;
    }
    if (!habits_.numbers_answers) {
        message[seq_byte] = 0;
    }
    TimePoint ready = std::max(now, queue.empty() ? now : queue.back().ready) + habits_.answer_time;
    for (auto one = announced_.begin(); one != announced_.end();) {
        if (one->answers_before > 0) {
            --one->answers_before;
            ++one;
            continue;
        }
        const Disturbance disturbance = *one;
        one = announced_.erase(one);
        if (observer_) {
            observer_(disturbance);
        }
        switch (disturbance.kind) {
        case Disturbance::Kind::late:
            ready += disturbance.delay;
            break;
        case Disturbance::Kind::cut:
            message.resize(std::min(message.size(), disturbance.bytes));
            break;
        case Disturbance::Kind::extension:
            if (message.size() >= virtual_reader::kCcidHeaderSize &&
                message[type_byte] == data_block) {
                Bytes request(message.begin(), message.begin() + virtual_reader::kCcidHeaderSize);
                std::fill(request.begin() + 1, request.begin() + 5, std::uint8_t{0});
                request[status_byte] = time_extension;
                request[error_byte] = waiting_times;
                for (unsigned k = 0; k < disturbance.extensions; ++k) {
                    ready += disturbance.delay;
                    queue_message(request, queue, ready);
                }
                ready += disturbance.delay;
            }
            break;
        case Disturbance::Kind::lost:
            return;
        }
    }
    queue_message(message, queue, ready);
}

void DisturbedReader::queue_message(const Bytes& message, Queue& queue, TimePoint ready) {
    for (auto& packet : virtual_reader::to_packets(message)) {
        queue.push_back({.packet = std::move(packet), .ready = ready});
    }
    last_ready_ = std::max(last_ready_, ready);
}

Reply DisturbedReader::in(std::uint8_t endpoint, TimePoint now) {
    const auto found = queues_.find(endpoint);
    if (found == queues_.end() || found->second.empty() || found->second.front().ready > now) {
        return Reply::nak();
    }
    Reply reply = Reply::ack(std::move(found->second.front().packet));
    found->second.pop_front();
    return reply;
}

void DisturbedReader::clear_halt(std::uint8_t endpoint) {
    reader_.clear_halt(endpoint);
    queues_.erase(endpoint);
}

void DisturbedReader::forget() {
    queues_.clear();
    last_ready_ = {};
}

void DisturbedReader::reset() {
    reader_.reset();
    forget();
}

void DisturbedReader::unplugged() {
    reader_.unplugged();
    forget();
}

std::optional<TimePoint> DisturbedReader::ready_at(TimePoint now) const {
    std::optional<TimePoint> earliest;
    for (const auto& [endpoint, queue] : queues_) {
        if (!queue.empty() && queue.front().ready > now &&
            (!earliest || queue.front().ready < *earliest)) {
            earliest = queue.front().ready;
        }
    }
    return earliest;
}

} // namespace qaven::sweep
