// Values whose bits have meanings of their own.
#pragma once

#include "tools/emv/hex.h"
#include "tools/qaven/decode/outline.h"

#include <string_view>

namespace qaven::cli {

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
void explain_bits(std::span<const Bits> table, emv::Bytes value, Outline& out);

void explain_aip(emv::Bytes value, Outline& out);
void explain_tvr(emv::Bytes value, Outline& out);
void explain_tsi(emv::Bytes value, Outline& out);
void explain_auc(emv::Bytes value, Outline& out);
void explain_terminal_capabilities(emv::Bytes value, Outline& out);
void explain_additional_terminal_capabilities(emv::Bytes value, Outline& out);
void explain_ttq(emv::Bytes value, Outline& out);
void explain_cid(emv::Bytes value, Outline& out);

// The issuer application data of a PBOC card: key index, cryptogram version, card verification
// results, algorithm, and what the issuer adds.
void explain_iad(emv::Bytes value, Outline& out);
bool is_pboc_iad(emv::Bytes value);

// The three bytes behind the length byte 03, or all four.
void explain_cvr(emv::Bytes value, Outline& out);

} // namespace qaven::cli
