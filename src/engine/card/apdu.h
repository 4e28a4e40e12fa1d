// One command APDU to the card and its final response, with the follow-ups that T=0 cards ask for.
#pragma once

#include "support/export.h"
#include "usb/reply.h"

#include <cstddef>
#include <cstdint>
#include <span>

// SELECT of the payment system environment by name, with Le. Sent by no operation.
QAVEN_API extern const unsigned char test_apdu_case[20];

// Exchanges one command with the card over the current reader connection.
//
// cmd      cmd_len bytes (at most CCID::kMaxApdu), writable and at least 5 bytes long: the
//          follow-ups rewrite it in place.
// resp     1024 bytes; receives the response data followed by SW1 SW2.
// resp_len set on success only; counts the status bytes.
// wait     a waiting hint, accepted and not used: every reply packet is awaited for 10 s.
//
// 0 when the card answered 9000; a negative transfer code; -16 for a reply that is no response (too
// long, shorter than a status word, or 0000); otherwise the final status word SW1 * 256 + SW2.
QAVEN_API int Qm_Icc_EXApdu(unsigned char* cmd, int cmd_len, unsigned char* resp, int* resp_len,
                            int wait);

namespace qaven::apdu {

// Where the follow-ups may rewrite it.
struct Command {
    std::span<std::uint8_t> place; // at least 5 bytes
    std::size_t length;
    int wait; // the waiting hint, not used
};

// The exchange; what the reply holds is the card's only when the result is 0.
int exchange(Command command, Reply& reply);

} // namespace qaven::apdu
