// The library's results in words.
#include "decode/result_codes.h"

#include "decode/apdu.h"

#include <qaven/qaven.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace tool {

namespace {

struct Result {
    int code;
    std::string_view words;
};

constexpr auto kResults = std::to_array<Result>({
    {QAVEN_OK, "success"},
    {QAVEN_NO_CARD, "no card in the reader"},
    {QAVEN_INVALID_CARD, "invalid card"},
    {QAVEN_NO_CRYPTOGRAM, "no TC or ARQC, or a data object is missing"},
    {QAVEN_BAD_RESPONSE, "the reader is gone, or data of issuer or card are missing or illegal"},
    {QAVEN_TIMEOUT, "the reader did not answer in time"},
    {QAVEN_BAD_HANDLE, "no reader is open"},
    {QAVEN_CARD_NOT_SEATED, "the card is not seated, or there is more than one"},
    {-10, "invalid card"},
    {QAVEN_ILLEGAL_DATA, "the input or the reader's answer is not usable"},
    {QAVEN_NO_LOAD_LOG, "the card keeps no load log"},
    {QAVEN_NO_APPLICATION, "no single application for this AID, or no reader at all"},
    {QAVEN_NO_CDOL2, "the application data have no CDOL2"},
    {QAVEN_NO_TC, "the card did not give the cryptogram that was asked for"},
    {QAVEN_NO_TAG, "a data object is missing"},
    {QAVEN_EMPTY_DATA, "data are empty or illegal"},
    {QAVEN_NO_TAG_91, "the issuer's answer has no object 91"},
    {QAVEN_NO_TAG_80, "the card's answer has no template 80"},
});

} // namespace

std::string result_text(int result) {
    const std::string number = std::to_string(result);
    if (result > 0 && result <= 0xFFFF) {
        return number + ": the card answered " + status_line(static_cast<unsigned>(result));
    }
    const auto* const known = std::ranges::find(kResults, result, &Result::code);
    return known != kResults.end() ? number + ": " + std::string(known->words)
                                   : number + ": unknown result";
}

} // namespace tool
