// The table of host status and authorisation response code.
#include "engine/operation/issuer_decision.h"

#include <algorithm>
#include <array>

namespace qaven::arpc {

namespace {

using cryptogram::Ask;

struct ApprovedRow {
    std::string_view arc;
    Decision decision;
};

// What an approving host's response code asks of the card.
constexpr std::array kApproved{
    ApprovedRow{"00", {Ask::kTc, OnAac::kReportCommand}},
    ApprovedRow{"10", {Ask::kTc, OnAac::kReportCommand}},
    ApprovedRow{"11", {Ask::kTc, OnAac::kReportCommand}},
    ApprovedRow{"01", {Ask::kReferral, OnAac::kNotATc}},
    ApprovedRow{"02", {Ask::kReferral, OnAac::kNotATc}},
};

constexpr Decision kAnyOtherCode{Ask::kAac, OnAac::kAccepted};
constexpr Decision kHostDeclined{Ask::kAac, OnAac::kDeclined};

} // namespace

Decision decide(int host_status, std::string_view arc) {
    if (host_status != 0) {
        return kHostDeclined;
    }
    const auto row = std::ranges::find(kApproved, arc, &ApprovedRow::arc);
    return row != kApproved.end() ? row->decision : kAnyOtherCode;
}

} // namespace qaven::arpc
