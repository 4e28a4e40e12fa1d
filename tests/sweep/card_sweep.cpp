// One whole transaction for every answer of the card and everything that can be wrong with it: how
// the transaction ends, and whether the next one works. Prints the table of outcomes and compares
// it with expected/card.txt (expected/card-all.txt with --all).
//
//     qaven-card-sweep [--all] [--write]   --all: every profile and every case, not a sample
//                                          of the debit card's; --write makes the table
//                                          the expected one
//     qaven-card-sweep SET-UP ANSWER KIND  one case, call by call
//
// The wrong answer is given once; the card itself has done what the command asked for. The next
// transaction is made with the same card, which answers rightly again.
#include "command_line.h"
#include "desk.h"
#include "table.h"

#include "virtual/card/bytes.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace qaven::sweep {

namespace {

using virtual_card::Bytes;
using virtual_card::ByteView;
using virtual_card::Icc;

// Each of three AIDs can be asked for 256 follow-ups in each of its commands, two transfers each.
constexpr std::size_t kMostTransfers = 60000;

// A card is never late here; what a reply announces and does not deliver is waited for.
constexpr std::chrono::seconds longest_call{60};

struct Exchange {
    Bytes command;
    Bytes answer;
};

// A card between whose answers and the reader something can be put.
class EditedCard : public Icc {
  public:
    // The answer to the n-th command (0: the answer to reset) is replaced, from then on always when
    // `for_ever`.
    struct Edit {
        std::size_t at = 0;
        Bytes answer;
        bool for_ever = false;
    };

    EditedCard(Icc& card, std::optional<Edit> edit, std::vector<Exchange>* record)
        : card_(card), edit_(std::move(edit)), record_(record) {}

    Bytes power_on() override { return edited({}, card_.power_on(), !powered_before_); }
    void power_off() override { card_.power_off(); }
    Bytes transmit(std::span<const std::uint8_t> command) override {
        return edited(Bytes(command.begin(), command.end()), card_.transmit(command), true);
    }

    // Answers rightly from now on.
    void mend() { edit_.reset(); }

  private:
    Bytes edited(Bytes command, Bytes answer, bool counted) {
        if (!counted) {
            return answer;
        }
        powered_before_ = true;
        const std::size_t now = next_++;
        if (record_ != nullptr) {
            record_->push_back({std::move(command), answer});
        }
        const bool due = edit_ && (edit_->for_ever ? now >= edit_->at : now == edit_->at);
        return due ? edit_->answer : answer;
    }

