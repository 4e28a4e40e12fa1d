// Values whose bits have meanings of their own.
#pragma once

#include "decode/outline.h"
#include "tools/emv/hex.h"

#include <string_view>

namespace tool {

// A field of one byte: when the bits of the mask have this value, the words are true.
struct Bits {
    std::size_t byte; // counted from 1
    unsigned char mask;
    unsigned char value;
    std::string_view words;
};

// The place of a mask's bits as tables of cards count them: byte from 1, bit from 8 down to 1.
std::string bits_place(std::size_t byte, unsigned char mask);

// One line for each field that says something, and one for each bit that is set without a meaning.
void explain_bits(std::span<const Bits> table, Bytes value, Outline& out);

void explain_interchange_profile(Bytes value, Outline& out);
void explain_terminal_verification(Bytes value, Outline& out);
void explain_transaction_status(Bytes value, Outline& out);
void explain_usage_control(Bytes value, Outline& out);
void explain_terminal_capabilities(Bytes value, Outline& out);
void explain_more_terminal_capabilities(Bytes value, Outline& out);
void explain_transaction_qualifiers(Bytes value, Outline& out);
void explain_cryptogram_information(Bytes value, Outline& out);

// The issuer application data of a PBOC card: key index, cryptogram version, card verification
// results, algorithm, and what the issuer adds.
void explain_issuer_application_data(Bytes value, Outline& out);
bool is_pboc_issuer_data(Bytes value);

// The three bytes behind the length byte 03, or all four.
void explain_card_verification(Bytes value, Outline& out);

} // namespace tool
