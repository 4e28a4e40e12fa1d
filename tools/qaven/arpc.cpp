// qaven arpc: an answer of the issuer that is known beforehand, handed to the card.
#include "tools/emv/hex.h"
#include "tools/qaven/cli/exit_status.h"
#include "tools/qaven/cli/verbs.h"
#include "tools/qaven/transaction.h"

namespace qaven::cli {

using namespace emv;

namespace {

constexpr Option kArc{"--arc", "CC", "authorisation response code, two characters (00)"};
constexpr Option kArpc{"--arpc", "HEX", "the issuer's cryptogram, 8 bytes"};
constexpr Option kScript{"--script", "HEX",
                         "an issuer script template, 71 or 72; may be given more than once"};
constexpr Option kResponse{"--response", "HEX",
                           "instead of these three: tag 91 and templates as the issuer sent them"};

constexpr std::size_t kArpcDigits = 16;

Syntax syntax() {
    return {
        "arpc", "--amount AMOUNT (--arpc HEX | --response HEX) [OPTIONS]",
        "Hands an answer of the issuer to the card in the reader, behind an ARQC step of its own.",
        transaction_options({kArc, kArpc, kScript, kResponse}),
        "A card waits for its issuer's answer only as long as it is powered, and it is powered\n"
        "within one process only: so this command generates an ARQC first, and an ARPC that\n"
        "answers the ARQC of an earlier command is refused by the card. It is for issuers that\n"
        "answer without looking, and for seeing what a card does with a wrong answer. To answer\n"
        "the ARQC, use 'qaven arqc --issuer COMMAND'."};
}

std::string checked(const Option& option, const std::string& text) {
    if (!is_hex(text)) {
        throw UsageError(std::string(option.name) + " takes bytes in hexadecimal, not '" + text +
                         "'");
    }
    return text;
}

IssuerAnswer answer_from_parts(const Options& options, const std::string& arpc) {
    const std::string code = options.value_or(kArc.name, "00");
    if (checked(kArpc, arpc).size() != kArpcDigits) {
        throw UsageError("--arpc takes 8 bytes, not '" + arpc + "'");
    }
    if (code.size() != 2) {
        throw UsageError("--arc takes two characters, not '" + code + "'");
    }
    std::string line = code + " 910A" + arpc + hex(bytes_of(code));
    for (const std::string& script : options.all(kScript.name)) {
        line += checked(kScript, script);
    }
    return parse_issuer_answer(line);
}

IssuerAnswer answer_of(const Options& options) {
    const auto response = options.value(kResponse.name);
    const auto arpc = options.value(kArpc.name);
    if (!response && !arpc) {
        throw UsageError("the issuer's answer is missing: either --arpc or --response");
    }
    if (response && arpc) {
        throw UsageError("only one of --arpc and --response may be given");
    }
    if (!response) {
        return answer_from_parts(options, *arpc);
    }
    if (options.has(kArc.name) || options.has(kScript.name)) {
        throw UsageError("--response holds response code and scripts already");
    }
    if (const std::string fault = fault_of_response(checked(kResponse, *response));
        !fault.empty()) {
        throw UsageError("--response " + *response + " " + fault);
    }
    return parse_issuer_answer(*response);
}

} // namespace

int arpc_command(Arguments arguments) {
    const auto options = read_options(syntax(), arguments);
    if (!options) {
        return kFine;
    }
    IssuerAnswer answer = answer_of(*options);
    return run_transaction(*options, [&answer](const std::string&) { return answer; });
}

} // namespace qaven::cli
