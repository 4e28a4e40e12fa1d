// The lines that the library writes into its trace.
#include "tools/qaven/decode/trace_labels.h"

#include "tools/emv/gbk.h"
#include "tools/emv/hex.h"
#include "tools/emv/result_codes.h"
#include "tools/qaven/decode/json_texts.h"
#include "tools/qaven/decode/records.h"
#include "tools/qaven/decode/script_result.h"

#include "support/gbk_text.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace qaven::cli {

using namespace emv;

namespace {

// What a format writes ahead of its value.
constexpr std::string_view ahead_of_value(std::string_view format) {
    format.remove_prefix(format.find_first_not_of("\r\n"));
    return {format.begin(), std::ranges::find(format, '%')};
}

// What a line of blanks, words and line ends says.
constexpr std::string_view words_of(std::string_view line) {
    const std::size_t first = line.find_first_not_of(" \r\n");
    return line.substr(first, line.find_last_not_of(" \r\n") - first + 1);
}

void explain_number(std::string_view value, Outline& out) {
    out.line(readable(out.privacy().guarded(value)));
}

void explain_words(std::string_view value, Outline& out) {
    out.line(trimmed(value).empty() ? "(empty)" : readable(out.privacy().guarded(trimmed(value))));
}

void explain_result(std::string_view value, Outline& out) {
    int result = 0;
    const std::string_view digits = trimmed(value);
    const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), result);
    out.line(read.ec == std::errc() ? result_text(result) : readable(out.privacy().guarded(value)));
}

void explain_host_status(std::string_view value, Outline& out) {
    out.line(readable(out.privacy().guarded(value)) +
             (trimmed(value) == "0" ? ": the host approved" : ": the host declined"));
}

// The trace's line of a text ends at its first zero, which a short merchant name is followed by.
void explain_completed(std::string_view value, Outline& out) {
    constexpr std::size_t kWhole = 90;
    std::string whole(value);
    whole.resize(std::max(whole.size(), kWhole), '\0');
    explain_transaction_data(whole, out);
}

// One of the entry points writes the transaction data under the label of the wanted fields.
void explain_fields_or_transaction(std::string_view value, Outline& out) {
    const LetterRecords read = letter_records(value);
    if (!read.records.empty() && !read.stops_at) {
        explain_transaction_data(value, out);
    } else {
        explain_tag_list_letters(value, out);
    }
}

namespace gbk = qaven::gbk;

constexpr auto kLabels = std::to_array<TraceLabel>({
    {"TagList:", "wanted fields", explain_fields_or_transaction},
    {"AIDList:", "applications", explain_aid_list},
    {"aryInput:", "transaction data", explain_transaction_data},
    {"Txdata_string:", "transaction data", explain_transaction_data},
    {"Txdata:", "transaction data", explain_transaction_data},
    {ahead_of_value(gbk::kTxDataFormat), "transaction data as given", explain_transaction_data},
    {ahead_of_value(gbk::kCompletedTxDataFormat),
     "transaction data, completed; for this trace only", explain_completed},
    {"isReadArqc:", "whether the ARQC step runs", explain_words},
    {"ReaderNameStr:", "reader", explain_words},
    {"ZEB_ICC_GetInfo ReaderNameStr:", "reader", explain_words},
    {"valueRet:", "card information", explain_card_information},
    {ahead_of_value(gbk::kQueryDataFormat), "application data as given", explain_application_data},
    {"lpic:", "application data", explain_application_data},
    {"LpAppData_string:", "application data", explain_application_data},
    {ahead_of_value(gbk::kArqcDataFormat), "data of the authorisation request (field 55)",
     explain_objects_text},
    {"ARQC:", "data of the authorisation request (field 55)", explain_objects_text},
    {"ARPC_string:", "issuer's answer", explain_objects_text},
    {"ARPC:", "issuer's answer", explain_objects_text},
    {"gac2:", "data of the transaction certificate (TC)", explain_objects_text},
    {"scriptresult:", "issuer script result", explain_script_result_text},
    {"TxDtailRet:", "transaction log", explain_transaction_log},
    {"resmsg:", "answer to the host", explain_json},
    {"errmsg:", "text for the host, from this call or an earlier one", explain_words},
    {"ErrMsg:", "text for the host", explain_words},
    {"status:", "host status", explain_host_status},
    {"ret:", "result", explain_result},
    {"iRet:", "result", explain_result},
    {"iret:", "result", explain_result},
    {"ireturn:", "result", explain_result},
    {"qmcx_GenerateAC ireturn:", "result of GENERATE AC", explain_result},
    {ahead_of_value(gbk::kCardProductFormat), "card product identification: result",
     explain_result},
    {ahead_of_value(gbk::kNotAnArqcFormat), "not an ARQC; the cryptogram's type is",
     explain_number},
    {"CDOL1len:", "bytes of CDOL1", explain_number},
    {"CDOL1:", "bytes of CDOL1", explain_number},
    {"DOLlen:", "bytes for CDOL1", explain_number},
    {"DOL:", "bytes for CDOL1", explain_number},
    {"appdatalen:", "bytes of application data", explain_number},
    {"appdata:", "bytes of application data", explain_number},
    {ahead_of_value(gbk::kArqcLengthFormat), "bytes of field 55", explain_number},
    {"icARQClen:icARQClen=", "digits of field 55", explain_number},
    {"Field60:", "characters of the card sequence number field", explain_number},
});

constexpr auto kSteps = std::to_array<TraceStep>({
    {"------QAVEN_getICCardInfo------", "the host wants the card read", true},
    {"------QAVEN_genARQC------", "the host wants an ARQC", true},
    {"------QAVEN_ARPC_ExeICScript------", "the host hands over the issuer's answer", true},
    {"------QAVEN_GetTxDetail------", "the host wants the transaction log", true},
    {"getICCardInfo", "reading the card, AID by AID", false},
    {"------genARQC------", "the ARQC step", false},
    {"------ARPC_ExeICScript------", "issuer authentication, TC, issuer script", false},
    {"--GetTxDetail--", "reading the transaction log", false},
    {"ZEB_ICC_GetInfo", "one try at reading the card", false},
    {"--- GenARQC---", "generating the ARQC", false},
    {"--- GetTransData---", "completing the transaction data", false},
    {"-ReadArqc-", "the ARQC step was asked for", false},
    {"111", "the card is read", false},
    {words_of(gbk::kCardInfoTitle), "reading the card", false},
    {words_of(gbk::kSelectionTitle), "selecting the application", false},
    {words_of(gbk::kDataBeforeCdol1Title), "looking for CDOL1 in the application data", false},
    {gbk::kIssuerApplicationData, "the card gave issuer application data", false},
    {gbk::kTerminalVerificationResults, "the card has no last online ATC register (9F13)", false},
    {gbk::kTransactionType, "the host gave no transaction type", false},
    {gbk::kAuthorisedAmount, "the host gave no amount", false},
    {gbk::kGetCardInfoFailed, "the card could not be read", false},
    {words_of(gbk::kGetArqcFailedTrace), "the ARQC step failed", false},
});

} // namespace

const TraceLabel* find_label(std::string_view line) {
    const auto* const found = std::ranges::find_if(
        kLabels, [&](const TraceLabel& label) { return line.starts_with(label.label); });
    return found != kLabels.end() ? found : nullptr;
}

const TraceStep* find_step(std::string_view line) {
    const auto* const found = std::ranges::find(kSteps, trimmed(line), &TraceStep::line);
    return found != kSteps.end() ? found : nullptr;
}

} // namespace qaven::cli
