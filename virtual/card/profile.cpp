// Profile files: reading with every entry checked, and writing a card back in the same form.
#include "virtual/card/profile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "virtual/card/cryptogram_input.h"
#include "virtual/card/json.h"

namespace qaven::virtual_card {

namespace {

constexpr std::size_t kAmountSize = 6;
constexpr std::uint32_t kLargestSfi = 30;
constexpr std::uint32_t kLargestByte = 0xFF;
constexpr std::size_t kLongestAid = 16;

// ---- reading ----

std::uint8_t read_byte(JsonObject& from, const char* name, std::uint32_t largest) {
    return static_cast<std::uint8_t>(from.number(name, largest));
}

std::uint8_t read_sfi(JsonObject& from) {
    const std::uint8_t sfi = read_byte(from, "sfi", kLargestSfi);
    if (sfi == 0) {
        from.complain("sfi", "has to be a number from 1 to 30");
    }
    return sfi;
}

std::uint16_t read_counter(JsonObject& from, const char* name) {
    const Bytes bytes = from.hex_or(name, {0x00, 0x00});
    if (bytes.size() != 2) {
        from.complain(name, "has to be 2 bytes long");
    }
    return static_cast<std::uint16_t>((bytes[0] << 8U) | bytes[1]);
}

TagNumber read_tag(JsonObject& from) {
    const Bytes bytes = from.hex("tag");
    const auto parsed = parse_dol(concatenate({bytes, Bytes{0x00}}));
    if (!parsed || parsed->size() != 1) {
        from.complain("tag", "has to be one tag");
    }
    return parsed->front().tag;
}

std::vector<DataObject> read_objects(JsonObject& from, const char* name) {
    std::vector<DataObject> objects;
    for (JsonObject& entry : from.objects(name)) {
        DataObject object;
        object.name = entry.text("name");
        object.tag = read_tag(entry);
        object.is_text = entry.has("text");
        object.value = object.is_text ? to_bytes(entry.text("text")) : entry.hex("hex");
        entry.finish();
        objects.push_back(std::move(object));
    }
    return objects;
}

std::optional<std::uint8_t> read_priority(JsonObject& from) {
    if (!from.has("priority")) {
        return std::nullopt;
    }
    return read_byte(from, "priority", kLargestByte);
}

Record read_record(JsonObject& from) {
    Record record;
    record.sfi = read_sfi(from);
    record.number = read_byte(from, "number", kLargestByte);
    if (from.has("content")) {
        record.content = from.hex("content");
    } else {
        record.objects = read_objects(from, "objects");
        record.content = encode_record(record.objects);
    }
    from.finish();
    return record;
}

LogFile read_log(JsonObject from) {
    LogFile log;
    log.sfi = read_sfi(from);
    log.capacity = read_byte(from, "capacity", kLargestByte);
    log.format = from.hex("format");
    if (!parse_dol(log.format)) {
        from.complain("format", "has to be a list of tags and lengths");
    }
    log.records = from.hex_list("records");
    from.finish();
    return log;
}

ElectronicCash read_electronic_cash(JsonObject from) {
    ElectronicCash cash;
    cash.balance = from.hex_of_size("balance", kAmountSize);
    cash.balance_limit = from.hex_of_size("balance_limit", kAmountSize);
    cash.single_limit = from.hex_of_size("single_limit", kAmountSize);
    from.finish();
    return cash;
}

LastTransaction read_last_transaction(JsonObject from) {
    constexpr std::uint32_t kMostCounted = 15;
    LastTransaction last;
    last.online_not_completed = from.flag_or("online_not_completed", false);
    last.issuer_authentication_failed = from.flag_or("issuer_authentication_failed", false);
    last.issuer_authentication_missing = from.flag_or("issuer_authentication_missing", false);
    last.script_commands =
        static_cast<std::uint8_t>(from.number_or("script_commands", kMostCounted, 0));
    last.script_failed = from.flag_or("script_failed", false);
    from.finish();
    return last;
}

IccKey read_icc_key(JsonObject from) {
    // What holds a signature over a dynamic number, and what a response to INTERNAL AUTHENTICATE
    // can hold in a template 77.
    constexpr std::size_t kShortestModulus = 64;
    constexpr std::size_t kLongestModulus = 247;
    constexpr std::uint8_t kHighestBit = 0x80;
    IccKey key;
    key.modulus = from.hex("modulus");
    if (key.modulus.size() < kShortestModulus || key.modulus.size() > kLongestModulus ||
        key.modulus.front() < kHighestBit) {
        from.complain("modulus", "has to be 64 to 247 bytes long, the first one 80 or more");
    }
    key.private_exponent = from.hex_of_size("private_exponent", key.modulus.size());
    from.finish();
    return key;
}

ResponseFormat read_format(JsonObject& from, const char* name) {
    const std::uint32_t format = from.number_or(name, 2, 1);
    if (format == 0) {
        from.complain(name, "has to be 1 or 2");
    }
    return format == 1 ? ResponseFormat::kPrimitive : ResponseFormat::kConstructed;
}

void read_files(JsonObject& from, Application& application) {
    for (JsonObject& entry : from.objects("records")) {
        application.records.push_back(read_record(entry));
    }
    for (JsonObject& entry : from.objects("binary_files")) {
        BinaryFile file;
        file.sfi = read_sfi(entry);
        file.content = entry.hex("content");
        entry.finish();
        application.binary_files.push_back(std::move(file));
    }
    if (from.has("transaction_log")) {
        application.transaction_log = read_log(from.object("transaction_log"));
    }
    if (from.has("load_log")) {
        application.load_log = read_log(from.object("load_log"));
    }
}

Application read_application(JsonObject& from) {
    Application application;
    application.aid = from.hex("aid");
    if (application.aid.empty() || application.aid.size() > kLongestAid) {
        from.complain("aid", "has to be 1 to 16 bytes long");
    }
    application.label = from.text("label");
    application.priority = read_priority(from);
    application.blocked = from.flag_or("blocked", false);
    application.pdol = from.hex_or("pdol", {});
    if (!parse_dol(application.pdol)) {
        from.complain("pdol", "has to be a list of tags and lengths");
    }
    application.fci_objects = read_objects(from, "fci_objects");
    application.aip = from.hex_of_size(from.renamed("aip", "interchange_profile"), 2);
    application.afl = from.hex(from.renamed("afl", "file_locator"));
    application.gpo_format =
        read_format(from, from.renamed("gpo_format", "processing_options_format"));
    application.generate_ac_format =
        read_format(from, from.renamed("generate_ac_format", "cryptogram_format"));
    application.declines = from.flag_or("declines", false);
    application.issuer_authentication_mandatory =
        from.flag_or("issuer_authentication_mandatory", true);
    application.key_index = from.hex_of_size("key_index", 1)[0];
    application.cryptogram_version = from.hex_of_size("cryptogram_version", 1)[0];
    if (from.has("icc_key")) {
        application.icc_key = read_icc_key(from.object("icc_key"));
    }
    read_files(from, application);
    if (from.has("electronic_cash")) {
        application.electronic_cash = read_electronic_cash(from.object("electronic_cash"));
    }
    application.atc = read_counter(from, from.renamed("atc", "transaction_counter"));
    application.last_online_atc =
        read_counter(from, from.renamed("last_online_atc", "last_online_counter"));
    if (from.has("last_transaction")) {
        application.last_transaction = read_last_transaction(from.object("last_transaction"));
    }
    from.finish();
    personal_data(application.records);
    return application;
}

DirectoryEntry read_directory_entry(JsonObject& from) {
    DirectoryEntry entry;
    entry.is_directory = from.has("directory");
    if (entry.is_directory) {
        entry.name = to_bytes(from.text("directory"));
    } else {
        entry.name = from.hex("application");
        entry.label = from.text_or("label", "");
        entry.priority = read_priority(from);
    }
    from.finish();
    return entry;
}

Directory read_directory(JsonObject& from) {
    Directory directory;
    directory.name = from.text("name");
    directory.sfi = read_sfi(from);
    directory.fci_objects = read_objects(from, "fci_objects");
    for (auto& row : from.object_lists("records")) {
        std::vector<DirectoryEntry> record;
        record.reserve(row.size());
        for (JsonObject& entry : row) {
            record.push_back(read_directory_entry(entry));
        }
        directory.records.push_back(std::move(record));
    }
    from.finish();
    return directory;
}

Key read_key(JsonObject& from, const char* name) {
    const Bytes bytes = from.hex_of_size(name, sizeof(Key));
    Key key{};
    std::copy(bytes.begin(), bytes.end(), key.begin());
    return key;
}

KeySet read_key_set(JsonObject from) {
    KeySet keys;
    keys.cryptogram = read_key(from, "cryptogram");
    keys.script_mac = read_key(from, "script_mac");
    keys.script_encryption = read_key(from, "script_encryption");
    from.finish();
    return keys;
}

IssuerKeys read_issuer_keys(JsonObject from) {
    IssuerKeys keys;
    keys.triple_des = read_key_set(from.object("3des"));
    if (from.has("sm4")) {
        keys.sm4 = read_key_set(from.object("sm4"));
    }
    from.finish();
    return keys;
}

Pin read_pin(JsonObject from) {
    Pin pin;
    pin.digits = from.text("digits");
    if (pin.digits.find_first_not_of("0123456789") != std::string::npos ||
        read_pin_block(make_pin_block(pin.digits)) != pin.digits) {
        from.complain("digits", "has to be 4 to 12 digits");
    }
    pin.try_limit = read_byte(from, "try_limit", 15);
    pin.tries_left = static_cast<std::uint8_t>(from.number_or("tries_left", 15, pin.try_limit));
    from.finish();
    return pin;
}

Transmission read_transmission(JsonObject& from) {
    const std::string text = from.text_or("transmission", "direct");
    if (text != "direct" && text != "get-response") {
        from.complain("transmission", R"(has to be "direct" or "get-response")");
    }
    return text == "direct" ? Transmission::kDirect : Transmission::kGetResponse;
}

Profile read_profile(JsonObject from) {
    Profile profile;
    profile.description = from.text("description");
    profile.atr = from.hex(from.renamed("atr", "answer_to_reset"));
    profile.transmission = read_transmission(from);
    profile.card_blocked = from.flag_or("card_blocked", false);
    if (from.has("pin")) {
        profile.pin = read_pin(from.object("pin"));
    }
    profile.issuer_keys = read_issuer_keys(from.object("issuer_keys"));
    for (JsonObject& entry : from.objects("directories")) {
        profile.directories.push_back(read_directory(entry));
    }
    for (JsonObject& entry : from.objects("applications")) {
        profile.applications.push_back(read_application(entry));
    }
    from.finish();
    return profile;
}

// ---- writing ----

void add(cJSON* object, const char* name, JsonTree item) {
    cJSON_AddItemToObject(object, name, item.release());
}

void add(cJSON* list, JsonTree item) {
    cJSON_AddItemToArray(list, item.release());
}

JsonTree text_item(const std::string& text) {
    return JsonTree(cJSON_CreateString(text.c_str()));
}

JsonTree hex_item(ByteView bytes) {
    return text_item(to_hex(bytes));
}

JsonTree number_item(unsigned value) {
    return JsonTree(cJSON_CreateNumber(value));
}

JsonTree flag_item(bool value) {
    return JsonTree(cJSON_CreateBool(value ? 1 : 0));
}

JsonTree new_object() {
    return JsonTree(cJSON_CreateObject());
}

template <typename Items, typename Write>
JsonTree list_item(const Items& items, Write write) {
    JsonTree list(cJSON_CreateArray());
    for (const auto& item : items) {
        add(list.get(), write(item));
    }
    return list;
}

JsonTree write_object(const DataObject& object) {
    JsonTree item = new_object();
    add(item.get(), "name", text_item(object.name));
    add(item.get(), "tag", text_item(tag_text(object.tag)));
    if (object.is_text) {
        add(item.get(), "text", text_item({object.value.begin(), object.value.end()}));
    } else {
        add(item.get(), "hex", hex_item(object.value));
    }
    return item;
}

JsonTree write_record(const Record& record) {
    JsonTree item = new_object();
    add(item.get(), "sfi", number_item(record.sfi));
    add(item.get(), "number", number_item(record.number));
    if (record.objects.empty()) {
        add(item.get(), "content", hex_item(record.content));
    } else {
        add(item.get(), "objects", list_item(record.objects, write_object));
    }
    return item;
}

JsonTree write_log(const LogFile& log) {
    JsonTree item = new_object();
    add(item.get(), "sfi", number_item(log.sfi));
    add(item.get(), "capacity", number_item(log.capacity));
    add(item.get(), "format", hex_item(log.format));
    add(item.get(), "records", list_item(log.records, hex_item));
    return item;
}

JsonTree write_electronic_cash(const ElectronicCash& cash) {
    JsonTree item = new_object();
    add(item.get(), "balance", hex_item(cash.balance));
    add(item.get(), "balance_limit", hex_item(cash.balance_limit));
    add(item.get(), "single_limit", hex_item(cash.single_limit));
    return item;
}

JsonTree write_last_transaction(const LastTransaction& last) {
    JsonTree item = new_object();
    add(item.get(), "online_not_completed", flag_item(last.online_not_completed));
    add(item.get(), "issuer_authentication_failed", flag_item(last.issuer_authentication_failed));
    add(item.get(), "issuer_authentication_missing", flag_item(last.issuer_authentication_missing));
    add(item.get(), "script_commands", number_item(last.script_commands));
    add(item.get(), "script_failed", flag_item(last.script_failed));
    return item;
}

JsonTree write_binary_file(const BinaryFile& file) {
    JsonTree item = new_object();
    add(item.get(), "sfi", number_item(file.sfi));
    add(item.get(), "content", hex_item(file.content));
    return item;
}

JsonTree write_application(const Application& application) {
    JsonTree item = new_object();
    cJSON* target = item.get();
    add(target, "aid", hex_item(application.aid));
    add(target, "label", text_item(application.label));
    if (application.priority) {
        add(target, "priority", number_item(*application.priority));
    }
    add(target, "blocked", flag_item(application.blocked));
    add(target, "pdol", hex_item(application.pdol));
    add(target, "fci_objects", list_item(application.fci_objects, write_object));
    add(target, "aip", hex_item(application.aip));
    add(target, "afl", hex_item(application.afl));
    add(target, "gpo_format", number_item(static_cast<unsigned>(application.gpo_format)));
    add(target, "generate_ac_format",
        number_item(static_cast<unsigned>(application.generate_ac_format)));
    add(target, "declines", flag_item(application.declines));
    add(target, "issuer_authentication_mandatory",
        flag_item(application.issuer_authentication_mandatory));
    add(target, "key_index", hex_item(Bytes{application.key_index}));
    add(target, "cryptogram_version", hex_item(Bytes{application.cryptogram_version}));
    if (application.icc_key) {
        JsonTree key = new_object();
        add(key.get(), "modulus", hex_item(application.icc_key->modulus));
        add(key.get(), "private_exponent", hex_item(application.icc_key->private_exponent));
        add(target, "icc_key", std::move(key));
    }
    add(target, "records", list_item(application.records, write_record));
    add(target, "binary_files", list_item(application.binary_files, write_binary_file));
    if (application.electronic_cash) {
        add(target, "electronic_cash", write_electronic_cash(*application.electronic_cash));
    }
    if (application.transaction_log) {
        add(target, "transaction_log", write_log(*application.transaction_log));
    }
    if (application.load_log) {
        add(target, "load_log", write_log(*application.load_log));
    }
    add(target, "atc", hex_item(big_endian(application.atc)));
    add(target, "last_online_atc", hex_item(big_endian(application.last_online_atc)));
    add(target, "last_transaction", write_last_transaction(application.last_transaction));
    return item;
}

JsonTree write_directory_entry(const DirectoryEntry& entry) {
    JsonTree item = new_object();
    if (entry.is_directory) {
        add(item.get(), "directory", text_item({entry.name.begin(), entry.name.end()}));
        return item;
    }
    add(item.get(), "application", hex_item(entry.name));
    if (!entry.label.empty()) {
        add(item.get(), "label", text_item(entry.label));
    }
    if (entry.priority) {
        add(item.get(), "priority", number_item(*entry.priority));
    }
    return item;
}

JsonTree write_directory(const Directory& directory) {
    JsonTree item = new_object();
    add(item.get(), "name", text_item(directory.name));
    add(item.get(), "sfi", number_item(directory.sfi));
    add(item.get(), "fci_objects", list_item(directory.fci_objects, write_object));
    add(item.get(), "records", list_item(directory.records, [](const auto& record) {
            return list_item(record, write_directory_entry);
        }));
    return item;
}

JsonTree write_key_set(const KeySet& keys) {
    JsonTree item = new_object();
    add(item.get(), "cryptogram", hex_item(keys.cryptogram));
    add(item.get(), "script_mac", hex_item(keys.script_mac));
    add(item.get(), "script_encryption", hex_item(keys.script_encryption));
    return item;
}

JsonTree write_issuer_keys(const IssuerKeys& keys) {
    JsonTree item = new_object();
    add(item.get(), "3des", write_key_set(keys.triple_des));
    if (keys.sm4) {
        add(item.get(), "sm4", write_key_set(*keys.sm4));
    }
    return item;
}

JsonTree write_pin(const Pin& pin) {
    JsonTree item = new_object();
    add(item.get(), "digits", text_item(pin.digits));
    add(item.get(), "try_limit", number_item(pin.try_limit));
    add(item.get(), "tries_left", number_item(pin.tries_left));
    return item;
}

JsonTree write_profile(const Profile& profile) {
    JsonTree item = new_object();
    cJSON* target = item.get();
    add(target, "description", text_item(profile.description));
    add(target, "atr", hex_item(profile.atr));
    add(target, "transmission",
        text_item(profile.transmission == Transmission::kDirect ? "direct" : "get-response"));
    add(target, "card_blocked", flag_item(profile.card_blocked));
    if (profile.pin) {
        add(target, "pin", write_pin(*profile.pin));
    }
    add(target, "issuer_keys", write_issuer_keys(profile.issuer_keys));
    add(target, "directories", list_item(profile.directories, write_directory));
    add(target, "applications", list_item(profile.applications, write_application));
    return item;
}

// ---- personal data ----

// The value of the first object with this tag among the records, depth-first through templates.
std::optional<Bytes> find_value(const std::vector<Record>& records, TagNumber tag) {
    for (const Record& record : records) {
        if (auto value = find_object(record.content, tag)) {
            return value;
        }
    }
    return std::nullopt;
}

std::vector<DolEntry> read_dol(const std::vector<Record>& records, TagNumber tag,
                               const std::string& name, std::span<const DolEntry> needed,
                               const char* covered_by) {
    const auto value = find_value(records, tag);
    if (!value) {
        return {};
    }
    auto list = parse_dol(*value);
    if (!list) {
        throw std::runtime_error(name + " has to be a list of tags and lengths.");
    }
    for (const DolEntry& object : needed) {
        const bool asked = std::any_of(list->begin(), list->end(), [&](const DolEntry& entry) {
            return entry.tag == object.tag && entry.length == object.length;
        });
        if (!asked) {
            throw std::runtime_error(name + " has to ask for " + tag_text(object.tag) + " with " +
                                     std::to_string(object.length) + " bytes, which the " +
                                     covered_by + " covers.");
        }
    }
    return *std::move(list);
}

std::string read_text(const std::filesystem::path& file, const std::string& place) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        throw std::runtime_error(place + " cannot be read: " + std::strerror(errno) + ".");
    }
    try {
        return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    } catch (const std::ios_base::failure& failure) { // a folder can be opened, but not read
        throw std::runtime_error(place + " cannot be read: " + failure.code().message() + ".");
    }
}

} // namespace

