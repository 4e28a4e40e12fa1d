// qaven loadlog: the card's log of electronic-cash loads as a table.
#include "qaven/qaven.h"
#include "tools/emv/letter_records.h"
#include "tools/qaven/applications.h"
#include "tools/qaven/bus.h"
#include "tools/qaven/cli/exit_status.h"
#include "tools/qaven/cli/options.h"
#include "tools/qaven/cli/terminal.h"
#include "tools/qaven/cli/verbs.h"
#include "tools/qaven/library.h"
#include "tools/qaven/log_table.h"

#include <array>
#include <cstdio>

namespace qaven::cli {

using namespace emv;

namespace {

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

// Letters of the library's log text.
constexpr auto kColumns = std::to_array<Column>({{'W', "counter"},
                                                 {'S', "date"},
                                                 {'T', "time"},
                                                 {'Q', ">before"},
                                                 {'R', ">after"},
                                                 {'P', "object"},
                                                 {'U', "country"},
                                                 {'V', "merchant"}});

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
        print_log(answer.text("LoadLog"), kLoadLog, kColumns, kCashCurrency);
    }
    require_whole_reading(reader);
    return kFine;
}

} // namespace qaven::cli
