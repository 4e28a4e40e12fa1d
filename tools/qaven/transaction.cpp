// The two steps of an online transaction.
#include "tools/qaven/transaction.h"
#include "common/tags.h"

#include "qaven/qaven.h"
#include "tools/emv/code_words.h"
#include "tools/emv/date_time.h"
#include "tools/emv/gbk.h"
#include "tools/emv/hex.h"
#include "tools/emv/letter_records.h"
#include "tools/emv/money.h"
#include "tools/emv/script_result.h"
#include "tools/emv/tags.h"
#include "tools/qaven/applications.h"
#include "tools/qaven/bus.h"
#include "tools/qaven/cli/exit_status.h"
#include "tools/qaven/cli/terminal.h"
#include "tools/qaven/field55.h"
#include "tools/qaven/library.h"
#include "tools/qaven/log_table.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace qaven::cli {

using namespace emv;

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
constexpr Option kSm{"--sm", "", "ask the card for the SM algorithms, as is done anyway"};
constexpr Option kNoSm{"--no-sm", "", "ask the card for 3DES instead"};

constexpr std::size_t kMerchantSize = 20;

constexpr std::size_t kCountDigits = 6;

std::string record(char letter, std::string_view value) {
    std::array<char, 32> head{};
    std::snprintf(head.data(), head.size(), "%c%03zu", letter, value.size());
    return head.data() + std::string(value);
}

std::string amount_option(const Option& option, const std::string& text,
                          std::string_view currency) {
    try {
        return parse_amount(text, currency);
    } catch (const NotAnAmount& reason) {
        throw UsageError(std::string(option.name) + ": " + reason.what());
    }
}

std::string date_option(const Options& options) {
    const auto text = options.value(kDate.name);
    const auto date = text ? parse_date(*text) : today();
    if (!date) {
        throw UsageError("--date takes a day like 2026-11-21, not '" + *text + "'");
    }
    return *date;
}

std::string time_option(const Options& options) {
    const auto text = options.value(kTime.name);
    const auto time = text ? parse_time(*text) : time_of_day();
    if (!time) {
        throw UsageError("--time takes a time like 16:13:55 or 16:13, not '" + *text + "'");
    }
    return *time;
}

std::string merchant(const Options& options) {
    const auto name = options.value(kMerchant.name);
    if (!name) {
        return {};
    }
    const auto gbk = to_gbk(*name);
    if (!gbk) {
        throw UsageError("--merchant: '" + *name +
                         "' cannot be written in GBK, the cards' encoding");
    }
    if (gbk->empty() || gbk->size() > kMerchantSize) {
        throw UsageError("--merchant takes 1 to 20 bytes in GBK, '" + *name + "' has " +
                         std::to_string(gbk->size()));
    }
    return record('V', *gbk);
}

// Without a record the terminal asks for the SM algorithms.
std::string algorithms(const Options& options) {
    if (options.has(kSm.name) && options.has(kNoSm.name)) {
        throw UsageError("only one of --sm and --no-sm may be given");
    }
    if (options.has(kNoSm.name)) {
        return record('Z', "00");
    }
    return options.has(kSm.name) ? record('Z', "01") : "";
}

void print_line(const std::string& label, std::string_view value) {
    print_field("  " + label, value, kObjectColumn);
}

struct ArqcStep {
    std::string application_data;
    std::string field55;
};

void print_request(const std::string& field55, bool show_pan) {
    print_heading("Request for the issuer (field 55)");
    print_objects(field55, show_pan);
    if (show_pan) {
        print_line("in hex", field55);
    }
}

ArqcStep generate_arqc(const Library& library, const Options& options, const std::string& data,
                       const std::string& aids) {
    const Answer answer = library.arqc(data, aids);
    ArqcStep step{answer.text("LpAppData"), answer.text("ARQC")};
    if (options.has(kJson.name)) {
        std::puts(answer.json().c_str());
    }
    if (answer.code != QAVEN_OK || step.field55.empty()) {
        throw operation_failure("the card gave no ARQC", answer.code);
    }
    if (!options.has(kJson.name)) {
        print_request(step.field55, options.has(kShowPan.name));
    }
    return step;
}

std::string script_result_in_words(const std::string& text) {
    const auto results = script_results_in(text);
    if (!results || results->bytes.empty()) {
        return "no script was run";
    }
    const Bytes bytes(results->bytes);
    const Bytes identifier = bytes.first(std::min(bytes.size(), kScriptResultSize)).subspan(1);
    return hex(identifier) + ": " + script_outcome(bytes[0]);
}

