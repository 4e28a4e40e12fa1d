// The one place that says what an application cryptogram of this card covers. In this order:
//
//   9F02 amount authorised (6)      as the terminal sent it in the CDOL data
//   9F03 amount other (6)
//   9F1A terminal country code (2)
//   95   TVR (5)
//   5F2A transaction currency (2)
//   9A   transaction date (3)
//   9C   transaction type (1)
//   9F37 unpredictable number (4)
//   82   AIP (2)                    the card's own
//   9F36 ATC (2)
//   CVR  (4)                        the length byte 03 and three bytes, from the IAD
//
// The order is fixed and does not follow the order of the CDOL. The first cryptogram takes the
// terminal's values from the CDOL1 data, the second one from the CDOL2 data. Everything in the list
// travels to the issuer (the CVR inside 9F10), so the issuer can compute the cryptogram again.
#pragma once

#include <array>

#include "tlv.h"

namespace qaven::virtual_card {

constexpr std::array<DolEntry, 8> cryptogram_terminal_objects{{{0x9F02, 6},
                                                               {0x9F03, 6},
                                                               {0x9F1A, 2},
                                                               {0x95, 5},
                                                               {0x5F2A, 2},
                                                               {0x9A, 3},
                                                               {0x9C, 1},
                                                               {0x9F37, 4}}};

constexpr std::size_t cvr_size = 4;
using Cvr = std::array<std::uint8_t, cvr_size>;

// Where the fields stand in the IAD (9F10): 07, key index, cryptogram version, CVR, algorithm.
constexpr std::size_t iad_cvr_at = 3;
constexpr std::size_t iad_algorithm_at = 7;
constexpr std::size_t iad_size = 8;

// The bits of the CVR, numbered by the byte that holds them (byte 0 is the length byte).
namespace cvr {
constexpr std::size_t outcome_byte = 1;
constexpr std::uint8_t second_mask = 0xC0;
constexpr std::uint8_t second_aac = 0x00;
constexpr std::uint8_t second_tc = 0x40;
constexpr std::uint8_t second_not_requested = 0x80;
constexpr std::uint8_t first_mask = 0x30;
constexpr std::uint8_t first_aac = 0x00;
constexpr std::uint8_t first_arqc = 0x20;
constexpr std::uint8_t issuer_authentication_failed = 0x08;
constexpr std::uint8_t pin_verification_performed = 0x04;
constexpr std::uint8_t pin_verification_failed = 0x02;
constexpr std::uint8_t unable_to_go_online = 0x01;

constexpr std::size_t history_byte = 2;
constexpr std::uint8_t last_online_not_completed = 0x80;
constexpr std::uint8_t pin_try_limit_exceeded = 0x40;
constexpr std::uint8_t new_card = 0x10;
constexpr std::uint8_t last_issuer_authentication_failed = 0x08;
constexpr std::uint8_t last_issuer_authentication_missing = 0x04;

constexpr std::size_t script_byte = 3;
constexpr unsigned script_count_shift = 4;
constexpr std::uint8_t script_failed = 0x08;
constexpr std::uint8_t dynamic_data_signed = 0x02;
} // namespace cvr

// The first two bits of the cryptogram information data (9F27).
constexpr std::uint8_t cid_mask = 0xC0;
constexpr std::uint8_t cid_aac = 0x00;
constexpr std::uint8_t cid_tc = 0x40;
constexpr std::uint8_t cid_arqc = 0x80;

} // namespace qaven::virtual_card
