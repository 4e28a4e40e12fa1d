// Feeds issuer scripts and whole issuer responses to the functions that hand them to the card, over
// a wire whose card answers as the input says. Input: calls (one chunk; each a kind and its texts
// or bytes), then what a Wire in card mode takes.
#include "engine/card/script.h"

#include "engine/operation/arpc.h"
#include "qaven/qaven.h"
#include "support/demand.h"
#include "support/guarded.h"
#include "support/hex.h"
#include "support/wire.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using qaven::fuzz::Bytes;
using qaven::fuzz::demand;
using qaven::fuzz::Guarded;
using qaven::fuzz::Input;
using qaven::fuzz::Wire;

constexpr unsigned kMostCalls = 4;

// A text in a block of its size, writable as the card operations take all theirs.
std::vector<char> exact_text(std::string_view text) {
    std::vector<char> copy(text.begin(), text.end());
    copy.push_back('\0');
    copy.shrink_to_fit();
    return copy;
}

void run_script(Input& calls) {
    Bytes script = Input::exact(calls.long_chunk());
    int count = -1;
    const int result = qmcx_exeicscript(script.data(), static_cast<int>(script.size()), &count);
    demand(result <= 0xFFFF && result != 0x9000, "a result is 0, a code or a status word");
    demand(count >= 0 && static_cast<std::size_t>(count) <= script.size() / 2 + 1,
           "a command has two bytes at least");
    demand(result == 0 || count > 0, "the refused command is counted");
}

// A host's text as it comes, or bytes as an earlier call would have written them.
enum class TextForm : unsigned { kAsIs, kHex, kCountedHex, kCount };

std::vector<char> host_text(Input& calls) {
    const auto form = static_cast<TextForm>(calls.below(static_cast<unsigned>(TextForm::kCount)));
    const auto bytes = calls.long_chunk();
    if (form == TextForm::kAsIs) {
        return Input::text(bytes);
    }
    std::array<char, 16> count{};
    if (form == TextForm::kCountedHex) {
        std::snprintf(count.data(), count.size(), "%06zu", bytes.size());
    }
    return exact_text(count.data() + qaven::hex::text(bytes));
}

bool is_hex(std::string_view text) {
    return text.find_first_not_of("0123456789ABCDEF") == std::string_view::npos;
}

void answer_issuer(Input& calls) {
    std::vector<char> tx_data = host_text(calls);
    std::vector<char> application_data = host_text(calls);
    std::vector<char> response = host_text(calls);
    std::vector<char> status = exact_text(calls.byte() % 4 != 0 ? "0" : "1");
    std::vector<char> unused = exact_text("");
    std::vector<char> slot = exact_text("3");
    Guarded<char, QAVEN_TC_SIZE> tc;
    Guarded<char, QAVEN_SCRIPT_RESULT_SIZE> script_result;
    Guarded<char, QAVEN_ERRMSG_SIZE> error_text;
    tc.data()[0] = '\0';
    script_result.data()[0] = '\0';
    char* const none = unused.data();
    const int result =
        ZEB_ICC_ARPC_ExeICScript(none, none, none, none, none, none, none, none, slot.data(),
                                 tx_data.data(), application_data.data(), none, response.data(),
                                 status.data(), tc, script_result, error_text);
    demand(result <= 0xFFFF && result != 0x9000, "a result is 0, a code or a status word");
    tc.must_be_text();
    script_result.must_be_text();
    const std::string_view list = tc.data();
    const std::string_view outcome = script_result.data();
    demand(list.size() % 2 == 0 && is_hex(list), "a TC list in hexadecimal");
    demand(list.empty() || result == 0, "no TC list without a TC");
    demand(outcome.empty() || (outcome.starts_with("DF3105") && is_hex(outcome)),
           "script results of one form");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    Input calls(input.long_chunk());
    Wire wire(input, Wire::Mode::kCard);
    for (unsigned k = 0; k < kMostCalls && !calls.empty(); ++k) {
        const unsigned kind = calls.below(4);
        // Without a connection every command of a call ends the same way.
        if (kind != 3) {
            wire.connect();
        }
        wire.next_operation();
        if (kind == 0) {
            run_script(calls);
        } else {
            answer_issuer(calls);
        }
    }
    wire.disconnect();
    return 0;
}
