// What a host program does at the counter: JSON in, JSON out, and a look into the trace log. The
// answers are read with a JSON library that is not the one that wrote them.
#pragma once

#include "qaven/qaven.h"

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace qaven::test {

// 12.13 yuan on 22 April 2019 at 16:13:55, type 03.
inline constexpr const char* kTransaction =
    "P012000000001213Q012000000000000R0040156S00820190422T00203U006161355I00200"
    "V013MRCH CNT 0001 ";

inline constexpr const char* kAllLetters = "|A|B|C|D|E|F|G|H|I|J|K|L|M|N|O";

inline constexpr const char* kAnyUnionPay = "A000000333";
inline constexpr const char* kDebit = "A000000333010101";
inline constexpr const char* kCredit = "A000000333010102";
inline constexpr const char* kUnknown = "A888000333010101";

// The list that counters send: anything of UnionPay's, else debit, else credit.
inline constexpr const char* kUsualAids = "|A000000333010101|A000000333010102";

struct Arqc {
    std::string application_data;
    std::string field55;
    std::string field60;

    // Nothing went online.
    bool empty() const { return field55.empty() && field60.empty(); }
};

struct CardInformation {
    int result = 0;
    std::string resmsg;
    std::string errmsg;
    std::string fields; // IcInfo; "" when there was no answer
    bool arqc_asked_for = false;
    Arqc arqc;
};

struct Completion {
    std::string script_result;
    std::string tc;
};

struct CardRequest {
    std::string letters = kAllLetters;
    std::string aids = kUsualAids;
    std::string transaction = kTransaction;
    std::string arqc = "false";
};

CardInformation get_card_information(const CardRequest& request);

// Card information and ARQC in one call.
CardInformation read_and_generate(const std::string& aids = kUsualAids);

Arqc generate_arqc(const std::string& aids = kUsualAids,
                   const std::string& transaction = kTransaction);

// The ARQC step with application data of an earlier read; the step's result is in `result`.
Arqc generate_arqc_from(const std::string& application_data, int& result,
                        const std::string& aids = "");

Completion hand_over(const Arqc& arqc, const std::string& issuer_response, int status = 0);

// "TxDtailRet", its two count bytes included.
std::string transaction_log(const std::string& aid);

struct LoadLog {
    int result = 0;
    std::string text;
};
LoadLog load_log(const std::string& aid, int record_index);

// The fields of a letter-coded text: letter, three digits, value.
std::map<char, std::string> letter_fields(std::string_view text);

// One command to the card over the connection that the library holds: 0, a status word, or a
// negative code (-8 when it holds none).
int command_result(const std::string& hex);

// GET CHALLENGE is a command that a powered card answers in any state.
bool card_answers();

// The Chinese text as the bytes that hosts get.
std::string gbk(const std::string& utf8);

// The trace log of the working directory.
std::string trace_text();
void clear_trace();

// The numbers of all trace lines "label:number", in order.
std::vector<int> traced_numbers(const std::string& label);

// The number of the last such line; a test failure when there is none.
int last_traced(const std::string& label);

} // namespace qaven::test