void print_completion(const Answer& answer, const IssuerAnswer& issuer, bool show_pan) {
    print_heading("\nThe issuer's answer");
    const std::string_view words = response_code_words(issuer.response_code);
    print_line("response code",
               issuer.response_code + " (" + std::string(words.empty() ? "declined" : words) + ')');
    print_line("for the card", issuer.response);
    print_heading("\nThe card's answer");
    if (answer.code != QAVEN_OK && answer.code != kAuthenticationRefused) {
        print_line("issuer script", "not known");
        print_line("certificate (TC)", "not known");
        return;
    }
    print_line("issuer script", script_result_in_words(answer.text("Scriptresult")));
    const std::string tc = answer.text("TC");
    if (tc.empty()) {
        print_line("certificate (TC)", "none");
        return;
    }
    print_objects(tc, show_pan);
    if (show_pan) {
        print_line("in hex", tc);
    }
}

// The counters of the log of the card that the ARQC step was made with; none when it cannot be
// read, or another card is in the reader now.
std::vector<std::string> logged(const Library& library, const ArqcStep& step) {
    // The card's objects, the AID first, follow their count of bytes.
    const std::string_view text = step.application_data;
    const std::string aid =
        object_value(text.substr(std::min(kCountDigits, text.size())), kTag4FAid);
    const std::string pan = object_value(step.field55, kTag5APan);
    const std::string card = library.card_information("A", aid).text("IcInfo");
    if (value_of(letter_records(card).records, 'A') != pan.substr(0, pan.find('F'))) {
        return {};
    }
    std::vector<std::string> counters;
    const std::string log = transaction_records(library.transaction_log(aid)).value_or("");
    for (const auto& entry : log_entries(letter_records(log).records)) {
        counters.push_back(value_of(entry, 'X'));
    }
    return counters;
}

// What can be said of a transaction whose end nobody has seen.
std::string looked_up(const Library& library, const ArqcStep& step) {
    const std::vector<std::string> counters = logged(library, step);
    // Without a record the log may be empty, or could not be read.
    if (counters.empty()) {
        return "whether the card completed the transaction is not known ('qaven log' shows it)";
    }
    // The counter is another one in each transaction of a card.
    const std::string counter = object_value(step.field55, kTag9F36Atc);
    const bool there = std::ranges::find(counters, counter) != counters.end();
    return there ? "the card has completed the transaction, as its log shows, but the "
                   "certificate (TC) is lost"
                 : "the transaction broke off, and the card's log does not show it";
}

int complete(const Library& library, const Options& options, const std::string& data,
             const ArqcStep& step, const IssuerAnswer& issuer) {
    const Answer answer =
        library.issuer_answer(data, step.application_data, issuer.response, issuer.approved());
    if (options.has(kJson.name)) {
        std::puts(answer.json().c_str());
    } else {
        print_completion(answer, issuer, options.has(kShowPan.name));
    }
    if (answer.code != QAVEN_OK) {
        throw operation_failure(answer.code == kAuthenticationRefused ? "the transaction broke off"
                                                                      : looked_up(library, step),
                                answer.code);
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
    std::vector<Option> options{kAmount,   kOther, kCurrency, kDate,    kTime, kType,
                                kMerchant, kSm,    kNoSm,     kAidList, kTrace};
    options.insert(options.end(), more.begin(), more.end());
    options.insert(options.end(), {kJson, kShowPan, kQuiet});
    return options;
}

std::string transaction_data(const Options& options) {
    const auto amount = options.value(kAmount.name);
    if (!amount) {
        throw UsageError("an amount is missing: --amount 12.13");
    }
    const std::string code = options.value_or(kCurrency.name, "156");
    const auto currency = currency_digits(code);
    if (!currency) {
        throw UsageError("--currency takes an ISO 4217 number or letters like 156 or CNY, not '" +
                         code + "'");
    }
    const std::string type_text = options.value_or(kType.name, "purchase");
    const auto type = transaction_type_digits(type_text);
    if (!type) {
        throw UsageError("--type takes " + transaction_type_names() + " or two digits, not '" +
                         type_text + "'");
    }
    return record('P', amount_option(kAmount, *amount, *currency)) +
           record('Q', amount_option(kOther, options.value_or(kOther.name, "0"), *currency)) +
           record('R', *currency) + record('S', date_option(options)) + record('T', *type) +
           record('U', time_option(options)) + merchant(options) + algorithms(options);
}

int run_transaction(const Options& options, const WayToIssuer& ask) {
    const std::string data = transaction_data(options);
    const std::string aids = aid_list(options);
    const Library library(options);
    require_card();
    const bool quiet = options.has(kQuiet.name);
    say_waiting(quiet, "the card in the reader");
    const ArqcStep step = generate_arqc(library, options, data, aids);
    if (!ask) {
        return kFine;
    }
    say_waiting(quiet, "the issuer");
    const IssuerAnswer issuer = ask(step.field55);
    say_waiting(quiet, "the card in the reader");
    return complete(library, options, data, step, issuer);
}

} // namespace qaven::cli
