// The virtual PBOC card: takes commands one by one and answers as its profile says.
#pragma once

#include <optional>

#include "virtual/card/apdu.h"
#include "virtual/card/icc.h"
#include "virtual/card/profile.h"
#include "virtual/card/transaction.h"

namespace qaven::virtual_card {

class Card final : public Icc {
  public:
    explicit Card(Profile profile);

    Bytes power_on() override;
    void power_off() override;
    Bytes transmit(std::span<const std::uint8_t> command) override;

    // The card as it is now, counters and files included.
    const Profile& profile() const { return profile_; }

  private:
    using Handler = Response (Card::*)(const Command&);
    struct Instruction;
    static const Instruction* find_instruction(std::uint8_t cla, std::uint8_t ins);
    static std::uint16_t unsupported_status(std::uint8_t cla, std::uint8_t ins);

    Response execute(ByteView bytes);
    Response apply_le(const Command& command, bool takes_data, Response response);
    Response get_response(const Command& command);
    void forget_session();

    // Selection.
    Response select(const Command& command);
    Response select_file(std::size_t file);
    Bytes df_name(std::size_t file) const;
    std::size_t file_count() const;

    // Files and data objects.
    Response read_record(const Command& command);
    Response read_directory_record(std::uint8_t sfi, std::uint8_t number) const;
    Response read_application_record(std::uint8_t sfi, std::uint8_t number) const;
    Response read_binary(const Command& command);
    Response get_data(const Command& command);
    std::optional<Bytes> data_object(TagNumber tag) const;
    Response get_challenge(const Command& command);
    Response verify(const Command& command);

    // Transaction.
    Response get_processing_options(const Command& command);
    Response generate_ac(const Command& command);
    Response external_authenticate(const Command& command);
    Response internal_authenticate(const Command& command);

    // Issuer scripts.
    using Effect = std::uint16_t (Card::*)(const Command&, ByteView);
    Response run_script(const Command& command, Effect effect);
    Response application_block(const Command& command);
    Response application_unblock(const Command& command);
    Response card_block(const Command& command);
    Response pin_change(const Command& command);
    Response put_data(const Command& command);
    Response update_record(const Command& command);
    std::uint16_t block_application(const Command& command, ByteView data);
    std::uint16_t unblock_application(const Command& command, ByteView data);
    std::uint16_t block_card(const Command& command, ByteView data);
    std::uint16_t change_pin(const Command& command, ByteView data);
    std::uint16_t write_object(const Command& command, ByteView data);
    std::uint16_t write_record(const Command& command, ByteView data);
    void record_load(const Command& command, ByteView before, ByteView after);

    Profile profile_;
    bool powered_ = false;
    // Directories and applications, as the selection finds them, are numbered in one row: first the
    // directories, then the applications.
    std::optional<std::size_t> last_found_;
    Bytes last_name_;
    const Directory* directory_ = nullptr;
    Application* application_ = nullptr;
    std::optional<Transaction> transaction_;
    Bytes pending_response_;
};

} // namespace qaven::virtual_card
