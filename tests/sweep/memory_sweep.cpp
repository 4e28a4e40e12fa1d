// Every allocation of every operation fails once: the call then gives -16 and leaves the answer
// alone, or gives the whole answer; nothing is still held, and the next transaction works. How many
// allocations there are is the compiler's business, so no table is compared.
#include "command_line.h"
#include "desk.h"
#include "tests/support/memory_watch.h"

#include "engine/pboccash.h"
#include "fuzz/support/guarded.h"
#include "qaven/qaven.h"

#include <cstdlib>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

namespace qaven::sweep {

namespace {

constexpr int out_of_memory = QAVEN_ILLEGAL_DATA;

// What a host has in hand after a call.
struct Outcome {
    int result = 0;
    std::string answer; // "" when not written
    std::string errmsg;

    bool operator==(const Outcome&) const = default;
};

struct Step {
    std::string name;
    bool answers_issuer; // works on a card that waits for the issuer's answer
    // One call; all that it needs is there before, so that its allocations are the library's.
    std::function<Outcome(const std::string& input, std::size_t failing, bool& failed)> call;
    std::string input;
};

using EntryPoint = int (*)(const char*, char*, char*, int, int);

auto json_call(EntryPoint entry_point) {
    return [entry_point](const std::string& input, std::size_t failing, bool& failed) {
        constexpr int ignored = 10;
        fuzz::Guarded<char, QAVEN_RESMSG_SIZE> resmsg;
        fuzz::Guarded<char, QAVEN_ERRMSG_SIZE> errmsg;
        *resmsg.data() = '\0';
        *errmsg.data() = '\0';
        Outcome outcome;
        {
            const test::FailingAllocation memory(failing);
            outcome.result = entry_point(input.c_str(), resmsg, errmsg, ignored, ignored);
            failed = memory.failed();
        }
        outcome.answer = resmsg.data();
        outcome.errmsg = errmsg.data();
        return outcome;
    };
}

Outcome read_load_log(const std::string& input, std::size_t failing, bool& failed) {
    fuzz::Guarded<char, QAVEN_TXDETAIL_SIZE> text;
    *text.data() = '\0';
    std::string aid = input;
    Outcome outcome;
    {
        const test::FailingAllocation memory(failing);
        outcome.result = ReadAmtLog(aid.data(), -1, text);
        failed = memory.failed();
    }
    outcome.answer = outcome.result == 0 ? text.data() : "";
    return outcome;
}

class Sweep {
  public:
    void run() {
        const std::string answer = issuers_answer();
        sweep({"information", false, json_call(QAVEN_getICCardInfo), arqc_});
        sweep({"arqc", false, json_call(QAVEN_genARQC),
               json_object({{"aryInput", request_.transaction}, {"AIDList", ""}})});
        sweep({"arpc", true, json_call(QAVEN_ARPC_ExeICScript), answer});
        sweep({"log", false, json_call(QAVEN_GetTxDetail),
               json_object({{"AIDList", request_.log_aid}})});
        sweep({"log by directory", false, json_call(QAVEN_GetTxDetail),
               json_object({{"AIDList", ""}})});
        sweep({"load log", false, read_load_log, debit_alone});
    }

    [[nodiscard]] std::size_t complaints() const { return demands_.complaints(); }

  private:
    // A card fresh from its profile gives the same first ARQC every time, so one answer does for
    // all.
    [[nodiscard]] std::string issuers_answer() const {
        Desk desk(set_up_, issuer_);
        desk.bus().plug();
        const Call information = call_information(desk.bus(), arqc_);
        const std::string response = issuer_.answer(
            information.member("ARQC"), {.response_code = "00", .script = request_.script});
        std::string json = json_object({{"Txdata", request_.transaction},
                                        {"LpAppData", information.member("LpAppData")},
                                        {"ARPC", response}});
        json.back() = ',';
        return json + R"("Status":0})";
    }

    void sweep(const Step& step) {
        bool failed = false;
        const Outcome good = run_case(step, 0, failed);
        std::size_t refused = 0;
        std::size_t unharmed = 0;
        for (std::size_t nth = 1;; ++nth) {
            const Outcome outcome = run_case(step, nth, failed);
            if (!failed) {
                break;
            }
            const std::string name = step.name + ", allocation " + std::to_string(nth);
            if (outcome == good) {
                ++unharmed;
            } else if (outcome.result == out_of_memory && outcome.answer.empty()) {
                ++refused;
            } else {
                demands_.complain(name, "result " + std::to_string(outcome.result) + " with '" +
                                            outcome.answer + "'");
            }
        }
        if (refused == 0) {
            demands_.complain(step.name, "no allocation was needed");
        }
        std::cout << step.name << ": " << refused << " times -16, " << unharmed
                  << " times as ever\n";
    }

    Outcome run_case(const Step& step, std::size_t failing, bool& failed) {
        Desk desk(set_up_, issuer_);
        desk.bus().plug();
        if (step.answers_issuer) {
            call_information(desk.bus(), arqc_);
        }
        Outcome outcome = step.call(step.input, failing, failed);
        const std::string name = step.name + ", allocation " + std::to_string(failing);
        const Transaction next = desk.transaction();
        if (!next.complete) {
            demands_.complain(name, "the next transaction: " + ended(next));
        }
        demands_.check_at_end(name, desk.bus());
        return outcome;
    }

    const Request request_{};
    const std::string arqc_ = json_object({{"TagList", request_.letters},
                                           {"AIDList", request_.aids},
                                           {"aryInput", request_.transaction},
                                           {"isReadArqc", "true"}});
    const SetUp set_up_{.name = "debit", .profile = "debit"};
    const test::IssuerDesk issuer_{set_up_.profile};
    Demands demands_{"memory", {std::chrono::seconds{60}, 200}};
};

int sweep_memory(const CommandLine& /*line*/) {
    Sweep sweep;
    sweep.run();
    return sweep.complaints() == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

} // namespace qaven::sweep

int main(int argc, char** argv) {
    return qaven::sweep::run_program(argc, argv, qaven::sweep::sweep_memory);
}
