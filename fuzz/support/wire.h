// A USB bus whose outcomes and answers come out of a fuzz input. Every libusb function that the
// library calls stands here, as in a program with no libusb linked.
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
// What no caller of libusb may do ends the program: null or closed handles, calls before init or
// after the last exit, a context of its own, an unlimited bulk time-out, exit with a device open,
// and - when the Wire goes - a device left open, a list or descriptor not freed, the library not
// ended. So does an operation that makes more transfers than any card can be worth.
#pragma once

#include "support/input.h"

#include <libusb.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <set>
#include <vector>

// One device as the bus lists it.
struct libusb_device {
    struct Setting {
        std::vector<std::uint8_t> endpoints; // addresses
    };
    struct Interface {
        std::vector<Setting> settings;
    };

    std::uint16_t vendor = 0;
    std::uint16_t product = 0;
    std::vector<Interface> interfaces;
};

struct libusb_device_handle {
    const libusb_device* device = nullptr;
    std::set<int> claimed;
    bool open = false;
};

namespace qaven::fuzz {

using Device = libusb_device;

// The reader of the bank-card path with its two slots, and the identity-card reader.
Device bank_card_reader();
Device identity_card_reader();

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

class Wire {
  public:
    enum class Mode { kRaw, kCard };

    // Both readers are on the bus, unless the target plugs its own.
    Wire(Input& input, Mode mode);
    Wire(Input& input, Mode mode, std::vector<Device> devices);
    ~Wire();
    Wire(const Wire&) = delete;
    Wire& operator=(const Wire&) = delete;

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
    friend struct WireCalls;

    struct Packet {
        int code = 0;
        Bytes data;
    };
    struct Record {
        AnswerKind kind;
        std::span<const std::uint8_t> data;
    };

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

    static Wire* current_;
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
    int starts_ = 0;
    int lists_ = 0;
    int configurations_ = 0;
    std::vector<std::unique_ptr<Device>> devices_;
    std::vector<std::unique_ptr<libusb_device_handle>> handles_;
};

} // namespace qaven::fuzz
