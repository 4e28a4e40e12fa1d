// Writes first inputs for the targets on a Wire: sessions with the virtual cards, as the target
// would have had to read them out of an input. Each target runs here on a Wire that asks a live
// card, and what the card says is kept.
//
// usage: qaven-fuzz-seeds PROFILES FOLDER      (writes FOLDER/TARGET/NAME)
#include "host/lorim_pboc.h"
#include "qaven/qaven.h"
#include "support/input.h"
#include "support/wire.h"
#include "virtual/card/card_factory.h"
#include "virtual/idcard/identity_card.h"
#include "virtual/idcard/samv.h"
#include "virtual/issuer/issuer.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

// The targets, each under a name of its own.
extern "C" int session_input(const std::uint8_t* data, std::size_t size);
extern "C" int exchange_input(const std::uint8_t* data, std::size_t size);
extern "C" int gpo_afl_input(const std::uint8_t* data, std::size_t size);
extern "C" int directory_input(const std::uint8_t* data, std::size_t size);
extern "C" int log_input(const std::uint8_t* data, std::size_t size);
extern "C" int ccid_reply_input(const std::uint8_t* data, std::size_t size);
extern "C" int descriptors_input(const std::uint8_t* data, std::size_t size);
extern "C" int samv_input(const std::uint8_t* data, std::size_t size);
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

namespace fs = std::filesystem;
using qaven::fuzz::append_long_chunk;
using qaven::fuzz::Bytes;
using qaven::fuzz::Input;
using qaven::fuzz::Wire;
namespace card = qaven::virtual_card;
namespace idcard = qaven::virtual_idcard;
namespace issuer = qaven::virtual_issuer;

using Target = int (*)(const std::uint8_t* data, std::size_t size);

// --- the card in the slot and the one on the identity-card reader ---

constexpr std::size_t kHeader = 10;
constexpr std::size_t kLengthAt = 1;
constexpr std::uint8_t kPowerOn = 0x62;
constexpr std::uint8_t kPowerOff = 0x63;
constexpr std::uint8_t kTransferBlock = 0x6F;
constexpr std::uint8_t kFrameStart = 0xAA;
constexpr std::size_t kFrameHead = 7;
constexpr std::size_t kFrameSize = 10;

class Counter {
  public:
    explicit Counter(const fs::path& profile) : card_(card::make_card(profile)) {}

    Bytes answer(std::span<const std::uint8_t> message) {
        switch (message.front()) {
        case kFrameStart: {
            const Bytes reply = samv_.execute(message.first(kFrameSize));
            // Head and checksum are the wire's.
            return {reply.begin() + kFrameHead, reply.end() - 1};
        }
        case kPowerOn:
            card_->power_on();
            return {};
        case kPowerOff:
            card_->power_off();
            return {};
        case kTransferBlock:
            return card_->transmit(message.subspan(
                kHeader, std::min<std::size_t>(message[kLengthAt], message.size() - kHeader)));
        default:
            return {};
        }
    }

  private:
    std::unique_ptr<card::Icc> card_;
    idcard::Samv samv_{idcard::resident_card()};
};

void put_in(const fs::path& profile) {
    const auto counter = std::make_shared<Counter>(profile);
    Wire::use(
        [counter](std::span<const std::uint8_t> message) { return counter->answer(message); });
}

// --- the calls of a host, as the targets read them ---

// Texts: the usual ones by their number, any other with its length.
constexpr std::uint8_t kAnyText = 0x80;

class Script {
  public:
    Script& byte(std::uint8_t value) {
        bytes_.push_back(value);
        return *this;
    }
    Script& bytes(std::initializer_list<std::uint8_t> values) {
        bytes_.insert(bytes_.end(), values);
        return *this;
    }
    // Its length is one byte; what is longer is cut.
    Script& chunk(std::span<const std::uint8_t> piece) {
        const auto cut = piece.first(std::min<std::size_t>(piece.size(), 0xFF));
        bytes_.push_back(static_cast<std::uint8_t>(cut.size()));
        bytes_.insert(bytes_.end(), cut.begin(), cut.end());
        return *this;
    }
    Script& chunk(std::string_view text) { return chunk(card::to_bytes(text)); }
    Script& hex(std::string_view digits) { return chunk(card::from_hex(digits).value()); }
    Script& text(std::string_view text) {
        bytes_.push_back(kAnyText);
        append_long_chunk(bytes_, card::to_bytes(text));
        return *this;
    }

