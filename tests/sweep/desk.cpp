// The counter, and its words for outcomes.
#include "desk.h"

#include "virtual/card/card_factory.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iostream>
#include <sstream>
#include <utility>

namespace qaven::sweep {

namespace {

// The script of an earlier transaction has changed the card's balance, letter G.
std::string without_balance(std::string card_information) {
    const auto balance = card_information.find("G012");
    return balance == std::string::npos ? card_information : card_information.erase(balance, 16);
}

virtual_card::Icc* in_slot(int slot, const SetUp& set_up, virtual_card::Icc* card) {
    return set_up.slot == slot ? card : nullptr;
}

} // namespace

Desk::Desk(const SetUp& set_up, const test::IssuerDesk& issuer, const Interposer& interposer)
    : issuer_(issuer), card_(virtual_card::make_card(test::profile_file(set_up.profile))),
      between_(interposer ? interposer(*card_) : nullptr),
      reader_(in_slot(1, set_up, between_ ? between_.get() : card_.get()),
              in_slot(2, set_up, between_ ? between_.get() : card_.get())),
      bus_(reader_) {
    request_.aids = set_up.aids;
    request_.log_aid = set_up.log_aid;
}

Desk::~Desk() {
    end_process_connection();
}

std::string ended(const Transaction& transaction) {
    if (transaction.complete) {
        return "ok";
    }
    const Call& call = transaction.last();
    if (call.succeeded) {
        return transaction.issuer_refused ? "issuer refuses" : "issuer disbelieves";
    }
    return call.operation() + " " + std::to_string(call.code());
}

std::string text_of(const Transaction& transaction) {
    return transaction.last().succeeded ? std::string() : transaction.last().text();
}

std::string differences(const Transaction& good, const Transaction& other) {
    std::string names;
    const std::size_t calls = std::min(good.calls.size(), other.calls.size());
    for (std::size_t n = 0; n < calls && other.calls[n].succeeded; ++n) {
        for (const auto& [key, value] : good.calls[n].answer) {
            if (key != "IcARQC" && other.calls[n].member(key) != value) {
                names += (names.empty() ? "" : " ") + key;
            }
        }
    }
    return names.empty() ? "as ever" : "other " + names;
}

bool reads_the_same_card(const Transaction& good, const Transaction& other) {
    const Call& wanted = good.calls.front();
    const Call& found = other.calls.front();
    return without_balance(found.member("IcInfo")) == without_balance(wanted.member("IcInfo")) &&
           found.member("LpAppData") == wanted.member("LpAppData") &&
           found.member("Field60") == wanted.member("Field60");
}

std::string seconds(Duration time) {
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f s", static_cast<double>(milliseconds) / 1000.0);
    return text.data();
}

std::string described(const Transaction& transaction) {
    std::ostringstream out;
    for (const Call& call : transaction.calls) {
        out << call.name << ": result " << call.result << " '" << call.errmsg << "', "
            << call.spent.transfers << " transfers, " << seconds(call.spent.time) << '\n';
        for (const Operation& operation : call.operations) {
            out << "    " << operation.name << ' ' << operation.code << " '" << operation.text
                << "'\n";
        }
        for (const auto& [key, value] : call.answer) {
            if (key != "IcARQC") {
                out << "    " << key << " = " << value << '\n';
            }
        }
    }
    out << "=> " << ended(transaction) << "\n\n";
    return out.str();
}

void Demands::check(const std::string& name, const Transaction& transaction) {
    for (const Call& call : transaction.calls) {
        if (call.spent.time > call.spent.allowed || call.spent.time > limits_.call_time) {
            complain(name, call.name + " took " + seconds(call.spent.time));
        }
        if (call.spent.transfers > limits_.call_transfers) {
            complain(name,
                     call.name + " made " + std::to_string(call.spent.transfers) + " transfers");
        }
        if (call.result != 0 && call.errmsg.empty()) {
            complain(name, call.name + " gave a code without a text");
        }
        if (!call.succeeded && call.result == 0 && call.name == "information") {
            complain(name, call.name + " failed in silence");
        }
    }
}

void Demands::check_at_end(const std::string& name, const Bus& bus) {
    if (bus.held() != Bus::Holdings{}) {
        complain(name, "something is still held after a good transaction");
    }
    for (const std::string& misuse : bus.misuses()) {
        complain(name, misuse);
    }
}

void Demands::complain(const std::string& name, const std::string& what) {
    ++complaints_;
    std::cerr << set_up_ << " " << name << ": " << what << '\n';
}

} // namespace qaven::sweep
