// Which application of the card an operation is for, and what to say when it fails.
#pragma once

#include "tools/qaven/cli/exit_status.h"
#include "tools/qaven/cli/options.h"

#include <string>

namespace qaven::cli {

inline constexpr Option kAidList{"--aid", "AID",
                                 "an application to try, hexadecimal; may be given more than once\n"
                                 "(the first of UnionPay's, else its debit, else its credit)"};

inline constexpr Option kOneAid{"--aid", "AID",
                                "the application, hexadecimal (the first of UnionPay's)"};

// The AIDs given, or the usual ones, for a JSON key "AIDList" that takes a list.
std::string aid_list(const Options& options);

// The one AID given, or the prefix of UnionPay's.
std::string one_aid(const Options& options);

// "<what>: <why>". Looks at the reader again: one that was pulled out is kNoReader, a card that was
// taken out kNoCard.
Failure operation_failure(const std::string& what, int code);

// Behind a reading, with the reader that require_card gave. The library passes over records that it
// cannot read, and calls what is left a success: when reader or card have gone, this throws a
// Failure.
void require_whole_reading(const std::string& reader);

} // namespace qaven::cli
