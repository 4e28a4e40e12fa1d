// A host program at a bank counter: one online transaction with the card in the reader.
//
// usage: transaction ISSUER     ISSUER authorise ARQC  prints response code and response in hex
//                               ISSUER settle TC       ends with status 0 if the TC is accepted
// Exit status: 0 paid, 3 declined, 2 used wrongly, 1 anything else.
#include <qaven/qaven.hpp>

#include <cstdio>
#include <iostream>
#include <optional>
#include <unistd.h>

enum Outcome : int { paid = 0, failed = 1, misused = 2, declined = 3 };
constexpr const char* application = "A000000333010101";
// 12.13 yuan, 22 April 2019, 16:13:55, at a merchant's counter: letter, three-digit length, value.
constexpr const char* transaction =
    "P012000000001213R0040156S006190422T00203U006161355V013MRCH CNT 0001";
qaven::Library library;

void tell(const std::string& what, const std::string& value) {
    std::cout << what << std::string(24 - what.size(), ' ') << value << std::endl;
}

// Runs a program and gives the line that it prints, or no value if it fails.
std::optional<std::string> run(const std::string& command) {
    std::string reply(4096, '\0');
    FILE* output = popen(command.c_str(), "r"); // NOLINT(cert-env33-c): it is run for that
    reply.resize(std::fread(reply.data(), 1, reply.size(), output));
    reply.resize(reply.find_last_not_of('\n') + 1);
    return pclose(output) == 0 ? std::optional(reply) : std::nullopt;
}

// Whether the card has logged the transaction; no value if there is no log to look into.
std::optional<bool> is_logged(const std::string& counter) {
    qaven::Log log = library.read_log(application);
    for (int tries = 1; tries < 10 && !log.readable; ++tries) {
        sleep(1); // a reader that was pulled out may take its time to come back
        log = library.read_log(application);
    }
    bool found = false;
    for (qaven::Fields& entry : log.entries) {
        tell("log entry", entry['X'] + ": " + qaven::money(entry['P']) + " on " + entry['S'] +
                              ", " + entry['W']);
        found |= entry['X'] == counter;
    }
    return log.readable ? std::optional(found) : std::nullopt;
}

Outcome transact(const std::string& issuer, bool may_repeat = true) {
    const auto card = library.read_card({"|A|B|E|G|I|J|K", application, transaction, true});
    for (const auto& [letter, value] : card.fields) {
        tell(qaven::field_name(letter), value);
    }
    const qaven::Authorisation& request = card.authorisation;
    const std::string counter = qaven::data_object(request.arqc, "9F36");
    tell(counter.empty() ? "no card was read" : "transaction", counter + card.failure);
    const auto reply = counter.empty() ? std::nullopt : run(issuer + " authorise " + request.arqc);
    if (!reply) {
        return failed;
    }
    const bool approved = reply->substr(0, 2) == "00";
    tell("response code", reply->substr(0, 2));
    const auto end =
        library.complete({transaction, request.application_data, reply->substr(3), approved});
    tell("TC", end.tc);
    tell("script result", end.script_result);
    const bool accepted = end.tc.empty() || run(issuer + " settle " + end.tc);
    const std::optional<bool> logged = is_logged(counter);
    if (approved && end.tc.empty()) { // broken off; only the log tells what the card made of it
        tell("broken off", logged == false ? "nothing paid" : "to be settled");
        return logged == false && may_repeat ? transact(issuer, false) : failed;
    }
    tell(qaven::field_name('K'), library.read_card({"|K", application}).fields['K']);
    return accepted && logged == approved ? (approved ? paid : declined) : failed;
}

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: transaction ISSUER\n";
        return misused;
    }
    return transact(*std::next(argv));
}
