// The reader as counters meet it: what it answers waits in a queue until somebody fetches it, and
// now and then an answer comes late, in pieces, after a request for more time, or not at all.
#pragma once

#include "virtual/reader/reader.h"

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace qaven::sweep {

// What becomes of one answer.
struct Disturbance {
    enum class Kind {
        late,      // comes after the delay; the answers behind it wait
        cut,       // ends after some of its bytes, the rest is lost
        extension, // requests for more time come first, the delay lies between them
        lost,      // never comes
    };

    Kind kind = Kind::late;
    unsigned answers_before = 0; // from when it is announced
    std::chrono::milliseconds delay{0};
    std::size_t bytes = 0;   // cut: so many come
    unsigned extensions = 1; // extension: so many come first

    [[nodiscard]] std::string text() const;
};

// What a reader does all the time.
struct ReaderHabits {
    bool numbers_answers = true; // else bSeq is 0 in all of them
    bool holds_off = false;      // takes nothing while an answer is still being made
    std::chrono::milliseconds answer_time{0};
};

class DisturbedReader final : public virtual_usb::Device {
  public:
    using Observer = std::function<void(const Disturbance&)>;

    // The reader outlives this object.
    explicit DisturbedReader(virtual_reader::Reader& reader, const ReaderHabits& habits = {})
        : reader_(reader), habits_(habits) {}

    void disturb(const Disturbance& disturbance);
    // Is told of each that comes about.
    void on_disturbance(Observer observer) { observer_ = std::move(observer); }
    // None that has not come yet will come.
    void leave_in_peace() { announced_.clear(); }
    void set_answer_time(std::chrono::milliseconds time) { habits_.answer_time = time; }
    // Answers nothing any more.
    void fall_silent() { silent_ = true; }
    [[nodiscard]] bool numbers_answers() const { return habits_.numbers_answers; }
    // The IN endpoints at which there are answers that nobody has fetched.
    [[nodiscard]] std::set<std::uint8_t> answers_left() const;
    // When the last answer that is under way is there.
    [[nodiscard]] virtual_usb::TimePoint last_ready() const { return last_ready_; }

    [[nodiscard]] virtual_usb::Bytes device_descriptor() const override;
    [[nodiscard]] virtual_usb::Bytes configuration_descriptor() const override;
    virtual_usb::Reply control(const virtual_usb::Setup& setup, std::span<const std::uint8_t> data,
                               virtual_usb::TimePoint now) override;
    virtual_usb::Handshake out(std::uint8_t endpoint, std::span<const std::uint8_t> packet,
                               virtual_usb::TimePoint now) override;
    virtual_usb::Reply in(std::uint8_t endpoint, virtual_usb::TimePoint now) override;
    void clear_halt(std::uint8_t endpoint) override;
    void reset() override;
    void unplugged() override;
    [[nodiscard]] std::optional<virtual_usb::TimePoint>
    ready_at(virtual_usb::TimePoint now) const override;

  private:
    struct Outgoing {
        virtual_usb::Bytes packet;
        virtual_usb::TimePoint ready;
    };
    using Queue = std::deque<Outgoing>;

    void take_answer(virtual_usb::Bytes message, Queue& queue, virtual_usb::TimePoint now);
    void queue_message(const virtual_usb::Bytes& message, Queue& queue,
                       virtual_usb::TimePoint ready);
    void forget();

    virtual_reader::Reader& reader_;
    ReaderHabits habits_;
    bool silent_ = false;
    Observer observer_;
    std::vector<Disturbance> announced_;
    std::map<std::uint8_t, Queue> queues_; // by the address of the IN endpoint
    virtual_usb::TimePoint last_ready_{};
};

} // namespace qaven::sweep