    Icc& card_;
    std::optional<Edit> edit_;
    std::vector<Exchange>* record_;
    std::size_t next_ = 0;
    bool powered_before_ = false;
};

// One wrong answer: what kind of wrong it is called in the table.
struct Wrong {
    std::string family;
    std::string kind;
    Bytes answer;
    bool for_ever = false;
};

Bytes with_status(ByteView data, std::uint8_t sw1, std::uint8_t sw2) {
    Bytes answer(data.begin(), data.end());
    answer.push_back(sw1);
    answer.push_back(sw2);
    return answer;
}

ByteView data_of(const Bytes& answer) {
    return ByteView(answer).first(answer.size() < 2 ? 0 : answer.size() - 2);
}

// Where the first bytes of the length fields are, in templates too.
void length_fields(ByteView data, std::size_t offset, std::vector<std::size_t>& fields) {
    std::size_t at = 0;
    while (at < data.size() && data[at] != 0x00 && data[at] != 0xFF) {
        const bool constructed = (data[at] & 0x20U) != 0;
        if ((data[at] & 0x1FU) == 0x1FU) {
            do {
                ++at;
            } while (at < data.size() && (data[at] & 0x80U) != 0);
        }
        ++at;
        if (at >= data.size()) {
            return;
        }
        fields.push_back(offset + at);
        std::size_t length = data[at];
        std::size_t field = 1;
        if (length == 0x81 && at + 1 < data.size()) {
            length = data[at + 1];
            field = 2;
        } else if (length == 0x82 && at + 2 < data.size()) {
            length = static_cast<std::size_t>(data[at + 1]) << 8U | data[at + 2];
            field = 3;
        }
        at += field;
        const std::size_t there = std::min(length, data.size() - std::min(at, data.size()));
        if (constructed && there > 0) {
            length_fields(data.subspan(at, there), offset + at, fields);
        }
        at += length;
    }
}

// The same card data in the other response format; nothing when the answer has no format.
std::optional<Bytes> in_other_format(const Exchange& exchange) {
    const ByteView data = data_of(exchange.answer);
    if (exchange.command.size() < 2 || data.size() < 4) {
        return std::nullopt;
    }
    const bool options = exchange.command[1] == 0xA8;
    const bool cryptogram = exchange.command[1] == 0xAE;
    Bytes objects;
    const auto add = [&objects](std::initializer_list<std::uint8_t> tag, ByteView value) {
        objects.insert(objects.end(), tag);
        objects.push_back(static_cast<std::uint8_t>(value.size()));
        objects.insert(objects.end(), value.begin(), value.end());
    };
    if (data[0] == 0x80 && options) {
        add({0x82}, data.subspan(2, 2));
        add({0x94}, data.subspan(4));
    } else if (data[0] == 0x80 && cryptogram && data.size() >= 13) {
        add({0x9F, 0x27}, data.subspan(2, 1));
        add({0x9F, 0x36}, data.subspan(3, 2));
        add({0x9F, 0x26}, data.subspan(5, 8));
        add({0x9F, 0x10}, data.subspan(13));
    } else if (data[0] == 0x77) {
        // The values without their tags and lengths.
        std::vector<std::size_t> fields;
        length_fields(data.subspan(2), 2, fields);
        for (const std::size_t field : fields) {
            const auto value = data.subspan(
                field + 1, std::min<std::size_t>(data[field], data.size() - field - 1));
            objects.insert(objects.end(), value.begin(), value.end());
        }
    } else {
        return std::nullopt;
    }
    Bytes answer{data[0] == 0x80 ? std::uint8_t{0x77} : std::uint8_t{0x80},
                 static_cast<std::uint8_t>(objects.size())};
    answer.insert(answer.end(), objects.begin(), objects.end());
    return with_status(answer, 0x90, 0x00);
}

constexpr std::array<std::pair<std::uint8_t, std::uint8_t>, 36> status_words{{
    {0x61, 0x00}, {0x61, 0x10}, {0x61, 0xFF}, {0x62, 0x00}, {0x62, 0x83}, {0x63, 0x00},
    {0x63, 0xC0}, {0x63, 0xC2}, {0x64, 0x00}, {0x65, 0x81}, {0x66, 0x00}, {0x67, 0x00},
    {0x68, 0x81}, {0x69, 0x82}, {0x69, 0x83}, {0x69, 0x84}, {0x69, 0x85}, {0x69, 0x86},
    {0x6A, 0x81}, {0x6A, 0x82}, {0x6A, 0x83}, {0x6A, 0x86}, {0x6A, 0x88}, {0x6B, 0x00},
    {0x6C, 0x00}, {0x6C, 0x10}, {0x6C, 0xFF}, {0x6D, 0x00}, {0x6E, 0x00}, {0x6F, 0x00},
    {0x90, 0x01}, {0x92, 0x40}, {0x93, 0x02}, {0x00, 0x00}, {0x60, 0x00}, {0xFF, 0xFF},
}};

constexpr std::array<std::uint8_t, 7> lying_lengths{0x00, 0x7F, 0x80, 0x81, 0x82, 0x84, 0xFF};

std::string hex2(std::uint8_t byte) {
    return virtual_card::to_hex(Bytes{byte});
}

// A class of status words makes one kind; what follows them up is a kind of its own.
std::string status_kind(std::uint8_t sw1, std::uint8_t sw2) {
    const bool alone = sw1 == 0x00 || sw1 == 0xFF || sw1 == 0x60 || sw1 == 0x90;
    return hex2(sw1) + (alone ? hex2(sw2) : "xx");
}

// Everything that can be wrong with this answer.
std::vector<Wrong> wrongs(const Exchange& exchange) {
    std::vector<Wrong> all;
    if (exchange.command.empty()) {
        all.push_back({"answer to reset", "mute", {}});
        all.push_back({"answer to reset", "ATR of 1 byte", {0x3B}});
        all.push_back({"answer to reset", "ATR of 33 bytes", Bytes(33, 0x3B)});
        all.push_back({"answer to reset", "ATR of 256 bytes", Bytes(256, 0x3B)});
        return all;
    }
    const ByteView data = data_of(exchange.answer);
    for (const auto& [sw1, sw2] : status_words) {
        const std::string kind = status_kind(sw1, sw2);
        all.push_back({"status word", kind, {sw1, sw2}});
        if (!data.empty()) {
            all.push_back(
                {"status word with data", kind + " with data", with_status(data, sw1, sw2)});
        }
    }
    for (const std::uint8_t sw1 : std::array<std::uint8_t, 3>{0x61, 0x62, 0x6C}) {
        all.push_back({"follow-ups for ever", hex2(sw1) + "xx for ever", {sw1, 0x10}, true});
    }
    all.push_back({"little", "no byte at all", {}});
    all.push_back({"little", "one byte", {0x90}});
    all.push_back({"little", "9000 alone", {0x90, 0x00}});
    all.push_back({"little", "one data byte", {0x70, 0x90, 0x00}});
    for (const std::size_t size : {256U, 257U, 512U, 1012U, 1022U, 1023U, 5000U, 70000U}) {
        for (const std::uint8_t fill : std::array<std::uint8_t, 3>{0x00, 0x70, 0xFF}) {
            all.push_back({"much", std::to_string(size) + " bytes",
                           with_status(Bytes(size, fill), 0x90, 0x00)});
        }
    }
    std::vector<std::size_t> fields;
    length_fields(data, 0, fields);
    for (const std::size_t field : fields) {
        for (const std::uint8_t length : lying_lengths) {
            Bytes answer = exchange.answer;
            answer[field] = length;
            all.push_back({"lying length", "length " + hex2(length), std::move(answer)});
        }
    }
    for (std::size_t size = 0; size < data.size(); ++size) {
        all.push_back({"data cut", "data cut", with_status(data.first(size), 0x90, 0x00)});
    }
    for (std::size_t size = 2; size < exchange.answer.size(); ++size) {
        all.push_back({"answer cut", "answer cut",
                       Bytes(exchange.answer.begin(),
                             exchange.answer.begin() + static_cast<std::ptrdiff_t>(size))});
    }
    if (auto other = in_other_format(exchange)) {
        all.push_back({"other format", "other format", std::move(*other)});
    }
    return all;
}

// A sample: of each family one in so many, beginning elsewhere with every answer, so that all of
// them are met somewhere.
std::vector<Wrong> sample(const std::vector<Wrong>& all, std::size_t at) {
    const std::map<std::string, std::size_t> one_in{
        {"status word", 4}, {"status word with data", 8}, {"follow-ups for ever", 3},
        {"much", 8},        {"lying length", 4},          {"data cut", 7},
        {"answer cut", 7}};
    std::map<std::string, std::size_t> met;
    std::vector<Wrong> taken;
    for (const Wrong& wrong : all) {
        const auto rate = one_in.find(wrong.family);
        if (rate == one_in.end() || (met[wrong.family]++ + at) % rate->second == 0) {
            taken.push_back(wrong);
        }
    }
    return taken;
}

// The status word that was given, or one that is card data, says nothing by its number.
std::string without_number(const std::string& end) {
    const auto blank = end.find(' ');
    const bool status = blank != std::string::npos && end[blank + 1] > '0' && end[blank + 1] <= '9';
    return status ? end.substr(0, blank) + " SW" : end;
}

// The transaction ended with the status word of this answer.
bool ends_with_status(const std::string& end, const Bytes& answer) {
    if (answer.size() < 2) {
        return false;
    }
    const int status = answer[answer.size() - 2] * 256 + answer.back();
    return end.ends_with(" " + std::to_string(status));
}

struct Outcome {
    std::string end;
    std::string text;
    std::string answers;
    std::string next;
    std::string after_replug;

