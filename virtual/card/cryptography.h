// The cryptography that card and issuer share: key derivation, application cryptogram, issuer
// authentication and secure messaging.
//
// With 3DES (double-length keys, no parity adjustment):
//   card key     Y = rightmost 16 digits of PAN || PSN, zeros in front of a shorter one;
//                3DES(IMK)[Y] || 3DES(IMK)[Y xor FF..FF] (EMV Book 2, A1.4.1)
//   session key  3DES(UDK)[00x6 || ATC] || 3DES(UDK)[00x6 || (ATC xor FFFF)], as PBOC cards have it
//   MAC          ISO/IEC 9797-1, MAC algorithm 3, padded with 80 00.., 8 bytes (EMV Book 2, A1.2.1)
//   ARPC         3DES(SK)[ARQC xor (ARC || 00x6)] (EMV Book 2, 8.2.1)
// With SM4 (GB/T 32907) the constructions are the same ones stretched to the 16-byte block; this is
// the choice of this card model, made so that one set of terminal data can be tried with both
// algorithms:
//   card key     SM4(IMK)[Y || (Y xor FF..FF)]
//   session key  SM4(UDK)[00x6 || ATC || 00x6 || (ATC xor FFFF)]
//   MAC          CBC over the data padded with 80 00.. to 16-byte blocks, leftmost 8 bytes
//   ARPC         SM4(SK)[(ARQC xor (ARC || 00x6)) || 00x8], leftmost 8 bytes
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "virtual/card/bytes.h"

namespace qaven::virtual_card {

using Key = std::array<std::uint8_t, 16>;
using Cryptogram = std::array<std::uint8_t, 8>;
using Arc = std::array<std::uint8_t, 2>;

// The values are those of the algorithm byte that ends the issuer application data.
enum class Algorithm : std::uint8_t { kTripleDes = 0x01, kSm4 = 0x04 };

constexpr std::size_t kScriptMacSize = 4;

Key derive_card_key(Algorithm algorithm, const Key& issuer_key, std::string_view pan_digits,
                    std::uint8_t pan_sequence_number);

Key derive_session_key(Algorithm algorithm, const Key& card_key, std::uint16_t atc);

Cryptogram compute_mac(Algorithm algorithm, const Key& session_key, ByteView data);

Cryptogram compute_arpc(Algorithm algorithm, const Key& session_key, const Cryptogram& arqc,
                        const Arc& arc);

// The MAC that ends a script command (EMV Book 2, 9.2): over CLA INS P1 P2 Lc, the ATC, the
// cryptogram of the first GENERATE AC and the command data in front of the MAC; the leftmost four
// bytes. Lc counts the MAC.
Bytes compute_script_mac(Algorithm algorithm, const Key& mac_session_key, ByteView header,
                         std::uint16_t atc, const Cryptogram& first_cryptogram,
                         ByteView command_data);

// A new PIN travels as 08 || PIN block, padded with 80 00.. to 16 bytes, enciphered block by block
// (EMV Book 2, 9.3 and A1.1).
Bytes encipher_pin_block(Algorithm algorithm, const Key& encryption_session_key,
                         const Cryptogram& pin_block);
std::optional<Cryptogram> decipher_pin_block(Algorithm algorithm, const Key& encryption_session_key,
                                             ByteView enciphered);

// The PIN block of VERIFY and of the PIN change: 2L, the digits, F up to eight bytes (EMV Book 3,
// 6.5.12).
Cryptogram make_pin_block(std::string_view digits);
std::optional<std::string> read_pin_block(const Cryptogram& block);

// RSA on a block that is as long as the modulus (EMV Book 2, B2.1): a signature with the private
// exponent.
Bytes apply_rsa(ByteView modulus, ByteView exponent, ByteView block);

// EMV Book 2, B3.1.
using Hash = std::array<std::uint8_t, 20>;
Hash hash_sha1(ByteView data);

Bytes random_bytes(std::size_t count);

} // namespace qaven::virtual_card