    [[nodiscard]] const Bytes& all() const { return bytes_; }

  private:
    Bytes bytes_;
};

// --- writing ---

class Seeds {
  public:
    explicit Seeds(fs::path folder) : folder_(std::move(folder)) {}

    // An input whose answers are written down here.
    void write(std::string_view target, std::string_view name, const Script& script,
               const std::vector<std::string>& responses) {
        Bytes input;
        append_long_chunk(input, script.all());
        append_long_chunk(input, {});
        for (const std::string& response : responses) {
            input.push_back(0);
            append_long_chunk(input, card::from_hex(response).value());
        }
        save(target, name, input);
    }

    // Runs the target over the script and a bus that works, on the card in the slot if there is
    // one.
    void write(std::string_view target, std::string_view name, Target run, const Script& script) {
        Bytes input;
        append_long_chunk(input, script.all());
        append_long_chunk(input, {});
        Wire::take_records();
        run(input.data(), input.size());
        const Bytes records = Wire::take_records();
        input.insert(input.end(), records.begin(), records.end());
        save(target, name, input);
    }

  private:
    void save(std::string_view target, std::string_view name, const Bytes& input) const {
        const fs::path place = folder_ / target;
        fs::create_directories(place);
        std::ofstream file(place / name, std::ios::binary);
        for (const std::uint8_t byte : input) {
            file.put(static_cast<char>(byte));
        }
        if (!file) {
            throw std::runtime_error("cannot write " + (place / name).string());
        }
    }

    fs::path folder_;
};

constexpr const char* kTransaction =
    "P012000000001213Q012000000000000R0040156S00820190422T00203U006161355I00200V013MRCH CNT 0001 ";

// What the issuer of the card says to its ARQC; nothing when the card gives none. The same
// transaction made again on a fresh card has the same ARQC: the clock stands.
std::string issuer_response(const fs::path& profile, const std::vector<std::string>& commands) {
    put_in(profile);
    const Bytes nothing;
    Input input{std::span(nothing)};
    Wire wire(input, Wire::Mode::kCard);
    // Card information first, as in the session: every reading counts in the cryptogram.
    constexpr const char* kAids = "A000000333010101|A000000333010102|0";
    std::array<char, QAVEN_USERINFO_SIZE> information{};
    getICCardInfo("", "A", kAids, information.data());
    std::array<char, QAVEN_APPDATA_SIZE> data{};
    std::array<char, QAVEN_ARQC_SIZE> field55{};
    std::array<char, QAVEN_FIELD60_SIZE> field60{};
    const int result =
        genARQC("", kTransaction, kAids, data.data(), field55.data(), field60.data());
    wire.disconnect();
    if (result != 0) {
        return "";
    }
    issuer::Answer answer;
    for (const std::string& command : commands) {
        answer.script.push_back(issuer::parse_script_command(command));
    }
    return card::to_hex(issuer::Issuer::from_profile(profile).answer(
        issuer::Field55::parse(field55.data()), answer));
}

// The calls of the session target, by their number there.
constexpr std::uint8_t kCardInformation = 0;
constexpr std::uint8_t kArqc = 1;
constexpr std::uint8_t kIssuerAnswer = 2;
constexpr std::uint8_t kTransactionLog = 3;
constexpr std::uint8_t kTest = 5;
constexpr std::uint8_t kWrappers = 6;
constexpr std::uint8_t kOperations = 10;
constexpr std::uint8_t kSingleSteps = 14;

constexpr std::uint8_t kInCardMode = 0;
constexpr std::uint8_t kInRawMode = 3;

