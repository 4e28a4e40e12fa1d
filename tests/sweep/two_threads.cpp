// Two threads of a host that call at once, without a lock of the host's: the library takes one call
// after the other, and each caller gets what it asked for. Then children of a fork, which hold no
// connection. Built with the thread sanitizer, which stops the program at the first unordered
// access.
#include "desk.h"
#include "qaven/qaven.h"
#include "virtual/issuer/issuer.h"

#include <cjson/cJSON.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <string>
#include <thread>

using namespace qaven;
using namespace qaven::sweep;

namespace {

constexpr int rounds = 25;
// The address sanitizer of g++ 12 does not put the locks of its allocator in order for the child of
// a fork: one that is made while another thread allocates spins for ever, whatever the library
// does.
#ifdef __SANITIZE_ADDRESS__
constexpr int children = 0;
#else
constexpr int children = 5;
#endif
constexpr unsigned seconds_for_a_child = 60;

using EntryPoint = int (*)(const char*, char*, char*, int, int);

// The members of a call's answer; none when the call failed.
std::map<std::string, std::string> answer_of(EntryPoint entry_point, const std::string& json) {
    std::string resmsg(QAVEN_RESMSG_SIZE, '\0');
    std::string errmsg(QAVEN_ERRMSG_SIZE, '\0');
    std::map<std::string, std::string> members;
    if (entry_point(json.c_str(), resmsg.data(), errmsg.data(), 0, 0) != 0) {
        return members;
    }
    for (const char* text = resmsg.c_str(); text != nullptr;) {
        const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> tree(cJSON_Parse(text),
                                                                   &cJSON_Delete);
        const cJSON* member = nullptr;
        cJSON_ArrayForEach(member, tree.get()) {
            members[member->string] = member->valuestring;
        }
        // JSON text in a member of JSON text.
        const auto inner = members.extract("IcARQC");
        resmsg = inner.empty() ? "" : inner.mapped();
        text = resmsg.empty() ? nullptr : resmsg.c_str();
    }
    return members;
}

// What a teller asks for, and what only that teller may get.
struct Teller {
    std::string letters;
    std::string information;
    std::string amount;
};

const std::array tellers{
    Teller{"|A|J", "A0196228000100001234565J003001", "000000001111"},
    Teller{"|I|B", "B015TEST/CARDHOLDERI006301231", "000000002222"},
};

std::string transaction_of(const Teller& teller) {
    return "P012" + teller.amount + "Q012000000000000R0040156S006190422T00233U006161355";
}

bool gets_what_it_asks_for(const Teller& teller, const test::IssuerDesk& issuer) {
    const auto reading =
        answer_of(QAVEN_getICCardInfo, json_object({{"TagList", teller.letters},
                                                    {"AIDList", debit_alone},
                                                    {"aryInput", transaction_of(teller)},
                                                    {"isReadArqc", "true"}}));
    if (!reading.contains("ARQC") || reading.at("IcInfo") != teller.information) {
        return false;
    }
    const std::string& field55 = reading.at("ARQC");
    if (!issuer.arqc(field55).verified ||
        field55.find("9F0206" + teller.amount) == std::string::npos) {
        return false;
    }
    const auto log = answer_of(QAVEN_GetTxDetail, json_object({{"AIDList", debit_alone}}));
    return log.contains("TxDtailRet") && log.at("TxDtailRet").size() > 2;
}

bool two_at_once(const test::IssuerDesk& issuer) {
    std::atomic<int> served = 0;
    const auto serve = [&](const Teller& teller) {
        for (int round = 0; round < rounds; ++round) {
            served += gets_what_it_asks_for(teller, issuer) ? 1 : 0;
        }
    };
    std::thread first(serve, tellers[0]);
    std::thread second(serve, tellers[1]);
    first.join();
    second.join();
    std::cout << served << " of " << 2 * rounds << " rounds served\n";
    return served == 2 * rounds;
}

std::string answer_json(const std::map<std::string, std::string>& reading, const Teller& teller,
                        const test::IssuerDesk& issuer) {
    std::string json = json_object({{"Txdata", transaction_of(teller)},
                                    {"LpAppData", reading.at("LpAppData")},
                                    {"ARPC", issuer.answer(reading.at("ARQC"))}});
    json.back() = ',';
    return json + R"("Status":0})";
}

// True when the child found no session and did not touch the reader.
bool child_holds_nothing(const Bus& bus, const std::string& json) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(seconds_for_a_child); // a lock that nobody gives back
        const std::size_t transfers = bus.transfers().size();
        const auto held = bus.held();
        const auto answer = answer_of(QAVEN_ARPC_ExeICScript, json);
        const bool nothing = answer.contains("TC") && answer.at("TC").empty() &&
                             bus.transfers().size() == transfers && bus.held() == held;
        _exit(nothing ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    int status = 0;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) &&
           WEXITSTATUS(status) == EXIT_SUCCESS;
}

bool children_hold_nothing(Bus& bus, const test::IssuerDesk& issuer) {
    const Teller& teller = tellers[0];
    const auto reading =
        answer_of(QAVEN_getICCardInfo, json_object({{"TagList", teller.letters},
                                                    {"AIDList", debit_alone},
                                                    {"aryInput", transaction_of(teller)},
                                                    {"isReadArqc", "true"}}));
    const std::string json = answer_json(reading, teller, issuer);
    const bool with_session = child_holds_nothing(bus, json);

    // The parent's transaction goes on.
    const auto completion = answer_of(QAVEN_ARPC_ExeICScript, json);
    const bool complete = completion.contains("TC") && issuer.tc(completion.at("TC")).verified;

    // Forks in the middle of another thread's call.
    std::atomic<bool> enough = false;
    std::thread other([&] {
        while (!enough) {
            gets_what_it_asks_for(tellers[1], issuer);
        }
    });
    bool in_the_middle = true;
    for (int k = 0; k < children; ++k) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(seconds_for_a_child);
            const auto answer = answer_of(QAVEN_ARPC_ExeICScript, json);
            _exit(answer.contains("TC") && answer.at("TC").empty() ? EXIT_SUCCESS : EXIT_FAILURE);
        }
        int status = 0;
        in_the_middle = waitpid(child, &status, 0) == child && WIFEXITED(status) &&
                        WEXITSTATUS(status) == EXIT_SUCCESS && in_the_middle;
    }
    enough = true;
    other.join();
    std::cout << "fork: child " << (with_session ? "holds nothing" : "HOLDS SOMETHING")
              << ", parent " << (complete ? "completes" : "DOES NOT COMPLETE")
              << ", forks during calls " << (in_the_middle ? "pass" : "FAIL") << '\n';
    return with_session && complete && in_the_middle;
}

int call_at_once() {
    const QuietHost host;
    const SetUp set_up{.name = "debit", .profile = "debit"};
    const test::IssuerDesk issuer(set_up.profile);
    Desk desk(set_up, issuer);
    desk.bus().plug();
    const bool served = two_at_once(issuer);
    return children_hold_nothing(desk.bus(), issuer) && served ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

int main() {
    try {
        return call_at_once();
    } catch (const std::exception& error) {
        std::cerr << "qaven-two-threads: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
}
