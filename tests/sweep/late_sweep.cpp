// Two customers take turns at one reader whose answers come late, in pieces, or never, while hosts
// are killed, cards are swapped and the reader is reset: session after session, each made up from
// its number alone.
//
//     qaven-late-sweep [SESSIONS [FIRST]]   default: 1500 sessions from number 1
//     qaven-late-sweep --session NUMBER     one session, call by call
//
// What a session is to fulfil:
//
//   - No answer, no field, no cryptogram and no log record of a card is attributed to another card,
//     another command or another amount. What a call hands out is held against the card that was in
//     the reader: each field against its personal data, each cryptogram against the card's key and
//     the amount that the host gave, each log record against the card's own file.
//   - Once a disturbance is over, the next call with a card in the reader succeeds.
//
// A disturbance is not over as long as nobody can know of it. Every host numbers its messages from
// 0 and begins with the same ones, so what a reader still holds for hosts that were killed may be,
// answer by answer and to the end of a call, what it would say to this one: of the same kinds, with
// the same numbers. Such a call may fail. It may not attribute anything to the wrong card either.
//
// Under test is the library as hosts load it. Its libusb, its clocks and its memory are this
// program's: a host that is killed in the middle of a transfer never comes back from it, and the
// next one finds the library as the loader leaves it.
#include "disturbed_reader.h"
#include "library_image.h"
#include "port_libusb.h"

#include "../temporary_folder.h"
#include "engine/operation/transaction_log.h"
#include "fuzz/support/guarded.h"
#include "qaven/qaven.h"
#include "virtual/card/card.h"
#include "virtual/issuer/issuer.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <csetjmp>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace qaven::sweep {

namespace {

using std::chrono::milliseconds;
using virtual_card::Card;
using virtual_card::Profile;
using virtual_issuer::CryptogramKind;
using virtual_issuer::Field55;

constexpr int reserved = 0;

constexpr const char* letters = "|A|B|C|D|E|F|G|H|I|J|K|L|M|N|O";
constexpr const char* aids = "|A000000333010101|A000000333010102";

// The letter of the electronic cash's balance, which a script may change.
constexpr char balance_letter = 'G';

// --- texts ---

struct TreeDeleter {
    void operator()(cJSON* tree) const { cJSON_Delete(tree); }
};
using Tree = std::unique_ptr<cJSON, TreeDeleter>;
using Members = std::map<std::string, std::string>;

Members members_of(const char* json) {
    Members members;
    const Tree tree(cJSON_Parse(json));
    const cJSON* member = nullptr;
    cJSON_ArrayForEach(member, tree.get()) {
        if (cJSON_IsString(member) != 0) {
            members[member->string] = member->valuestring;
        }
    }
    return members;
}

// Texts without a character that JSON would want escaped.
std::string json_of(const std::vector<std::pair<std::string, std::string>>& members) {
    std::string json = "{";
    for (const auto& [key, value] : members) {
        json += (json.size() > 1 ? ",\"" : "\"") + key + "\":\"" + value + '"';
    }
    return json + "}";
}

// A letter, three characters of length, the value; a length's characters count from '0'.
std::map<char, std::string> fields_of(std::string_view text) {
    std::map<char, std::string> fields;
    constexpr std::size_t head = 4;
    while (text.size() >= head) {
        std::size_t length = 0;
        for (const char digit : text.substr(1, head - 1)) {
            length = 10 * length + static_cast<std::size_t>(digit - '0');
        }
        fields[text.front()] = std::string(text.substr(head, length));
        text.remove_prefix(std::min(text.size(), head + length));
    }
    return fields;
}

// The objects of an application data text: a count of bytes, then so many in hex. What does not add
// up stands as one object behind the others.
std::set<std::string> objects_of(std::string_view application_data) {
    constexpr std::size_t count_digits = 6;
    std::set<std::string> objects;
    const auto bytes = virtual_card::from_hex(
        application_data.substr(std::min(count_digits, application_data.size())));
    if (!bytes) {
        return {std::string(application_data)};
    }
    std::span<const std::uint8_t> rest(*bytes);
    while (!rest.empty()) {
        constexpr std::uint8_t more_tag_bytes = 0x1F;
        constexpr std::uint8_t one_length_byte = 0x81;
        std::size_t at = (rest[0] & more_tag_bytes) == more_tag_bytes ? 2 : 1;
        at += at < rest.size() && rest[at] == one_length_byte ? 1 : 0;
        const std::size_t size = at < rest.size() ? at + 1 + rest[at] : rest.size();
        const auto object = rest.first(std::min(size, rest.size()));
        objects.insert(virtual_card::to_hex(object));
        rest = rest.subspan(object.size());
    }
    return objects;
}

std::string twelve_digits(std::uint64_t amount) {
    std::string digits = std::to_string(amount);
    return digits.insert(0, 12 - digits.size(), '0');
}

std::string in_hex(const virtual_card::Bytes& bytes) {
    return virtual_card::to_hex(bytes);
}

// --- customers ---

// A bank customer; the card itself is another one in every session.
struct Customer {
    std::string name;
    Profile profile;
    virtual_issuer::Issuer issuer;
    std::string pan;
    std::string pan_object; // 5A and 5F34 in hex
    std::string sequence_number_object;
    std::map<char, std::string> fields; // what a reading gives
    std::set<std::string> objects;      // what application data consist of

