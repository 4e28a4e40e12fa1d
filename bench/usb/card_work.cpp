// JSON texts for the library's entry points.
#include "card_work.h"

#include "engine/card/apdu.h"
#include "host.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <stdexcept>

namespace qaven::bench {
namespace {

using nlohmann::json;

void require(bool condition, const char* what) {
    if (!condition) {
        throw std::runtime_error(what);
    }
}

int call(int (*entry_point)(const char*, char*, char*, int, int), const std::string& request,
         std::string& answer) {
    std::array<char, QAVEN_ERRMSG_SIZE> error{};
    return entry_point(request.c_str(), answer.data(), error.data(), 0, 0);
}

} // namespace

const char* name_of(Operation operation) {
    switch (operation) {
    case Operation::card_information:
        return "`QAVEN_getICCardInfo` with ARQC";
    case Operation::issuers_answer:
        return "`QAVEN_ARPC_ExeICScript`";
    case Operation::transaction_log:
        return "`QAVEN_GetTxDetail`";
    }
    return "";
}

void Counter::prepare(Operation operation) {
    std::remove("Qm_ic.log");
    answer_.assign(QAVEN_RESMSG_SIZE, '\0');
    json request;
    switch (operation) {
    case Operation::card_information:
        request = {{"TagList", test::kAllLetters},
                   {"AIDList", test::kDebit},
                   {"aryInput", test::kTransaction},
                   {"isReadArqc", "true"}};
        break;
    case Operation::issuers_answer: {
        test::Reply reply;
        reply.script = {"put-data=9F79:000000020000"};
        request = {{"Txdata", test::kTransaction},
                   {"LpAppData", application_data_},
                   {"ARPC", issuer_.answer(field55_, reply)},
                   {"Status", 0}};
        break;
    }
    case Operation::transaction_log:
        request = {{"AIDList", test::kDebit}};
        break;
    }
    request_ = request.dump();
}

void Counter::run(Operation operation) {
    int result = 0;
    switch (operation) {
    case Operation::card_information:
        result = call(QAVEN_getICCardInfo, request_, answer_);
        break;
    case Operation::issuers_answer:
        result = call(QAVEN_ARPC_ExeICScript, request_, answer_);
        break;
    case Operation::transaction_log:
        result = call(QAVEN_GetTxDetail, request_, answer_);
        break;
    }
    require(result == 0, "an operation failed");
}

void Counter::check(Operation operation) {
    const json answer = json::parse(answer_.c_str());
    switch (operation) {
    case Operation::card_information: {
        const json arqc = json::parse(answer.at("IcARQC").get<std::string>());
        application_data_ = arqc.at("LpAppData");
        field55_ = arqc.at("ARQC");
        require(issuer_.arqc(field55_).verified, "the ARQC is not the card's");
        break;
    }
    case Operation::issuers_answer:
        require(issuer_.tc(answer.at("TC")).verified, "the TC is not the card's");
        require(answer.at("Scriptresult") == "DF31052012345678", "the script was not carried out");
        break;
    case Operation::transaction_log:
        require(answer.at("TxDtailRet").get<std::string>().size() > 2, "the log is empty");
        break;
    }
}

// cppcheck-suppress passedByValue ; its bytes are handed on as writable ones
void exchange(std::string command) {
    std::array<unsigned char, 1024> response{};
    int length = 0;
    const int result = Qm_Icc_EXApdu(reinterpret_cast<unsigned char*>(command.data()),
                                     static_cast<int>(command.size()), response.data(), &length, 0);
    require(result == 0, "a command was not answered by 9000");
}

} // namespace qaven::bench
