// A transaction from the command line: what it is about, the ARQC step, and the issuer's answer.
#pragma once

#include "tools/qaven/cli/options.h"
#include "tools/qaven/issuer.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace qaven::cli {

// The options that describe a transaction, and `more` behind them.
std::vector<Option> transaction_options(const std::vector<Option>& more);

// The library's transaction data string. Throws UsageError.
std::string transaction_data(const Options& options);

// The ARQC step with the card in the reader, shown as the options say; then, if there is a way to
// the issuer, its answer handed to the card. The way gets the request, field 55 in hex. Both steps
// belong into one process: the card stays powered between them only there.
using WayToIssuer = std::function<IssuerAnswer(const std::string& field55)>;
int run_transaction(const Options& options, const WayToIssuer& ask);

} // namespace qaven::cli