    explicit Customer(Profile card)
        : profile(std::move(card)), issuer(profile.issuer_keys),
          pan(virtual_card::personal_data(profile.applications.front().records).pan_digits) {
        for (const auto& record : profile.applications.front().records) {
            for (const auto& object : record.objects) {
                if (object.tag == 0x5A || object.tag == 0x5F34) {
                    (object.tag == 0x5A ? pan_object : sequence_number_object) =
                        virtual_card::to_hex(virtual_card::encode_object(object.tag, object.value));
                }
            }
        }
    }

    [[nodiscard]] std::string log_aid() const { return in_hex(profile.applications.front().aid); }
    [[nodiscard]] bool has_cash() const {
        return profile.applications.front().electronic_cash.has_value();
    }
};

using NamedTags = std::vector<std::pair<char, virtual_card::TagNumber>>;

// The fields of a log record that the card's log format names, in the library's words.
std::string described(std::span<const std::uint8_t> record, const virtual_card::Bytes& log_format,
                      const NamedTags& in_order) {
    constexpr virtual_card::TagNumber merchant_name = 0x9F4E;
    std::map<virtual_card::TagNumber, std::span<const std::uint8_t>> values;
    const auto format = virtual_card::parse_dol(log_format);
    for (const auto& entry : format.value()) {
        values[entry.tag] = record.first(entry.length);
        record = record.subspan(entry.length);
    }
    std::string text;
    for (const auto& [letter, tag] : in_order) {
        const auto value = values[tag];
        std::string shown = virtual_card::to_hex(value);
        if (tag == merchant_name) {
            shown.assign(value.begin(), value.end());
            std::ranges::replace(shown, '\0', ' ');
        }
        std::string length = std::to_string(shown.size());
        text += letter + length.insert(0, 3 - length.size(), '0') + shown;
    }
    return text;
}

// A log as the library gives it: of no record, of the newest one, and so on to the whole.
using LogTexts = std::vector<std::string>;

LogTexts transaction_log_of(const Card& card) {
    static const NamedTags in_order{{'P', 0x9F02}, {'Q', 0x9F03}, {'R', 0x5F2A},
                                    {'S', 0x9A},   {'T', 0x9C},   {'U', 0x9F21},
                                    {'V', 0x9F1A}, {'W', 0x9F4E}, {'X', 0x9F36}};
    const auto& log = *card.profile().applications.front().transaction_log;
    LogTexts texts{""};
    std::string records;
    for (const auto& record : log.records) {
        const std::string last = described(record, log.format, in_order);
        records += last;
        texts.push_back(
            std::string{static_cast<char>(texts.size()), static_cast<char>(last.size() & 0xFFU)} +
            records);
    }
    return texts;
}

// Before what the format names stand the tag of the balance, and the balance before and after.
LogTexts load_log_of(const Card& card) {
    static const NamedTags in_order{
        {'S', 0x9A}, {'T', 0x9F21}, {'U', 0x9F1A}, {'V', 0x9F4E}, {'W', 0x9F36}};
    constexpr std::size_t tag_size = 2;
    constexpr std::size_t amount_size = 6;
    const auto& log = card.profile().applications.front().load_log;
    LogTexts texts{""};
    if (!log) {
        return texts;
    }
    for (const std::span<const std::uint8_t> record : log->records) {
        const auto amounts = record.subspan(tag_size);
        const auto rest = amounts.subspan(2 * amount_size);
        texts.push_back(texts.back() + "P004" + virtual_card::to_hex(record.first(tag_size)) +
                        "Q012" + virtual_card::to_hex(amounts.first(amount_size)) + "R012" +
                        virtual_card::to_hex(amounts.subspan(amount_size, amount_size)) +
                        described(rest, log->format, in_order));
    }
    return texts;
}

// --- the host's process ---

std::jmp_buf death; // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)

// What a process allocates and does not live to free is no leak of this program.
class MortalMemory {
  public:
#if defined(__SANITIZE_ADDRESS__)
    MortalMemory() {
        __lsan_disable();
    }
    ~MortalMemory() {
        __lsan_enable();
    }
#else
    MortalMemory() {}
    ~MortalMemory() {}
#endif
    MortalMemory(const MortalMemory&) = delete;
    MortalMemory& operator=(const MortalMemory&) = delete;
    MortalMemory(MortalMemory&&) = delete;
    MortalMemory& operator=(MortalMemory&&) = delete;
};

using EntryPoint = int (*)(const char*, char*, char*, int, int);

// The load log, which has no JSON function: from the AID to the text.
int read_all_loads(const char* aid, char* text, char* /*errmsg*/, int /*reserved1*/,
                   int /*reserved2*/) {
    constexpr int all_records = -1;
    return ReadAmtLog(aid, all_records, text);
}

// The buffers of a host's call, which this program keeps when the host is gone.
struct Call {
    EntryPoint entry_point;
    std::string input;
    fuzz::Guarded<char, QAVEN_RESMSG_SIZE> resmsg;
    fuzz::Guarded<char, QAVEN_ERRMSG_SIZE> errmsg;
    int result = 0;
};

// False when the host did not live to see the end of the call: nothing of the library's stack is
// unwound then, as nothing is in a process that is killed.
bool lived_through(Call& call) {
    // NOLINTNEXTLINE(cert-err52-cpp): the point is that nothing is unwound
    if (setjmp(death) != 0) {
        return false;
    }
    call.result =
        call.entry_point(call.input.c_str(), call.resmsg, call.errmsg, reserved, reserved);
    return true;
}

// What a host has in hand after a call.
struct Answer {
    bool died = false;
    int result = 0;
    std::string text;
    Members members; // of the text

