// The string-parameter wrappers: each fills the positional texts of one card operation.
#include "host/lorim_pboc.h"

#include "engine/operation/aid_list.h"
#include "engine/pboccash.h"
#include "host/err.h"
#include "host/report.h"
#include "support/diagnostics.h"
#include "support/operation.h"

#include <algorithm>
#include <array>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qaven::wrappers {

namespace {

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

// What stands in an output now.
HostText text_in(std::span<char> out) {
    return out.data();
}

// Traces a card operation's raw result and folds it for the host.
int reported(const char* format, int result) {
    report(format, result);
    return errors::folded(result);
}

} // namespace

int read_card_information(HostText reader_name, HostText tag_list, HostText aid_list,
                          std::span<char> ic_info) {
    return operation::run(static_cast<int>(QAVEN_ILLEGAL_DATA), [&] {
        report("getICCardInfo\n");
        report("ReaderNameStr:%s\n", reader_name.c_str());

        Text reader(reader_name);
        Text tags(tag_list);
        const int result = for_each_aid(aid_list, [&](std::string_view field) {
            Text aid(field.empty() ? kAnyUnionPayApplication : field);
            Fillers fill;
            std::array<char, QAVEN_APPDATA_SIZE> raw_data{};
            return ZEB_ICC_GetInfo(fill.empty(), fill.empty(), reader.get(), fill.empty(),
                                   fill.empty(), fill.empty(), fill.empty(), fill.empty(),
                                   fill.slot(), tags.get(), aid.get(), ic_info.data(), fill.cell(),
                                   raw_data.data(), fill.error_text());
        });

        report("ZEB_ICC_GetInfo ReaderNameStr:%s\n", reader_name.c_str());
        report("TagList:%s\n", tag_list.c_str());
        return reported("iRet:%d\n", result);
    });
}

int generate_arqc(HostText reader_name, HostText transaction_data, HostText aid_list,
                  const ArqcOutputs& out) {
    return operation::run(static_cast<int>(QAVEN_ILLEGAL_DATA), [&] {
        report("------genARQC------\n");
        report("ReaderNameStr:%s\n", reader_name.c_str());
        report("aryInput:%s\n", transaction_data.c_str());
        report("AIDList:%s\n", aid_list.c_str());

        Text reader(reader_name);
        Text input(transaction_data);
        Text aids(aid_list);
        Fillers fill;
        std::array<char, kArqcLengthSize> arqc_length{};
        const int result =
            ZEB_ICC_GenARQC(fill.empty(), fill.empty(), reader.get(), fill.empty(), fill.empty(),
                            fill.empty(), fill.empty(), fill.empty(), fill.slot(), input.get(),
                            aids.get(), out.application_data.data(), arqc_length.data(),
                            out.arqc.data(), out.field60.data(), fill.cell(), fill.error_text());

        report("lpic:%s\n", text_in(out.application_data).c_str());
        report("ARQC:%s\n", text_in(out.arqc).c_str());
        const HostText field60 = text_in(out.field60);
        diagnostics::text("Field60:%s\n", field60.c_str());
        // The trace has only ever carried a number here; it is the text's length.
        trace::line("Field60:%u\n", static_cast<unsigned int>(std::string_view(field60).size()));
        return reported("iRet:%d\n", result);
    });
}

int run_issuer_answer(const IssuerAnswer& answer, std::span<char> script_result,
                      std::span<char> tc) {
    return operation::run(static_cast<int>(QAVEN_ILLEGAL_DATA), [&] {
        report("------ARPC_ExeICScript------\n");
        report("Txdata:%s\n", answer.transaction_data.c_str());
        report("lpic:%s\n", answer.application_data.c_str());
        report("ARPC:%s\n", answer.response.c_str());
        report("status:%d\n", answer.status);

        Text input(answer.transaction_data);
        Text application_data(answer.application_data);
        Text response(answer.response);
        Text length(std::to_string(
            std::min(std::string_view(answer.response).size(), kLargestAnnouncedLength)));
        Text status(std::to_string(answer.status));
        Fillers fill;
        const int result = ZEB_ICC_ARPC_ExeICScript(
            fill.empty(), fill.empty(), fill.empty(), fill.empty(), fill.empty(), fill.empty(),
            fill.empty(), fill.empty(), fill.slot(), input.get(), application_data.get(),
            length.get(), response.get(), status.get(), tc.data(), script_result.data(),
            fill.error_text());

        report("gac2:%s\n", text_in(tc).c_str());
        report("scriptresult:%s\n", text_in(script_result).c_str());
        return reported("iRet:%d\n", result);
    });
}

int read_transaction_log(HostText reader_name, HostText aid_list, std::span<char> tx_detail) {
    return operation::run(static_cast<int>(QAVEN_ILLEGAL_DATA), [&] {
        report("--GetTxDetail--\n");
        report("AIDList:%s\n", aid_list.c_str());

        Text reader(reader_name);
        Text aid(aid_list);
        Fillers fill;
        const int result =
            ZEB_ICC_GetTxDetail(fill.empty(), fill.empty(), reader.get(), fill.empty(),
                                fill.empty(), fill.empty(), fill.empty(), fill.empty(), fill.slot(),
                                aid.get(), tx_detail.data(), fill.cell(), fill.error_text());

        report("TxDtailRet:%s\n", text_in(tx_detail).c_str());
        return reported("iret:%d\n", result);
    });
}

} // namespace qaven::wrappers

namespace wrappers = qaven::wrappers;
using qaven::host_buffer;

int getICCardInfo(const char* readerName, const char* tagList, const char* aidList, char* icInfo) {
    return wrappers::read_card_information(readerName, tagList, aidList,
                                           host_buffer(icInfo, QAVEN_USERINFO_SIZE));
}

int genARQC(const char* readerName, const char* aryInput, const char* aidList, char* lpic,
            char* arqc, char* field60) {
    return wrappers::generate_arqc(readerName, aryInput, aidList,
                                   {host_buffer(lpic, QAVEN_APPDATA_SIZE),
                                    host_buffer(arqc, QAVEN_ARQC_SIZE),
                                    host_buffer(field60, QAVEN_FIELD60_SIZE)});
}

int ARPC_ExeICScript(const char* txData, const char* lpic, const char* arpc, int status,
                     char* scriptResult, char* tc) {
    return wrappers::run_issuer_answer({txData, lpic, arpc, status},
                                       host_buffer(scriptResult, QAVEN_SCRIPT_RESULT_SIZE),
                                       host_buffer(tc, QAVEN_TC_SIZE));
}

int GetTxDetail(const char* readerName, const char* aidList, char* txDetail) {
    return wrappers::read_transaction_log(readerName, aidList,
                                          host_buffer(txDetail, QAVEN_TXDETAIL_SIZE));
}