// Card information with ARQC, issuer's answer, both logs.
Script whole_transaction(std::uint8_t mode, const std::string& response) {
    Script script;
    script.byte(mode);
    script.bytes({kCardInformation, 0}).text("A000000333010101|A000000333010102|0");
    script.bytes({0, 0, 0});
    script.bytes({kIssuerAnswer, 0, 0}).text(response).bytes({0, 0});
    script.bytes({kTransactionLog, 2, 0});
    script.bytes({kSingleSteps, 2, 0xFF, 0});
    return script;
}

void write_sessions(Seeds& seeds, const fs::path& profile) {
    const std::string name = profile.stem().string();
    const std::string accepted = issuer_response(profile, {});
    const std::string scripted =
        issuer_response(profile, {"put-data=9F79:000000020000", "application-block"});

    put_in(profile);
    seeds.write("session", name, session_input, whole_transaction(kInCardMode, accepted));
    put_in(profile);
    seeds.write("session", name + "-script", session_input,
                whole_transaction(kInCardMode, scripted));

    put_in(profile);
    Script directory;
    directory.byte(kInCardMode);
    directory.bytes({kCardInformation, 0, 4, 0, 2, 0});
    directory.bytes({kArqc, 0, 4, 0});
    directory.bytes({kIssuerAnswer, 0, 0, 0, 1, 0});
    directory.bytes({kTransactionLog, 4, 0});
    seeds.write("session", name + "-directory", session_input, directory);
}

void write_other_calls(Seeds& seeds, const fs::path& profile) {
    const std::string accepted = issuer_response(profile, {});
    put_in(profile);
    seeds.write("session", "raw", session_input, whole_transaction(kInRawMode, accepted));
    put_in(profile);
    seeds.write("session", "wrappers", session_input,
                Script()
                    .byte(kInCardMode)
                    .bytes({kWrappers, 0, 2, 0})
                    .bytes({kWrappers + 1, 0, 2, 0, 0})
                    .bytes({kWrappers + 2, 0, 0, 0, 0, 0})
                    .bytes({kWrappers + 3, 2, 0}));
    put_in(profile);
    seeds.write("session", "operations", session_input,
                Script()
                    .byte(kInCardMode)
                    .bytes({kOperations, 0, 2, 0})
                    .bytes({kOperations + 1, 0, 2, 0, 0})
                    .bytes({kOperations + 2, 0, 0, 1, 0, 0})
                    .bytes({kOperations + 3, 2, 0}));
    put_in(profile);
    seeds.write("session", "test-and-steps", session_input,
                Script()
                    .byte(kInCardMode)
                    .bytes({kTest, 0})
                    .bytes({kSingleSteps + 1})
                    .hex("0084000008")
                    .bytes({kSingleSteps + 2, 0, kSingleSteps + 3})
                    .bytes({kSingleSteps + 4, 0, kSingleSteps + 5})
                    .chunk("title")
                    .chunk("bytes of a line that is longer than one row of the log")
                    .bytes({kSingleSteps + 6, 0xFD}));
}

std::string repeated(std::string_view digits, int count) {
    std::string text;
    for (int k = 0; k < count; ++k) {
        text += digits;
    }
    return text;
}

