// What a card's status word says.
#include "tools/emv/status_words.h"

#include "tools/emv/hex.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace qaven::emv {

namespace {

struct Status {
    unsigned mask;
    unsigned status;
    std::string_view words;
};

// The narrow entries ahead of the wide ones.
constexpr auto kStatus = std::to_array<Status>({
    {0xFFFF, 0x9000, "success"},
    {0xFFFF, 0x6281, "the data may be damaged"},
    {0xFFFF, 0x6282, "the file ends before the wanted length"},
    {0xFFFF, 0x6283, "the selected file or application is blocked"},
    {0xFFFF, 0x6284, "the control information is not in the expected form"},
    {0xFFFF, 0x6285, "the selected file is terminated"},
    {0xFF00, 0x6200, "warning, nothing was changed"},
    {0xFFFF, 0x6300, "verification or authentication failed"},
    {0xFFFF, 0x6381, "the file is full"},
    {0xFF00, 0x6300, "warning, something was changed"},
    {0xFF00, 0x6400, "execution failed, nothing was changed"},
    {0xFFFF, 0x6581, "writing to the card's memory failed"},
    {0xFF00, 0x6500, "execution failed, something was changed"},
    {0xFF00, 0x6600, "security-related error"},
    {0xFF00, 0x6700, "wrong length"},
    {0xFFFF, 0x6881, "logical channels are not supported"},
    {0xFFFF, 0x6882, "secure messaging is not supported"},
    {0xFF00, 0x6800, "a function of the class byte is not supported"},
    {0xFFFF, 0x6981, "the command does not fit the file"},
    {0xFFFF, 0x6982, "the security status is not satisfied"},
    {0xFFFF, 0x6983, "the authentication method (PIN) is blocked"},
    {0xFFFF, 0x6984, "the reference data are not usable"},
    {0xFFFF, 0x6985, "the conditions of use are not satisfied"},
    {0xFFFF, 0x6986, "the command is not allowed, no file is selected"},
    {0xFFFF, 0x6987, "a secure messaging object is missing"},
    {0xFFFF, 0x6988, "a secure messaging object is wrong (MAC)"},
    {0xFF00, 0x6900, "the command is not allowed"},
    {0xFFFF, 0x6A80, "wrong data in the command"},
    {0xFFFF, 0x6A81, "the function is not supported, or the card is blocked"},
    {0xFFFF, 0x6A82, "the file or application is not found"},
    {0xFFFF, 0x6A83, "the record is not found"},
    {0xFFFF, 0x6A84, "no memory left in the file"},
    {0xFFFF, 0x6A86, "wrong P1 or P2"},
    {0xFFFF, 0x6A88, "the referenced data are not found"},
    {0xFF00, 0x6A00, "wrong parameters"},
    {0xFF00, 0x6B00, "wrong P1 or P2"},
    {0xFF00, 0x6D00, "the instruction is not supported"},
    {0xFF00, 0x6E00, "the class is not supported"},
    {0xFF00, 0x6F00, "no precise diagnosis"},
    {0xFFFF, 0x9302, "wrong MAC"},
    {0xFFFF, 0x9303, "the application is blocked for good"},
    {0xFFFF, 0x9401, "the balance is not sufficient"},
    {0xFFFF, 0x9402, "the transaction counter has reached its end"},
    {0xFFFF, 0x9403, "the key index is not supported"},
    {0xFFFF, 0x9406, "no MAC is available"},
});

std::string count(unsigned number, std::string_view what) {
    return std::to_string(number) + ' ' + std::string(what) + (number == 1 ? "" : "s");
}

} // namespace

std::string status_text(unsigned status) {
    const unsigned sw2 = status & 0xFFU;
    if (status >> 8U == 0x61) {
        return "success, " + count(sw2 == 0 ? 256 : sw2, "more byte") +
               " to be fetched with GET RESPONSE";
    }
    if (status >> 8U == 0x6C) {
        return "wrong Le, the card has " + count(sw2 == 0 ? 256 : sw2, "byte");
    }
    if ((status & 0xFFF0U) == 0x63C0) {
        return "verification failed, tries left: " + std::to_string(sw2 & 0xFU);
    }
    for (const Status& known : kStatus) {
        if ((status & known.mask) == known.status) {
            return std::string(known.words);
        }
    }
    return "unknown status word";
}

std::string status_line(unsigned status) {
    return hex(status, 4) + ' ' + status_text(status);
}

bool looks_like_status(unsigned status) {
    const unsigned sw1 = status >> 8U;
    return status == 0x9000 || (sw1 >= 0x61 && sw1 <= 0x6F) ||
           std::ranges::any_of(kStatus, [&](const Status& known) {
               return known.mask == 0xFFFF && known.status == status;
           });
}

} // namespace qaven::emv
