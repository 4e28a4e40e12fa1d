// The host's side of the library: string-parameter wrappers over the card operations. The JSON
// entry points built on them are declared in qaven/qaven.h.
#pragma once

#include "qaven/qaven.h"
#include "support/export.h"
#include "support/host_text.h"
#include "support/qmlog.h"
#include "support/utils.h"

#include <span>

// All texts are zero-terminated; outputs are the caller's and at least as large as said here. Each
// result is the card operation's code folded by transErr. readerName is only traced.

// Card information (icInfo, 2048 bytes) for the letters of tagList, with the first AID of aidList
// that selects an application; an empty field of the list stands for A000000333.
QAVEN_API int getICCardInfo(const char* readerName, const char* tagList, const char* aidList,
                            char* icInfo);

// ARQC step: application data text (lpic, 4096 bytes, in/out: when not empty the card is not read),
// field-55 text (arqc, 1024 bytes), field 60 (8 bytes).
QAVEN_API int genARQC(const char* readerName, const char* aryInput, const char* aidList, char* lpic,
                      char* arqc, char* field60);

// Issuer's answer: arpc, field 55 of the issuer's response in hexadecimal, and status, the host's
// decision (0 approved). Gives the script result (64 bytes) and the TC text (1024 bytes).
QAVEN_API int ARPC_ExeICScript(const char* txData, const char* lpic, const char* arpc, int status,
                               char* scriptResult, char* tc);

// Transaction log text (txDetail, 2048 zeroed bytes); aidList is one AID, not split.
QAVEN_API int GetTxDetail(const char* readerName, const char* aidList, char* txDetail);

// The same for the JSON entry points.
namespace qaven::wrappers {

int read_card_information(HostText reader_name, HostText tag_list, HostText aid_list,
                          std::span<char> ic_info);

struct ArqcOutputs {
    std::span<char> application_data;
    std::span<char> arqc;
    std::span<char> field60;
};

int generate_arqc(HostText reader_name, HostText transaction_data, HostText aid_list,
                  const ArqcOutputs& out);

struct IssuerAnswer {
    HostText transaction_data;
    HostText application_data;
    HostText response;
    int status;
};

int run_issuer_answer(const IssuerAnswer& answer, std::span<char> script_result,
                      std::span<char> tc);

int read_transaction_log(HostText reader_name, HostText aid_list, std::span<char> tx_detail);

} // namespace qaven::wrappers