    // NOLINTNEXTLINE(modernize-use-nullptr): the checker takes the comparison's 0 for a pointer
    auto operator<=>(const Outcome&) const = default;
};

class Sweep {
  public:
    // In detail: every kind by itself, and which answers. Otherwise families of kinds are counted.
    Sweep(SetUp set_up, bool thorough, bool in_detail, Table& table)
        : set_up_(std::move(set_up)), thorough_(thorough), in_detail_(in_detail),
          issuer_(set_up_.profile), table_(table),
          demands_(set_up_.name, {longest_call, kMostTransfers}) {
        Desk desk(set_up_, issuer_, [this](Icc& card) {
            return std::make_unique<EditedCard>(card, std::nullopt, &exchanges_);
        });
        desk.bus().plug();
        good_ = desk.transaction();
        if (!good_.complete) {
            demands_.complain("with nothing wrong", ended(good_));
        }
    }

    void run() {
        table_.section(set_up_.name + ": " + std::to_string(exchanges_.size()) + " answers" +
                       (in_detail_ ? "\n" + legend() : ""));
        for (std::size_t at = 0; at < exchanges_.size(); ++at) {
            const auto all = wrongs(exchanges_[at]);
            for (const Wrong& wrong : thorough_ ? all : sample(all, at)) {
                note(at, wrong, run_case(at, wrong));
            }
        }
        // Kinds that come to the same, answer by answer, share their rows.
        std::set<std::string> shown;
        for (const std::string& kind : kinds_) {
            if (shown.contains(kind)) {
                continue;
            }
            std::vector<std::string> alike;
            for (const std::string& other : kinds_) {
                if (rows(other) == rows(kind)) {
                    alike.push_back(other);
                    shown.insert(other);
                }
            }
            show(alike);
        }
    }