// What the shipped cards and issuers do not do.
void write_odd_sessions(Seeds& seeds, const fs::path& profile) {
    // The zero tag ends the search that announces a script, but not the one that runs it.
    const std::string behind_zero = issuer_response(profile, {}) + "000072078605841E000000";
    put_in(profile);
    seeds.write("session", "script-behind-zero", session_input,
                whole_transaction(kInCardMode, behind_zero));

    constexpr const char* kFci = "6F0A8408A000000333010101 9000";
    // More card information than the host's buffer holds.
    std::vector<std::string> long_fields{kFci, "8006 7C00 08010800 9000"};
    for (const char* const tag : {"5F20", "9F62", "9F61", "9F1F", "DF20", "DF21", "DF22", "DF23"}) {
        long_fields.push_back("7081F8" + std::string(tag) + "81F4" + repeated("41", 244) + "9000");
    }
    seeds.write("session", "long-fields", Script().byte(kInCardMode).bytes({kOperations, 0, 2, 0}),
                long_fields);
    // Application data handed in without an AIP, on a connection of its own.
    seeds.write("session", "bare-application-data",
                Script().byte(kInCardMode).bytes({kOperations + 1, 0, 0, 1, 2, 0}),
                {kFci, "8002 7C00 9000", "800B 80 0012 1122334455667788 9000", "6A88"});
    seeds.write("gpo_afl", "cut-record", Script().byte(3).hex("08010101").byte(2), {"7082 9000"});
}

void write_exchanges(Seeds& seeds, const fs::path& profile, const std::string& name) {
    put_in(profile);
    Script script;
    script.bytes({3, 4, 0}).hex("A000000333010101");
    script.bytes({6, 0}).chunk(card::from_hex("8300").value());
    script.bytes({4, 1, 1}).bytes({4, 2, 1}).bytes({4, 1, 2}).bytes({2, 1, 0, 16}).bytes({1, 8});
    const auto kinds = card::from_hex("0102030405060800").value();
    for (const std::uint8_t which : kinds) {
        script.bytes({7, which, 0});
    }
    script.bytes({8, 0x80}).hex("0000000012130000000000000156000800600001561904220312345678161355");
    script.bytes({9, 0}).hex("11223344556677883030").bytes({5, 0}).hex("1122334455667788");
    script.bytes({10, 0}).hex("241234FFFFFFFFFF").bytes({0, 0, 5, 0x00, 0xC0, 0x00, 0x00, 0x00});
    seeds.write("exchange", name, exchange_input, script);
}

void write_readings(Seeds& seeds, const fs::path& profile, const std::string& name) {
    put_in(profile);
    Script script;
    script.bytes({0, 3, 0, 6, 0, 0, 0, 0, 0x12, 0x13, 3, 4, 0x20, 0x19, 0x04, 0x22, 6, 4});
    for (const char character : std::string_view("NAME")) {
        script.byte(static_cast<std::uint8_t>(character));
    }
    for (const char* const aid : {"A000000333010101", "A000000333010102"}) {
        script.byte(4).hex(aid).bytes({1, 0, 2});
    }
    script.byte(5).hex("6F148408A000000333010101A5089F38059F02069C01").bytes({1, 1});
    script.byte(3).hex("0801030010010200").byte(2);
    seeds.write("gpo_afl", name, gpo_afl_input, script);
}

void write_selections(Seeds& seeds, const fs::path& profile, const std::string& name) {
    put_in(profile);
    Script script;
    script.bytes({0, 0}).bytes({4}).chunk("0").bytes({4}).chunk("A000000333");
    script.bytes({2, 1}).hex("A000000333010101").bytes({3}).hex("A000000333010102");
    script.bytes({1}).hex("6F15840E315041592E5359532E4444463031A503880101");
    seeds.write("directory", name, directory_input, script);
}

// Directories that name directories, deeper than any walk goes; and a first match that is
// invalidated, with further ones behind it.
void write_odd_directories(Seeds& seeds) {
    constexpr int kDeep = 12;
    std::vector<std::string> responses;
    for (int depth = 0; depth < kDeep; ++depth) {
        responses.insert(responses.end(),
                         {"6F0A8403414141A503880101 9000", "700761059D03414141 9000", "6A83"});
    }
    seeds.write("directory", "nested", Script().bytes({0, 0}), responses);
    Script script;
    script.bytes({5, 1}).hex("A000000333").byte(1).hex("6F0A8408A000000333010101");
    script.byte(0).hex("6F0A8408A000000333010102").bytes({1, 0, 0, 0, 2, 0});
    seeds.write("directory", "invalidated", script, {});
}

