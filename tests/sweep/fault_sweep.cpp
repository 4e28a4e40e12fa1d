// One whole transaction for every USB transfer and every fault of the bus: how the call in progress
// ends, and whether the next transaction works. Prints the table of outcomes and compares it with
// expected/fault.txt (expected/fault-all.txt with --all).
//
//     qaven-fault-sweep [--all] [--write]     --all: other cards and the other slot too; --write
//                                             makes the table the expected one
//     qaven-fault-sweep SET-UP after=N:KIND   one case, call by call
//
// Where the next transaction fails although the reader is still plugged in, the reader has to be
// pulled out and put back once; then it must work, whatever went before. Two reasons are known: a
// halted endpoint stays halted, because nothing here clears halts; and an answer that nobody
// fetched is the first one that the next command gets, because answers are not matched by bSeq.
#include "command_line.h"
#include "desk.h"
#include "table.h"

#include <array>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <map>
#include <span>
#include <string>
#include <tuple>
#include <vector>

namespace qaven::sweep {

namespace {

using virtual_usb::Fault;

// Every row of a set-up in detail says which transfers; the others count them.
struct Swept {
    SetUp set_up;
    bool in_detail;
};

const std::vector<Swept>& all_swept() {
    static const std::vector<Swept> all{
        {{.name = "debit", .profile = "debit"}, true},
        {{.name = "slot-1", .profile = "debit", .slot = 1}, false},
        {{.name = "get-response", .profile = "get-response"}, false},
        {{.name = "no-pse", .profile = "no-pse", .aids = debit_alone}, false},
    };
    return all;
}

constexpr std::array fault_names{"timeout",   "stall",      "halt",    "unplug",
                                 "overflow",  "short",      "garbage", "late=500",
                                 "late=9999", "late=10001", "silent"};

// A reader that takes no commands any more costs a time-out for power on and one for the slot
// status, for each of the three AIDs that are tried.
constexpr std::chrono::seconds longest_call{60};

// One that says nothing more, from the middle of a card on: what is left of that card's commands,
// then for each AID power on, slot status and SELECT, sent in vain and waited for in vain.
constexpr std::chrono::seconds longest_call_in_silence{170};
constexpr const char* silent = "silent";

// Calls that go wrong make few transfers beyond those of a good transaction: power off, the other
// slot, what a reader that announces too much still sends.
constexpr std::size_t kMostTransfers = 200;

// One fault by its name; "silent" is a reader that answers nothing more until it is put back.
std::vector<Fault> faults_named(const std::string& name) {
    constexpr std::size_t until_put_back = 1000;
    const auto colon = name.find(':');
    if (name.substr(colon + 1) != silent) {
        return {virtual_usb::parse_fault(name)};
    }
    return {until_put_back, virtual_usb::parse_fault(name.substr(0, colon) + ":timeout")};
}

// What one case came to, cell by cell.
struct Outcome {
    std::string end;
    std::string text;
    std::string answers;
    std::string time;
    std::string next;
    std::string after_replug;

    // NOLINTNEXTLINE(modernize-use-nullptr): the checker takes the comparison's 0 for a pointer
    auto operator<=>(const Outcome&) const = default;
};

class Sweep {
  public:
    // Of one set-up; complaints are demands that a case did not meet.
    Sweep(const Swept& swept, Table& table)
        : set_up_(swept.set_up), in_detail_(swept.in_detail), issuer_(set_up_.profile),
          table_(table), demands_(set_up_.name, {longest_call, kMostTransfers}) {
        Desk desk(set_up_, issuer_);
        desk.bus().plug();
        good_ = desk.transaction();
        transfers_ = desk.bus().transfers();
        if (!good_.complete) {
            demands_.complain("without a fault", ended(good_));
        }
    }

    void run() {
        table_.section(set_up_.name + ": " + std::to_string(transfers_.size()) + " transfers" +
                       (in_detail_ ? "\n" + legend() : ""));
        for (const char* const name : fault_names) {
            run_kind(name);
        }
    }

    Outcome run_case(const std::vector<Fault>& faults, const std::string& name) {
        ++cases_;
        Desk desk(set_up_, issuer_);
        Bus& bus = desk.bus();
        bus.plug(faults);
        const Transaction hit = desk.transaction();
        demands_.check(name, hit);
        Outcome outcome;
        outcome.end = ended(hit);
        outcome.text = text_of(hit);
        outcome.answers = differences(good_, hit);
        outcome.time = seconds(bus.spent().time);

        if (!bus.plugged()) {
            bus.plug();
        }
        const Transaction next = desk.transaction();
        demands_.check(name, next);
        outcome.next = ended(next);
        check_answers(name, next);
        if (!next.complete) {
            bus.plug();
            const Transaction later = desk.transaction();
            demands_.check(name, later);
            outcome.after_replug = ended(later);
            check_answers(name, later);
            if (!later.complete) {
                demands_.complain(name, "no transaction works, not even with the reader put back");
            }
        }
        demands_.check_at_end(name, bus);
        return outcome;
    }

    [[nodiscard]] std::size_t cases() const { return cases_; }
    [[nodiscard]] std::size_t complaints() const { return demands_.complaints(); }

