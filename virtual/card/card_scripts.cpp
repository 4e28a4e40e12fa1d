// The virtual PBOC card: the commands of the issuer's script (EMV Book 3, 6.5.1 to 6.5.3, 6.5.10
// and 10.10), each ended by a MAC (EMV Book 2, 9.2).
#include <algorithm>

#include "virtual/card/card.h"

namespace qaven::virtual_card {

namespace {

constexpr std::size_t kAmountSize = 6;

bool is_amount(ByteView value) {
    return value.size() == kAmountSize &&
           to_hex(value).find_first_not_of("0123456789") == std::string::npos;
}

std::uint16_t check_bare_command(const Command& command, ByteView data) {
    if (command.p1 != 0 || command.p2 != 0) {
        return status::kIncorrectP1P2;
    }
    return data.empty() ? status::kSuccess : status::kWrongLength;
}

} // namespace

Response Card::run_script(const Command& command, Effect effect) {
    if (!transaction_ || !transaction_->accepts_scripts()) {
        return status::kConditionsNotSatisfied;
    }
    if (command.data.size() < kScriptMacSize) {
        return status::kWrongLength;
    }
    const auto data = transaction_->verified_data(command);
    const std::uint16_t result =
        data ? (this->*effect)(command, *data) : status::kIncorrectSecureMessaging;
    transaction_->note_script(result == status::kSuccess);
    if (profile_.card_blocked) {
        forget_session();
    }
    return result;
}

Response Card::application_block(const Command& command) {
    return run_script(command, &Card::block_application);
}

Response Card::application_unblock(const Command& command) {
    return run_script(command, &Card::unblock_application);
}

Response Card::card_block(const Command& command) {
    return run_script(command, &Card::block_card);
}

Response Card::pin_change(const Command& command) {
    return run_script(command, &Card::change_pin);
}

Response Card::put_data(const Command& command) {
    return run_script(command, &Card::write_object);
}

Response Card::update_record(const Command& command) {
    return run_script(command, &Card::write_record);
}

std::uint16_t Card::block_application(const Command& command, ByteView data) {
    const std::uint16_t result = check_bare_command(command, data);
    if (result == status::kSuccess) {
        application_->blocked = true;
    }
    return result;
}

std::uint16_t Card::unblock_application(const Command& command, ByteView data) {
    const std::uint16_t result = check_bare_command(command, data);
    if (result == status::kSuccess) {
        application_->blocked = false;
    }
    return result;
}

std::uint16_t Card::block_card(const Command& command, ByteView data) {
    const std::uint16_t result = check_bare_command(command, data);
    if (result == status::kSuccess) {
        profile_.card_blocked = true;
    }
    return result;
}

std::uint16_t Card::change_pin(const Command& command, ByteView data) {
    constexpr std::uint8_t kUnblockOnly = 0x00;
    constexpr std::uint8_t kNewPin = 0x02;
    if (command.p1 != 0 || (command.p2 != kUnblockOnly && command.p2 != kNewPin)) {
        return status::kIncorrectP1P2;
    }
    if (!profile_.pin) {
        return status::kConditionsNotSatisfied;
    }
    if (command.p2 == kNewPin) {
        const auto block = transaction_->decipher_pin(data);
        const auto digits = block ? read_pin_block(*block) : std::nullopt;
        if (!digits) {
            return status::kIncorrectData;
        }
        profile_.pin->digits = *digits;
    } else if (!data.empty()) {
        return status::kWrongLength;
    }
    profile_.pin->tries_left = profile_.pin->try_limit;
    return status::kSuccess;
}

std::uint16_t Card::write_object(const Command& command, ByteView data) {
    auto& cash = application_->electronic_cash;
    const TagNumber tag = (TagNumber{command.p1} << 8U) | command.p2;
    if (!cash || (tag != kTag9F77CashBalanceLimit && tag != kTag9F78CashTransactionLimit &&
                  tag != kTag9F79CashBalance)) {
        return status::kReferencedDataNotFound;
    }
    if (data.size() != kAmountSize) {
        return status::kWrongLength;
    }
    if (!is_amount(data)) {
        return status::kIncorrectData;
    }
    const Bytes amount(data.begin(), data.end());
    if (tag == kTag9F77CashBalanceLimit) {
        cash->balance_limit = amount;
    } else if (tag == kTag9F78CashTransactionLimit) {
        cash->single_limit = amount;
    } else if (amount > cash->balance_limit) {
        return status::kIncorrectData;
    } else {
        record_load(command, cash->balance, amount);
        cash->balance = amount;
    }
    return status::kSuccess;
}

// A load is logged with the tag that was written, the balance before and after, and what the
// terminal said in this transaction.
void Card::record_load(const Command& command, ByteView before, ByteView after) {
    if (!application_->load_log) {
        return;
    }
    LogFile& log = *application_->load_log;
    const Bytes tag = {command.p1, command.p2};
    log.records.insert(log.records.begin(),
                       concatenate({tag, before, after, transaction_->log_values(log.format)}));
    if (log.records.size() > log.capacity) {
        log.records.resize(log.capacity);
    }
}

std::uint16_t Card::write_record(const Command& command, ByteView data) {
    constexpr unsigned kSfiShift = 3;
    constexpr std::uint8_t kRecordModeMask = 0x07;
    constexpr std::uint8_t kByNumber = 0x04;
    if ((command.p2 & kRecordModeMask) != kByNumber) {
        return status::kIncorrectP1P2;
    }
    const auto sfi = static_cast<std::uint8_t>(command.p2 >> kSfiShift);
    for (const auto* log : {&application_->transaction_log, &application_->load_log}) {
        if (*log && (*log)->sfi == sfi) {
            return status::kIncompatibleFileStructure;
        }
    }
    std::vector<Record>& records = application_->records;
    if (std::none_of(records.begin(), records.end(),
                     [&](const Record& record) { return record.sfi == sfi; })) {
        return status::kFileNotFound;
    }
    const auto found = std::find_if(records.begin(), records.end(), [&](const Record& record) {
        return record.sfi == sfi && record.number == command.p1;
    });
    if (found == records.end()) {
        return status::kRecordNotFound;
    }
    if (!is_one_object(kTag70RecordTemplate, data)) {
        return status::kIncorrectData;
    }
    Record updated = *found;
    updated.objects.clear();
    updated.content.assign(data.begin(), data.end());
    std::vector<Record> all = records;
    all[static_cast<std::size_t>(found - records.begin())] = std::move(updated);
    try {
        personal_data(all);
    } catch (const std::runtime_error&) {
        return status::kIncorrectData;
    }
    records = std::move(all);
    return status::kSuccess;
}

} // namespace qaven::virtual_card
