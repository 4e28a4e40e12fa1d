// A counter for one case: a card in a reader in a port, a host that makes transactions, and what
// the sweeps say of how a transaction ended.
#pragma once

#include "transaction.h"

#include "virtual/card/icc.h"
#include "virtual/reader/reader.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace qaven::sweep {

inline constexpr const char* usual_aids = "|A000000333010101|A000000333010102";

// An empty field asks for the directory in the ARQC step.
inline constexpr const char* debit_alone = "A000000333010101";
inline constexpr const char* credit_alone = "A000000333010102";

// A reader with a card in it.
struct SetUp {
    std::string name;
    std::string profile;
    int slot = 2;
    std::string aids = usual_aids;
    std::string log_aid = debit_alone;
};

// Puts something between reader and card; the card outlives what comes back.
using Interposer = std::function<std::unique_ptr<virtual_card::Icc>(virtual_card::Icc& card)>;

class Desk {
  public:
    Desk(const SetUp& set_up, const test::IssuerDesk& issuer, const Interposer& interposer = {});
    ~Desk();
    Desk(const Desk&) = delete;
    Desk& operator=(const Desk&) = delete;
    Desk(Desk&&) = delete;
    Desk& operator=(Desk&&) = delete;

    Bus& bus() { return bus_; }
    Transaction transaction() { return make_transaction(bus_, issuer_, request_); }

  private:
    Request request_;
    const test::IssuerDesk& issuer_;
    std::unique_ptr<virtual_card::Icc> card_;
    std::unique_ptr<virtual_card::Icc> between_;
    virtual_reader::Reader reader_;
    Bus bus_;
};

// "ok", the card operation and its code, or what the issuer said.
std::string ended(const Transaction& transaction);

// The text that came with a failure; "" without one.
std::string text_of(const Transaction& transaction);

// "as ever", or which members of the answers are not those of a good transaction.
std::string differences(const Transaction& good, const Transaction& other);

// Card data that no transaction before can have changed are those of a good transaction.
bool reads_the_same_card(const Transaction& good, const Transaction& other);

std::string seconds(Duration time);

// Every call in words, for looking into one case.
std::string described(const Transaction& transaction);

// What every case is to fulfil; complaints go to standard error and are counted.
class Demands {
  public:
    struct Limits {
        std::chrono::seconds call_time;
        std::size_t call_transfers;
    };

    Demands(std::string set_up, const Limits& limits)
        : set_up_(std::move(set_up)), limits_(limits) {}

    void allow(std::chrono::seconds call_time) { limits_.call_time = call_time; }

    // Each call ended within its time-outs and with a text to its code.
    void check(const std::string& name, const Transaction& transaction);

    // After a good transaction nothing is held, and libusb was never misused.
    void check_at_end(const std::string& name, const Bus& bus);

    void complain(const std::string& name, const std::string& what);

    [[nodiscard]] std::size_t complaints() const { return complaints_; }

  private:
    std::string set_up_;
    Limits limits_;
    std::size_t complaints_ = 0;
};

} // namespace qaven::sweep