  private:
    void run_kind(const std::string& kind) {
        demands_.allow(kind == silent ? longest_call_in_silence : longest_call);
        // Call in progress, direction, outcome; which transfers.
        using Key = std::tuple<std::size_t, bool, Outcome>;
        std::map<Key, std::vector<std::size_t>> outcomes;
        std::vector<Key> in_order;
        for (std::size_t index = 0; index < transfers_.size(); ++index) {
            const std::string name = "after=" + std::to_string(index) + ":" + kind;
            const std::vector<Fault> faults = faults_named(name);
            const bool in = transfers_[index].in();
            if (!in && hits_in_only(faults.front().kind)) {
                continue;
            }
            Outcome outcome = run_case(faults, name);
            if (!in_detail_) {
                outcome.time = "";
            }
            const Key key{in_detail_ ? call_of(index) : 0, in_detail_ && in, std::move(outcome)};
            auto& hit = outcomes[key];
            if (hit.empty()) {
                in_order.push_back(key);
            }
            hit.push_back(index);
        }
        std::stable_sort(in_order.begin(), in_order.end(), [](const Key& one, const Key& other) {
            return std::get<0>(one) < std::get<0>(other);
        });
        for (const Key& key : in_order) {
            const auto& [call, in, outcome] = key;
            const auto& hit = outcomes.at(key);
            const std::string direction = in ? "in" : "out";
            table_.row({kind, in_detail_ ? good_.calls[call].name : "", in_detail_ ? direction : "",
                        outcome.end, outcome.text, outcome.answers, outcome.time, outcome.next,
                        outcome.after_replug, std::to_string(hit.size()),
                        in_detail_ ? ranges(hit, rank(in)) : ""});
        }
    }

    // Which call of a good transaction makes this transfer.
    [[nodiscard]] std::size_t call_of(std::size_t transfer) const {
        std::size_t call = 0;
        while (call + 1 < good_.calls.size() && good_.calls[call + 1].first_transfer <= transfer) {
            ++call;
        }
        return call;
    }

    [[nodiscard]] std::map<std::size_t, std::size_t> rank(bool in) const {
        std::map<std::size_t, std::size_t> ranks;
        for (std::size_t index = 0; index < transfers_.size(); ++index) {
            if (transfers_[index].in() == in) {
                ranks.emplace(index, ranks.size());
            }
        }
        return ranks;
    }

    // What travels with which transfers.
    [[nodiscard]] std::string legend() const {
        constexpr std::size_t line_length = 100;
        std::string text;
        std::string line = " ";
        for (std::size_t index = 0; index < transfers_.size();) {
            std::size_t last = index;
            while (last + 1 < transfers_.size() && !starts_message(last + 1)) {
                ++last;
            }
            const std::string entry = " " + std::to_string(index) + "-" + std::to_string(last) +
                                      " " + message_name(transfers_[index].carried);
            if (line.size() + entry.size() > line_length) {
                text += line + "\n";
                line = " ";
            }
            line += entry;
            index = last + 1;
        }
        return text + line;
    }

    // A message begins with an OUT transfer after IN transfers.
    [[nodiscard]] bool starts_message(std::size_t index) const {
        return !transfers_[index].in() && (index == 0 || transfers_[index - 1].in());
    }

    static std::string message_name(std::span<const std::uint8_t> message) {
        constexpr std::size_t header = 10;
        if (message.size() < header) {
            return "?";
        }
        switch (message[0]) {
        case 0x62:
            return "on";
        case 0x63:
            return "off";
        case 0x65:
            return "status";
        default:
            break;
        }
        if (message.size() < header + 4) {
            return "?";
        }
        switch (message[header + 1]) {
        case 0x82:
            return "EXTERNAL-AUTHENTICATE";
        case 0xA4:
            return "SELECT";
        case 0xA8:
            return "GPO";
        case 0xAE:
            return "GENERATE-AC";
        case 0xB2:
            return "READ-RECORD";
        case 0xC0:
            return "GET-RESPONSE";
        case 0xCA:
            return "GET-DATA";
        default:
            return "script";
        }
    }

    void check_answers(const std::string& name, const Transaction& transaction) {
        if (transaction.complete && !reads_the_same_card(good_, transaction)) {
            demands_.complain(name, "the next transaction reads another card");
        }
    }

    SetUp set_up_;
    bool in_detail_;
    test::IssuerDesk issuer_;
    Table& table_;
    Transaction good_;
    std::vector<Bus::Transfer> transfers_;
    std::size_t cases_ = 0;
    Demands demands_;
};

Table new_table() {
    return Table({"fault", "in call", "dir", "the transaction ends with", "text", "answers", "time",
                  "next", "after replug", "cases", "transfers"});
}

int run_all(bool thorough, bool write) {
    Table table = new_table();
    std::size_t cases = 0;
    std::size_t complaints = 0;
    for (const Swept& swept : all_swept()) {
        Sweep sweep(swept, table);
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
    const bool as_expected = check_expected("fault", text, thorough, write);
    return complaints == 0 && as_expected ? EXIT_SUCCESS : EXIT_FAILURE;
}

int run_one(const std::string& set_up_name, const std::string& fault) {
    for (const auto& [set_up, in_detail] : all_swept()) {
        if (set_up.name == set_up_name) {
            const test::IssuerDesk issuer(set_up.profile);
            Desk desk(set_up, issuer);
            desk.bus().plug(faults_named(fault));
            std::cout << described(desk.transaction());
            if (!desk.bus().plugged()) {
                desk.bus().plug();
            }
            std::cout << described(desk.transaction());
            desk.bus().plug();
            std::cout << described(desk.transaction());
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
        if (line.words.size() == 2) {
            return qaven::sweep::run_one(line.words[0], line.words[1]);
        }
        return qaven::sweep::run_all(line.thorough, line.write);
    });
}
