// The issuer of the virtual cards, inside the test program: it knows the issuer master keys and
// judges from the texts that the library gave the host.
#pragma once

#include "virtual/issuer/issuer.h"

#include <string>
#include <string_view>
#include <vector>

namespace qaven::test {

// How an issuer answers.
struct Reply {
    std::string response_code = "00";
    std::vector<std::string> script; // commands as qaven-issuer's --script takes them
    bool genuine_authentication = true;
    bool genuine_script_macs = true;
    std::uint8_t script_template = 0x72;
    std::array<std::uint8_t, 4> script_identifier{0x12, 0x34, 0x56, 0x78};
};

class IssuerDesk {
  public:
    // The issuer of the cards of a shipped profile.
    explicit IssuerDesk(std::string_view profile = "debit");

    virtual_issuer::Verdict arqc(const std::string& field55) const;
    virtual_issuer::Verdict tc(const std::string& tc) const;

    // The issuer response in hex.
    std::string answer(const std::string& field55, const Reply& reply = {}) const;

  private:
    virtual_issuer::Issuer issuer_;
};

// The file of a shipped card profile.
std::string profile_file(std::string_view name);

} // namespace qaven::test
