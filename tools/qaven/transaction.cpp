// The two steps of an online transaction.
#include "transaction.h"

#include "amount.h"
#include "applications.h"
#include "bus.h"
#include "card_text.h"
#include "exit_status.h"
#include "library.h"
#include "moment.h"
#include "objects.h"
#include "qaven/qaven.h"
#include "terminal.h"

#include <array>
#include <cstdio>

namespace tool {

namespace {

constexpr Option kAmount{"--amount", "AMOUNT", "what is to be paid, like 12.13"};
constexpr Option kOther{"--other", "AMOUNT", "the part of it that is paid out in cash (0)"};
constexpr Option kCurrency{"--currency", "CODE",
                           "ISO 4217 number or letters (156); decides the decimals.\n"
                           "Field 55 says 156 whatever is given here"};
constexpr Option kDate{"--date", "YYYY-MM-DD", "the day of the transaction (today)"};
constexpr Option kTime{"--time", "HH:MM:SS", "its time (now)"};
constexpr Option kType{"--type", "TYPE",
                       "purchase, cash, cashback, refund, deposit, balance, transfer, or\n"
                       "two digits (purchase)"};
constexpr Option kMerchant{"--merchant", "NAME",
                           "20 bytes at most, a Chinese character takes two (an example name)"};
constexpr Option kSm{"--sm", "", "ask the card for the SM algorithms"};

constexpr std::size_t kMerchantSize = 20;

// The status word of a card that does not take the issuer for genuine. Nothing can be completed
// then: the card has not been asked for its second cryptogram.
constexpr int kAuthenticationRefused = 0x6300;

std::string record(char letter, std::string_view value) {
    std::array<char, 32> head{};
    std::snprintf(head.data(), head.size(), "%c%03zu", letter, value.size());
    return head.data() + std::string(value);
}

std::string merchant(const Options& options) {
    const auto name = options.value(kMerchant.name);
    if (!name) {
        return {};
    }
    const std::string gbk = to_gbk(*name);
    if (gbk.empty() || gbk.size() > kMerchantSize) {
        throw UsageError("--merchant takes 1 to 20 bytes in GBK, '" + *name + "' has " +
                         std::to_string(gbk.size()));
    }
    return record('V', gbk);
}

struct ArqcStep {
    std::string application_data;
    std::string field55;
};

void print_request(const std::vector<HexObject>& objects, const std::string& field55,
                   bool show_pan) {
    print_heading("Request for the issuer (field 55)");
    print_objects(objects, show_pan);
    if (show_pan) {
        print_field("  in hex", field55);
    }
}

ArqcStep generate_arqc(const Options& options, const std::string& data, const std::string& aids) {
    const Answer answer = ask_library(QAVEN_genARQC, {{"aryInput", data}, {"AIDList", aids}});
    ArqcStep step{answer.text("LpAppData"), answer.text("ARQC")};
    if (options.has(kJson.name)) {
        std::puts(answer.json.c_str());
    }
    if (answer.code != QAVEN_OK || step.field55.empty()) {
        throw operation_failure("the card gave no ARQC", answer.code);
    }
    if (!options.has(kJson.name)) {
        print_request(read_objects(step.field55), step.field55, options.has(kShowPan.name));
    }
    return step;
}

std::string script_result_in_words(const std::string& result) {
    // Tag DF31, its length, the result byte, the script identifier.
    if (result.empty()) {
        return "no script was run";
    }
    const std::string identifier = result.size() > 8 ? result.substr(8) : "";
    const std::string head = "script " + identifier + " ";
    if (result.starts_with("DF310520")) {
        return head + "was carried out";
    }
    if (result.starts_with("DF31051") && result.size() > 7) {
        return head + "was refused at command " + result.substr(7, 1);
    }
    return head + "was not run";
}

void print_completion(const Answer& answer, const IssuerAnswer& issuer, bool show_pan) {
    print_heading("\nThe issuer's answer");
    print_field("  response code",
                issuer.response_code + (issuer.approved() ? " (approved)" : " (declined)"));
    print_field("  for the card", issuer.response);
    print_heading("\nThe card's answer");
    print_field("  issuer script", script_result_in_words(answer.text("Scriptresult")));
    const std::string tc = answer.text("TC");
    if (tc.empty()) {
        print_field("  certificate (TC)", "none");
        return;
    }
    print_objects(read_objects(tc), show_pan);
    if (show_pan) {
        print_field("  in hex", tc);
    }
}

int complete(const Options& options, const std::string& data, const ArqcStep& step,
             const IssuerAnswer& issuer) {
    const Answer answer =
        ask_library(QAVEN_ARPC_ExeICScript, {{"Txdata", data},
                                             {"LpAppData", step.application_data},
                                             {"ARPC", issuer.response},
                                             {"Status", issuer.approved() ? 0 : 1}});
    if (options.has(kJson.name)) {
        std::puts(answer.json.c_str());
    } else {
        print_completion(answer, issuer, options.has(kShowPan.name));
    }
    if (answer.code != QAVEN_OK) {
        const std::string hint = answer.code == kAuthenticationRefused
                                     ? ""
                                     : " ('qaven log' shows whether the card completed it)";
        throw operation_failure("the transaction broke off" + hint, answer.code);
    }
    const bool declined = answer.text("TC").empty();
    if (!output_written()) {
        // Nobody should do it again because of that.
        throw Failure(kFailed, std::string(kNotWritten) +
                                   (declined ? "; the transaction itself was declined"
                                             : "; the transaction itself went through ('qaven log' "
                                               "shows it)"));
    }
    return declined ? kDeclined : kFine;
}

} // namespace

std::vector<Option> transaction_options(const std::vector<Option>& more) {
    std::vector<Option> options{kAmount, kOther,    kCurrency, kDate,   kTime,
                                kType,   kMerchant, kSm,       kAidList};
    options.insert(options.end(), more.begin(), more.end());
    options.insert(options.end(), {kJson, kShowPan, kQuiet});
    return options;
}

std::string transaction_data(const Options& options) {
    const auto amount = options.value(kAmount.name);
    if (!amount) {
        throw UsageError("an amount is missing: --amount 12.13");
    }
    const Currency currency = Currency::named(options.value_or(kCurrency.name, "156"));
    const std::string type_text = options.value_or(kType.name, "purchase");
    const auto type = type_digits(type_text);
    if (!type) {
        throw UsageError("--type takes " + type_names() + " or two digits, not '" + type_text +
                         "'");
    }
    const auto date = options.value(kDate.name);
    const auto time = options.value(kTime.name);
    return record('P', parse_amount(kAmount.name, *amount, currency)) +
           record('Q', parse_amount(kOther.name, options.value_or(kOther.name, "0"), currency)) +
           record('R', currency.digits()) + record('S', date ? parse_date(*date) : today()) +
           record('T', *type) + record('U', time ? parse_time(*time) : time_of_day()) +
           merchant(options) + (options.has(kSm.name) ? record('Z', "01") : "");
}

int run_transaction(const Options& options, const WayToIssuer& ask) {
    const std::string data = transaction_data(options);
    const std::string aids = aid_list(options);
    require_card();
    const bool quiet = options.has(kQuiet.name);
    say_waiting(quiet, "the card in the reader");
    const ArqcStep step = generate_arqc(options, data, aids);
    if (!ask) {
        return kFine;
    }
    say_waiting(quiet, "the issuer");
    const IssuerAnswer issuer = ask(step.field55);
    say_waiting(quiet, "the card in the reader");
    return complete(options, data, step, issuer);
}

} // namespace tool
