// Running one issuer script.
#include "engine/card/script.h"

#include "common/tags.h"
#include "engine/card/apdu.h"
#include "qaven/qaven.h"
#include "support/operation.h"
#include "support/wiped.h"

#include <algorithm>
#include <array>

namespace qaven::script {

namespace {

using tlv::Bytes;

constexpr std::size_t kCommandHeader = 5;
constexpr std::size_t kLcByte = 4;
constexpr int kWaitScript = 10;

// The length of a command is one byte; of a two-byte length only the low byte counts.
std::size_t command_length(Bytes field, const tlv::Length& length) {
    return field[0] == tlv::kTwoByteLength ? length.value & 0xFFU : length.value;
}

// A command whose Lc counts all that follows it is sent whole; any other ends in an Le byte, which
// is not sent.
std::size_t sent_length(Bytes command) {
    const bool lc_counts_the_rest = command[kLcByte] == command.size() - kCommandHeader;
    return lc_counts_the_rest ? command.size() : command.size() - 1;
}

int send(Bytes command) {
    // A command of the issuer's can carry a new PIN.
    WipedBytes bytes(command.begin(), command.end());
    std::array<unsigned char, Reply::kCapacity> place{};
    const WipedAtEnd wiped(place);
    Reply reply{place};
    return apdu::exchange({bytes, sent_length(command), kWaitScript}, reply);
}

} // namespace

Outcome execute(tlv::Bytes script) {
    Outcome outcome{0, 0};
    Bytes rest = script;
    while (const auto at = tlv::find(kTag86IssuerScriptCommand, rest)) {
        const Bytes object = rest.subspan(*at);
        const Bytes field = object.subspan(kTag86IssuerScriptCommand.size());
        const auto length = tlv::read_length(field, 0);
        if (!length) {
            ++outcome.count;
            outcome.result = QAVEN_EMPTY_DATA;
            return outcome;
        }
        const std::size_t size = command_length(field, length);
        ++outcome.count;
        if (size != 0) {
            const Bytes command = tlv::clipped(field, length.end, size);
            if (command.size() < size || size < kCommandHeader) {
                outcome.result = QAVEN_EMPTY_DATA;
                return outcome;
            }
            outcome.result = send(command);
            if (outcome.result != 0) {
                return outcome;
            }
        }
        // The step to the next command takes the length field for one byte, whatever it is.
        rest = tlv::clipped(object, kTag86IssuerScriptCommand.size() + 1 + size, object.size());
    }
    return outcome;
}

} // namespace qaven::script

int qmcx_exeicscript(unsigned char* script, int scriptlen, int* count) {
    *count = 0;
    return qaven::operation::locked(static_cast<int>(QAVEN_EMPTY_DATA), [&] {
        const auto outcome = qaven::script::execute(
            qaven::tlv::Bytes(script, static_cast<std::size_t>(std::max(scriptlen, 0))));
        *count = outcome.count;
        return outcome.result;
    });
}
