// A card without a wire: it answers in the place of the exchange, at once, so that what is measured
// is the library above it. Opening and closing the reader succeed and do nothing.
#pragma once

#include <cstddef>

namespace qaven::bench {

// The card in the reader, for as long as it lives: a file of records and a transaction log.
class QuickCard {
  public:
    QuickCard(std::size_t records, std::size_t log_entries);
    ~QuickCard();
    QuickCard(const QuickCard&) = delete;
    QuickCard& operator=(const QuickCard&) = delete;
};

// What a host asks of it; 0 when all of it was answered.
int card_information();
int transaction_log();

} // namespace qaven::bench
