// qaven loadlog: the card's log of electronic-cash loads as a table.
#include "amount.h"
#include "applications.h"
#include "bus.h"
#include "card_text.h"
#include "engine/transaction_log.h"
#include "exit_status.h"
#include "library.h"
#include "log_table.h"
#include "moment.h"
#include "options.h"
#include "qaven/qaven.h"
#include "terminal.h"
#include "verbs.h"

#include <cstdio>

namespace tool {

namespace {

constexpr int kAllRecords = -1;

constexpr const char* kCash = "CNY";

Syntax syntax() {
    return {
        "loadlog",
        "[OPTIONS]",
        "Reads the log of electronic-cash loads that the card in the reader keeps, newest first.",
        {kOneAid,
         {kJson.name, "", "print the library's log text, under the key \"LoadLog\""},
         kQuiet},
        {}};
}

Row row_of(LetterFields record) {
    const Currency cash = Currency::named(kCash);
    return {record['W'],
            format_date(record['S']),
            format_time(record['T']),
            format_amount(record['Q'], cash),
            format_amount(record['R'], cash),
            record['P'],
            record['U'],
            to_utf8(record['V'])};
}

} // namespace

int loadlog_command(Arguments arguments) {
    const auto options = read_options(syntax(), arguments);
    if (!options) {
        return kFine;
    }
    const std::string aid = one_aid(*options);
    require_card();
    say_waiting(options->has(kQuiet.name), "the card in the reader");
    std::string text(QAVEN_TXDETAIL_SIZE, '\0');
    const int code = ReadAmtLog(aid.c_str(), kAllRecords, text.data());
    text.resize(text.find('\0'));
    if (code != QAVEN_OK) {
        throw operation_failure("the load log could not be read", code);
    }
    if (options->has(kJson.name)) {
        std::puts(json_object("LoadLog", text).c_str());
    } else {
        print_log(text,
                  {"counter", "date", "time", ">before", ">after", "object", "country", "merchant"},
                  row_of);
    }
    return kFine;
}

} // namespace tool