    [[nodiscard]] std::string member(const std::string& key) const {
        const auto found = members.find(key);
        return found == members.end() ? std::string() : found->second;
    }
};

Answer call_library(EntryPoint entry_point, const std::string& input) {
    const MortalMemory memory;
    const auto call = std::make_unique<Call>();
    call->entry_point = entry_point;
    call->input = input;
    *call->resmsg.data() = '\0';
    *call->errmsg.data() = '\0';
    Answer answer;
    answer.died = !lived_through(*call);
    if (answer.died) {
        return answer;
    }
    answer.result = call->result;
    call->resmsg.must_be_text();
    call->errmsg.must_be_text();
    answer.text = call->resmsg;
    answer.members = members_of(call->resmsg);
    if (const std::string inner = answer.member("IcARQC"); !inner.empty()) {
        answer.members.merge(members_of(inner.c_str()));
    }
    return answer;
}

// --- chance ---

class Dice {
  public:
    explicit Dice(std::uint64_t seed) : engine_(seed) {}

    // 0 ... n - 1
    std::size_t below(std::size_t n) { return static_cast<std::size_t>(engine_() % n); }
    bool percent(std::size_t chance) { return below(100) < chance; }
    template <typename T>
    const T& one_of(const std::vector<T>& all) {
        return all[below(all.size())];
    }

  private:
    std::mt19937_64 engine_;
};

// What happens to host, card or reader at one transfer.
struct Event {
    enum class Kind {
        kill,         // the host, before the transfer
        kill_waiting, // the host, while it waits for the transfer
        swap,         // the other customer's card takes the place of this one
        other_slot,   // this card is pulled, the other one stands in the other slot
        pull,         // this card is pulled
        reset,        // somebody resets the reader's port
        replug,       // the reader leaves the bus and comes back
    };

    Kind kind;
    std::size_t transfers_before;

    [[nodiscard]] std::string text() const {
        static constexpr std::array names{
            "kill", "kill while waiting", "swap", "other slot", "pull", "reset", "replug"};
        return std::string(names.at(static_cast<std::size_t>(kind))) + " (transfer " +
               std::to_string(transfers_before) + ")";
    }
};

// --- what a host can see ---

// Whether this may be the answer to the message, for all that their headers say. A card's answer to
// reset is none to a command.
bool may_answer(std::span<const std::uint8_t> reply, std::span<const std::uint8_t> message,
                bool numbered) {
    namespace to_reader = virtual_reader::pc_to_rdr;
    constexpr std::size_t type = 0;
    constexpr std::size_t number = 6;
    constexpr std::uint8_t data_block = 0x80;
    constexpr std::uint8_t slot_status = 0x81;
    constexpr std::uint8_t answer_to_reset = 0x3B;
    if (reply.size() < virtual_reader::kCcidHeaderSize) {
        return false;
    }
    const bool of_card =
        message[type] == to_reader::kIccPowerOn || message[type] == to_reader::kXfrBlock;
    const auto data = reply.subspan(virtual_reader::kCcidHeaderSize);
    return reply[type] == (of_card ? data_block : slot_status) &&
           (reply[number] == message[number] || !numbered) &&
           !(message[type] == to_reader::kXfrBlock && !data.empty() &&
             data.front() == answer_to_reset);
}

bool fetches_from(const std::set<std::uint8_t>& endpoints,
                  std::span<const Bus::Transfer> transfers) {
    return std::ranges::any_of(transfers, [&](const Bus::Transfer& transfer) {
        return endpoints.contains(transfer.endpoint);
    });
}

// Whether every message of these transfers got one answer that may be its own.
bool all_in_order(std::span<const Bus::Transfer> transfers, bool numbered) {
    std::span<const std::uint8_t> message; // that waits for its answer
    bool inside_answer = false;
    for (const Bus::Transfer& transfer : transfers) {
        const std::span<const std::uint8_t> packet(transfer.carried);
        if (transfer.result != 0) {
            return false;
        }
        if (!transfer.in()) {
            message = message.empty() ? packet : message; // else it goes on
            inside_answer = false;
            continue;
        }
        if (!inside_answer) {
            if (message.empty() || !may_answer(packet, message, numbered)) {
                return false;
            }
            message = {};
        }
        inside_answer = packet.size() == virtual_reader::kBulkPacketSize;
    }
    return true;
}

// --- a session ---

// What all sessions together came to.
struct Tally {
    std::map<std::string, std::size_t> disturbances; // that came about, by their first word
    std::map<std::string, std::size_t> calls;        // by operation
    std::size_t owed = 0;                            // calls that had to succeed
    std::size_t deceived = 0; // calls that could not know of the answers to earlier hosts
    std::size_t complaints = 0;
};

// Complaints beyond these are counted only.
constexpr std::size_t most_complaints_told = 20;

class Session {
  public:
    Session(std::uint64_t number, const std::vector<Customer>& customers,
            const LibraryImage& library, Tally& tally, bool told);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    Session(Session&&) = delete;
    Session& operator=(Session&&) = delete;
    ~Session() { end_host(); }

