// The error table, its look-ups, and the folding into the host's smaller set of codes.
#include "host/err.h"

#include "support/bounded_text.h"
#include "support/gbk_text.h"

#include <algorithm>

namespace gbk = qaven::gbk;

const err_entry err_code_decsript[] = {
    {-1, gbk::kNoConfiguration},
    {-2, gbk::kNoSuchTerminal},
    {-3, gbk::kNoOpenCommand},
    {-4, gbk::kNoCloseCommand},
    {-5, gbk::kNoDescription},
    {-6, gbk::kNoDescription},
    {-7, gbk::kResponseTimeout},
    {-8, gbk::kInvalidDeviceHandle},
    {-9, gbk::kCardNotSeated},
    {-10, gbk::kInvalidCard},
    {-11, gbk::kNoDescription},
    {-12, gbk::kNoDescription},
    {-13, gbk::kNoDescription},
    {-14, gbk::kNoDescription},
    {-15, gbk::kNoDescription},
    {-16, gbk::kIllegalData},
    {-17, gbk::kAuxprefFailed},
    {-18, gbk::kAuxsuffFailed},
    {-19, gbk::kWriteFailed},
    {-20, gbk::kDeviceSilent},
    {-21, gbk::kGetAuxiliaryPortFailed},
    {-22, gbk::kSetAuxiliaryPortFailed},
    {-202, gbk::kNoCdol2},
    {-203, gbk::kNoTc},
    {-204, gbk::kNoTag},
    {-205, gbk::kEmptyOrIllegalData},
    {-206, gbk::kNoTag91},
    {-207, gbk::kNoTag80},
    {0, nullptr},
};

namespace qaven::errors {

std::string_view description(int code) {
    // The terminator is tested first, so code 0 has no description either.
    for (const err_entry* entry = err_code_decsript; entry->code != 0; ++entry) {
        if (entry->code == code) {
            return entry->text;
        }
    }
    return "";
}

void describe(int code, std::span<char> error_text) {
    BoundedText(error_text).append(description(code));
}

int folded(int code) {
    // The host's vocabulary is small on purpose: it does not tell -2 from -1, nor the codes of one
    // group here from each other or from a code of libusb.
    switch (code) {
    case -2:
        return -1;
    case -10:
        return -2;
    case -203:
    case -204:
        return -3;
    case -202:
    case -205:
    case -206:
        return -4;
    default:
        return code;
    }
}

} // namespace qaven::errors

namespace errors = qaven::errors;

const char* Qm_ErrGetDesc(int code) {
    return errors::description(code).data();
}

char* Qm_GetLastErrDesc(int code, char* dst) {
    *std::ranges::copy(errors::description(code), dst).out = '\0';
    return dst;
}

int transErr(int code) {
    return errors::folded(code);
}
