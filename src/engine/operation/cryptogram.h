// What a card's GENERATE AC answer says, and the data objects that go online with it in both
// cryptogram steps.
#pragma once

#include "common/tags.h"
#include "engine/card/commands.h"
#include "engine/data/tlv.h"
#include "engine/data/tlv_writer.h"
#include "support/wiped.h"

#include <array>
#include <optional>

namespace qaven::cryptogram {

// The top two bits of the cryptogram information data.
enum class Kind : unsigned char { kAac = 0x00, kTc = 0x40, kArqc = 0x80, kReferral = 0xC0 };

// Reference control parameter: what a GENERATE AC asks for.
enum class Ask : unsigned char { kAac = 0x00, kTc = 0x40, kArqc = 0x80, kReferral = 0xC0 };

// The kind of cryptogram in a raw response: its third byte, which in a response of format 1 with a
// one-byte length is the cryptogram information data.
Kind kind_of(const commands::Response& response);

// A response of format 1.
struct Answer {
    ~Answer() { const WipedAtEnd wiped(cryptogram); }

    unsigned char cid;
    std::array<unsigned char, 2> atc;
    std::array<unsigned char, 8> cryptogram;
    WipedBytes iad; // issuer application data, empty when the card gives none
};

// The content of template 80; nothing when the response has none.
std::optional<Answer> parse(const commands::Response& response);

// A host's text buffer of 1024 characters takes this many bytes of a list in hex.
constexpr std::size_t kMaxList = 511;

// The objects that lead both lists: 9F26, 9F27, 9F10 (when the card gave it), 9F37, 9F36, 95.
void append_answer(tlv::Writer& list, const Answer& answer);

// The card's 9F13 as it returned it; false when the card refuses.
bool append_last_online_atc(tlv::Writer& list);

// A card object as found; false when the application data lacks it.
bool append_card_object(tlv::Writer& list, Tag tag, tlv::Bytes application_data);

// A card object's value, at most 256 bytes; nothing when the application data lacks it.
std::optional<WipedBytes> card_object(Tag tag, tlv::Bytes application_data);

// 82: the length byte is always 2, the value goes as the card has it; false when the application
// data lacks it.
bool append_aip(tlv::Writer& list, tlv::Bytes application_data);

// An amount of the converted transaction data under its EMV tag, zeros when the letter is absent;
// returns whether it was there.
bool append_amount(tlv::Writer& list, Tag tag, char letter, tlv::Bytes converted);

// 9C: the first byte of T in the converted transaction data, else the default type; returns whether
// it was there.
bool append_type(tlv::Writer& list, tlv::Bytes converted);

} // namespace qaven::cryptogram
