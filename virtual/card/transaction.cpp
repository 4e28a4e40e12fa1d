// One transaction of the selected application.
#include "virtual/card/transaction.h"

#include <algorithm>
#include <limits>

namespace qaven::virtual_card {

namespace {

constexpr std::uint8_t kTerminalOffersSm4 = 0x01;
constexpr std::uint8_t kMostCountedScripts = 15;

// EMV Book 3, 5.4.
std::map<TagNumber, Bytes> split_by_dol(const std::vector<DolEntry>& list, ByteView values) {
    std::map<TagNumber, Bytes> objects;
    for (const DolEntry& entry : list) {
        const ByteView value = values.first(entry.length);
        objects.insert_or_assign(entry.tag, Bytes(value.begin(), value.end()));
        values = values.subspan(entry.length);
    }
    return objects;
}

// The codes with which a terminal says that it could not reach the issuer (EMV Book 4, annex A6).
bool is_unable_to_go_online(const Bytes& arc) {
    return arc == to_bytes("Y3") || arc == to_bytes("Z3");
}

} // namespace

Transaction::Transaction(Application& application, const IssuerKeys& issuer_keys)
    : application_(application), issuer_keys_(issuer_keys),
      personal_(personal_data(application.records)) {}

// EMV Book 3, 6.5.8.
Response Transaction::get_processing_options(const Command& command) {
    if (command.p1 != 0 || command.p2 != 0) {
        return status::kIncorrectP1P2;
    }
    if (stage_ != Stage::kSelected) {
        return status::kConditionsNotSatisfied;
    }
    if (command.data.size() < 2 || command.data.size() != command.data[1] + std::size_t{2}) {
        return status::kWrongLength;
    }
    if (command.data[0] != kTag83CommandTemplate) {
        return status::kIncorrectData;
    }
    const auto list = parse_dol(application_.pdol);
    if (!list || dol_value_size(*list) != command.data[1]) {
        return status::kWrongLength;
    }
    // A counter that has run out ends the life of the application: no number may come twice.
    if (application_.atc == std::numeric_limits<std::uint16_t>::max()) {
        return status::kConditionsNotSatisfied;
    }
    ++application_.atc;
    stage_ = Stage::kInitiated;
    history_ = application_.last_transaction;
    new_card_ = application_.last_online_atc == 0;
    first_terminal_data_ = split_by_dol(*list, command.data.subspan(2));

    if (application_.gpo_format == ResponseFormat::kPrimitive) {
        return encode_object(kTag80ResponseFormat1,
                             concatenate({application_.aip, application_.afl}));
    }
    return encode_object(kTag77ResponseFormat2,
                         concatenate({encode_object(kTag82Aip, application_.aip),
                                      encode_object(kTag94Afl, application_.afl)}));
}

// EMV Book 3, 6.5.5.
Response Transaction::generate_ac(const Command& command, bool pin_try_limit_exceeded) {
    const bool known_request =
        command.p1 == kCidAac || command.p1 == kCidTc || command.p1 == kCidArqc;
    if (!known_request || command.p2 != 0) {
        return status::kIncorrectP1P2;
    }
    if (stage_ == Stage::kInitiated) {
        return first_generate_ac(command, pin_try_limit_exceeded);
    }
    if (stage_ == Stage::kOnline) {
        return second_generate_ac(command, pin_try_limit_exceeded);
    }
    return status::kConditionsNotSatisfied;
}

Response Transaction::first_generate_ac(const Command& command, bool pin_try_limit_exceeded) {
    if (personal_.cdol1.empty() || personal_.pan_digits.empty()) {
        return status::kConditionsNotSatisfied;
    }
    if (command.data.size() != dol_value_size(personal_.cdol1)) {
        return status::kWrongLength;
    }
    TerminalData terminal_data = split_by_dol(personal_.cdol1, command.data);
    const auto indicator = terminal_data.find(kTagDF69SmAlgorithm);
    const bool sm4_offered =
        indicator != terminal_data.end() && indicator->second == Bytes{kTerminalOffersSm4};
    algorithm_ = sm4_offered && issuer_keys_.sm4 ? Algorithm::kSm4 : Algorithm::kTripleDes;
    terminal_data.merge(first_terminal_data_);
    first_terminal_data_ = std::move(terminal_data);

    // This card never approves without its issuer: a request for a TC gets an ARQC.
    const bool declined = command.p1 == kCidAac || application_.blocked || application_.declines;
    const std::uint8_t outcome =
        cvr::kSecondNotRequested | (declined ? cvr::kFirstAac : cvr::kFirstArqc);
    Response response = generate_ac_response(declined ? kCidAac : kCidArqc, first_terminal_data_,
                                             make_cvr(outcome, pin_try_limit_exceeded));
    first_cryptogram_ = latest_cryptogram_;
    stage_ = declined ? Stage::kFinished : Stage::kOnline;
    if (!declined) {
        application_.last_transaction.online_not_completed = true;
    }
    return response;
}

Response Transaction::second_generate_ac(const Command& command, bool pin_try_limit_exceeded) {
    if (command.p1 == kCidArqc) {
        return status::kIncorrectP1P2;
    }
    if (personal_.cdol2.empty()) {
        return status::kConditionsNotSatisfied;
    }
    if (command.data.size() != dol_value_size(personal_.cdol2)) {
        return status::kWrongLength;
    }
    const TerminalData terminal_data = split_by_dol(personal_.cdol2, command.data);
    if (const auto code = terminal_data.find(kTag8AArc); code != terminal_data.end()) {
        unable_to_go_online_ = is_unable_to_go_online(code->second);
    }
    const bool approved = command.p1 == kCidTc && issuer_accepted() && !application_.blocked;
    const std::uint8_t outcome = (approved ? cvr::kSecondTc : cvr::kSecondAac) | cvr::kFirstArqc;
    Response response = generate_ac_response(approved ? kCidTc : kCidAac, terminal_data,
                                             make_cvr(outcome, pin_try_limit_exceeded));
    stage_ = Stage::kFinished;
    close_history();
    if (approved) {
        record_in_log();
    }
    return response;
}

bool Transaction::issuer_accepted() const {
    return issuer_authentication_ == IssuerAuthentication::kPassed ||
           (issuer_authentication_ == IssuerAuthentication::kMissing &&
            !application_.issuer_authentication_mandatory);
}

void Transaction::close_history() {
    LastTransaction& last = application_.last_transaction;
    last.online_not_completed = false;
    last.issuer_authentication_failed = issuer_authentication_ == IssuerAuthentication::kFailed;
    last.issuer_authentication_missing = issuer_authentication_ == IssuerAuthentication::kMissing;
    last.script_commands = 0;
    last.script_failed = false;
    if (issuer_authentication_ == IssuerAuthentication::kPassed) {
        application_.last_online_atc = application_.atc;
    }
}

void Transaction::record_in_log() {
    if (!application_.transaction_log) {
        return;
    }
    LogFile& log = *application_.transaction_log;
    log.records.insert(log.records.begin(), log_values(log.format));
    if (log.records.size() > log.capacity) {
        log.records.resize(log.capacity);
    }
}

const KeySet* Transaction::issuer_key_set() const {
    return issuer_keys_.find(algorithm_);
}

Key Transaction::session_key(const Key& issuer_key) const {
    const Key card_key = derive_card_key(algorithm_, issuer_key, personal_.pan_digits,
                                         personal_.pan_sequence_number);
    return derive_session_key(algorithm_, card_key, application_.atc);
}

Cvr Transaction::make_cvr(std::uint8_t outcome, bool pin_try_limit_exceeded) const {
    Cvr cvr{0x03, outcome, 0x00, 0x00};
    const auto set = [&cvr](std::size_t byte, std::uint8_t bit, bool when) {
        cvr.at(byte) |= when ? bit : std::uint8_t{0};
    };
    set(cvr::kOutcomeByte, cvr::kIssuerAuthenticationFailed,
        issuer_authentication_ == IssuerAuthentication::kFailed);
    set(cvr::kOutcomeByte, cvr::kPinVerificationPerformed,
        pin_verified_ || pin_verification_failed_);
    set(cvr::kOutcomeByte, cvr::kPinVerificationFailed, pin_verification_failed_);
    set(cvr::kOutcomeByte, cvr::kUnableToGoOnline, unable_to_go_online_);
    set(cvr::kHistoryByte, cvr::kLastOnlineNotCompleted, history_.online_not_completed);
    set(cvr::kHistoryByte, cvr::kPinTryLimitExceeded, pin_try_limit_exceeded);
    set(cvr::kHistoryByte, cvr::kNewCard, new_card_);
    set(cvr::kHistoryByte, cvr::kLastIssuerAuthenticationFailed,
        history_.issuer_authentication_failed);
    set(cvr::kHistoryByte, cvr::kLastIssuerAuthenticationMissing,
        history_.issuer_authentication_missing);
    cvr[cvr::kScriptByte] =
        static_cast<std::uint8_t>(history_.script_commands << cvr::kScriptCountShift);
    set(cvr::kScriptByte, cvr::kScriptFailed, history_.script_failed);
    set(cvr::kScriptByte, cvr::kDynamicDataSigned, dynamic_data_signed_);
    return cvr;
}

Response Transaction::generate_ac_response(std::uint8_t cid, const TerminalData& terminal_data,
                                           const Cvr& cvr) {
    const Bytes atc = big_endian(application_.atc);
    Bytes input;
    for (const DolEntry& object : kCryptogramTerminalObjects) {
        append(input, terminal_data.at(object.tag));
    }
    append(input, application_.aip);
    append(input, atc);
    append(input, cvr);
    latest_cryptogram_ = compute_mac(algorithm_, session_key(issuer_key_set()->cryptogram), input);

    Bytes iad = {kIadSize - 1, application_.key_index, application_.cryptogram_version};
    append(iad, cvr);
    iad.push_back(static_cast<std::uint8_t>(algorithm_));

    const Bytes cid_byte = {cid};
    if (application_.generate_ac_format == ResponseFormat::kPrimitive) {
        return encode_object(kTag80ResponseFormat1,
                             concatenate({cid_byte, atc, latest_cryptogram_, iad}));
    }
    return encode_object(
        kTag77ResponseFormat2,
        concatenate({encode_object(kTag9F27Cid, cid_byte), encode_object(kTag9F36Atc, atc),
                     encode_object(kTag9F26ApplicationCryptogram, latest_cryptogram_),
                     encode_object(kTag9F10Iad, iad)}));
}

// EMV Book 3, 6.5.4.
Response Transaction::external_authenticate(const Command& command) {
    if (command.p1 != 0 || command.p2 != 0) {
        return status::kIncorrectP1P2;
    }
    // One attempt for each transaction, so that a response cryptogram cannot be guessed.
    if (stage_ != Stage::kOnline || issuer_authentication_ != IssuerAuthentication::kMissing) {
        return status::kConditionsNotSatisfied;
    }
    if (command.data.size() != sizeof(Cryptogram) + sizeof(Arc)) {
        return status::kWrongLength;
    }
    Arc arc{};
    std::copy_n(command.data.begin() + sizeof(Cryptogram), arc.size(), arc.begin());
    const Cryptogram expected = compute_arpc(algorithm_, session_key(issuer_key_set()->cryptogram),
                                             *first_cryptogram_, arc);
    const bool genuine = std::equal(expected.begin(), expected.end(), command.data.begin());
    issuer_authentication_ =
        genuine ? IssuerAuthentication::kPassed : IssuerAuthentication::kFailed;
    return genuine ? status::kSuccess : status::kAuthenticationFailed;
}

// EMV Book 2, 6.5.2: a random number of the card, and a hash over it and over what the terminal
// sent, signed with the key that the card's certificate has.
Response Transaction::internal_authenticate(const Command& command) {
    constexpr std::uint8_t kHeader = 0x6A;
    constexpr std::uint8_t kSignedDynamicData = 0x05;
    constexpr std::uint8_t kAlgorithmSha1 = 0x01;
    constexpr std::uint8_t kNumberSize = 8;
    constexpr std::uint8_t kPadding = 0xBB;
    constexpr std::uint8_t kTrailer = 0xBC;
    if (command.p1 != 0 || command.p2 != 0) {
        return status::kIncorrectP1P2;
    }
    if (stage_ != Stage::kInitiated || !application_.icc_key || personal_.ddol.empty()) {
        return status::kConditionsNotSatisfied;
    }
    if (command.data.size() != dol_value_size(personal_.ddol)) {
        return status::kWrongLength;
    }
    const IccKey& key = *application_.icc_key;
    Bytes content = {kSignedDynamicData, kAlgorithmSha1, kNumberSize + 1, kNumberSize};
    append(content, random_bytes(kNumberSize));
    content.resize(key.modulus.size() - sizeof(Hash) - 2, kPadding);
    const Hash hash = hash_sha1(concatenate({content, command.data}));
    const Bytes signature =
        apply_rsa(key.modulus, key.private_exponent,
                  concatenate({Bytes{kHeader}, content, hash, Bytes{kTrailer}}));
    dynamic_data_signed_ = true;
    if (application_.generate_ac_format == ResponseFormat::kPrimitive) {
        return encode_object(kTag80ResponseFormat1, signature);
    }
    return encode_object(kTag77ResponseFormat2,
                         encode_object(kTag9F4BSignedDynamicData, signature));
}

void Transaction::note_pin_verification(bool accepted) {
    pin_verified_ = accepted;
    pin_verification_failed_ = !accepted;
}

std::optional<ByteView> Transaction::verified_data(const Command& command) const {
    const std::size_t plain_size = command.data.size() - kScriptMacSize;
    const ByteView plain = command.data.first(plain_size);
    const ByteView received = command.data.subspan(plain_size);
    const Bytes expected =
        compute_script_mac(algorithm_, session_key(issuer_key_set()->script_mac), command.header,
                           application_.atc, *first_cryptogram_, plain);
    if (!std::equal(expected.begin(), expected.end(), received.begin(), received.end())) {
        return std::nullopt;
    }
    return plain;
}

std::optional<Cryptogram> Transaction::decipher_pin(ByteView enciphered) const {
    return decipher_pin_block(algorithm_, session_key(issuer_key_set()->script_encryption),
                              enciphered);
}

void Transaction::note_script(bool accepted) {
    LastTransaction& last = application_.last_transaction;
    if (last.script_commands < kMostCountedScripts) {
        ++last.script_commands;
    }
    last.script_failed = last.script_failed || !accepted;
}

Bytes Transaction::log_values(ByteView format) const {
    const auto list = parse_dol(format);
    Bytes values;
    if (!list) {
        return values;
    }
    for (const DolEntry& entry : *list) {
        const auto found = first_terminal_data_.find(entry.tag);
        Bytes value = found != first_terminal_data_.end() ? found->second : Bytes{};
        if (entry.tag == kTag9F36Atc) {
            value = big_endian(application_.atc);
        }
        value.resize(entry.length, 0x00);
        append(values, value);
    }
    return values;
}

} // namespace qaven::virtual_card
