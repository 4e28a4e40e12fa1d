// qaven log: the card's transaction log as a table.
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

Syntax syntax() {
    return {"log",
            "[OPTIONS]",
            "Reads the log of its transactions that the card in the reader keeps, newest first.",
            {kOneAid, kTrace, kJson, kQuiet},
            {}};
}

Row row_of(Entry entry) {
    const std::string currency = value_of(entry, 'R');
    return {value_of(entry, 'X'),
            date_text(value_of(entry, 'S')),
            time_text(value_of(entry, 'U')),
            decimal_text(value_of(entry, 'P'), currency),
            decimal_text(value_of(entry, 'Q'), currency),
            currency_text(currency),
            transaction_type_text(value_of(entry, 'T')),
            country_text(value_of(entry, 'V')),
            readable(without_filling(value_of(entry, 'W')))};
}

} // namespace

int log_command(Arguments arguments) {
    const auto options = read_options(syntax(), arguments);
    if (!options) {
        return kFine;
    }
    const std::string aid = one_aid(*options);
    const Library library(*options);
    const std::string reader = require_card();
    say_waiting(options->has(kQuiet.name), "the card in the reader");
    const Answer answer = library.transaction_log(aid);
    if (options->has(kJson.name)) {
        std::puts(answer.json().c_str());
    }
    const auto records = transaction_records(answer);
    if (!records) {
        throw operation_failure(answer.code == QAVEN_OK
                                    ? "the card keeps no transaction log, or has no application "
                                      "with this AID"
                                    : "the log could not be read",
                                answer.code);
    }
    if (!options->has(kJson.name)) {
        print_log(*records,
                  {"counter", "date", "time", ">amount", ">other", "currency", "type", "country",
                   "merchant"},
                  row_of);
    }
    require_whole_reading(reader);
    return kFine;
}

} // namespace tool
