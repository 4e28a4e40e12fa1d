// qaven loadlog: the card's log of electronic-cash loads as a table.
#include "applications.h"
#include "bus.h"
#include "exit_status.h"
#include "library.h"
#include "log_table.h"
#include "options.h"
#include "qaven/qaven.h"
#include "terminal.h"
#include "tools/emv/code_words.h"
#include "tools/emv/date_time.h"
#include "tools/emv/gbk.h"
#include "tools/emv/money.h"
#include "verbs.h"

#include <cstdio>

namespace tool {

namespace {

constexpr std::string_view kCash = "0156";

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

Row row_of(Entry entry) {
    return {value_of(entry, 'W'),
            date_text(value_of(entry, 'S')),
            time_text(value_of(entry, 'T')),
            decimal_text(value_of(entry, 'Q'), kCash),
            decimal_text(value_of(entry, 'R'), kCash),
            value_of(entry, 'P'),
            country_text(value_of(entry, 'U')),
            readable(without_filling(value_of(entry, 'V')))};
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
