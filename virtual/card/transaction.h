// One transaction of the selected application: from GET PROCESSING OPTIONS over the two cryptograms
// to the issuer's script. It lives in the volatile memory of the card; what has to survive
// (ATC, log, history) it writes into the application.
#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "virtual/card/apdu.h"
#include "virtual/card/cryptogram_input.h"
#include "virtual/card/profile.h"

namespace qaven::virtual_card {

class Transaction {
  public:
    Transaction(Application& application, const IssuerKeys& issuer_keys);

    bool initiated() const { return stage_ != Stage::kSelected; }

    Response get_processing_options(const Command& command);
    Response generate_ac(const Command& command, bool pin_try_limit_exceeded);
    Response external_authenticate(const Command& command);
    Response internal_authenticate(const Command& command);

    void note_pin_verification(bool accepted);

    // Script commands belong to a transaction that has given a cryptogram: it enters their MAC.
    bool accepts_scripts() const { return first_cryptogram_.has_value(); }
    // The command data without its MAC; nothing when the MAC is wrong.
    std::optional<ByteView> verified_data(const Command& command) const;
    std::optional<Cryptogram> decipher_pin(ByteView enciphered) const;
    void note_script(bool accepted);

    // A log record: what the terminal said when the cryptogram was asked for, and the ATC.
    Bytes log_values(ByteView format) const;

  private:
    enum class Stage : std::uint8_t { kSelected, kInitiated, kOnline, kFinished };
    enum class IssuerAuthentication : std::uint8_t { kMissing, kPassed, kFailed };
    using TerminalData = std::map<TagNumber, Bytes>;

    Response first_generate_ac(const Command& command, bool pin_try_limit_exceeded);
    Response second_generate_ac(const Command& command, bool pin_try_limit_exceeded);
    const KeySet* issuer_key_set() const;
    Key session_key(const Key& issuer_key) const;
    Cvr make_cvr(std::uint8_t outcome, bool pin_try_limit_exceeded) const;
    Response generate_ac_response(std::uint8_t cid, const TerminalData& terminal_data,
                                  const Cvr& cvr);
    bool issuer_accepted() const;
    void close_history();
    void record_in_log();

    Application& application_;
    const IssuerKeys& issuer_keys_;
    PersonalData personal_;
    Stage stage_ = Stage::kSelected;
    LastTransaction history_;
    bool new_card_ = false;
    Algorithm algorithm_ = Algorithm::kTripleDes;
    TerminalData first_terminal_data_;
    std::optional<Cryptogram> first_cryptogram_;
    Cryptogram latest_cryptogram_{};
    IssuerAuthentication issuer_authentication_ = IssuerAuthentication::kMissing;
    bool pin_verified_ = false;
    bool pin_verification_failed_ = false;
    bool unable_to_go_online_ = false;
    bool dynamic_data_signed_ = false;
};

} // namespace qaven::virtual_card
