// A USB bus whose outcomes and answers come out of a fuzz input.
//
//     Input input(data, size);
//     Input script(input.long_chunk());        // the target's own part: what the host does
//     Wire wire(input, Wire::Mode::kCard);     // bus and answers come out of `input` from here on
//     wire.connect();                          // or whatever opens the reader
//     ... the library's calls, wire.next_operation() in front of each ...
//     wire.disconnect();
//
// What the Wire takes from the input: first one long chunk, the bus stream; then one record for
// each answer: a kind (one byte) and a long chunk. An input that ends early is a bus that works and
// a card that says nothing.
//
// The bus stream has one byte for each call that is no bulk IN and no report from the security
// module: 0 ... 127 is a call that works, anything else an error (which one: see wire.cpp). In card
// mode, power, slot status and their replies take theirs from there too.
//
// Raw mode: a record is one IN packet (kinds: see AnswerKind; those from kLiesAboutLength on are
// plain packets).
// Card mode: a record is a card's response APDU, and the wire frames it: header, dwLength, bSeq,
// packets of 64 bytes, a zero-length one where the message fills its last packet. A record of kind
// kPacket is one packet as it stands. On the identity-card reader a record is status bytes and data
// of the security module's reply, framed with length and checksum and cut into reports.
//
// A misuse of libusb ends the program, and so do what the library has not given back when the Wire
// goes and an operation that makes more transfers than any card can be worth.
#pragma once

#include "support/input.h"

#include "tests/support/libusb_stand_in.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace qaven::fuzz {

using Device = libusb_device;

// What a record stands for.
enum class AnswerKind : std::uint8_t {
    kGood = 0,
    kTimeout = 1, // what has arrived by then is delivered, as in all that follow
    kStall = 2,
    kNoDevice = 3,
    kOverflow = 4,
    kIo = 5,
    kPacket = 6,          // one packet as it stands
    kSilence = 7,         // nothing arrives, without an error
    kLiesAboutLength = 8, // two bytes of dwLength, then the response
    kOtherSequence = 9,   // a bSeq of another command
    kCardRemoved = 10,    // a reply without data that says so
    kTimeExtension = 11,  // "please wait", then the response
    kCount = 12,          // any other byte is kGood
};

class Wire final : public test::LibusbStandIn {
  public:
    enum class Mode { kRaw, kCard };

    // Both readers are on the bus, unless the target plugs its own.
    Wire(Input& input, Mode mode);
    Wire(Input& input, Mode mode, std::vector<Device> devices);
    ~Wire() override;
    Wire(const Wire&) = delete;
    Wire& operator=(const Wire&) = delete;
    Wire(Wire&&) = delete;
    Wire& operator=(Wire&&) = delete;

    // Opens the bank-card reader as the card operations do, on a bus and a slot that work. In raw
    // mode too: the answers that this takes do not come out of the input.
    void connect();

    // Ends what the library still holds of either reader.
    void disconnect();

    // Counts transfers anew: each operation has so many and no more.
    void next_operation() { transfers_ = 0; }

    // For making seeds: a card (and a security module) that answers by itself. From here on every
    // bus hands it the messages that the host sends, a CCID message or a SAM-V frame, and takes its
    // responses for those of the input; an empty function ends that.
    using LiveCard = std::function<Bytes(std::span<const std::uint8_t> message)>;
    static void use(LiveCard card);

    // The records that would have made an input give the same answers. They are forgotten then.
    static Bytes take_records();

  private:
    struct Packet {
        int code = 0;
        Bytes data;
    };
    struct Record {
        AnswerKind kind;
        std::span<const std::uint8_t> data;
    };

    std::optional<int> outcome(test::Call call) override;
    int bulk_transfer(test::Transfer& transfer) override;
    int control_transfer(test::ControlTransfer& transfer) override;
    void closed() override { in_.clear(); }

    void count_transfer();
    int take_packet(test::Transfer& transfer);
    int give_packet(test::Transfer& transfer);
    Record next_record();
    void answer_bulk();
    void answer_live();
    void answer_power(std::uint8_t type);
    void answer_report();
    void queue_reply(std::size_t length, std::span<const std::uint8_t> data);
    void queue_message(std::uint8_t type, std::uint8_t status, std::size_t length,
                       std::uint8_t sequence, std::span<const std::uint8_t> data);
    int bus_code();
    static void keep_record(std::span<const std::uint8_t> data);

    static LiveCard live_card_;
    static Bytes kept_records_;

    Input& input_;
    Input bus_;
    Mode mode_;
    bool undisturbed_ = false;
    std::deque<Packet> in_;
    std::uint8_t last_type_ = 0;
    std::uint8_t last_sequence_ = 0;
    bool message_begun_ = false;
    Bytes message_;
    unsigned long transfers_ = 0;
};

} // namespace qaven::fuzz
