// One command APDU to the card and its final response, with the follow-ups that T=0 cards ask for.
#pragma once

#include "support/export.h"

#include <cstddef>

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

// Bytes of resp.
constexpr std::size_t kReplySize = 1024;

} // namespace qaven::apdu
