// Stand-ins that call the card operation and note how it ended.
#include "operations.h"
#include "tests/support/memory_watch.h"

#include "engine/pboccash.h"

#include <iconv.h>

#include <cstring>
#include <utility>

namespace qaven::sweep {

namespace {

std::vector<Operation> noted;

int note(const char* name, int code, const char* error_text) {
    const test::Unwatched work;
    noted.push_back({name, code, from_gbk(error_text)});
    return code;
}

} // namespace

std::vector<Operation> take_operations() {
    return std::exchange(noted, {});
}

std::string from_gbk(std::string_view text) {
    iconv_t conversion = iconv_open("UTF-8", "GBK");
    std::string in(text);
    std::string out(2 * in.size() + 1, '\0');
    char* from = in.data();
    char* to = out.data();
    std::size_t from_left = in.size();
    std::size_t to_left = out.size();
    const bool whole = iconv(conversion, &from, &from_left, &to, &to_left) == 0 && from_left == 0;
    iconv_close(conversion);
    if (!whole) {
        return "(not GBK)";
    }
    out.resize(out.size() - to_left);
    constexpr const char* blanks = " \t";
    const auto first = out.find_first_not_of(blanks);
    const auto last = out.find_last_not_of(blanks);
    return first == std::string::npos ? std::string() : out.substr(first, last - first + 1);
}

} // namespace qaven::sweep

// The names that the linker gives to the two ends of a wrapped call. Each parameter row is the card
// operation's own.
#define QAVEN_TEXTS_13                                                                             \
    char *p1, char *p2, char *p3, char *p4, char *p5, char *p6, char *p7, char *p8, char *p9,      \
        char *p10, char *p11, char *p12, char *p13
#define QAVEN_PASSED_13 p1, p2, p3, p4, p5, p6, p7, p8, p9, p10, p11, p12, p13

int real_get_info(QAVEN_TEXTS_13, char* p14,
                  char* p15) __asm__("__real__Z15ZEB_ICC_GetInfoPcS_S_S_S_S_S_S_S_S_S_S_S_S_S_");
int observed_get_info(QAVEN_TEXTS_13, char* p14, char* p15) __asm__(
    "__wrap__Z15ZEB_ICC_GetInfoPcS_S_S_S_S_S_S_S_S_S_S_S_S_S_");
int observed_get_info(QAVEN_TEXTS_13, char* p14, char* p15) {
    *p15 = '\0';
    return qaven::sweep::note("GetInfo", real_get_info(QAVEN_PASSED_13, p14, p15), p15);
}

int real_generate_arqc(QAVEN_TEXTS_13, char* p14, char* p15, char* p16, char* p17) __asm__(
    "__real__Z15ZEB_ICC_GenARQCPcS_S_S_S_S_S_S_S_S_S_S_S_S_S_S_S_");
int observed_generate_arqc(QAVEN_TEXTS_13, char* p14, char* p15, char* p16, char* p17) __asm__(
    "__wrap__Z15ZEB_ICC_GenARQCPcS_S_S_S_S_S_S_S_S_S_S_S_S_S_S_S_");
int observed_generate_arqc(QAVEN_TEXTS_13, char* p14, char* p15, char* p16, char* p17) {
    *p17 = '\0';
    return qaven::sweep::note("GenARQC", real_generate_arqc(QAVEN_PASSED_13, p14, p15, p16, p17),
                              p17);
}

int real_issuer_answer(QAVEN_TEXTS_13, char* p14, char* p15, char* p16, char* p17) __asm__(
    "__real__Z24ZEB_ICC_ARPC_ExeICScriptPcS_S_S_S_S_S_S_S_S_S_S_S_S_S_S_S_");
int observed_issuer_answer(QAVEN_TEXTS_13, char* p14, char* p15, char* p16, char* p17) __asm__(
    "__wrap__Z24ZEB_ICC_ARPC_ExeICScriptPcS_S_S_S_S_S_S_S_S_S_S_S_S_S_S_S_");
int observed_issuer_answer(QAVEN_TEXTS_13, char* p14, char* p15, char* p16, char* p17) {
    *p17 = '\0';
    return qaven::sweep::note("ARPC_ExeICScript",
                              real_issuer_answer(QAVEN_PASSED_13, p14, p15, p16, p17), p17);
}

int real_log(QAVEN_TEXTS_13) __asm__("__real__Z19ZEB_ICC_GetTxDetailPcS_S_S_S_S_S_S_S_S_S_S_S_");
int observed_log(QAVEN_TEXTS_13) __asm__(
    "__wrap__Z19ZEB_ICC_GetTxDetailPcS_S_S_S_S_S_S_S_S_S_S_S_");
int observed_log(QAVEN_TEXTS_13) {
    *p13 = '\0';
    return qaven::sweep::note("GetTxDetail", real_log(QAVEN_PASSED_13), p13);
}
