// The string-parameter wrappers: each fills the positional texts of one card operation.
#include "host/lorim_pboc.h"

#include "engine/operation/aid_list.h"
#include "engine/pboccash.h"
#include "host/err.h"
#include "host/report.h"
#include "support/boundary.h"
#include "support/diagnostics.h"
#include "support/operation.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace {

using qaven::report;
using qaven::text_or_empty;

// The card slot that every operation is given.
constexpr std::string_view kSlot = "3";

// The registered application provider prefix of UnionPay. It stands for an empty field of an AID
// list: lists begin with "|", so the prefix is tried before the AIDs that the host names.
constexpr std::string_view kAnyUnionPayApplication = "A000000333";

// A response text is announced with at most this length, whatever its own.
constexpr std::size_t kLargestAnnouncedLength = 250;

constexpr std::size_t kErrorTextSize = 1024;
constexpr std::size_t kArqcLengthSize = 8;

// A writable copy of a host's text: the card operations take all their texts as char*.
class Text {
  public:
    explicit Text(std::string_view text) : characters_(text.begin(), text.end()) {
        characters_.push_back('\0');
    }

    char* get() { return characters_.data(); }

  private:
    std::vector<char> characters_;
};

// What fills the positions that no operation reads.
class Fillers {
  public:
    char* empty() { return empty_.get(); }
    char* slot() { return slot_.get(); }
    char* cell() { return &cell_; }
    char* error_text() { return error_text_.data(); }

  private:
    Text empty_{""};
    Text slot_{kSlot};
    char cell_ = '\0';
    std::array<char, kErrorTextSize> error_text_{};
};

// Traces a card operation's raw result and folds it for the host.
int reported(const char* format, int result) {
    report(format, result);
    return transErr(result);
}

int read_card_information(const char* reader_name, const char* tag_list, const char* aid_list,
                          char* ic_info) {
    report("getICCardInfo\n");
    report("ReaderNameStr:%s\n", reader_name);

    Text reader(reader_name);
    Text tags(tag_list);
    const int result = qaven::for_each_aid(aid_list, [&](const std::string& field) {
        Text aid(field.empty() ? kAnyUnionPayApplication : std::string_view(field));
        Fillers fill;
        std::array<char, QAVEN_APPDATA_SIZE> raw_data{};
        return ZEB_ICC_GetInfo(fill.empty(), fill.empty(), reader.get(), fill.empty(), fill.empty(),
                               fill.empty(), fill.empty(), fill.empty(), fill.slot(), tags.get(),
                               aid.get(), ic_info, fill.cell(), raw_data.data(), fill.error_text());
    });

    report("ZEB_ICC_GetInfo ReaderNameStr:%s\n", reader_name);
    report("TagList:%s\n", tag_list);
    return reported("iRet:%d\n", result);
}

struct ArqcOutputs {
    char* application_data;
    char* arqc;
    char* field60;
};

int generate_arqc(const char* reader_name, const char* transaction_data, const char* aid_list,
                  const ArqcOutputs& out) {
    report("------genARQC------\n");
    report("ReaderNameStr:%s\n", reader_name);
    report("aryInput:%s\n", transaction_data);
    report("AIDList:%s\n", aid_list);

    Text reader(reader_name);
    Text input(transaction_data);
    Text aids(aid_list);
    Fillers fill;
    std::array<char, kArqcLengthSize> arqc_length{};
    const int result = ZEB_ICC_GenARQC(
        fill.empty(), fill.empty(), reader.get(), fill.empty(), fill.empty(), fill.empty(),
        fill.empty(), fill.empty(), fill.slot(), input.get(), aids.get(), out.application_data,
        arqc_length.data(), out.arqc, out.field60, fill.cell(), fill.error_text());

    report("lpic:%s\n", text_or_empty(out.application_data));
    report("ARQC:%s\n", text_or_empty(out.arqc));
    const char* const field60 = text_or_empty(out.field60);
    qaven::diagnostics::text("Field60:%s\n", field60);
    // The trace has only ever carried a number here; it is the text's length.
    qaven::trace::line("Field60:%u\n", static_cast<unsigned int>(std::strlen(field60)));
    return reported("iRet:%d\n", result);
}

struct IssuerAnswer {
    const char* transaction_data;
    const char* application_data;
    const char* response;
    int status;
};

int run_issuer_answer(const IssuerAnswer& answer, char* script_result, char* tc) {
    report("------ARPC_ExeICScript------\n");
    report("Txdata:%s\n", answer.transaction_data);
    report("lpic:%s\n", answer.application_data);
    report("ARPC:%s\n", answer.response);
    report("status:%d\n", answer.status);

    Text input(answer.transaction_data);
    Text application_data(answer.application_data);
    Text response(answer.response);
    Text length(std::to_string(std::min(std::strlen(answer.response), kLargestAnnouncedLength)));
    Text status(std::to_string(answer.status));
    Fillers fill;
    const int result = ZEB_ICC_ARPC_ExeICScript(
        fill.empty(), fill.empty(), fill.empty(), fill.empty(), fill.empty(), fill.empty(),
        fill.empty(), fill.empty(), fill.slot(), input.get(), application_data.get(), length.get(),
        response.get(), status.get(), tc, script_result, fill.error_text());

    report("gac2:%s\n", text_or_empty(tc));
    report("scriptresult:%s\n", text_or_empty(script_result));
    return reported("iRet:%d\n", result);
}

int read_transaction_log(const char* reader_name, const char* aid_list, char* tx_detail) {
    report("--GetTxDetail--\n");
    report("AIDList:%s\n", aid_list);

    Text reader(reader_name);
    Text aid(aid_list);
    Fillers fill;
    const int result =
        ZEB_ICC_GetTxDetail(fill.empty(), fill.empty(), reader.get(), fill.empty(), fill.empty(),
                            fill.empty(), fill.empty(), fill.empty(), fill.slot(), aid.get(),
                            tx_detail, fill.cell(), fill.error_text());

    report("TxDtailRet:%s\n", text_or_empty(tx_detail));
    return reported("iret:%d\n", result);
}

} // namespace

int getICCardInfo(const char* readerName, const char* tagList, const char* aidList, char* icInfo) {
    return qaven::operation::run(static_cast<int>(QAVEN_ILLEGAL_DATA), [&] {
        return read_card_information(text_or_empty(readerName), text_or_empty(tagList),
                                     text_or_empty(aidList), icInfo);
    });
}

int genARQC(const char* readerName, const char* aryInput, const char* aidList, char* lpic,
            char* arqc, char* field60) {
    return qaven::operation::run(static_cast<int>(QAVEN_ILLEGAL_DATA), [&] {
        return generate_arqc(text_or_empty(readerName), text_or_empty(aryInput),
                             text_or_empty(aidList), {lpic, arqc, field60});
    });
}

int ARPC_ExeICScript(const char* txData, const char* lpic, const char* arpc, int status,
                     char* scriptResult, char* tc) {
    return qaven::operation::run(static_cast<int>(QAVEN_ILLEGAL_DATA), [&] {
        return run_issuer_answer(
            {text_or_empty(txData), text_or_empty(lpic), text_or_empty(arpc), status}, scriptResult,
            tc);
    });
}

int GetTxDetail(const char* readerName, const char* aidList, char* txDetail) {
    return qaven::operation::run(static_cast<int>(QAVEN_ILLEGAL_DATA), [&] {
        return read_transaction_log(text_or_empty(readerName), text_or_empty(aidList), txDetail);
    });
}