    void run();

    // Without a disturbance: what the customer's card says, for later comparison.
    static void learn(Customer& customer, const LibraryImage& library);

  private:
    // A customer with the card that is used in this session.
    struct Turn {
        const Customer* customer;
        Card card;

        explicit Turn(const Customer& who) : customer(&who), card(who.profile) {}
    };
    // A transaction that waits for its issuer's answer.
    struct Waiting {
        Turn* turn;
        std::uint64_t amount;
        std::string counter; // 9F36
        std::string field55;
        std::string transaction;
        std::string application_data;
        bool undisturbed;
    };

    [[nodiscard]] static ReaderHabits habits(Dice& dice);

    // The cashier's hand.
    void insert(Turn& turn, unsigned slot);
    void pull();
    Turn& other_than(const Turn* turn) { return turn == &turns_[0] ? turns_[1] : turns_[0]; }

    // Time and processes.
    void end_host();
    void new_host();
    [[nodiscard]] bool quiet() const;
    void wait_for_quiet();

    // Disturbances.
    void arm();
    void disarm();
    void witness(Bus::Moment moment);
    void happen(const Event& event);

    // Calls; each is looked at when it is over.
    void some_call();
    void read(bool owed_whole = true);
    void read_and_generate(EntryPoint entry_point);
    void hand_over(bool careless);
    void read_log();
    void read_load_log();
    [[nodiscard]] std::string aid_of_log() const;

    struct Before {
        bool quiet;
        std::set<std::uint8_t> answers_left; // to earlier hosts, by endpoint
        std::size_t happened;
        std::size_t transfers;
    };
    Before begin(const char* name);
    Answer call(EntryPoint entry_point, const std::string& input);
    // True when this call had to succeed.
    bool end(const Before& before, const Answer& answer);

    void judge_log(const std::string& text, bool owed, LogTexts (*log_of)(const Card&));
    // One customer for all that a call handed out; null when nobody fits.
    Turn* judge_reading(const Answer& answer, std::optional<std::uint64_t> amount);
    std::string why_not(const Turn& turn, const Answer& answer,
                        std::optional<std::uint64_t> amount) const;
    std::string why_no_arqc(const Turn& turn, const std::string& field55,
                            std::uint64_t amount) const;
    [[nodiscard]] std::string missing_in(const Turn& turn, const Answer& answer,
                                         std::optional<std::uint64_t> amount) const;

    void complain(const std::string& what);
    void tell(const std::string& what);

