// The exchange: status words that ask for another command are followed up here, all others
// returned.
#include "engine/card/apdu.h"

#include "engine/card/session.h"
#include "qaven/qaven.h"
#include "support/operation.h"

#include <algorithm>
#include <array>

const unsigned char test_apdu_case[20] = {0x00, 0xA4, 0x04, 0x00, 0x0E, '1', 'P', 'A', 'Y', '.',
                                          'S',  'Y',  'S',  '.',  'D',  'D', 'F', '0', '1', 0x00};

namespace qaven::apdu {

namespace {

// A card may go on asking for follow-ups; no command needs this many.
constexpr int kMaxFollowUps = 256;

constexpr std::size_t kGetResponseLength = 5;

struct StatusWord {
    std::uint8_t sw1;
    std::uint8_t sw2;

    int value() const { return sw1 * 256 + sw2; }
};

void make_get_response(Command& command, std::uint8_t le) {
    const std::array<std::uint8_t, kGetResponseLength> get_response{0x00, 0xC0, 0x00, 0x00, le};
    std::ranges::copy(get_response, command.place.begin());
    command.length = kGetResponseLength;
}

// Rewrites the command into the one that the status word asks for; false when the status word is
// final.
bool follow_up(StatusWord status, Command& command) {
    switch (status.sw1) {
    case 0x62:
        // Every warning is answered by asking for the data anew, whatever it warns of.
        make_get_response(command, 0x00);
        return true;
    case 0x6C:
        if (command.length < 1) {
            return false;
        }
        command.place[command.length - 1] = status.sw2;
        return true;
    case 0x61:
        make_get_response(command, status.sw2);
        return true;
    default:
        return false;
    }
}

int refused_reply() {
    session::refuse_reply();
    return QAVEN_ILLEGAL_DATA;
}

} // namespace

int exchange(Command command, Reply& reply) {
    for (int follow_ups = 0;; ++follow_ups) {
        reply.length = 0;
        const int result = session::exchange({command.place.data(), command.length}, reply);
        if (result != 0) {
            return result;
        }
        if (reply.length < 2) {
            return refused_reply();
        }
        const auto sw = reply.place.subspan(reply.length - 2);
        const StatusWord status{sw[0], sw[1]};
        if (status.value() == 0x9000) {
            return 0;
        }
        if (status.value() == 0x0000) {
            return refused_reply();
        }
        if (follow_ups == kMaxFollowUps || !follow_up(status, command)) {
            return status.value();
        }
    }
}

} // namespace qaven::apdu

int Qm_Icc_EXApdu(unsigned char* cmd, int cmd_len, unsigned char* resp, int* resp_len, int wait) {
    return qaven::operation::locked(static_cast<int>(QAVEN_ILLEGAL_DATA), [&] {
        // A negative length becomes one that is refused.
        const auto length = static_cast<std::size_t>(cmd_len);
        qaven::Reply reply{{resp, qaven::Reply::kCapacity}};
        const int result = qaven::apdu::exchange(
            {{cmd, std::max(length, qaven::apdu::kGetResponseLength)}, length, wait}, reply);
        if (result == 0) {
            *resp_len = static_cast<int>(reply.length);
        }
        return result;
    });
}
