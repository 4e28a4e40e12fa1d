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
// The order is fixed and does not follow the order of the CDOL (EMV Book 2, 8.1.1 recommends these
// objects; a card may cover more). The first cryptogram takes the
// terminal's values from the CDOL1 data, the second one from the CDOL2 data. Everything in the list
// travels to the issuer (the CVR inside 9F10), so the issuer can compute the cryptogram again.
#pragma once

#include <array>

#include "virtual/card/tlv.h"

namespace qaven::virtual_card {

constexpr std::array<DolEntry, 8> kCryptogramTerminalObjects{{{kTag9F02AmountAuthorised, 6},
                                                              {kTag9F03AmountOther, 6},
                                                              {kTag9F1ATerminalCountryCode, 2},
                                                              {kTag95Tvr, 5},
                                                              {kTag5F2ACurrencyCode, 2},
                                                              {kTag9ATransactionDate, 3},
                                                              {kTag9CTransactionType, 1},
                                                              {kTag9F37UnpredictableNumber, 4}}};

constexpr std::size_t kCvrSize = 4;
using Cvr = std::array<std::uint8_t, kCvrSize>;

// Where the fields stand in the IAD (9F10): 07, key index, cryptogram version, CVR, algorithm.
constexpr std::size_t kIadCvrAt = 3;
constexpr std::size_t kIadAlgorithmAt = 7;
constexpr std::size_t kIadSize = 8;

// The bits of the CVR, numbered by the byte that holds them (byte 0 is the length byte).
namespace cvr {
constexpr std::size_t kOutcomeByte = 1;
constexpr std::uint8_t kSecondMask = 0xC0;
constexpr std::uint8_t kSecondAac = 0x00;
constexpr std::uint8_t kSecondTc = 0x40;
constexpr std::uint8_t kSecondNotRequested = 0x80;
constexpr std::uint8_t kFirstMask = 0x30;
constexpr std::uint8_t kFirstAac = 0x00;
constexpr std::uint8_t kFirstArqc = 0x20;
constexpr std::uint8_t kIssuerAuthenticationFailed = 0x08;
constexpr std::uint8_t kPinVerificationPerformed = 0x04;
constexpr std::uint8_t kPinVerificationFailed = 0x02;
constexpr std::uint8_t kUnableToGoOnline = 0x01;

constexpr std::size_t kHistoryByte = 2;
constexpr std::uint8_t kLastOnlineNotCompleted = 0x80;
constexpr std::uint8_t kPinTryLimitExceeded = 0x40;
constexpr std::uint8_t kNewCard = 0x10;
constexpr std::uint8_t kLastIssuerAuthenticationFailed = 0x08;
constexpr std::uint8_t kLastIssuerAuthenticationMissing = 0x04;

constexpr std::size_t kScriptByte = 3;
constexpr unsigned kScriptCountShift = 4;
constexpr std::uint8_t kScriptFailed = 0x08;
constexpr std::uint8_t kDynamicDataSigned = 0x02;
} // namespace cvr

// The first two bits of the CID, 9F27 (EMV Book 3, 6.5.5).
constexpr std::uint8_t kCidMask = 0xC0;
constexpr std::uint8_t kCidAac = 0x00;
constexpr std::uint8_t kCidTc = 0x40;
constexpr std::uint8_t kCidArqc = 0x80;

} // namespace qaven::virtual_card
