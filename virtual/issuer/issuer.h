// The issuer's side of a transaction. It knows the issuer master keys and nothing else of the card:
// what it says about a cryptogram comes from computing it again out of the card data received.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "virtual/card/cryptogram_input.h"
#include "virtual/card/cryptography.h"
#include "virtual/card/profile.h"
#include "virtual/issuer/field55.h"

namespace qaven::virtual_issuer {

enum class CryptogramKind : std::uint8_t { kRequest, kTransactionCertificate };

// The cryptogram that came and the one that follows from the card data.
struct Comparison {
    virtual_card::Cryptogram received{};
    virtual_card::Cryptogram computed{};
    virtual_card::Algorithm algorithm = virtual_card::Algorithm::kTripleDes;
    virtual_card::Cvr cvr{};
};

struct Verdict {
    bool verified = false;
    // One sentence.
    std::string reason;
    // Nothing when the card data does not hold what the computation needs.
    std::optional<Comparison> comparison;
};

// A command of the issuer's script before the MAC is put on: four header bytes and the data. With
// `secured` false it goes out as it stands, for cards and hosts that should see it refused.
struct ScriptCommand {
    std::array<std::uint8_t, 4> header{};
    Bytes data;
    bool encipher_as_pin = false;
    bool secured = true;
};

// Reads one command as it is written on a command line. Throws std::runtime_error with a sentence.
//   application-block   application-unblock   card-block   pin-unblock   pin-change=DIGITS
//   put-data=TAG:VALUE   update-record=SFI:NUMBER:RECORD   plain=COMMAND
ScriptCommand parse_script_command(std::string_view text);

struct Answer {
    virtual_card::Arc arc{'0', '0'};
    bool genuine_authentication = true;
    bool genuine_script_macs = true;
    TagNumber script_template = kTag72IssuerScript2;
    std::array<std::uint8_t, 4> script_identifier{0x00, 0x00, 0x00, 0x01};
    std::vector<ScriptCommand> script;
};

class Issuer {
  public:
    explicit Issuer(const virtual_card::IssuerKeys& keys) : keys_(keys) {}

    // Takes the issuer keys out of a card profile. Throws std::runtime_error with a sentence.
    static Issuer from_profile(const std::filesystem::path& profile);

    // Never throws for card data that is incomplete: that is a verdict too.
    Verdict verify(const Field55& field, CryptogramKind kind) const;

    // Tag 91, and the script in its template when there is one. Throws std::runtime_error with a
    // sentence when the card data does not hold what an answer needs.
    Bytes answer(const Field55& field, const Answer& answer) const;

  private:
    struct Session;
    Session open_session(const Field55& field) const;
    Verdict judge(const Field55& field, CryptogramKind kind) const;

    virtual_card::IssuerKeys keys_;
};

// Whether this object enters the cryptogram or its check; a change in any other goes unnoticed.
bool is_covered(TagNumber tag);

// What the CVR says, one phrase for each bit that is set and one for each cryptogram.
std::vector<std::string> describe(const virtual_card::Cvr& results);

} // namespace qaven::virtual_issuer
