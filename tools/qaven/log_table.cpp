// A log of the card as people read it.
#include "tools/qaven/log_table.h"

#include "qaven/qaven.h"
#include "tools/emv/money.h"
#include "tools/emv/values.h"
#include "tools/qaven/cli/terminal.h"

#include <algorithm>
#include <cstdio>
#include <vector>

namespace qaven::cli {

using namespace emv;

namespace {

// An amount is without its currency, which has a column of its own or is the same everywhere.
std::string cell(const LetterField& field, const std::string& value, std::string_view currency,
                 Privacy& privacy) {
    if (value.empty()) {
        return {};
    }
    return field.form == Form::kAmount ? decimal_text(value, currency)
                                       : record_text(field.form, value, currency, privacy);
}

} // namespace

std::optional<std::string> transaction_records(const Answer& log) {
    // Two count bytes lead the text; one character alone says that there is no log.
    constexpr std::size_t count_bytes = 2;
    const std::string text = log.text("TxDtailRet");
    if (log.code != QAVEN_OK || text == "0") {
        return std::nullopt;
    }
    return text.substr(std::min(count_bytes, text.size()));
}

void print_log(std::string_view text, std::span<const LetterField> fields,
               std::span<const Column> columns, std::string_view currency) {
    std::vector<Row> rows(1);
    for (const Column& column : columns) {
        rows.front().emplace_back(column.name);
    }
    Privacy privacy(false);
    for (const auto& entry : log_entries(letter_records(text).records)) {
        const std::string own = currency.empty() ? value_of(entry, 'R') : std::string(currency);
        Row& row = rows.emplace_back();
        for (const Column& column : columns) {
            row.push_back(cell(*find_field(fields, column.letter), value_of(entry, column.letter),
                               own, privacy));
        }
    }
    if (rows.size() == 1) {
        std::puts("The log is empty.");
    } else {
        print_table(rows);
    }
}

} // namespace qaven::cli
