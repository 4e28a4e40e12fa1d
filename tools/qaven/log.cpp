// qaven log: the card's transaction log as a table.
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
    return {"log",
            "[OPTIONS]",
            "Reads the log of its transactions that the card in the reader keeps, newest first.",
            {kOneAid, kTrace, kJson, kQuiet},
            {}};
}

// Letters of the library's log text.
constexpr auto kColumns = std::to_array<Column>({{'X', "counter"},
                                                 {'S', "date"},
                                                 {'U', "time"},
                                                 {'P', ">amount"},
                                                 {'Q', ">other"},
                                                 {'R', "currency"},
                                                 {'T', "type"},
                                                 {'V', "country"},
                                                 {'W', "merchant"}});

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
        print_log(*records, kTransactionLog, kColumns, "");
    }
    require_whole_reading(reader);
    return kFine;
}

} // namespace qaven::cli
