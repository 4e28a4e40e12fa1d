// Feeds FCIs, GET PROCESSING OPTIONS responses, AFLs and records to the reading of an application,
// and converted transaction data to the terminal data store that answers the PDOL.
// Input: the steps (one chunk), then what a Wire in card mode takes.
#include "engine/card/reading.h"
#include "engine/card/selection.h"
#include "engine/data/terminal_data.h"
#include "support/demand.h"
#include "support/guarded.h"
#include "support/wire.h"

#include <algorithm>
#include <array>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using qaven::fuzz::Bytes;
using qaven::fuzz::demand;
using qaven::fuzz::Guarded;
using qaven::fuzz::Input;
using qaven::fuzz::Wire;
using qaven::terminal_data::kStoreSize;

constexpr std::size_t kMerchantName = 20;
constexpr std::size_t kMostExcess = 108;

// What one step leaves to the next.
struct State {
    Bytes terminal_data{0};
    bool is_store = true; // well-formed, and ended by a zero byte
    Bytes fci;
    Bytes afl;
};

// A list of one-letter tags with a length of one byte, as a converted transaction text is.
struct Converted {
    Bytes list;
    std::size_t excess = 0; // of the merchant name that the store takes
};

Converted converted_text(Input& script) {
    constexpr std::string_view kLetters = "PQRSTUVZI";
    constexpr std::size_t kLongest = 127;
    Converted converted;
    bool named = false;
    for (unsigned count = script.below(12); count > 0; --count) {
        const char letter = kLetters[script.below(kLetters.size())];
        const auto value = script.take(script.byte() & kLongest);
        converted.list.push_back(static_cast<std::uint8_t>(letter));
        converted.list.push_back(static_cast<std::uint8_t>(value.size()));
        converted.list.insert(converted.list.end(), value.begin(), value.end());
        if (letter == 'V' && !named) {
            named = true;
            converted.excess = std::max(value.size(), kMerchantName) - kMerchantName;
        }
    }
    converted.list.push_back(0);
    return converted;
}

void pack(Input& script, State& state) {
    const Converted converted = converted_text(script);
    Bytes store(kStoreSize + std::min(converted.excess, kMostExcess));
    const int size = Qm_PackGpoData(store.data(), converted.list.data());
    demand(size == static_cast<int>(kStoreSize), "a store has one size");
    store.resize(kStoreSize);
    state.terminal_data = store;
    state.is_store = true;
}

void select(Input& script, State& state) {
    Bytes aid = Input::exact(script.chunk());
    Guarded<unsigned char, 256> fci;
    unsigned char length = 0;
    if (qmcx_FinalAppSelect(aid.data(), static_cast<unsigned char>(aid.size()), fci.data(),
                            &length) == 0) {
        state.fci.assign(fci.data(), fci.data() + length);
    }
}

void options(Input& script, State& state) {
    const bool terminated = script.below(2) == 0;
    Bytes fci = state.fci;
    Bytes& terminal_data = state.terminal_data;
    Guarded<unsigned char, 2> aip;
    Guarded<unsigned char, 254> afl;
    unsigned char aip_length = 0xFF;
    unsigned char afl_length = 0;
    // A store ends in a zero byte, so it can be handed in without its length.
    const int length = terminated && state.is_store ? 0 : static_cast<int>(terminal_data.size());
    const int result = qmcx_GetProcOptions(fci.data(), static_cast<unsigned char>(fci.size()),
                                           terminal_data.data(), length, aip.data(), &aip_length,
                                           afl.data(), &afl_length);
    demand(aip_length == 0 || aip_length == 2, "an AIP has two bytes");
    demand(afl_length <= 254, "an AFL has 254 bytes at most");
    if (result == 0) {
        state.afl.assign(afl.data(), afl.data() + afl_length);
    }
}

void records(State& state) {
    Bytes afl = state.afl;
    Guarded<unsigned char, 8000> application_data;
    Guarded<unsigned char, 256> authentication_data;
    int application_length = -1;
    int authentication_length = -1;
    const int result = qmcx_GetAppData(afl.data(), static_cast<unsigned char>(afl.size()), nullptr,
                                       0, application_data.data(), &application_length,
                                       authentication_data.data(), &authentication_length);
    demand(result == 0, "always 0");
    demand(application_length >= 0 && application_length <= 8000, "8000 bytes");
    demand(authentication_length >= 0 && authentication_length <= 256, "256 bytes");
}

void run(Input& script, State& state) {
    switch (script.below(7)) {
    case 0:
        pack(script, state);
        break;
    case 1:
        options(script, state);
        break;
    case 2:
        records(state);
        break;
    case 3:
        state.afl = Input::exact(script.chunk());
        break;
    case 4:
        select(script, state);
        break;
    case 5:
        state.fci = Input::exact(script.chunk());
        break;
    default:
        state.terminal_data = Input::exact(script.chunk());
        state.is_store = state.terminal_data.empty();
        if (state.is_store) {
            state.terminal_data.push_back(0);
        }
        break;
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    Input script(input.long_chunk());
    Wire wire(input, Wire::Mode::kCard);
    wire.connect();
    State state;
    while (!script.empty()) {
        wire.next_operation();
        run(script, state);
    }
    wire.disconnect();
    return 0;
}
