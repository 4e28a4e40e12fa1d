// The issuer's side of a transaction: verdicts, response cryptogram and script.
#include "virtual/issuer/issuer.h"

#include <algorithm>
#include <stdexcept>

#include "virtual/card/tlv.h"

namespace qaven::virtual_issuer {

namespace card = virtual_card;

using card::Algorithm;
using card::Cryptogram;
using card::Key;

// What follows from the card data for one transaction.
struct Issuer::Session {
    Algorithm algorithm = Algorithm::kTripleDes;
    const card::KeySet* issuer_keys = nullptr;
    std::string pan_digits;
    std::uint8_t pan_sequence_number = 0;
    std::uint16_t atc = 0;
    Cryptogram cryptogram{};
    card::Cvr cvr{};

    Key key(const Key& issuer_key) const {
        const Key card_key =
            card::derive_card_key(algorithm, issuer_key, pan_digits, pan_sequence_number);
        return card::derive_session_key(algorithm, card_key, atc);
    }
};

namespace {

Cryptogram as_cryptogram(const Bytes& bytes) {
    Cryptogram cryptogram{};
    std::copy_n(bytes.begin(), cryptogram.size(), cryptogram.begin());
    return cryptogram;
}

Algorithm read_algorithm(const Bytes& iad) {
    const std::uint8_t byte = iad[card::kIadAlgorithmAt];
    for (const Algorithm known : {Algorithm::kTripleDes, Algorithm::kSm4}) {
        if (byte == static_cast<std::uint8_t>(known)) {
            return known;
        }
    }
    throw std::runtime_error("The issuer application data (9F10) names an unknown algorithm.");
}

// The CID (9F27) is not under the cryptogram, the CVR is: they have to agree.
bool is_of_kind(std::uint8_t cid_byte, const card::Cvr& cvr, CryptogramKind kind) {
    const std::uint8_t outcome = cvr[card::cvr::kOutcomeByte];
    const bool went_online = (outcome & card::cvr::kFirstMask) == card::cvr::kFirstArqc;
    const std::uint8_t second = outcome & card::cvr::kSecondMask;
    const std::uint8_t cid = cid_byte & card::kCidMask;
    if (kind == CryptogramKind::kRequest) {
        return cid == card::kCidArqc && went_online && second == card::cvr::kSecondNotRequested;
    }
    return cid == card::kCidTc && second == card::cvr::kSecondTc;
}

Bytes cryptogram_input(const Field55& field, const card::Cvr& cvr) {
    Bytes input;
    for (const card::DolEntry& object : card::kCryptogramTerminalObjects) {
        card::append(input, field.require(object.tag, object.length));
    }
    card::append(input, field.require(kTag82Aip, 2));
    card::append(input, field.require(kTag9F36Atc, 2));
    card::append(input, cvr);
    return input;
}

void flip_last_byte(Bytes& bytes) {
    bytes.back() = static_cast<std::uint8_t>(~bytes.back());
}

} // namespace

Issuer Issuer::from_profile(const std::filesystem::path& profile) {
    return Issuer(card::load_profile(profile).issuer_keys);
}

Issuer::Session Issuer::open_session(const Field55& field) const {
    const Bytes& iad = field.require(kTag9F10Iad, card::kIadSize);
    const Bytes& atc = field.require(kTag9F36Atc, 2);
    if (iad[0] != card::kIadSize - 1 || iad[card::kIadCvrAt] != card::kCvrSize - 1) {
        throw std::runtime_error(
            "The issuer application data (9F10) does not have the layout of this "
            "issuer's cards.");
    }
    Session session;
    session.algorithm = read_algorithm(iad);
    session.issuer_keys = keys_.find(session.algorithm);
    if (session.issuer_keys == nullptr) {
        throw std::runtime_error("The issuer has no keys for the algorithm that the card used.");
    }
    std::copy_n(iad.begin() + card::kIadCvrAt, card::kCvrSize, session.cvr.begin());
    const Bytes* pan = field.find(kTag5APan);
    if (pan == nullptr) {
        throw std::runtime_error("The card data has no 5A (PAN).");
    }
    const std::string digits = card::to_hex(*pan);
    session.pan_digits = digits.substr(0, digits.find('F'));
    const Bytes* sequence = field.find(kTag5F34PanSequenceNumber);
    session.pan_sequence_number =
        sequence != nullptr && !sequence->empty() ? sequence->front() : std::uint8_t{0};
    session.atc = static_cast<std::uint16_t>((atc[0] << 8U) | atc[1]);
    session.cryptogram =
        as_cryptogram(field.require(kTag9F26ApplicationCryptogram, sizeof(Cryptogram)));
    return session;
}

Verdict Issuer::verify(const Field55& field, CryptogramKind kind) const {
    try {
        return judge(field, kind);
    } catch (const std::runtime_error& error) {
        Verdict verdict;
        verdict.reason = error.what();
        return verdict;
    }
}

Verdict Issuer::judge(const Field55& field, CryptogramKind kind) const {
    const Session session = open_session(field);
    const Comparison comparison{session.cryptogram,
                                card::compute_mac(session.algorithm,
                                                  session.key(session.issuer_keys->cryptogram),
                                                  cryptogram_input(field, session.cvr)),
                                session.algorithm, session.cvr};
    const bool right_kind = is_of_kind(field.require(kTag9F27Cid, 1)[0], session.cvr, kind);
    Verdict verdict;
    verdict.comparison = comparison;
    if (comparison.received != comparison.computed) {
        verdict.reason = "The cryptogram is not the one that follows from the card data.";
    } else if (!right_kind) {
        verdict.reason = kind == CryptogramKind::kRequest
                             ? "The cryptogram is genuine, but it is not an ARQC."
                             : "The cryptogram is genuine, but it is not a TC.";
    } else {
        verdict.verified = true;
        verdict.reason = "The cryptogram is the one that follows from the card data.";
    }
    return verdict;
}

bool is_covered(TagNumber tag) {
    // The AIP, the ATC and the CVR (in 9F10) enter beside the terminal's objects; the PAN, its
    // sequence number and the algorithm (in 9F10) choose the key; 9F27 is compared with the CVR.
    constexpr std::array<TagNumber, 7> kOthers{kTag82Aip,
                                               kTag9F36Atc,
                                               kTag9F10Iad,
                                               kTag5APan,
                                               kTag5F34PanSequenceNumber,
                                               kTag9F26ApplicationCryptogram,
                                               kTag9F27Cid};
    return std::find(kOthers.begin(), kOthers.end(), tag) != kOthers.end() ||
           std::any_of(card::kCryptogramTerminalObjects.begin(),
                       card::kCryptogramTerminalObjects.end(),
                       [tag](const card::DolEntry& object) { return object.tag == tag; });
}

Bytes Issuer::answer(const Field55& field, const Answer& answer) const {
    const Session session = open_session(field);
    const Cryptogram arpc =
        card::compute_arpc(session.algorithm, session.key(session.issuer_keys->cryptogram),
                           session.cryptogram, answer.arc);
    Bytes authentication(arpc.begin(), arpc.end());
    if (!answer.genuine_authentication) {
        flip_last_byte(authentication);
    }
    card::append(authentication, answer.arc);
    Bytes response = card::encode_object(kTag91IssuerAuthenticationData, authentication);
    if (answer.script.empty()) {
        return response;
    }

    const Key mac_key = session.key(session.issuer_keys->script_mac);
    const Key encryption_key = session.key(session.issuer_keys->script_encryption);
    Bytes script = card::encode_object(kTag9F18IssuerScriptIdentifier, answer.script_identifier);
    for (const ScriptCommand& command : answer.script) {
        Bytes data = command.data;
        if (command.encipher_as_pin) {
            data = card::encipher_pin_block(session.algorithm, encryption_key, as_cryptogram(data));
        }
        const std::size_t mac_size = command.secured ? card::kScriptMacSize : 0;
        Bytes bytes(command.header.begin(), command.header.end());
        bytes.push_back(static_cast<std::uint8_t>(data.size() + mac_size));
        if (command.secured) {
            Bytes mac = card::compute_script_mac(session.algorithm, mac_key, bytes, session.atc,
                                                 session.cryptogram, data);
            if (!answer.genuine_script_macs) {
                flip_last_byte(mac);
            }
            card::append(data, mac);
        }
        card::append(bytes, data);
        card::append(script, card::encode_object(kTag86IssuerScriptCommand, bytes));
    }
    card::append(response, card::encode_object(answer.script_template, script));
    return response;
}

} // namespace qaven::virtual_issuer
