// The slots of the bank-card reader, asked over the library's own connection.
#pragma once

#include <vector>

namespace tool {

enum class SlotState {
    kEmpty,
    kCard,
    kSilent, // the reader does not say
};

struct Slot {
    SlotState state = SlotState::kSilent;
    std::vector<unsigned char> answer_to_reset; // empty when the card was not powered or is mute
};

enum class Look {
    kStatus, // whether there is a card
    kAnswer, // what it answers to reset; it is powered off again
};

// The slot behind this interface.
Slot look_into_slot(int interface, Look look);

} // namespace tool
