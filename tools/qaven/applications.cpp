// AIDs, and the end of an operation that failed.
#include "tools/qaven/applications.h"

#include "qaven/qaven.h"
#include "tools/emv/hex.h"
#include "tools/qaven/bus.h"
#include "tools/qaven/library.h"

namespace qaven::cli {

using namespace emv;

namespace {

constexpr const char* kAnyUnionPay = "A000000333";
constexpr const char* kUsualAids = "A000000333|A000000333010101|A000000333010102";

constexpr std::size_t kShortestAid = 10;
constexpr std::size_t kLongestAid = 32;

std::string checked(const std::string& aid) {
    if (!is_hex(aid) || aid.size() < kShortestAid || aid.size() > kLongestAid) {
        throw UsageError("--aid takes 5 to 16 bytes in hexadecimal, not '" + aid + "'");
    }
    return aid;
}

} // namespace

std::string aid_list(const Options& options) {
    std::string list;
    for (const std::string& aid : options.all(kAidList.name)) {
        list += (list.empty() ? "" : "|") + checked(aid);
    }
    return list.empty() ? kUsualAids : list;
}

std::string one_aid(const Options& options) {
    const auto aid = options.value(kOneAid.name);
    return aid ? checked(*aid) : kAnyUnionPay;
}

Failure operation_failure(const std::string& what, int code) {
    if (Bus().readers(kCardReader).empty()) {
        return {kNoReader, what + ": the reader has gone"};
    }
    if (slots_are_empty()) {
        return {kNoCard, what + ": the card was taken out"};
    }
    if (code == QAVEN_OK) {
        return {kFailed, what};
    }
    // The card that the reader holds would otherwise be said to be missing.
    return {kFailed, what + ": " +
                         (code == QAVEN_NO_CARD ? "GPO response format 2 is not supported"
                                                : explained(code))};
}

void require_whole_reading(const std::string& reader) {
    constexpr const char* complaint = "the card was not read whole";
    const std::vector<Reader> readers = Bus().readers(kCardReader);
    // A reader that was plugged in again meanwhile has another node.
    if (readers.empty() || readers.front().node() != reader) {
        throw Failure(kNoReader, std::string(complaint) + ": the reader was unplugged");
    }
    if (slots_are_empty()) {
        throw Failure(kNoCard, std::string(complaint) + ": the card was taken out");
    }
}

} // namespace qaven::cli
