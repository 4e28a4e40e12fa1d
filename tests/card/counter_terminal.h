// A terminal for tests: sends commands to a card, and carries one transaction as a bank counter
// does.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <ostream>
#include <string>
#include <string_view>

#include "virtual/card/card.h"
#include "virtual/card/tlv.h"
#include "virtual/issuer/issuer.h"

namespace qaven::card_test {

using virtual_card::Bytes;
using virtual_card::ByteView;
using virtual_card::Card;
using virtual_card::Profile;
using virtual_card::TagNumber;

constexpr std::string_view debit_aid = "A000000333010101";
constexpr std::string_view credit_aid = "A000000333010102";

std::filesystem::path profile_file(std::string_view name);
Profile profile(std::string_view name);
virtual_issuer::Issuer issuer_of(std::string_view name);
Bytes hex(std::string_view text);

// What a card answers, in the form in which tests state it: data and status word as hex text.
struct Reply {
    std::string data;
    std::string status;
    bool operator==(const Reply&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Reply& reply);
Reply refused(std::string_view status);
Reply accepted(std::string_view data = "");

class CounterTerminal {
  public:
    // Powers the card on.
    explicit CounterTerminal(virtual_card::Icc& icc) : icc_(icc) { icc_.power_on(); }

    Reply send(std::string_view command_hex);

    // Header (CLA INS P1 P2) and data; Lc is put between them.
    Reply send_with_data(std::string_view header_hex, ByteView data);

    Reply select(std::string_view aid);
    // Selects, and answers the PDOL from the terminal data.
    Reply begin(std::string_view aid);
    // GENERATE AC with the data that the card's CDOL1 or CDOL2 asks for.
    Reply first_cryptogram(std::string_view p1 = "80");
    Reply second_cryptogram(std::string_view p1 = "40");

    // The objects that a host sends to the issuer with this cryptogram.
    std::string field55(const Reply& cryptogram);

    // Sends tag 91 to the card, and every command of the script; gives the status words.
    std::string authenticate(ByteView issuer_response);
    std::string run_script(ByteView issuer_response);

    // The terminal's data objects; tests change them.
    std::map<TagNumber, std::string> data{{0x9F02, "000000001213"},
                                          {0x9F03, "000000000000"},
                                          {0x9F1A, "0156"},
                                          {0x95, "0008006000"},
                                          {0x5F2A, "0156"},
                                          {0x9A, "250422"},
                                          {0x9C, "03"},
                                          {0x9F37, "1A2B3C4D"},
                                          {0x9F21, "161355"},
                                          {0x9F4E, "4C55524F20434E54202020202020202020202020"},
                                          {0x8A, "3030"},
                                          {0x9F7A, "01"},
                                          {0xDF69, "01"}};

  private:
    Bytes fill(ByteView dol) const;
    Bytes record_object(TagNumber tag);

    virtual_card::Icc& icc_;
    Bytes records_;
    std::string aip_;
};

} // namespace qaven::card_test
