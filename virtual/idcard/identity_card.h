// What the three kinds of identity card carry: a text block of 256 bytes in UCS-2 and a compressed
// picture of 1024 bytes. The persons are samples; their region code 990101 was never given out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace qaven::virtual_idcard {

using Bytes = std::vector<std::uint8_t>;

inline constexpr std::size_t kTextSize = 256;
inline constexpr std::size_t kPhotoSize = 1024;

struct IdentityCard {
    Bytes text;
    Bytes photo;
};

[[nodiscard]] IdentityCard resident_card();

// Foreign permanent resident: the text has a layout of its own, type "I".
[[nodiscard]] IdentityCard foreign_permit();

// Resident of Hong Kong, Macao or Taiwan: the resident's layout followed by a pass number,
// type "J".
[[nodiscard]] IdentityCard hmt_permit();

} // namespace qaven::virtual_idcard
