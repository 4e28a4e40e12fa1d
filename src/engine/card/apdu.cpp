// The exchange: status words that ask for another command are followed up here, all others
// returned.
#include "engine/card/apdu.h"

#include "engine/card/session.h"
#include "qaven/qaven.h"
#include "support/operation.h"

#include <algorithm>
#include <array>
#include <span>

const unsigned char test_apdu_case[20] = {0x00, 0xA4, 0x04, 0x00, 0x0E, '1', 'P', 'A', 'Y', '.',
                                          'S',  'Y',  'S',  '.',  'D',  'D', 'F', '0', '1', 0x00};

namespace {

static_assert(qaven::apdu::kReplySize == CCID::kReplyBufferSize);

constexpr int kReplyTimeoutMs = 10000;

// A card may go on asking for follow-ups; no command needs this many.
constexpr int kMaxFollowUps = 256;

constexpr int kGetResponseLength = 5;

struct StatusWord {
    unsigned char sw1;
    unsigned char sw2;

    int value() const { return sw1 * 256 + sw2; }
};

void make_get_response(std::span<unsigned char, kGetResponseLength> cmd, unsigned char le) {
    const std::array<unsigned char, kGetResponseLength> command{0x00, 0xC0, 0x00, 0x00, le};
    std::ranges::copy(command, cmd.begin());
}

// Rewrites cmd into the command that the status word asks for; gives its length, or 0 when the
// status word is final.
int follow_up(StatusWord status, unsigned char* cmd, int cmd_len) {
    const std::span<unsigned char, kGetResponseLength> get_response(cmd, kGetResponseLength);
    switch (status.sw1) {
    case 0x62:
        // Every warning is answered by asking for the data anew, whatever it warns of.
        make_get_response(get_response, 0x00);
        return kGetResponseLength;
    case 0x6C:
        if (cmd_len < 1) {
            return 0;
        }
        cmd[cmd_len - 1] = status.sw2;
        return cmd_len;
    case 0x61:
        make_get_response(get_response, status.sw2);
        return kGetResponseLength;
    default:
        return 0;
    }
}

int refused_reply() {
    qaven::session::refuse_reply();
    return QAVEN_ILLEGAL_DATA;
}

int exchange(unsigned char* cmd, int cmd_len, unsigned char* resp, int* resp_len) {
    for (int follow_ups = 0;; ++follow_ups) {
        int length = 0;
        const int result = qaven::session::exchange(cmd, cmd_len, resp, &length, kReplyTimeoutMs);
        if (result != 0) {
            return result;
        }
        if (length < 2) {
            return refused_reply();
        }
        const StatusWord status{resp[length - 2], resp[length - 1]};
        if (status.value() == 0x9000) {
            *resp_len = length;
            return 0;
        }
        if (status.value() == 0x0000) {
            return refused_reply();
        }
        const int next = follow_ups < kMaxFollowUps ? follow_up(status, cmd, cmd_len) : 0;
        if (next == 0) {
            return status.value();
        }
        cmd_len = next;
    }
}

} // namespace

int Qm_Icc_EXApdu(unsigned char* cmd, int cmd_len, unsigned char* resp, int* resp_len,
                  int /*wait*/) {
    return qaven::operation::locked(static_cast<int>(QAVEN_ILLEGAL_DATA),
                                    [&] { return exchange(cmd, cmd_len, resp, resp_len); });
}
