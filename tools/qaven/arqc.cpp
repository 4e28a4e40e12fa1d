// qaven arqc: the authorisation request of a transaction, and if there is a way to the issuer, the
// rest of it.
#include "tools/qaven/cli/exit_status.h"
#include "tools/qaven/cli/verbs.h"
#include "tools/qaven/transaction.h"

namespace qaven::cli {

namespace {

constexpr Option kIssuer{"--issuer", "COMMAND",
                         "go on: ask the issuer, hand its answer to the card"};

Syntax syntax() {
    return {
        "arqc", "--amount AMOUNT [OPTIONS]",
        "Has the card in the reader generate an authorisation request cryptogram (ARQC) for a\n"
        "transaction, and shows the request for the issuer (field 55).",
        transaction_options({kIssuer}),
        "The card waits for the issuer's answer as long as it is powered, which is until this\n"
        "command ends. With --issuer it goes on: COMMAND is run by the shell, gets the request\n"
        "in hex on its standard input, and prints a line with the response code and the\n"
        "response for the card in hex ('00 910A...'), or with the response alone. With\n"
        "'--issuer -' the line is read from standard input; --show-pan or --json shows the\n"
        "request that it answers. With --json each step's answer is printed by itself.\n"
        "\n"
        "example, with the issuer of the virtual cards:\n"
        "  qaven arqc --amount 12.13 --issuer \\\n"
        "    'qaven-issuer answer --profile debit.json --arqc \"$(cat)\"'"};
}

} // namespace

int arqc_command(Arguments arguments) {
    const auto options = read_options(syntax(), arguments);
    if (!options) {
        return kFine;
    }
    const auto command = options->value(kIssuer.name);
    if (!command) {
        return run_transaction(*options, {});
    }
    return run_transaction(
        *options, [&command](const std::string& field55) { return ask_issuer(*command, field55); });
}

} // namespace qaven::cli
