// The virtual PBOC card: parsing commands, the two ways of returning data, selection, and the
// commands that belong to a transaction.
#include "virtual/card/card.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

namespace qaven::virtual_card {

struct Card::Instruction {
    std::uint8_t cla;
    std::uint8_t ins;
    bool takes_data;
    Handler handler;
};

const Card::Instruction* Card::find_instruction(std::uint8_t cla, std::uint8_t ins) {
    static constexpr std::array<Instruction, 17> kInstructions{{
        {0x00, ins::kVerify, true, &Card::verify},
        {0x00, ins::kExternalAuthenticate, true, &Card::external_authenticate},
        {0x00, ins::kGetChallenge, false, &Card::get_challenge},
        {0x00, ins::kInternalAuthenticate, true, &Card::internal_authenticate},
        {0x00, ins::kSelect, true, &Card::select},
        {0x00, ins::kReadBinary, false, &Card::read_binary},
        {0x00, ins::kReadRecord, false, &Card::read_record},
        {0x04, ins::kPutData, true, &Card::put_data},
        {0x04, ins::kUpdateRecord, true, &Card::update_record},
        {0x80, ins::kGetProcessingOptions, true, &Card::get_processing_options},
        {0x80, ins::kGenerateAc, true, &Card::generate_ac},
        {0x80, ins::kGetData, false, &Card::get_data},
        {0x84, ins::kCardBlock, true, &Card::card_block},
        {0x84, ins::kApplicationUnblock, true, &Card::application_unblock},
        {0x84, ins::kApplicationBlock, true, &Card::application_block},
        {0x84, ins::kPinChange, true, &Card::pin_change},
        {0x00, ins::kGetResponse, false, &Card::get_response},
    }};
    const auto* const found =
        std::find_if(kInstructions.begin(), kInstructions.end(), [&](const Instruction& candidate) {
            return candidate.cla == cla && candidate.ins == ins;
        });
    return found != kInstructions.end() ? found : nullptr;
}

std::uint16_t Card::unsupported_status(std::uint8_t cla, std::uint8_t ins) {
    constexpr std::array<std::uint8_t, 4> kClasses{0x00, 0x04, 0x80, 0x84};
    const bool known_class = std::find(kClasses.begin(), kClasses.end(), cla) != kClasses.end();
    const bool known_elsewhere =
        std::any_of(kClasses.begin(), kClasses.end(), [&](std::uint8_t candidate) {
            return find_instruction(candidate, ins) != nullptr;
        });
    return known_class && !known_elsewhere ? status::kInsNotSupported : status::kClaNotSupported;
}

Card::Card(Profile profile) : profile_(std::move(profile)) {}

Bytes Card::power_on() {
    forget_session();
    powered_ = true;
    return profile_.atr;
}

void Card::power_off() {
    forget_session();
    powered_ = false;
}

void Card::forget_session() {
    last_found_.reset();
    last_name_.clear();
    directory_ = nullptr;
    application_ = nullptr;
    transaction_.reset();
    pending_response_.clear();
}

Bytes Card::transmit(std::span<const std::uint8_t> command) {
    if (!powered_) {
        throw std::logic_error("A card without power takes no command.");
    }
    Response response = execute(command);
    response.data.push_back(static_cast<std::uint8_t>(response.sw >> 8U));
    response.data.push_back(static_cast<std::uint8_t>(response.sw));
    return std::move(response.data);
}

Response Card::execute(ByteView bytes) {
    constexpr std::size_t kHeaderSize = 4;
    if (bytes.size() < kHeaderSize) {
        return status::kWrongLength;
    }
    Command command;
    command.cla = bytes[0];
    command.ins = bytes[1];
    command.p1 = bytes[2];
    command.p2 = bytes[3];
    const Instruction* known = find_instruction(command.cla, command.ins);
    if (known == nullptr) {
        return unsupported_status(command.cla, command.ins);
    }
    if (known->handler != &Card::get_response) {
        pending_response_.clear();
    }
    if (bytes.size() == kHeaderSize + 1) {
        command.le = bytes[kHeaderSize];
    } else if (bytes.size() > kHeaderSize + 1) {
        const std::size_t data_size = bytes[kHeaderSize];
        const std::size_t data_end = kHeaderSize + 1 + data_size;
        if (data_size == 0 || bytes.size() < data_end || bytes.size() > data_end + 1) {
            return status::kWrongLength;
        }
        command.header = bytes.first(kHeaderSize + 1);
        command.data = bytes.subspan(kHeaderSize + 1, data_size);
        if (bytes.size() > data_end) {
            command.le = bytes[data_end];
        }
    }
    if (command.data.empty() == known->takes_data) {
        return status::kWrongLength;
    }
    return apply_le(command, known->takes_data, (this->*known->handler)(command));
}

// A T=0 card cannot answer a command that carried data with data: it says how much is waiting
// (61xx). For a command without data it insists on the exact length (6Cxx). EMV Book 1, 9.3.1.
Response Card::apply_le(const Command& command, bool takes_data, Response response) {
    if (response.data.empty()) {
        return response;
    }
    const auto size = static_cast<std::uint8_t>(response.data.size());
    const auto expected = command.ne();
    const bool exact_only = profile_.transmission == Transmission::kGetResponse;
    if (takes_data) {
        if (!exact_only) {
            return response;
        }
        pending_response_ = std::move(response.data);
        return response.sw == status::kSuccess
                   ? static_cast<std::uint16_t>(status::kBytesAvailable | size)
                   : response.sw;
    }
    const bool too_short = expected && *expected < response.data.size();
    if (too_short || (exact_only && expected != response.data.size())) {
        return static_cast<std::uint16_t>(status::kWrongLe | size);
    }
    return response;
}

Response Card::get_response(const Command& command) {
    if (command.p1 != 0 || command.p2 != 0) {
        return status::kIncorrectP1P2;
    }
    if (pending_response_.empty()) {
        return status::kConditionsNotSatisfied;
    }
    if (command.ne() != pending_response_.size()) {
        return static_cast<std::uint16_t>(status::kWrongLe |
                                          static_cast<std::uint8_t>(pending_response_.size()));
    }
    return std::exchange(pending_response_, {});
}

std::size_t Card::file_count() const {
    return profile_.directories.size() + profile_.applications.size();
}

Bytes Card::df_name(std::size_t file) const {
    return file < profile_.directories.size()
               ? to_bytes(profile_.directories[file].name)
               : profile_.applications[file - profile_.directories.size()].aid;
}

// EMV Book 1, 11.3.
Response Card::select(const Command& command) {
    constexpr std::uint8_t kByName = 0x04;
    constexpr std::uint8_t kFirstOccurrence = 0x00;
    constexpr std::uint8_t kNextOccurrence = 0x02;
    constexpr std::size_t kLongestName = 16;
    if (command.p1 != kByName ||
        (command.p2 != kFirstOccurrence && command.p2 != kNextOccurrence)) {
        return status::kIncorrectP1P2;
    }
    if (profile_.card_blocked) {
        return status::kFunctionNotSupported;
    }
    if (command.data.size() > kLongestName) {
        return status::kWrongLength;
    }
    const Bytes name(command.data.begin(), command.data.end());
    std::size_t file = 0;
    if (command.p2 == kNextOccurrence) {
        if (!last_found_ || name != last_name_) {
            return status::kFileNotFound;
        }
        file = *last_found_ + 1;
    }
    for (; file < file_count(); ++file) {
        const Bytes full_name = df_name(file);
        if (full_name.size() >= name.size() &&
            std::equal(name.begin(), name.end(), full_name.begin())) {
            last_found_ = file;
            last_name_ = name;
            return select_file(file);
        }
    }
    return status::kFileNotFound;
}

namespace {

Bytes encode_all(const std::vector<DataObject>& objects) {
    Bytes all;
    for (const DataObject& object : objects) {
        append(all, encode_object(object.tag, object.value));
    }
    return all;
}

// EMV Book 1, 11.3.4.
Bytes fci_template(ByteView name, ByteView proprietary) {
    return encode_object(kTag6FFciTemplate,
                         concatenate({encode_object(kTag84DfName, name),
                                      encode_object(kTagA5FciProprietaryTemplate, proprietary)}));
}

Bytes log_entry(TagNumber tag, const LogFile& log) {
    return encode_object(tag, Bytes{log.sfi, log.capacity});
}

Bytes directory_fci(const Directory& directory) {
    return fci_template(to_bytes(directory.name),
                        concatenate({encode_object(kTag88Sfi, Bytes{directory.sfi}),
                                     encode_all(directory.fci_objects)}));
}

Bytes application_fci(const Application& application) {
    Bytes proprietary = encode_object(kTag50ApplicationLabel, to_bytes(application.label));
    if (application.priority) {
        append(proprietary, encode_object(kTag87PriorityIndicator, Bytes{*application.priority}));
    }
    if (!application.pdol.empty()) {
        append(proprietary, encode_object(kTag9F38Pdol, application.pdol));
    }
    append(proprietary, encode_all(application.fci_objects));
    Bytes discretionary;
    if (application.transaction_log) {
        append(discretionary, log_entry(kTag9F4DLogEntry, *application.transaction_log));
    }
    if (application.load_log) {
        append(discretionary, log_entry(kTagDF4DLoadLogEntry, *application.load_log));
    }
    if (!discretionary.empty()) {
        append(proprietary, encode_object(kTagBF0CFciIssuerDiscretionaryData, discretionary));
    }
    return fci_template(application.aid, proprietary);
}

} // namespace

Response Card::select_file(std::size_t file) {
    transaction_.reset();
    application_ = nullptr;
    directory_ = nullptr;
    if (file < profile_.directories.size()) {
        directory_ = &profile_.directories[file];
        return directory_fci(*directory_);
    }
    application_ = &profile_.applications[file - profile_.directories.size()];
    transaction_.emplace(*application_, profile_.issuer_keys);
    return {application_fci(*application_),
            application_->blocked ? status::kSelectedFileInvalidated : status::kSuccess};
}

Response Card::get_processing_options(const Command& command) {
    return transaction_ ? transaction_->get_processing_options(command)
                        : Response(status::kConditionsNotSatisfied);
}

Response Card::generate_ac(const Command& command) {
    const bool no_tries_left = profile_.pin && profile_.pin->tries_left == 0;
    return transaction_ ? transaction_->generate_ac(command, no_tries_left)
                        : Response(status::kConditionsNotSatisfied);
}

Response Card::external_authenticate(const Command& command) {
    return transaction_ ? transaction_->external_authenticate(command)
                        : Response(status::kConditionsNotSatisfied);
}

Response Card::internal_authenticate(const Command& command) {
    return transaction_ ? transaction_->internal_authenticate(command)
                        : Response(status::kConditionsNotSatisfied);
}

} // namespace qaven::virtual_card
