// The one place that knows when the reader connection lives: opened on demand, kept between the
// steps of a transaction, ended. Card operations say what they need and carry no such conditions.
#pragma once

#include "usb/ccid.h"

#include <cstdint>
#include <span>

namespace qaven::session {

// What a card operation does with the connection when it succeeds.
enum class AtSuccess {
    kEnd,  // power off and close
    kKeep, // leave the card powered for the next step of the transaction
};

// One command APDU over the current connection; see CCID::exchange.
int exchange(std::span<const std::uint8_t> command, Reply& reply);

// What the last exchange brought is no answer of a card: the reader may owe one.
void refuse_reply();

// Starts without a connection, as the child of a fork does: what was held, the open device and its
// claim, stays with whoever holds it.
void forget();

// True while a reader is held, its interface claimed, and it has not been found gone.
bool live();

// The same after a disturbed connection was brought into step; one that cannot be, or whose card
// has lost its power, is closed.
bool ready();

// True when the operation that is going on was told something by a reader that was still answering
// an earlier host: nothing that it has read is its card's. The connection is closed then.
bool misled();
bool forget_misled(); // the same, for once

// Runs an operation that opens the reader, and once more when it was misled: after that an opening
// gets in step before it asks for anything.
template <typename Operation>
int from_opening(const Operation& operation) {
    const int result = operation();
    return forget_misled() ? operation() : result;
}

// Opens the reader on interface 2, else on interface 1, and powers the card. 0, or QAVEN_NO_CARD
// when neither slot holds a card (the reader is closed then). A reader that is not there is not
// told apart from one with a card: the first command finds out.
int open_with_card();

// Powers the card off and closes the reader; nothing when no opening is left to be ended.
void end();

// For an operation that works on the connection it finds and otherwise on one of its own: opens if
// none is live, and ends on destruction what it opened.
class Visit {
  public:
    Visit();
    ~Visit();
    Visit(const Visit&) = delete;
    Visit& operator=(const Visit&) = delete;

    // 0, or QAVEN_NO_CARD.
    int result() const { return result_; }

  private:
    bool opened_;
    int result_;
};

// Ends the connection on destruction unless it was kept.
class EndUnlessKept {
  public:
    EndUnlessKept() = default;
    ~EndUnlessKept();
    EndUnlessKept(const EndUnlessKept&) = delete;
    EndUnlessKept& operator=(const EndUnlessKept&) = delete;

    void keep() { kept_ = true; }

  private:
    bool kept_ = false;
};

} // namespace qaven::session