    void explain(std::size_t at, const std::string& kind) {
        for (const Wrong& wrong : wrongs(exchanges_.at(at))) {
            if (wrong.kind == kind) {
                std::cout << "command " << virtual_card::to_hex(exchanges_[at].command)
                          << "\nanswer  " << virtual_card::to_hex(exchanges_[at].answer)
                          << "\ninstead " << virtual_card::to_hex(wrong.answer).substr(0, 600)
                          << '\n';
                run_case(at, wrong, true);
            }
        }
    }

    [[nodiscard]] std::size_t cases() const { return cases_; }
    [[nodiscard]] std::size_t complaints() const { return demands_.complaints(); }

  private:
    // By outcome, which answers were hit, one entry for each case.
    using Outcomes = std::map<Outcome, std::vector<std::size_t>>;
    using Rows = std::map<Outcome, std::string>;

    void note(std::size_t at, const Wrong& wrong, Outcome outcome) {
        std::string kind = wrong.kind;
        if (!in_detail_) {
            kind = wrong.family;
            outcome.end = without_number(outcome.end);
            outcome.answers = outcome.answers.substr(0, outcome.answers.find(' '));
        }
        if (!outcomes_.contains(kind)) {
            kinds_.push_back(kind);
        }
        outcomes_[kind][std::move(outcome)].push_back(at);
    }

    [[nodiscard]] Rows rows(const std::string& kind) const {
        Rows found;
        for (const auto& [outcome, hit] : outcomes_.at(kind)) {
            found.emplace(outcome, answers(hit));
        }
        return found;
    }

    void show(const std::vector<std::string>& kinds) {
        std::string names;
        for (const std::string& kind : kinds) {
            names += (names.empty() ? "" : ", ") + kind;
        }
        table_.section(names);
        for (const auto& [outcome, hit] : outcomes_.at(kinds.front())) {
            std::size_t count = 0;
            for (const std::string& kind : kinds) {
                count += outcomes_.at(kind).at(outcome).size();
            }
            table_.row({outcome.end, outcome.text, outcome.answers, outcome.next,
                        outcome.after_replug, std::to_string(count),
                        in_detail_ ? answers(hit) : ""});
        }
    }

    Outcome run_case(std::size_t at, const Wrong& wrong, bool aloud = false) {
        ++cases_;
        const std::string name = std::to_string(at) + " " + wrong.kind;
        EditedCard* edited = nullptr;
        Desk desk(set_up_, issuer_, [&](Icc& card) {
            auto between = std::make_unique<EditedCard>(
                card, EditedCard::Edit{at, wrong.answer, wrong.for_ever}, nullptr);
            edited = between.get();
            return between;
        });
        const auto transaction = [&] {
            Transaction made = desk.transaction();
            demands_.check(name, made);
            if (aloud) {
                std::cout << described(made);
            }
            return made;
        };
        desk.bus().plug();
        const Transaction hit = transaction();
        Outcome outcome;
        outcome.end = ended(hit);
        if (wrong.family == "answer cut" || ends_with_status(outcome.end, wrong.answer)) {
            outcome.end = without_number(outcome.end);
        }
        outcome.text = text_of(hit);
        outcome.answers = differences(good_, hit);

        edited->mend();
        Transaction next = transaction();
        outcome.next = ended(next);
        if (!next.complete) {
            desk.bus().plug();
            next = transaction();
            outcome.after_replug = ended(next);
            if (!next.complete) {
                demands_.complain(name, "no transaction works, not even with the reader put back");
            }
        }
        if (next.complete && !reads_the_same_card(good_, next)) {
            demands_.complain(name, "the next transaction reads another card");
        }
        demands_.check_at_end(name, desk.bus());
        return outcome;
    }