    std::uint64_t number_;
    const LibraryImage& library_;
    Tally& tally_;
    bool told_;
    Dice dice_;
    std::vector<Turn> turns_;
    virtual_reader::Reader reader_;
    DisturbedReader disturbed_;
    Bus bus_;
    unsigned slot_ = 2;
    Turn* in_reader_ = nullptr;
    std::set<Turn*> in_reader_during_call_;
    std::optional<Event> event_;
    std::size_t transfers_until_event_ = 0;
    std::size_t happened_ = 0;  // disturbances and events that came about
    bool card_changed_ = false; // while a host held the reader
    std::string last_disturbances_;
    std::optional<Waiting> waiting_;
    std::string calls_so_far_;
    const char* call_name_ = "";
};

ReaderHabits Session::habits(Dice& dice) {
    return {.numbers_answers = dice.percent(85),
            .holds_off = dice.percent(25),
            .answer_time = milliseconds(1 + dice.below(20))};
}

Session::Session(std::uint64_t number, const std::vector<Customer>& customers,
                 const LibraryImage& library, Tally& tally, bool told)
    : number_(number), library_(library), tally_(tally), told_(told), dice_(number),
      reader_(nullptr, nullptr), disturbed_(reader_, habits(dice_)), bus_(disturbed_) {
    const std::size_t first = dice_.below(customers.size());
    const std::size_t second = (first + 1 + dice_.below(customers.size() - 1)) % customers.size();
    turns_.emplace_back(customers[first]);
    turns_.emplace_back(customers[second]);
    slot_ = dice_.percent(80) ? 2 : 1;
    bus_.plug();
    bus_.watch([this](Bus::Moment moment) { witness(moment); });
    disturbed_.on_disturbance([this](const Disturbance& disturbance) {
        ++happened_;
        const std::string text = disturbance.text();
        ++tally_.disturbances[text.substr(0, text.find(' '))];
        last_disturbances_ += "; " + text;
        tell("    " + text);
    });
    library_.start_process();
}

void Session::insert(Turn& turn, unsigned slot) {
    pull();
    // Whoever holds the reader does not notice: another card has no power until the next reading.
    card_changed_ = card_changed_ || bus_.held().handles > 0;
    reader_.insert_card(slot, turn.card);
    slot_ = slot;
    in_reader_ = &turn;
    in_reader_during_call_.insert(&turn);
    tell("  card of " + turn.customer->name + " in slot " + std::to_string(slot));
}

void Session::pull() {
    if (in_reader_ != nullptr) {
        reader_.remove_card(slot_);
        in_reader_ = nullptr;
    }
}

void Session::end_host() {
    bus_.end_process();
    library_.start_process();
    waiting_.reset();
    card_changed_ = false;
}

void Session::new_host() {
    tell("  another host");
    end_host();
}

bool Session::quiet() const {
    return Duration(disturbed_.last_ready().time_since_epoch()) <= *bus_clock();
}

void Session::wait_for_quiet() {
    if (!quiet()) {
        bus_.pass(Duration(disturbed_.last_ready().time_since_epoch()) - *bus_clock());
    }
    bus_.pass(milliseconds(dice_.below(3000)));
}

void Session::arm() {
    // Transfers and answers of the longest call.
    constexpr std::size_t transfers = 70;
    constexpr std::size_t answers = 30;
    const std::size_t kind = dice_.below(100);
    if (kind < 40) {
        static const std::vector<Event::Kind> kinds{
            Event::Kind::kill,  Event::Kind::kill_waiting, Event::Kind::kill_waiting,
            Event::Kind::swap,  Event::Kind::other_slot,   Event::Kind::pull,
            Event::Kind::reset, Event::Kind::replug};
        event_ = Event{dice_.one_of(kinds), dice_.below(transfers)};
        transfers_until_event_ = event_->transfers_before;
        return;
    }
    Disturbance disturbance;
    disturbance.answers_before = static_cast<unsigned>(dice_.below(answers));
    if (kind < 65) {
        disturbance.kind = Disturbance::Kind::late;
        disturbance.delay =
            milliseconds(dice_.percent(60) ? 10'000 + dice_.below(3'000) : dice_.below(60'000));
    } else if (kind < 78) {
        disturbance.kind = Disturbance::Kind::cut;
        disturbance.bytes = dice_.below(100);
    } else if (kind < 92) {
        disturbance.kind = Disturbance::Kind::extension;
        disturbance.extensions = static_cast<unsigned>(1 + dice_.below(3));
        disturbance.delay = milliseconds(dice_.below(8'000));
    } else {
        disturbance.kind = Disturbance::Kind::lost;
    }
    disturbed_.disturb(disturbance);
}

void Session::disarm() {
    event_.reset();
    disturbed_.leave_in_peace();
}

void Session::witness(Bus::Moment moment) {
    if (!event_) {
        return;
    }
    const bool needs_wait = event_->kind == Event::Kind::kill_waiting;
    if (moment == Bus::Moment::before && transfers_until_event_ > 0) {
        --transfers_until_event_;
        return;
    }
    if (transfers_until_event_ == 0 && needs_wait == (moment == Bus::Moment::waiting)) {
        const Event event = *event_;
        event_.reset();
        happen(event);
    }
}

void Session::happen(const Event& event) {
    ++happened_;
    ++tally_.disturbances[event.text().substr(0, event.text().find(" ("))];
    last_disturbances_ += "; " + event.text();
    tell("    " + event.text());
    switch (event.kind) {
    case Event::Kind::kill:
    case Event::Kind::kill_waiting:
        bus_.end_process();
        std::longjmp(death, 1); // NOLINT(cert-err52-cpp): as above
    case Event::Kind::swap:
        insert(other_than(in_reader_), slot_);
        break;
    case Event::Kind::other_slot:
        insert(other_than(in_reader_), 3 - slot_);
        break;
    case Event::Kind::pull:
        pull();
        break;
    case Event::Kind::reset:
        bus_.reset_port();
        break;
    case Event::Kind::replug:
        bus_.plug();
        break;
    }
}

Session::Before Session::begin(const char* name) {
    call_name_ = name;
    ++tally_.calls[name];
    in_reader_during_call_.clear();
    if (in_reader_ != nullptr) {
        in_reader_during_call_.insert(in_reader_);
    }
    tell(std::string("  ") + name + (quiet() ? "" : ", answers still under way"));
    return {quiet() && in_reader_ != nullptr && !card_changed_, disturbed_.answers_left(),
            happened_, bus_.transfers().size()};
}

Answer Session::call(EntryPoint entry_point, const std::string& input) {
    Answer answer = call_library(entry_point, input);
    if (answer.died) {
        end_host();
    }
    return answer;
}

bool Session::end(const Before& before, const Answer& answer) {
    if (told_) {
        for (const auto& transfer : std::span(bus_.transfers()).subspan(before.transfers)) {
            tell("    " + std::string(transfer.in() ? "in  " : "out ") +
                 std::to_string(transfer.endpoint & 0x0FU) + " " + in_hex(transfer.carried) +
                 (transfer.result == 0 ? "" : " -> " + std::to_string(transfer.result)));
        }
        std::string text = answer.died ? "    died" : "    result " + std::to_string(answer.result);
        for (const auto& [key, value] : answer.members) {
            text += key == "IcARQC" ? "" : "\n    " + key + " = " + value;
        }
        tell(text);
    }
    if (!before.quiet || before.happened != happened_) {
        return false;
    }
    const auto transfers = std::span(bus_.transfers()).subspan(before.transfers);
    const bool deceived = fetches_from(before.answers_left, transfers) &&
                          all_in_order(transfers, disturbed_.numbers_answers());
    if (deceived) {
        tell("    the answers to earlier hosts pass for its own");
    }
    ++(deceived ? tally_.deceived : tally_.owed);
    return !deceived;
}

// --- judging ---

std::string Session::why_no_arqc(const Turn& turn, const std::string& field55,
                                 std::uint64_t amount) const {
    try {
        Field55 objects = Field55::parse(field55);
        const auto* const pan = objects.find(0x5A);
        if (pan != nullptr &&
            in_hex(*pan).substr(0, turn.customer->pan.size()) != turn.customer->pan) {
            return "the PAN of another card";
        }
        // Records that could not be read. The cryptogram has to be this card's all the same.
        objects = Field55::parse(
            field55 + (pan == nullptr ? turn.customer->pan_object : "") +
            (objects.find(0x5F34) == nullptr ? turn.customer->sequence_number_object : ""));
        if (in_hex(objects.require(0x9F02, 6)) != twelve_digits(amount)) {
            return "another amount";
        }
        const auto& application = turn.card.profile().applications.front();
        const auto& counter = objects.require(0x9F36, 2);
        if ((counter[0] << 8U | counter[1]) != application.atc) {
            return "another transaction's counter";
        }
        const auto verdict = turn.customer->issuer.verify(objects, CryptogramKind::kRequest);
        return verdict.verified ? "" : verdict.reason;
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

std::string Session::why_not(const Turn& turn, const Answer& answer,
                             std::optional<std::uint64_t> amount) const {
    const auto& cash = turn.card.profile().applications.front().electronic_cash;
    for (const auto& [letter, value] : fields_of(answer.member("IcInfo"))) {
        const auto known = turn.customer->fields.find(letter);
        std::string expected = known == turn.customer->fields.end() ? "" : known->second;
        if (letter == balance_letter && cash) {
            expected = in_hex(cash->balance);
        }
        if (!value.empty() && value != expected) {
            return std::string("field ") + letter + " is " + value + ", not " + expected;
        }
    }
    for (const std::string& object : objects_of(answer.member("LpAppData"))) {
        if (!turn.customer->objects.contains(object)) {
            return "LpAppData has " + object;
        }
    }
    if (const std::string arqc = answer.member("ARQC"); !arqc.empty() && amount) {
        if (const std::string why = why_no_arqc(turn, arqc, *amount); !why.empty()) {
            return "ARQC: " + why;
        }
    }
    return {};
}

Session::Turn* Session::judge_reading(const Answer& answer, std::optional<std::uint64_t> amount) {
    std::string reasons;
    for (Turn* const turn : in_reader_during_call_) {
        const std::string why = why_not(*turn, answer, amount);
        if (why.empty()) {
            return turn;
        }
        reasons += " [not of " + turn->customer->name + ": " + why + "]";
    }
    if (!in_reader_during_call_.empty() || !answer.members.empty()) {
        complain("attributed to another card, command or amount:" + reasons);
    }
    return nullptr;
}

std::string Session::missing_in(const Turn& turn, const Answer& answer,
                                std::optional<std::uint64_t> amount) const {
    if (answer.result != 0) {
        return "result " + std::to_string(answer.result);
    }
    if (const std::string info = answer.member("IcInfo"); !info.empty() || !amount) {
        const auto found = fields_of(info);
        for (const auto& [letter, value] : turn.customer->fields) {
            const auto field = found.find(letter);
            if (field == found.end() || field->second.size() != value.size()) {
                return std::string("field ") + letter;
            }
        }
    }
    if (amount && objects_of(answer.member("LpAppData")) != turn.customer->objects) {
        return "application data";
    }
    return amount && answer.member("ARQC").empty() ? "the ARQC" : "";
}

// --- calls ---

void Session::read(bool owed_whole) {
    card_changed_ = false;
    const Before before = begin("reading");
    const Answer answer = call(
        QAVEN_getICCardInfo,
        json_of(
            {{"TagList", letters}, {"AIDList", aids}, {"aryInput", ""}, {"isReadArqc", "false"}}));
    waiting_.reset();
    const bool owed = end(before, answer);
    const Turn* const turn = judge_reading(answer, std::nullopt);
    if (owed && owed_whole && turn != nullptr) {
        if (const std::string missing = missing_in(*turn, answer, std::nullopt); !missing.empty()) {
            complain("nothing disturbs it and it fails: " + missing);
        }
    }
}

void Session::read_and_generate(EntryPoint entry_point) {
    const bool alone = entry_point == QAVEN_genARQC;
    card_changed_ = false;
    const Before before = begin(alone ? "ARQC alone" : "reading with ARQC");
    const std::uint64_t amount = 1 + dice_.below(99'999'999);
    const std::string transaction =
        "P012" + twelve_digits(amount) + "Q012000000000000R0040156T00233V013MRCH CNT 0001";
    std::vector<std::pair<std::string, std::string>> members{
        {"AIDList", alone ? in_reader_ != nullptr ? in_reader_->customer->log_aid() : aids : aids},
        {"aryInput", transaction}};
    if (!alone) {
        members.insert(members.begin(), {"TagList", letters});
        members.emplace_back("isReadArqc", "true");
    }
    waiting_.reset();
    const Answer answer = call(entry_point, json_of(members));
    const bool owed = end(before, answer);
    Turn* const turn = judge_reading(answer, amount);
    if (turn == nullptr || answer.died) {
        return;
    }
    if (owed) {
        if (const std::string missing = missing_in(*turn, answer, amount); !missing.empty()) {
            complain("nothing disturbs it and it fails: " + missing);
            return;
        }
    }
    if (const std::string arqc = answer.member("ARQC"); answer.result == 0 && !arqc.empty()) {
        waiting_ = Waiting{turn, amount,      in_hex(Field55::parse(arqc).require(0x9F36, 2)),
                           arqc, transaction, answer.member("LpAppData"),
                           owed};
    }
}

void Session::hand_over(bool careless) {
    const Waiting waiting = *waiting_;
    const Before before = begin(careless ? "answer, careless" : "answer");
    const std::string balance = twelve_digits(dice_.below(100'000));
    virtual_issuer::Answer issuer_answer;
    issuer_answer.script_identifier = {0x12, 0x34, 0x56, 0x78};
    const bool with_script = waiting.turn->customer->has_cash() && dice_.percent(50);
    if (with_script) {
        issuer_answer.script.push_back(
            virtual_issuer::parse_script_command("put-data=9F79:" + balance));
    }
    std::string response;
    try {
        response = in_hex(
            waiting.turn->customer->issuer.answer(Field55::parse(waiting.field55), issuer_answer));
    } catch (const std::runtime_error&) {
        waiting_.reset(); // an ARQC text without a PAN has no issuer
        return;
    }
    std::string json = json_of({{"Txdata", waiting.transaction},
                                {"LpAppData", waiting.application_data},
                                {"ARPC", response}});
    json.back() = ',';
    json += R"("Status":0})";
    const Answer answer = call(QAVEN_ARPC_ExeICScript, json);
    const bool owed = end(before, answer) && !careless && waiting.undisturbed;

    if (const std::string tc = answer.member("TC"); !tc.empty()) {
        const Turn& turn = *waiting.turn;
        const LogTexts log = transaction_log_of(turn.card);
        std::string why;
        try {
            const Field55 objects = Field55::parse(tc);
            const auto verdict =
                turn.customer->issuer.verify(objects, CryptogramKind::kTransactionCertificate);
            if (!in_reader_during_call_.contains(waiting.turn)) {
                why = "its card was not in the reader";
            } else if (in_hex(objects.require(0x9F36, 2)) != waiting.counter) {
                why = "another transaction's counter";
            } else if (!verdict.verified) {
                why = verdict.reason;
            } else if (log.size() == 1 || fields_of(std::string_view(log[1]).substr(2))['P'] !=
                                              twelve_digits(waiting.amount)) {
                why = "the card has no such transaction in its log";
            }
        } catch (const std::runtime_error& error) {
            why = error.what();
        }
        if (!why.empty()) {
            complain("a TC that is none: " + why);
        }
    } else if (owed) {
        complain("nothing disturbs it and there is no TC");
    }
    const std::string script = answer.member("Scriptresult");
    if (script.starts_with("DF310520")) {
        const auto& cash = waiting.turn->card.profile().applications.front().electronic_cash;
        if (!with_script || !script.ends_with("12345678") || !cash ||
            in_hex(cash->balance) != balance) {
            complain("a script is said to have run that did not: " + script);
        }
    } else if (owed && with_script) {
        complain("nothing disturbs it and the script did not run: " + script);
    }
    if (careless && waiting_) {
        waiting_->undisturbed = false;
    } else {
        waiting_.reset();
    }
}

void Session::read_log() {
    const Before before = begin("log");
    const std::string aid = aid_of_log();
    const Answer answer = call(QAVEN_GetTxDetail, json_of({{"AIDList", aid}}));
    waiting_.reset();
    const std::string text = answer.member("TxDtailRet");
    judge_log(text == "0" ? "" : text, end(before, answer), transaction_log_of);
}

void Session::read_load_log() {
    const Before before = begin("load log");
    const Answer answer = call(read_all_loads, aid_of_log());
    waiting_.reset();
    judge_log(answer.text, end(before, answer), load_log_of);
}

std::string Session::aid_of_log() const {
    return in_reader_ != nullptr ? in_reader_->customer->log_aid() : "A000000333";
}

void Session::judge_log(const std::string& text, bool owed, LogTexts (*log_of)(const Card&)) {
    bool whole = false;
    bool known = text.empty();
    for (const Turn* const turn : in_reader_during_call_) {
        const LogTexts texts = log_of(turn->card);
        known = known || std::ranges::find(texts, text) != texts.end();
        whole = whole || text == texts.back();
    }
    if (!known) {
        complain("a log that is not the card's: " + text);
    } else if (owed && !whole) {
        complain("nothing disturbs it and the log is not whole: " + text);
    }
}

void Session::some_call() {
    if (waiting_ && dice_.percent(70)) {
        hand_over(dice_.percent(10));
        return;
    }
    switch (dice_.below(5)) {
    case 0:
        read();
        break;
    case 1:
        read_log();
        break;
    case 2:
        read_load_log();
        break;
    case 3:
        read_and_generate(QAVEN_genARQC);
        break;
    default:
        read_and_generate(QAVEN_getICCardInfo);
        break;
    }
}

void Session::run() {
    constexpr std::size_t most_calls = 8;
    const std::size_t calls = 3 + dice_.below(most_calls - 2);
    Turn* next = turns_.data();
    insert(*next, slot_);
    for (std::size_t k = 0; k < calls; ++k) {
        if (in_reader_ == nullptr || (!waiting_ && dice_.percent(30))) {
            next = &other_than(next);
            insert(*next, slot_);
        }
        if (!waiting_ && dice_.percent(15)) {
            new_host();
        }
        if (dice_.percent(60)) {
            arm();
        }
        some_call();
        // A careless host gives the issuer's answer to whatever card is there.
        if (waiting_ && dice_.percent(5)) {
            insert(other_than(in_reader_), slot_);
            hand_over(true);
        }
        if (dice_.percent(70)) {
            wait_for_quiet();
        }
    }
    disarm();
    for (Turn& turn : turns_) {
        wait_for_quiet();
        insert(turn, slot_);
        if (dice_.percent(50)) {
            read();
        }
        read_and_generate(QAVEN_getICCardInfo);
        if (waiting_) {
            hand_over(false);
        }
        read_log();
        read_load_log();
    }
    for (const std::string& misuse : bus_.misuses()) {
        complain(misuse);
    }
}

void Session::learn(Customer& customer, const LibraryImage& library) {
    Card card(customer.profile);
    virtual_reader::Reader reader(nullptr, &card);
    DisturbedReader undisturbed(reader);
    Bus bus(undisturbed);
    bus.plug();
    library.start_process();
    const Answer answer = call_library(
        QAVEN_getICCardInfo,
        json_of(
            {{"TagList", letters}, {"AIDList", aids}, {"aryInput", ""}, {"isReadArqc", "true"}}));
    customer.fields = fields_of(answer.member("IcInfo"));
    customer.objects = objects_of(answer.member("LpAppData"));
    bus.end_process();
    library.start_process();
    if (customer.fields['A'] != customer.pan || customer.objects.empty()) {
        throw std::runtime_error("the card of " + customer.name + " cannot be read");
    }
}

void Session::complain(const std::string& what) {
    ++tally_.complaints;
    if (tally_.complaints <= most_complaints_told) {
        std::cerr << "session " << number_ << ", " << call_name_ << ": " << what << " (after"
                  << (last_disturbances_.empty() ? " nothing" : last_disturbances_.substr(1))
                  << ")\n";
    }
    tell("  COMPLAINT: " + what);
}

void Session::tell(const std::string& what) {
    if (told_) {
        std::cout << what << '\n';
    }
}

// --- the program ---

std::vector<Customer> all_customers(const LibraryImage& library) {
    std::vector<Customer> customers;
    constexpr std::size_t byte_of_number = 4;
    // The last one answers by GET RESPONSE.
    for (const char* const name : {"debit", "credit", "sm", "get-response"}) {
        Profile profile =
            virtual_card::load_profile(std::string(QAVEN_PROFILES) + "/" + name + ".json");
        // Keys of its own for each, so that no cryptogram passes for another card's.
        profile.issuer_keys.triple_des.cryptogram.front() ^=
            static_cast<std::uint8_t>(customers.size() << 1U);
        // And a number of its own, in 5A and 57 alike.
        for (auto& record : profile.applications.front().records) {
            for (auto& object : record.objects) {
                if (object.tag == 0x5A || object.tag == 0x57) {
                    object.value.at(byte_of_number) = static_cast<std::uint8_t>(customers.size());
                }
            }
            record.content = virtual_card::encode_record(record.objects);
        }
        Customer& customer = customers.emplace_back(std::move(profile));
        customer.name = name;
    }
    for (Customer& customer : customers) {
        Session::learn(customer, library);
    }
    return customers;
}

void tell_tally(std::uint64_t sessions, const Tally& tally) {
    std::cout << sessions << " sessions\n";
    for (const auto& [name, count] : tally.calls) {
        std::cout << "  " << count << " x " << name << '\n';
    }
    std::cout << tally.owed << " of these calls had to succeed, " << tally.deceived
              << " were deceived; disturbances:\n";
    for (const auto& [name, count] : tally.disturbances) {
        std::cout << "  " << count << " x " << name << '\n';
    }
    std::cout << tally.complaints << " complaints\n";
}

std::uint64_t number_in(std::string_view text) {
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size()) {
        throw std::runtime_error("'" + std::string(text) + "' is no number");
    }
    return number;
}

int sweep(std::span<char* const> arguments) {
    constexpr std::uint64_t sample = 1500;
    const test::WorkingFolder folder;
    // A folder in the trace's place: its lines are formatted and then go nowhere.
    std::filesystem::create_directory("Qm_ic.log");
    setenv("QAVEN_DIAGNOSTICS", "off", 1);
    setenv("TZ", "UTC0", 1);

    const LibraryImage library;
    const std::vector<Customer> customers = all_customers(library);
    Tally tally;
    const bool one = arguments.size() == 2 && std::string_view(arguments[0]) == "--session";
    const std::uint64_t sessions = one ? 1 : !arguments.empty() ? number_in(arguments[0]) : sample;
    const std::uint64_t first = arguments.size() > 1 ? number_in(arguments[1]) : 1;
    for (std::uint64_t number = first; number < first + sessions; ++number) {
        Session(number, customers, library, tally, one).run();
    }
    tell_tally(sessions, tally);
    return tally.complaints == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

} // namespace qaven::sweep

int main(int argc, char** argv) {
    try {
        return qaven::sweep::sweep(
            std::span<char* const>(argv, static_cast<std::size_t>(argc)).subspan(1));
    } catch (const std::exception& problem) {
        std::cerr << "qaven-late-sweep: " << problem.what() << '\n';
        return EXIT_FAILURE;
    }
}
