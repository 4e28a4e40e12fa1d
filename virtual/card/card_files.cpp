// The virtual PBOC card: records, transparent files, data objects, challenge and PIN.
#include <algorithm>

#include "virtual/card/card.h"

namespace qaven::virtual_card {

namespace {

constexpr unsigned kSfiShift = 3;
constexpr std::uint8_t kByNumber = 0x04;
constexpr std::uint8_t kRecordModeMask = 0x07;

Response find_log_record(const LogFile& log, std::uint8_t number) {
    if (number == 0 || number > log.records.size()) {
        return status::kRecordNotFound;
    }
    return log.records[number - 1U];
}

// EMV Book 1, 12.2.3.
Bytes directory_record(const std::vector<DirectoryEntry>& entries) {
    Bytes inner;
    for (const DirectoryEntry& entry : entries) {
        Bytes value = encode_object(entry.is_directory ? kTag9DDdfName : kTag4FAid, entry.name);
        if (!entry.label.empty()) {
            append(value, encode_object(kTag50ApplicationLabel, to_bytes(entry.label)));
        }
        if (entry.priority) {
            append(value, encode_object(kTag87PriorityIndicator, Bytes{*entry.priority}));
        }
        append(inner, encode_object(kTag61ApplicationTemplate, value));
    }
    return encode_object(kTag70RecordTemplate, inner);
}

} // namespace

// EMV Book 3, 6.5.11.
Response Card::read_record(const Command& command) {
    if ((command.p2 & kRecordModeMask) != kByNumber) {
        return status::kIncorrectP1P2;
    }
    const auto sfi = static_cast<std::uint8_t>(command.p2 >> kSfiShift);
    if (directory_ != nullptr) {
        return read_directory_record(sfi, command.p1);
    }
    if (application_ == nullptr) {
        return status::kConditionsNotSatisfied;
    }
    return read_application_record(sfi, command.p1);
}

Response Card::read_directory_record(std::uint8_t sfi, std::uint8_t number) const {
    if (sfi != directory_->sfi) {
        return status::kFileNotFound;
    }
    if (number == 0 || number > directory_->records.size()) {
        return status::kRecordNotFound;
    }
    return directory_record(directory_->records[number - 1U]);
}

Response Card::read_application_record(std::uint8_t sfi, std::uint8_t number) const {
    for (const auto* log : {&application_->transaction_log, &application_->load_log}) {
        if (*log && (*log)->sfi == sfi) {
            return find_log_record(**log, number);
        }
    }
    const auto in_file = [sfi](const auto& entry) { return entry.sfi == sfi; };
    if (std::any_of(application_->binary_files.begin(), application_->binary_files.end(),
                    in_file)) {
        return status::kIncompatibleFileStructure;
    }
    const std::vector<Record>& records = application_->records;
    if (std::none_of(records.begin(), records.end(), in_file)) {
        return status::kFileNotFound;
    }
    // The files that the AFL names can be read once the transaction has begun.
    if (!transaction_->initiated()) {
        return status::kConditionsNotSatisfied;
    }
    const auto found = std::find_if(records.begin(), records.end(), [&](const Record& record) {
        return record.sfi == sfi && record.number == number;
    });
    if (found == records.end()) {
        return status::kRecordNotFound;
    }
    return found->content;
}

// ISO/IEC 7816-4:2005, 7.2.3.
Response Card::read_binary(const Command& command) {
    constexpr std::uint8_t kNamesSfi = 0x80;
    constexpr std::uint8_t kSfiMask = 0x1F;
    if (application_ == nullptr) {
        return status::kConditionsNotSatisfied;
    }
    if ((command.p1 & kNamesSfi) == 0) {
        return status::kNoCurrentEf;
    }
    const std::uint8_t sfi = command.p1 & kSfiMask;
    const auto in_file = [sfi](const auto& entry) { return entry.sfi == sfi; };
    const auto file =
        std::find_if(application_->binary_files.begin(), application_->binary_files.end(), in_file);
    if (file == application_->binary_files.end()) {
        const bool has_records =
            std::any_of(application_->records.begin(), application_->records.end(), in_file);
        return has_records ? status::kIncompatibleFileStructure : status::kFileNotFound;
    }
    const std::size_t offset = command.p2;
    if (offset >= file->content.size()) {
        return status::kOffsetOutsideFile;
    }
    const ByteView rest = ByteView(file->content).subspan(offset);
    const auto expected = command.ne();
    if (!expected) {
        return status::kWrongLength;
    }
    // A transparent file is read with the exact length; the card says which it is.
    if (*expected > rest.size()) {
        return static_cast<std::uint16_t>(status::kWrongLe |
                                          static_cast<std::uint8_t>(rest.size()));
    }
    const ByteView part = rest.first(*expected);
    return Bytes(part.begin(), part.end());
}

// EMV Book 3, 6.5.7.
Response Card::get_data(const Command& command) {
    if (application_ == nullptr) {
        return status::kConditionsNotSatisfied;
    }
    const TagNumber tag = (TagNumber{command.p1} << 8U) | command.p2;
    const auto value = data_object(tag);
    return value ? Response(encode_object(tag, *value)) : Response(status::kReferencedDataNotFound);
}

std::optional<Bytes> Card::data_object(TagNumber tag) const {
    const auto& cash = application_->electronic_cash;
    const auto log_format = [](const std::optional<LogFile>& log) {
        return log ? std::optional(log->format) : std::nullopt;
    };
    switch (tag) {
    case kTag9F13LastOnlineAtc:
        return big_endian(application_->last_online_atc);
    case kTag9F17PinTryCounter:
        return profile_.pin ? std::optional(Bytes{profile_.pin->tries_left}) : std::nullopt;
    case kTag9F36Atc:
        return big_endian(application_->atc);
    case kTag9F4FLogFormat:
        return log_format(application_->transaction_log);
    case kTagDF4FLoadLogFormat:
        return log_format(application_->load_log);
    case kTag9F77CashBalanceLimit:
        return cash ? std::optional(cash->balance_limit) : std::nullopt;
    case kTag9F78CashTransactionLimit:
        return cash ? std::optional(cash->single_limit) : std::nullopt;
    case kTag9F79CashBalance:
        return cash ? std::optional(cash->balance) : std::nullopt;
    default:
        return std::nullopt;
    }
}

// EMV Book 3, 6.5.6.
// NOLINTNEXTLINE(readability-convert-member-functions-to-static): one of the handlers
Response Card::get_challenge(const Command& command) {
    constexpr std::uint8_t kUsualSize = 8;
    if (command.p1 != 0 || command.p2 != 0) {
        return status::kIncorrectP1P2;
    }
    const std::uint8_t asked = command.le.value_or(0);
    return random_bytes(asked == 0 ? kUsualSize : asked);
}

// EMV Book 3, 6.5.12.
Response Card::verify(const Command& command) {
    constexpr std::uint8_t kPlaintextPin = 0x80;
    if (command.p1 != 0 || command.p2 != kPlaintextPin) {
        return status::kIncorrectP1P2;
    }
    if (application_ == nullptr || !profile_.pin) {
        return status::kConditionsNotSatisfied;
    }
    if (command.data.size() != sizeof(Cryptogram)) {
        return status::kWrongLength;
    }
    Pin& pin = *profile_.pin;
    if (pin.tries_left == 0) {
        return status::kAuthenticationMethodBlocked;
    }
    const Cryptogram expected = make_pin_block(pin.digits);
    const bool accepted = std::equal(expected.begin(), expected.end(), command.data.begin());
    transaction_->note_pin_verification(accepted);
    if (accepted) {
        pin.tries_left = pin.try_limit;
        return status::kSuccess;
    }
    --pin.tries_left;
    return static_cast<std::uint16_t>(status::kTriesLeft | pin.tries_left);
}

} // namespace qaven::virtual_card