    // Which answers, as ranges; one that was hit by several of a kind stands once.
    static std::string answers(const std::vector<std::size_t>& hit) {
        const std::set<std::size_t> once(hit.begin(), hit.end());
        std::map<std::size_t, std::size_t> order;
        for (const std::size_t at : once) {
            order.emplace(at, at);
        }
        return ranges({once.begin(), once.end()}, order);
    }

    [[nodiscard]] std::string legend() const {
        std::string text = "  0 answer to reset";
        std::size_t line = 0;
        constexpr std::size_t line_length = 100;
        for (std::size_t at = 1; at < exchanges_.size(); ++at) {
            const Bytes& command = exchanges_[at].command;
            const std::string entry = "  " + std::to_string(at) + " " +
                                      virtual_card::to_hex(ByteView(command).first(
                                          std::min<std::size_t>(4, command.size())));
            if (text.size() - line + entry.size() > line_length) {
                text += "\n";
                line = text.size();
            }
            text += entry;
        }
        return text;
    }

    SetUp set_up_;
    bool thorough_;
    bool in_detail_;
    test::IssuerDesk issuer_;
    Table& table_;
    Demands demands_;
    Transaction good_;
    std::vector<Exchange> exchanges_;
    std::vector<std::string> kinds_;
    std::map<std::string, Outcomes> outcomes_;
    std::size_t cases_ = 0;
};

const std::vector<SetUp>& all_set_ups() {
    static const std::vector<SetUp> all{
        {.name = "debit", .profile = "debit"},
        {.name = "get-response", .profile = "get-response"},
        {.name = "credit", .profile = "credit", .aids = credit_alone, .log_aid = credit_alone},
        {.name = "no-pse", .profile = "no-pse", .aids = debit_alone},
        {.name = "ddf", .profile = "ddf", .aids = "0", .log_aid = ""},
        {.name = "two-applications", .profile = "two-applications", .aids = debit_alone},
        {.name = "sm", .profile = "sm"},
    };
    return all;
}

int run_all(bool thorough, bool write) {
    Table table({"the transaction ends with", "text", "answers", "next", "after replug", "cases",
                 "of answers"});
    std::size_t cases = 0;
    std::size_t complaints = 0;
    for (const SetUp& set_up : all_set_ups()) {
        Sweep sweep(set_up, thorough, cases == 0, table);
        sweep.run();
        cases += sweep.cases();
        complaints += sweep.complaints();
        if (!thorough) {
            break;
        }
    }
    table.section(std::to_string(cases) + " cases");
    const std::string text = table.text();
    std::cout << text;
    const bool as_expected = check_expected("card", text, thorough, write);
    return complaints == 0 && as_expected ? EXIT_SUCCESS : EXIT_FAILURE;
}

int explain_one(const std::string& set_up_name, std::size_t at, const std::string& kind) {
    for (const SetUp& set_up : all_set_ups()) {
        if (set_up.name == set_up_name) {
            Table unused({""});
            Sweep(set_up, true, true, unused).explain(at, kind);
            return EXIT_SUCCESS;
        }
    }
    std::cerr << "no set-up is called " << set_up_name << '\n';
    return EXIT_FAILURE;
}

} // namespace

} // namespace qaven::sweep

int main(int argc, char** argv) {
    return qaven::sweep::run_program(argc, argv, [](const qaven::sweep::CommandLine& line) {
        if (line.words.size() == 3) {
            return qaven::sweep::explain_one(line.words[0], std::stoul(line.words[1]),
                                             line.words[2]);
        }
        return qaven::sweep::run_all(line.thorough, line.write);
    });
}
