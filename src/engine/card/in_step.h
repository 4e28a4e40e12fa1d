// Bringing a reader back into step: after a transfer that failed, an older answer may still lie in
// the reader, and every later one would be read one command late.
#pragma once

#include "usb/ccid.h"

namespace qaven::in_step {

// Whether a message with this header, read as the answer to a command with this bSeq, answers an
// older one instead. A reply that is missing or zero proves nothing.
bool proves_older_answer(std::span<const unsigned char, CCID::kHeaderSize> header,
                         unsigned char type_of_answer, unsigned char bseq);

// Whether a response is a whole answer to reset, which a card sends when it gets power and never to
// a command.
bool is_answer_to_reset(std::span<const unsigned char> response);

// Asks for the slot's state and drops what comes until the answer to that question has come; a line
// of the trace says what was dropped.
struct Outcome {
    // 0; the code of an unplugged reader; otherwise that of a time-out: nothing that this
    // connection brings can be attributed to a command any more.
    int failure;
    bool card_active; // the answer says that the card has power
};
Outcome reach(CCID& reader);

} // namespace qaven::in_step
