// qaven loadlog: the card's log of electronic-cash loads as a table.
#include "amount.h"
#include "applications.h"
#include "bus.h"
#include "card_text.h"
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

constexpr const char* kCash = "CNY";

Syntax syntax() {
    return {
        "loadlog",
        "[OPTIONS]",
        "Reads the log of electronic-cash loads that the card in the reader keeps, newest first.",
        {kOneAid,
         kTrace,
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
    const Library library(*options);
    const std::string reader = require_card();
    say_waiting(options->has(kQuiet.name), "the card in the reader");
    const Answer answer = library.load_log(aid);
    if (answer.code != QAVEN_OK) {
        throw operation_failure("the load log could not be read", answer.code);
    }
    if (options->has(kJson.name)) {
        std::puts(answer.json().c_str());
    } else {
        print_log(answer.text("LoadLog"),
                  {"counter", "date", "time", ">before", ">after", "object", "country", "merchant"},
                  row_of);
    }
    require_whole_reading(reader);
    return kFine;
}

} // namespace tool
