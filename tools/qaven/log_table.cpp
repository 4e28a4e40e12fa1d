// A log of the card as people read it.
#include "log_table.h"

#include <cstdio>

namespace tool {

void print_log(std::string_view text, const Row& columns, Row (*row_of)(LetterFields)) {
    std::vector<Row> rows{columns};
    for (const LetterFields& record : letter_records(text)) {
        rows.push_back(row_of(record));
    }
    if (rows.size() == 1) {
        std::puts("The log is empty.");
    } else {
        print_table(rows);
    }
}

} // namespace tool
