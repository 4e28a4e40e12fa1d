// The library's results in words.
#include "tools/emv/result_codes.h"

#include "tools/emv/status_words.h"

#include <qaven/qaven.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace qaven::emv {

namespace {

struct Result {
    int code;
    std::string_view words;
};

constexpr auto kResults = std::to_array<Result>({
    {QAVEN_OK, "success"},
    {QAVEN_NO_CARD, "no card in the reader, or its GPO response has format 2"},
    {QAVEN_INVALID_CARD, "the card is invalid"},
    {QAVEN_NO_CRYPTOGRAM, "no TC or ARQC, or a data object is missing"},
    {QAVEN_BAD_RESPONSE,
     "data of the issuer or the card is missing or invalid, or the reader is gone"},
    {QAVEN_TIMEOUT, "the reader did not answer in time"},
    {QAVEN_BAD_HANDLE, "no reader is open"},
    {QAVEN_CARD_NOT_SEATED,
     "the card is not seated, or there is more than one, or the reader refused a transfer"},
    {-10, "the card is invalid"},
    {QAVEN_ILLEGAL_DATA, "the input or the reader's response is not usable"},
    {QAVEN_NO_LOAD_LOG, "the card keeps no load log"},
    {QAVEN_NO_APPLICATION, "no single application for this AID, or no reader at all"},
    {QAVEN_NO_CDOL2, "the application data has no CDOL2"},
    {QAVEN_NO_TC, "the card did not return the cryptogram that was asked for"},
    {QAVEN_NO_TAG, "a data object is missing"},
    {QAVEN_EMPTY_DATA, "data is empty or invalid"},
    {QAVEN_NO_TAG_91, "the issuer's answer has no object 91"},
    {QAVEN_NO_TAG_80, "the card's response has no template 80"},
});

} // namespace

std::string result_words(int result) {
    if (result > 0 && result <= 0xFFFF) {
        return status_text(static_cast<unsigned>(result));
    }
    const auto* const known = std::ranges::find(kResults, result, &Result::code);
    return std::string(known != kResults.end() ? known->words : "unknown result");
}

std::string result_text(int result) {
    return std::to_string(result) + ": " +
           (result > 0 && result <= 0xFFFF
                ? "the card answered " + status_line(static_cast<unsigned>(result))
                : result_words(result));
}

} // namespace qaven::emv
