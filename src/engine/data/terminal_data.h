// The terminal side of a transaction as EMV data objects, for the card's data object lists.
#pragma once

#include "engine/data/tlv.h"
#include "support/export.h"

#include <array>
#include <cstddef>
#include <span>

// Transaction date of the last store that was built: BCD YY MM DD in the first 3 bytes. It goes
// online with the cryptogram as 9A.
QAVEN_API extern unsigned char YYMMDD[5];

// Its transaction time: BCD hh mm ss in the first 3 bytes.
QAVEN_API extern unsigned char HHMMSS[5];

// Its unpredictable number, in the first 4 bytes; online it is 9F37.
QAVEN_API extern unsigned char gRnd[9];

// Builds the store from the zero-terminated converted transaction data: fourteen data objects in a
// fixed order and a zero byte. Returns the number of bytes of the store, 104. store: those bytes,
// and one more for each byte by which the merchant name is longer than 20 (at most 108): a longer
// name is copied whole, and what the objects behind it do not overwrite stays behind the store.
QAVEN_API int Qm_PackGpoData(unsigned char* store, const unsigned char* txConverted);

namespace qaven::terminal_data {

constexpr std::size_t kStoreSize = 104;

// Fixed values that the store and the host's lists share.
inline constexpr std::array<unsigned char, 5> kTvr{0x00, 0x08, 0x00, 0x60, 0x00};
inline constexpr std::array<unsigned char, 2> kCountryCode{0x01, 0x56};
inline constexpr std::array<unsigned char, 2> kCurrencyCode{0x01, 0x56};
inline constexpr std::array<unsigned char, 3> kCapabilities{0x20, 0xA1, 0x00};
inline constexpr std::array<unsigned char, 6> kNoAmount{};
inline constexpr unsigned char kDefaultType = 0x33;

using Store = std::array<unsigned char, kStoreSize>;

// Converted transaction data: a zero-terminated list of one-letter tags.
Store pack(tlv::Bytes converted);

// Of the last store that was built: the date as 9A has it, and the unpredictable number, 9F37.
tlv::Bytes transaction_date();
tlv::Bytes unpredictable_number();

// The value of one letter in converted transaction data, copied into out as far as it goes; false
// when the letter is not there.
bool letter_value(char letter, tlv::Bytes converted, std::span<unsigned char> out);

} // namespace qaven::terminal_data
