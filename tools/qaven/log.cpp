// qaven log: the card's transaction log as a table.
#include "amount.h"
#include "applications.h"
#include "bus.h"
#include "card_text.h"
#include "exit_status.h"
#include "library.h"
#include "log_table.h"
#include "moment.h"
#include "objects.h"
#include "options.h"
#include "qaven/qaven.h"
#include "terminal.h"
#include "verbs.h"

#include <cstdio>

namespace tool {

namespace {

// The log text begins with two count bytes; one character alone says that there is no log.
constexpr std::size_t kCountBytes = 2;

Syntax syntax() {
    return {"log",
            "[OPTIONS]",
            "Reads the log of its transactions that the card in the reader keeps, newest first.",
            {kOneAid, kJson, kQuiet},
            {}};
}

Row row_of(LetterFields record) {
    const Currency currency = Currency::numbered(record['R']);
    return {record['X'],
            format_date(record['S']),
            format_time(record['U']),
            format_amount(record['P'], currency),
            format_amount(record['Q'], currency),
            currency.name(),
            type_name(record['T']),
            record['V'],
            to_utf8(record['W'])};
}

} // namespace

int log_command(Arguments arguments) {
    const auto options = read_options(syntax(), arguments);
    if (!options) {
        return kFine;
    }
    const std::string aid = one_aid(*options);
    require_card();
    say_waiting(options->has(kQuiet.name), "the card in the reader");
    const Answer answer = ask_library(QAVEN_GetTxDetail, {{"AIDList", aid}});
    if (options->has(kJson.name)) {
        std::puts(answer.json.c_str());
    }
    const std::string text = answer.text("TxDtailRet");
    if (text == "0") {
        throw operation_failure(answer.code == QAVEN_OK
                                    ? "the card keeps no transaction log, or has no application "
                                      "with this AID"
                                    : "the log could not be read",
                                answer.code);
    }
    if (!options->has(kJson.name)) {
        print_log(std::string_view(text).substr(std::min(kCountBytes, text.size())),
                  {"counter", "date", "time", ">amount", ">other", "currency", "type", "country",
                   "merchant"},
                  row_of);
    }
    return kFine;
}

} // namespace tool