const KeySet* IssuerKeys::find(Algorithm algorithm) const {
    if (algorithm == Algorithm::kTripleDes) {
        return &triple_des;
    }
    return sm4 ? &*sm4 : nullptr;
}

Bytes encode_record(const std::vector<DataObject>& objects) {
    Bytes inner;
    for (const DataObject& object : objects) {
        append(inner, encode_object(object.tag, object.value));
    }
    return encode_object(kTag70RecordTemplate, inner);
}

PersonalData personal_data(const std::vector<Record>& records) {
    PersonalData data;
    if (const auto pan = find_value(records, kTag5APan)) {
        const std::string digits = to_hex(*pan);
        data.pan_digits = digits.substr(0, digits.find('F'));
        if (data.pan_digits.empty() ||
            data.pan_digits.find_first_not_of("0123456789") != std::string::npos) {
            throw std::runtime_error("The PAN (5A) has to be digits, filled up with F.");
        }
    }
    if (const auto sequence = find_value(records, kTag5F34PanSequenceNumber)) {
        if (sequence->size() != 1) {
            throw std::runtime_error("The PAN sequence number (5F34) has to be one byte.");
        }
        data.pan_sequence_number = sequence->front();
    }
    data.cdol1 =
        read_dol(records, kTag8CCdol1, "CDOL1 (8C)", kCryptogramTerminalObjects, "cryptogram");
    data.cdol2 =
        read_dol(records, kTag8DCdol2, "CDOL2 (8D)", kCryptogramTerminalObjects, "cryptogram");
    // EMV Book 2, 6.5.1: a signature that is made for this transaction only.
    constexpr std::array<DolEntry, 1> kDynamicObjects{{{kTag9F37UnpredictableNumber, 4}}};
    data.ddol = read_dol(records, kTag9F49Ddol, "DDOL (9F49)", kDynamicObjects, "signature");
    return data;
}

Profile load_profile(const std::filesystem::path& file) {
    const std::string place = "Profile " + file.string();
    const std::string text = read_text(file, place);
    const JsonTree tree(cJSON_ParseWithLength(text.data(), text.size()));
    if (!tree) {
        throw std::runtime_error(place + " is not JSON.");
    }
    try {
        return read_profile(JsonObject(tree.get(), "The profile"));
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(place + " cannot be used. " + error.what());
    }
}

void save_profile(const Profile& profile, const std::filesystem::path& file) {
    const JsonTree tree = write_profile(profile);
    const std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_Print(tree.get()), &cJSON_free);
    // Written beside the target first, so that a full disk never leaves half a card.
    const std::filesystem::path draft = file.string() + ".new";
    {
        std::ofstream stream(draft, std::ios::binary | std::ios::trunc);
        stream << (text ? text.get() : "") << '\n';
        stream.flush();
        if (!text || !stream) {
            throw std::runtime_error("The card cannot be saved to " + file.string() + ".");
        }
    }
    std::error_code failure;
    std::filesystem::rename(draft, file, failure);
    if (failure) {
        throw std::runtime_error("The card cannot be saved to " + file.string() + ": " +
                                 failure.message() + ".");
    }
}

} // namespace qaven::virtual_card
