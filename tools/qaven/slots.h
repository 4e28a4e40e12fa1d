// The slots of the bank-card reader, asked over the library's own connection.
#pragma once

#include <vector>

namespace qaven::cli {

enum class SlotState {
    kEmpty,
    kCard,
    kSilent,    // the reader does not say
    kOutOfStep, // it gives answers, but not to what it is asked
};

// What became of answers to an earlier program's commands that were still in the reader.
enum class Leftover {
    kNone,
    kDropped,
    kReset, // reading did not get rid of them, resetting the reader did
};

struct Slot {
    SlotState state = SlotState::kSilent;
    std::vector<unsigned char> atr = {}; // empty: the card was not powered or is mute
    Leftover leftover = Leftover::kNone;
};

enum class SlotQuery {
    kStatus, // whether there is a card
    kAtr,    // what it answers to reset; it is powered off again. Resets a reader that needs it
};

// The slot behind this interface.
Slot query_slot(int interface, SlotQuery query);

} // namespace qaven::cli
