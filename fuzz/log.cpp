// Feeds log formats, log entries and log records to the reading of the transaction log and of the
// load log, on a connection that is there and on one that they open themselves.
// Input: the steps (one chunk), then what a Wire in card mode takes.
#include "engine/operation/transaction_log.h"
#include "qaven/qaven.h"
#include "support/demand.h"
#include "support/guarded.h"
#include "support/wire.h"

#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using qaven::fuzz::demand;
using qaven::fuzz::Guarded;
using qaven::fuzz::Input;
using qaven::fuzz::Wire;

using LogText = Guarded<char, QAVEN_TXDETAIL_SIZE>;

void transactions(Input& script) {
    auto aid = Input::text(script.chunk());
    LogText detail;
    std::memset(detail.data(), 0, QAVEN_TXDETAIL_SIZE);
    Guarded<char, QAVEN_ERRMSG_SIZE> error_text;
    error_text.data()[0] = '\0';
    const int result =
        ZEB_ICC_GetTxDetail(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                            nullptr, aid.data(), detail.data(), nullptr, error_text.data());
    demand(detail.data()[QAVEN_TXDETAIL_SIZE - 1] == '\0', "the buffer's own end stays");
    error_text.must_be_text();
    demand(result <= 0xFFFF, "0, a code or a status word");
}

void loads(Input& script) {
    const int index = script.small_number();
    const auto aid = Input::text(script.chunk());
    LogText text;
    ReadAmtLog(aid.data(), index, text.data());
    text.must_be_text();
}

void run(Input& script, Wire& wire) {
    switch (script.below(4)) {
    case 0:
        transactions(script);
        break;
    case 1:
        loads(script);
        break;
    case 2:
        wire.disconnect();
        break;
    default:
        wire.disconnect();
        wire.connect();
        break;
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    Input script(input.long_chunk());
    Wire wire(input, Wire::Mode::kCard);
    wire.connect();
    while (!script.empty()) {
        wire.next_operation();
        run(script, wire);
    }
    wire.disconnect();
    return 0;
}
