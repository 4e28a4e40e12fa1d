// The bank-card reader as a USB device: a keypad interface and two card slots, each a CCID
// interface of its own.
#pragma once

#include "virtual/reader/slot.h"

#include <array>
#include <deque>

namespace qaven::virtual_reader {

class Reader : public virtual_usb::Device {
  public:
    // A card in slot 1 (interface 1) and in slot 2 (interface 2); null: empty slot. The cards
    // outlive the reader.
    Reader(virtual_card::Icc* card_1, virtual_card::Icc* card_2, const Behaviour& behaviour = {});

    // As a cardholder does; slots are numbered 1 and 2. A card outlives the reader.
    void insert_card(unsigned slot, virtual_card::Icc& card);
    void remove_card(unsigned slot);
    [[nodiscard]] bool card_present(unsigned slot) const;

    [[nodiscard]] virtual_usb::Bytes device_descriptor() const override;
    [[nodiscard]] virtual_usb::Bytes configuration_descriptor() const override;
    [[nodiscard]] std::string string(std::uint8_t index) const override;

    virtual_usb::Reply control(const virtual_usb::Setup& setup, std::span<const std::uint8_t> data,
                               virtual_usb::TimePoint now) override;
    virtual_usb::Handshake out(std::uint8_t endpoint, std::span<const std::uint8_t> packet,
                               virtual_usb::TimePoint now) override;
    virtual_usb::Reply in(std::uint8_t endpoint, virtual_usb::TimePoint now) override;
    bool request_time_extension(std::uint8_t endpoint, virtual_usb::TimePoint now,
                                virtual_usb::TimePoint reply_at) override;
    void clear_halt(std::uint8_t endpoint) override;
    void reset() override;
    void unplugged() override;
    [[nodiscard]] std::optional<virtual_usb::TimePoint>
    ready_at(virtual_usb::TimePoint now) const override;

  private:
    struct Outgoing {
        Bytes packet;
        virtual_usb::TimePoint ready;
        bool starts_message = false;
    };
    // A slot with its endpoints.
    struct SlotEndpoints {
        CcidInterface interface;
        Slot slot;
        MessageAssembler assembler;
        std::deque<Outgoing> bulk_in;
        bool card_known = false; // as the interrupt endpoint reported it
        bool card_changed = false;

        void power_up();
        void check_card();
    };

    void power_up();
    SlotEndpoints* find_slot(std::uint8_t endpoint);

    std::array<SlotEndpoints, 2> slots_;
};

} // namespace qaven::virtual_reader
