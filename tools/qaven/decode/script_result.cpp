// What became of an issuer script.
#include "tools/qaven/decode/script_result.h"

#include "tools/emv/gbk.h"
#include "tools/emv/script_result.h"

#include <algorithm>

namespace qaven::cli {

using namespace emv;

void explain_script_result(Bytes value, Outline& out) {
    if (value.empty()) {
        out.problem("the result is empty");
        return;
    }
    for (std::size_t at = 0; at < value.size(); at += kScriptResultSize) {
        const Bytes one = value.subspan(at, std::min(kScriptResultSize, value.size() - at));
        out.line("result " + hex(one[0], 2) + ": " + script_outcome(one[0]));
        out.line("script identifier (9F18): " + hex(one.subspan(1)));
    }
    if (value.size() % kScriptResultSize != 0) {
        out.problem("has " + std::to_string(value.size()) + " bytes; a result has 5");
    }
}

void explain_script_result_text(std::string_view text, Outline& out) {
    if (trimmed(text).empty()) {
        out.line("empty: there was no script to run, or the transaction was declined");
        return;
    }
    out.line("DF31 issuer script results");
    const auto nest = out.nest();
    const auto results = script_results_in(text);
    if (!results) {
        out.problem("a script result begins with DF3105");
        return;
    }
    if (!results->sound()) {
        out.problem("not hexadecimal: " + readable(out.privacy().guarded(text)));
    }
    explain_script_result(results->bytes, out);
}

} // namespace qaven::cli
