// How long a call of a host can last at worst: on a card that answers every command just in time
// and asks for another one, and at a reader that never answers. The clock is the bus's own. What
// the host guide says of it is held against what is found.
//
//     qaven-worst-time [FILE]   FILE: the guide; without it the rows are only printed
#include "desk.h"
#include "disturbed_reader.h"

#include "engine/pboccash.h"
#include "qaven/qaven.h"
#include "virtual/card/card_factory.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <span>
#include <string>
#include <vector>

namespace qaven::sweep {

namespace {

using std::chrono::milliseconds;

// Just inside the time-out of a transfer.
constexpr milliseconds just_in_time{9'990};

// A card of the customer's until it turns hostile. Then it selects, and gives an AFL of 62 entries
// with 255 records each; everything else it answers by asking for GET RESPONSE, without end.
class HostileCard final : public virtual_card::Icc {
  public:
    explicit HostileCard(virtual_card::Icc& honest) : honest_(honest) {}

    void turn_hostile() { hostile_ = true; }

    virtual_card::Bytes power_on() override { return honest_.power_on(); }
    void power_off() override { honest_.power_off(); }
    virtual_card::Bytes transmit(std::span<const std::uint8_t> command) override {
        if (!hostile_ || command.size() < 2) {
            return honest_.transmit(command);
        }
        constexpr std::uint8_t select = 0xA4;
        constexpr std::uint8_t get_processing_options = 0xA8;
        switch (command[1]) {
        case select:
            return {0x6F, 0x0A, 0x84, 0x08, 0xA0, 0x00, 0x00,
                    0x03, 0x33, 0x01, 0x01, 0x01, 0x90, 0x00};
        case get_processing_options:
            return options();
        default:
            return {0x61, 0x10};
        }
    }

  private:
    static virtual_card::Bytes options() {
        constexpr std::size_t entries = 62;
        virtual_card::Bytes response{0x80, 0x81, 2 + 4 * entries, 0x7C, 0x00};
        for (std::size_t k = 0; k < entries; ++k) {
            response.insert(response.end(), {0x08, 0x00, 0xFF, 0x00});
        }
        response.insert(response.end(), {0x90, 0x00});
        return response;
    }

    virtual_card::Icc& honest_;
    bool hostile_ = false;
};

// What a host calls, and whether a transaction has to be under way first.
struct Operation {
    std::string name;
    bool needs_session;
    std::function<void(const Bus& bus, const std::string& answer_json)> call;
};

std::string reading(const char* with_arqc) {
    const Request request;
    return json_object({{"TagList", request.letters},
                        {"AIDList", request.aids},
                        {"aryInput", request.transaction},
                        {"isReadArqc", with_arqc}});
}

const std::vector<Operation>& operations() {
    static const std::vector<Operation> all{
        {"`QAVEN_getICCardInfo`", false,
         [](const Bus& bus, const std::string&) { call_information(bus, reading("false")); }},
        {"`QAVEN_getICCardInfo` with ARQC", false,
         [](const Bus& bus, const std::string&) { call_information(bus, reading("true")); }},
        {"`QAVEN_genARQC`", false,
         [](const Bus& bus, const std::string&) {
             const Request request;
             call_arqc(bus,
                       json_object({{"aryInput", request.transaction}, {"AIDList", debit_alone}}));
         }},
        {"`QAVEN_ARPC_ExeICScript`", true,
         [](const Bus& bus, const std::string& json) { call_arpc(bus, json); }},
        {"`QAVEN_GetTxDetail`", false,
         [](const Bus& bus, const std::string&) {
             call_log(bus, json_object({{"AIDList", debit_alone}}));
         }},
        {"`ReadAmtLog`", false,
         [](const Bus&, const std::string&) {
             std::vector<char> out(QAVEN_TXDETAIL_SIZE);
             ReadAmtLog(debit_alone, -1, out.data());
         }},
    };
    return all;
}

std::string rounded(Duration time) {
    const auto whole = std::chrono::ceil<std::chrono::seconds>(time);
    return std::to_string(whole.count()) + " s";
}

enum class Adversary { card, reader };

Duration time_of(const Operation& operation, Adversary adversary) {
    const test::IssuerDesk issuer;
    const auto honest = virtual_card::make_card(test::profile_file("debit"));
    HostileCard card(*honest);
    virtual_reader::Reader reader(nullptr, &card);
    DisturbedReader slow(reader);
    Bus bus(slow);
    bus.plug();
    std::string json;
    if (operation.needs_session) {
        const Call call = call_information(bus, reading("true"));
        const Request request;
        json = json_object({{"Txdata", request.transaction},
                            {"LpAppData", call.member("LpAppData")},
                            {"ARPC", issuer.answer(call.member("ARQC"))}});
        json.back() = ',';
        json += R"("Status":0})";
    }
    if (adversary == Adversary::card) {
        card.turn_hostile();
        slow.set_answer_time(just_in_time);
    } else {
        slow.fall_silent();
    }
    const Duration before = bus.spent().time;
    operation.call(bus, json);
    const Duration after = bus.spent().time;
    end_process_connection();
    return after - before;
}

int measure(std::span<char* const> arguments) {
    const QuietHost host;
    std::vector<std::string> rows;
    bool bounded = true;
    for (const Operation& operation : operations()) {
        const Duration card = time_of(operation, Adversary::card);
        const Duration reader = time_of(operation, Adversary::reader);
        constexpr std::chrono::seconds promised{120};
        bounded = bounded && card <= promised && reader <= promised;
        rows.push_back("| " + operation.name + " | " + rounded(card) + " | " + rounded(reader) +
                       " |");
        std::cout << rows.back() << '\n';
    }
    if (!bounded) {
        std::cerr << "a call lasts longer than its deadline\n";
    }
    if (arguments.empty()) {
        return bounded ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    std::ifstream stream(arguments.front());
    const std::string guide{std::istreambuf_iterator<char>(stream), {}};
    for (const std::string& row : rows) {
        if (guide.find('\n' + row + '\n') == std::string::npos) {
            std::cerr << "the guide does not have the row " << row << '\n';
            bounded = false;
        }
    }
    return bounded ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

} // namespace qaven::sweep

int main(int argc, char** argv) {
    try {
        return qaven::sweep::measure(
            std::span<char* const>(argv, static_cast<std::size_t>(argc)).subspan(1));
    } catch (const std::exception& problem) {
        std::cerr << "qaven-worst-time: " << problem.what() << '\n';
        return EXIT_FAILURE;
    }
}
