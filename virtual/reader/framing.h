// CCID messages out of bulk-OUT packets, and bulk-IN packets out of CCID messages.
#pragma once

#include "virtual/reader/descriptors.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <vector>

namespace qaven::virtual_reader {

using Bytes = std::vector<std::uint8_t>;

inline constexpr std::size_t kCcidHeaderSize = 10;

// The messages from the host, by bMessageType (CCID 1.1, 6.1.1 to 6.1.14).
namespace pc_to_rdr {
inline constexpr std::uint8_t kSetParameters = 0x61;
inline constexpr std::uint8_t kIccPowerOn = 0x62;
inline constexpr std::uint8_t kIccPowerOff = 0x63;
inline constexpr std::uint8_t kGetSlotStatus = 0x65;
inline constexpr std::uint8_t kSecure = 0x69;
inline constexpr std::uint8_t kT0Apdu = 0x6A;
inline constexpr std::uint8_t kEscape = 0x6B;
inline constexpr std::uint8_t kGetParameters = 0x6C;
inline constexpr std::uint8_t kResetParameters = 0x6D;
inline constexpr std::uint8_t kIccClock = 0x6E;
inline constexpr std::uint8_t kXfrBlock = 0x6F;
inline constexpr std::uint8_t kMechanical = 0x71;
inline constexpr std::uint8_t kAbort = 0x72;
inline constexpr std::uint8_t kSetDataRate = 0x73;
} // namespace pc_to_rdr

// How whole a message arrived.
enum class Arrival : std::uint8_t {
    kExact,
    kWithSurplus,  // more bytes than 10 + dwLength in its last packet
    kCutShort,     // a short packet came before 10 + dwLength bytes; zeros stand for the rest
    kTooLong,      // dwLength promises more than the reader can hold; the data were not kept
    kUnknownStart, // the packet starts no message of the class
};

struct Message {
    Arrival arrival = Arrival::kExact;
    Bytes bytes; // 10 + dwLength, or the header alone when too long

    [[nodiscard]] std::uint8_t type() const { return bytes[0]; }
    [[nodiscard]] std::uint8_t slot() const { return bytes[5]; }
    [[nodiscard]] std::uint8_t seq() const { return bytes[6]; }
    [[nodiscard]] std::span<const std::uint8_t> data() const {
        return std::span(bytes).subspan(kCcidHeaderSize);
    }
};

// Collects packets until a message is there. A message starts with a packet; what a packet holds
// beyond the end of its message belongs to nothing.
class MessageAssembler {
  public:
    [[nodiscard]] std::optional<Message> packet(std::span<const std::uint8_t> packet);
    void clear();

  private:
    Message finish(Arrival arrival);

    Bytes buffer_;
    bool skipping_ = false; // the rest of a message that is too long
};

[[nodiscard]] std::uint32_t dw_length(std::span<const std::uint8_t> header);

// Packets of 64 bytes, the last one shorter: a message of whole packets ends with an empty one, or
// the host could not know that it has ended (USB 2.0, 5.8.3).
[[nodiscard]] std::deque<Bytes> to_packets(std::span<const std::uint8_t> message);

} // namespace qaven::virtual_reader
