// The reader's descriptors: what it is and which endpoints its interfaces have.
#pragma once

#include <cstdint>
#include <vector>

namespace qaven::virtual_reader {

inline constexpr std::uint16_t kVendorId = 0x2F7A;
inline constexpr std::uint16_t kProductId = 0x4417;

// A CCID interface and its endpoints; the interrupt endpoint comes third.
struct CcidInterface {
    std::uint8_t number;
    std::uint8_t bulk_out;
    std::uint8_t bulk_in;
    std::uint8_t interrupt_in;
};

inline constexpr std::uint8_t kKeypadInterface = 0;
inline constexpr std::uint8_t kKeypadInterruptIn = 0x81;
inline constexpr CcidInterface kSlot1{
    .number = 1, .bulk_out = 0x02, .bulk_in = 0x82, .interrupt_in = 0x83};
inline constexpr CcidInterface kSlot2{
    .number = 2, .bulk_out = 0x04, .bulk_in = 0x84, .interrupt_in = 0x85};

inline constexpr std::uint8_t kBulkPacketSize = 64;
inline constexpr std::uint8_t kInterruptPacketSize = 8;

// Header and the longest short APDU.
inline constexpr std::uint32_t kMaxCcidMessageLength = 271;

[[nodiscard]] std::vector<std::uint8_t> device_descriptor();
[[nodiscard]] std::vector<std::uint8_t> configuration_descriptor();
[[nodiscard]] std::vector<std::uint8_t> keypad_hid_descriptor();
[[nodiscard]] std::vector<std::uint8_t> keypad_report_descriptor();

} // namespace qaven::virtual_reader