void write_logs(Seeds& seeds, const fs::path& profile, const std::string& name) {
    put_in(profile);
    Script script;
    script.bytes({0}).chunk("A000000333010101").bytes({1, 0xFF}).chunk("A000000333010101");
    script.bytes({2, 0}).chunk("0").bytes({1, 2}).chunk("A000000333010101");
    seeds.write("log", name, log_input, script);
}

void write_ccid_replies(Seeds& seeds, const fs::path& profile, const std::string& name) {
    put_in(profile);
    Script script;
    script.bytes({2, 4}).byte(11).byte(10).hex("00A4040008A000000333010101").byte(0);
    script.byte(11).byte(10).hex("80CA9F4F00").byte(1);
    script.byte(5).hex("0084000008").bytes({6, 0}).byte(5).hex("0084000008").bytes({6, 1, 0});
    script.bytes({3, 8, 9, 10});
    seeds.write("ccid_reply", name, ccid_reply_input, script);
}

void write_security_module(Seeds& seeds, const fs::path& profile) {
    for (const bool raw : {false, true}) {
        put_in(profile);
        Script script;
        script.bytes({static_cast<std::uint8_t>(raw ? 1 : 0), 9, 0x20, 0x01, 9, 0x20, 0x02, 9, 0x30,
                      0x01, 9, 0x77, 0x00});
        script.byte(5).chunk(idcard::foreign_permit().text);
        script.byte(5).chunk(idcard::hmt_permit().text);
        script.bytes({6, 9, 0}).hex("2D4E8765").byte(7).chunk("1a2B3").byte(8).chunk("title");
        script.hex("00112233445566778899AABBCCDDEEFF00");
        script.byte(4).hex("AAAAAA9669000400009094").byte(10);
        seeds.write("samv", raw ? "reports" : "replies", samv_input, script);
    }
}

void write_descriptors(Seeds& seeds, const fs::path& profile) {
    // One reader: an interface with an interrupt endpoint, then two slots; then two devices of
    // which one is another's.
    const std::initializer_list<std::uint8_t> slots{3,    0,    1, 0x81, 0,    3,    0x02,
                                                    0x82, 0x83, 0, 3,    0x04, 0x84, 0x85};
    put_in(profile);
    seeds.write("descriptors", "reader", descriptors_input,
                Script().bytes({1, 0}).bytes(slots).bytes({3, 2, 0, 11}));
    put_in(profile);
    seeds.write("descriptors", "two", descriptors_input,
                Script().bytes({2, 7, 1, 0, 1, 0x81, 0}).bytes(slots).bytes({3, 2}));
    put_in(profile);
    seeds.write("descriptors", "settings", descriptors_input,
                Script().bytes({1, 0, 1, 0x42, 0, 2, 0x81, 0x02}).bytes({1}));
}

void write_all(const fs::path& profiles, Seeds& seeds) {
    for (const fs::directory_entry& entry : fs::directory_iterator(profiles)) {
        if (entry.path().extension() != ".json") {
            continue;
        }
        const fs::path& profile = entry.path();
        const std::string name = profile.stem().string();
        write_sessions(seeds, profile);
        write_exchanges(seeds, profile, name);
        write_readings(seeds, profile, name);
        write_selections(seeds, profile, name);
        write_logs(seeds, profile, name);
        write_ccid_replies(seeds, profile, name);
    }
    const fs::path usual = profiles / "debit.json";
    write_other_calls(seeds, usual);
    write_odd_sessions(seeds, usual);
    write_odd_directories(seeds);
    write_security_module(seeds, usual);
    write_descriptors(seeds, usual);
}

} // namespace

int main(int argc, char** argv) {
    try {
        LLVMFuzzerInitialize(&argc, &argv);
        const std::span arguments(argv, static_cast<std::size_t>(argc));
        if (arguments.size() != 3) {
            throw std::runtime_error("usage: qaven-fuzz-seeds PROFILES FOLDER");
        }
        Seeds seeds(arguments[2]);
        write_all(arguments[1], seeds);
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return EXIT_FAILURE;
    }
}
