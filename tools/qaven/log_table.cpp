// A log of the card as people read it.
#include "log_table.h"

#include "qaven/qaven.h"

#include <algorithm>
#include <cstdio>

namespace tool {

std::optional<std::string> transaction_records(const Answer& log) {
    // Two count bytes lead the text; one character alone says that there is no log.
    constexpr std::size_t count_bytes = 2;
    const std::string text = log.text("TxDtailRet");
    if (log.code != QAVEN_OK || text == "0") {
        return std::nullopt;
    }
    return text.substr(std::min(count_bytes, text.size()));
}

void print_log(std::string_view text, const Row& columns, Row (*row_of)(Entry)) {
    std::vector<Row> rows{columns};
    for (const auto& entry : log_entries(letter_records(text).records)) {
        rows.push_back(row_of(entry));
    }
    if (rows.size() == 1) {
        std::puts("The log is empty.");
    } else {
        print_table(rows);
    }
}

} // namespace tool
