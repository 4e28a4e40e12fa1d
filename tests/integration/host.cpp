// The host's calls, and the letter-coded texts that come back.
#include "host.h"

#include "engine/card/apdu.h"
#include "engine/operation/transaction_log.h"
#include "host/lorim_pboc.h"

#include <gtest/gtest.h>
#include <iconv.h>
#include <nlohmann/json.hpp>

#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace qaven::test {

namespace {

using nlohmann::json;
using EntryPoint = int (*)(const char*, char*, char*, int, int);

constexpr const char* kTraceFile = "Qm_ic.log";

struct Called {
    int result = 0;
    std::string resmsg;
    std::string errmsg;
};

Called call(EntryPoint entry_point, const json& request) {
    std::vector<char> resmsg(QAVEN_RESMSG_SIZE);
    std::vector<char> errmsg(QAVEN_ERRMSG_SIZE);
    const int result = entry_point(request.dump().c_str(), resmsg.data(), errmsg.data(), 10, 10);
    return {result, std::string(resmsg.data()), std::string(errmsg.data())};
}

Arqc arqc_of(const json& object) {
    EXPECT_EQ(object.size(), 3U) << object;
    return {object.at("LpAppData"), object.at("ARQC"), object.at("Field60")};
}

} // namespace

CardInformation get_card_information(const CardRequest& request) {
    const Called called = call(QAVEN_getICCardInfo, {{"TagList", request.letters},
                                                     {"AIDList", request.aids},
                                                     {"aryInput", request.transaction},
                                                     {"isReadArqc", request.arqc}});
    CardInformation answer;
    answer.result = called.result;
    answer.resmsg = called.resmsg;
    answer.errmsg = called.errmsg;
    if (!called.resmsg.empty()) {
        const json object = json::parse(called.resmsg);
        EXPECT_EQ(object.size(), 2U) << object;
        answer.fields = object.at("IcInfo");
        const std::string inner = object.at("IcARQC");
        answer.arqc_asked_for = !inner.empty();
        if (answer.arqc_asked_for) {
            answer.arqc = arqc_of(json::parse(inner));
        }
    }
    return answer;
}

CardInformation read_and_generate(const std::string& aids) {
    CardRequest request;
    request.aids = aids;
    request.arqc = "true";
    return get_card_information(request);
}

Arqc generate_arqc(const std::string& aids, const std::string& transaction) {
    const Called called = call(QAVEN_genARQC, {{"aryInput", transaction}, {"AIDList", aids}});
    EXPECT_EQ(called.result, 0);
    EXPECT_EQ(called.errmsg, "");
    return arqc_of(json::parse(called.resmsg));
}

Arqc generate_arqc_from(const std::string& application_data, int& result, const std::string& aids) {
    std::vector<char> text(application_data.begin(), application_data.end());
    text.resize(QAVEN_APPDATA_SIZE);
    std::array<char, QAVEN_ARQC_SIZE> field55{};
    std::array<char, QAVEN_FIELD60_SIZE> field60{};
    result =
        genARQC("host", kTransaction, aids.c_str(), text.data(), field55.data(), field60.data());
    return {std::string(text.data()), field55.data(), field60.data()};
}

Completion hand_over(const Arqc& arqc, const std::string& issuer_response, int status) {
    const Called called = call(QAVEN_ARPC_ExeICScript, {{"Txdata", kTransaction},
                                                        {"LpAppData", arqc.application_data},
                                                        {"ARPC", issuer_response},
                                                        {"Status", status}});
    EXPECT_EQ(called.result, 0);
    EXPECT_EQ(called.errmsg, "");
    const json object = json::parse(called.resmsg);
    EXPECT_EQ(object.size(), 2U) << object;
    return {object.at("Scriptresult"), object.at("TC")};
}

std::string transaction_log(const std::string& aid) {
    const Called called = call(QAVEN_GetTxDetail, {{"AIDList", aid}});
    EXPECT_EQ(called.result, 0);
    EXPECT_EQ(called.errmsg, "");
    const json object = json::parse(called.resmsg);
    EXPECT_EQ(object.size(), 1U) << object;
    return object.at("TxDtailRet");
}

LoadLog load_log(const std::string& aid, int record_index) {
    std::array<char, QAVEN_TXDETAIL_SIZE> text{};
    const int result = ReadAmtLog(aid.c_str(), record_index, text.data());
    return {result, text.data()};
}

std::map<char, std::string> letter_fields(std::string_view text) {
    std::map<char, std::string> fields;
    while (text.size() >= 4) {
        const auto length = static_cast<std::size_t>(std::stoi(std::string(text.substr(1, 3))));
        EXPECT_LE(4 + length, text.size()) << text;
        EXPECT_TRUE(fields.emplace(text[0], text.substr(4, length)).second) << text;
        text.remove_prefix(std::min(4 + length, text.size()));
    }
    EXPECT_EQ(text, "");
    return fields;
}

int command_result(const std::string& hex) {
    std::array<unsigned char, 261> command{};
    std::array<unsigned char, 1024> response{};
    const auto size = hex.size() / 2;
    for (std::size_t i = 0; i < size; ++i) {
        command.at(i) = static_cast<unsigned char>(std::stoi(hex.substr(2 * i, 2), nullptr, 16));
    }
    int response_size = 0;
    return Qm_Icc_EXApdu(command.data(), static_cast<int>(size), response.data(), &response_size,
                         3);
}

bool card_answers() {
    return command_result("0084000008") == 0;
}

std::string gbk(const std::string& utf8) {
    iconv_t conversion = iconv_open("GBK", "UTF-8");
    if (conversion == reinterpret_cast<iconv_t>(-1)) {
        throw std::runtime_error("no conversion to GBK");
    }
    std::string in = utf8;
    std::string out(2 * in.size(), '\0');
    char* from = in.data();
    char* to = out.data();
    std::size_t from_left = in.size();
    std::size_t to_left = out.size();
    iconv(conversion, &from, &from_left, &to, &to_left);
    iconv_close(conversion);
    EXPECT_EQ(from_left, 0U) << utf8;
    out.resize(out.size() - to_left);
    return out;
}

std::string trace_text() {
    std::ifstream file(kTraceFile, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void clear_trace() {
    std::remove(kTraceFile);
}

std::vector<int> traced_numbers(const std::string& label) {
    std::istringstream lines(trace_text());
    const std::string head = label + ":";
    std::vector<int> numbers;
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, head.size(), head) == 0) {
            numbers.push_back(std::stoi(line.substr(head.size())));
        }
    }
    return numbers;
}

int last_traced(const std::string& label) {
    const auto numbers = traced_numbers(label);
    if (numbers.empty()) {
        ADD_FAILURE() << "no trace line " << label;
        return 0;
    }
    return numbers.back();
}

} // namespace qaven::test
