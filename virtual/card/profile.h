// What makes one virtual card: its files, keys, counters and limits. A profile file holds the same
// in JSON; a card that was used is saved as a profile again, so nothing of its state lives
// elsewhere.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "virtual/card/cryptography.h"
#include "virtual/card/tlv.h"

namespace qaven::virtual_card {

// One object of a record or of the FCI. The name is for people who read the profile.
struct DataObject {
    std::string name;
    TagNumber tag = 0;
    Bytes value;
    bool is_text = false;
};

// A record is its objects in a template 70. After UPDATE RECORD there are no named objects any
// more, only the bytes.
struct Record {
    std::uint8_t sfi = 0;
    std::uint8_t number = 0;
    std::vector<DataObject> objects;
    Bytes content;
};

// A cyclic file: the newest record is number 1.
struct LogFile {
    std::uint8_t sfi = 0;
    std::uint8_t capacity = 0;
    Bytes format;
    std::vector<Bytes> records;
};

// Amounts as twelve decimal digits in six bytes.
struct ElectronicCash {
    Bytes balance;
    Bytes balance_limit;
    Bytes single_limit;
};

struct BinaryFile {
    std::uint8_t sfi = 0;
    Bytes content;
};

// What the card remembers of the previous transaction, for the CVR of the next one.
struct LastTransaction {
    bool online_not_completed = false;
    bool issuer_authentication_failed = false;
    bool issuer_authentication_missing = false;
    std::uint8_t script_commands = 0;
    bool script_failed = false;
};

// The card's own RSA key, with which it signs dynamic data.
struct IccKey {
    Bytes modulus;
    Bytes private_exponent;
};

enum class ResponseFormat : std::uint8_t { kPrimitive = 1, kConstructed = 2 };

struct Application {
    Bytes aid;
    std::string label;
    std::optional<std::uint8_t> priority;
    bool blocked = false;
    Bytes pdol;
    std::vector<DataObject> fci_objects;
    Bytes aip;
    Bytes afl;
    ResponseFormat gpo_format = ResponseFormat::kPrimitive;
    ResponseFormat generate_ac_format = ResponseFormat::kPrimitive;
    bool declines = false;
    bool issuer_authentication_mandatory = true;
    std::uint8_t key_index = 0;
    std::uint8_t cryptogram_version = 0;
    std::optional<IccKey> icc_key;
    std::vector<Record> records;
    std::vector<BinaryFile> binary_files;
    std::optional<ElectronicCash> electronic_cash;
    std::optional<LogFile> transaction_log;
    std::optional<LogFile> load_log;
    std::uint16_t atc = 0;
    std::uint16_t last_online_atc = 0;
    LastTransaction last_transaction;
};

struct DirectoryEntry {
    bool is_directory = false;
    Bytes name;
    std::string label;
    std::optional<std::uint8_t> priority;
};

struct Directory {
    std::string name;
    std::uint8_t sfi = 0;
    std::vector<DataObject> fci_objects;
    std::vector<std::vector<DirectoryEntry>> records;
};

struct Pin {
    std::string digits;
    std::uint8_t try_limit = 0;
    std::uint8_t tries_left = 0;
};

struct KeySet {
    Key cryptogram{};
    Key script_mac{};
    Key script_encryption{};
};

struct IssuerKeys {
    KeySet triple_des;
    std::optional<KeySet> sm4;

    // Null when the issuer has no keys for the algorithm.
    const KeySet* find(Algorithm algorithm) const;
};

// `kDirect` returns the data at once; `kGetResponse` answers 61xx and 6Cxx and waits for
// GET RESPONSE, as T=0 cards do (EMV Book 1, 9.3.1).
enum class Transmission : std::uint8_t { kDirect, kGetResponse };

struct Profile {
    std::string description;
    Bytes atr;
    Transmission transmission = Transmission::kDirect;
    bool card_blocked = false;
    std::optional<Pin> pin;
    IssuerKeys issuer_keys;
    std::vector<Directory> directories;
    std::vector<Application> applications;
};

// What the transaction logic needs from the records of an application.
struct PersonalData {
    std::string pan_digits;
    std::uint8_t pan_sequence_number = 0;
    std::vector<DolEntry> cdol1;
    std::vector<DolEntry> cdol2;
    std::vector<DolEntry> ddol;
};

// Reads the objects out of the records; a missing object leaves its field empty. Throws
// std::runtime_error with a sentence for an object that is there and cannot be used.
PersonalData personal_data(const std::vector<Record>& records);

Bytes encode_record(const std::vector<DataObject>& objects);

// Both throw std::runtime_error with a sentence that names the file and what is wrong in it.
Profile load_profile(const std::filesystem::path& file);
void save_profile(const Profile& profile, const std::filesystem::path& file);

} // namespace qaven::virtual_card
