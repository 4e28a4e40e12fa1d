// What there is to say about a value, by its form.
#include "tools/qaven/decode/explain.h"

#include "tools/emv/aid.h"
#include "tools/emv/date_time.h"
#include "tools/emv/values.h"
#include "tools/qaven/decode/bits.h"
#include "tools/qaven/decode/dol.h"
#include "tools/qaven/decode/lists.h"
#include "tools/qaven/decode/script_result.h"

namespace qaven::cli {

using namespace emv;

bool is_told_value(Form form, Bytes value) {
    constexpr std::size_t kCryptogram = 8;
    switch (form) {
    case Form::kText: // which is searched for numbers by itself
        return true;
    case Form::kAid:
        return is_registered(value);
    case Form::kDol:
        return is_dol_of_known_tags(value);
    case Form::kAfl:
        return is_afl(value);
    case Form::kCvmList:
        return is_cvm_list(value);
    case Form::kIad:
        return is_pboc_iad(value);
    case Form::kIssuerAuthentication:
        return is_pboc_issuer_authentication(value);
    case Form::kResponseFormat1:
        return is_response_format_1(value);
    case Form::kBytes:
        return value.size() == kCryptogram || is_short_text(value);
    default:
        return false;
    }
}

void explain_value(Form form, Bytes value, Outline& out) {
    if (const std::string problem = wrong_size(form, value.size()); !problem.empty()) {
        out.problem(problem);
    }
    switch (form) {
    case Form::kDate:
        if (wrong_size(form, value.size()).empty() && !is_date(hex(value))) {
            out.problem("the calendar has no such day");
        }
        break;
    case Form::kDol:
        explain_dol(value, 0, out);
        break;
    case Form::kTagList:
        explain_tag_list(value, out);
        break;
    case Form::kAip:
        explain_aip(value, out);
        break;
    case Form::kTvr:
        explain_tvr(value, out);
        break;
    case Form::kTsi:
        explain_tsi(value, out);
        break;
    case Form::kCid:
        explain_cid(value, out);
        break;
    case Form::kIad:
        explain_iad(value, out);
        break;
    case Form::kAfl:
        explain_afl(value, out);
        break;
    case Form::kCvmList:
        explain_cvm_list(value, out);
        break;
    case Form::kCvmResults:
        explain_cvm_results(value, out);
        break;
    case Form::kAuc:
        explain_auc(value, out);
        break;
    case Form::kTerminalCapabilities:
        explain_terminal_capabilities(value, out);
        break;
    case Form::kAdditionalTerminalCapabilities:
        explain_additional_terminal_capabilities(value, out);
        break;
    case Form::kTtq:
        explain_ttq(value, out);
        break;
    case Form::kIssuerAuthentication:
        explain_issuer_authentication(value, out);
        break;
    case Form::kScriptResult:
        explain_script_result(value, out);
        break;
    case Form::kResponseFormat1:
        explain_response_format_1(value, out);
        break;
    default:
        break;
    }
}

std::string shown_value(Form form, Bytes value, std::string_view currency, Privacy& privacy) {
    Outline trial(privacy);
    explain_value(form, value, trial);
    // A date that the calendar does not have is shown all the same.
    const bool is_whole = form == Form::kDate || !trial.has_problems();
    return is_whole ? value_text(form, value, currency, privacy) : privacy.guarded(hex(value));
}

} // namespace qaven::cli
