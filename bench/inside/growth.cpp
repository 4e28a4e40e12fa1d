// How the time grows with the card's data.
#include "card.h"
#include "engine/data/tlv.h"

#include <benchmark/benchmark.h>

#include <array>
#include <vector>

namespace {

using qaven::bench::QuickCard;

// An absent tag in a buffer of elements of 16 bytes each.
void search(benchmark::State& state) {
    constexpr std::array<unsigned char, 16> kElement{0x9F, 0x10, 13};
    std::vector<unsigned char> buffer;
    while (buffer.size() < static_cast<std::size_t>(state.range(0))) {
        buffer.insert(buffer.end(), kElement.begin(), kElement.end());
    }
    constexpr std::array<unsigned char, 2> kTag{0x9F, 0x1F};
    for ([[maybe_unused]] const auto once : state) {
        benchmark::DoNotOptimize(
            qmcx_findtag(kTag.data(), kTag.size(), buffer.data(), static_cast<int>(buffer.size())));
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(search)->Name("search/bytes")->RangeMultiplier(4)->Range(64, 16384)->Complexity();

void ask(benchmark::State& state, int (*operation)()) {
    for ([[maybe_unused]] const auto once : state) {
        if (operation() != 0) {
            state.SkipWithError("the card was not read");
        }
    }
    state.SetComplexityN(state.range(0));
}

void card_information(benchmark::State& state) {
    const QuickCard card(static_cast<std::size_t>(state.range(0)), 0);
    ask(state, qaven::bench::card_information);
}
BENCHMARK(card_information)
    ->Name("card-information/records")
    ->RangeMultiplier(2)
    ->Range(1, 64)
    ->Complexity();

void transaction_log(benchmark::State& state) {
    const QuickCard card(0, static_cast<std::size_t>(state.range(0)));
    ask(state, qaven::bench::transaction_log);
}
BENCHMARK(transaction_log)
    ->Name("transaction-log/entries")
    ->RangeMultiplier(2)
    ->Range(1, 16)
    ->Complexity();

} // namespace
