// The way to the issuer: at a counter a line to the bank's host, here a command, or somebody who
// types the answer.
#pragma once

#include <string>
#include <string_view>

namespace qaven::cli {

struct IssuerAnswer {
    std::string response_code; // two characters
    std::string response;      // for the card, in hex: tag 91, script templates

    bool approved() const;
};

// "00 910A...": response code and response in hex, or the response alone, whose tag 91 then holds
// the code. Throws a Failure for anything else, also for a tag 91 that is cut short.
IssuerAnswer parse_issuer_answer(std::string_view line);

// Why a response in hex cannot be an answer by itself, in words to follow on what it is called:
// "has no tag 91"; empty when it can.
std::string fault_of_response(std::string_view hex);

// The most that a line may have, several times what the library takes.
inline constexpr std::size_t kLongestLine = 8192;

// Runs a shell command with the request and a newline on its standard input, and takes the first
// line that it prints, once the command has ended; what it leaves running in the background is not
// waited for. "-" for the command: the request goes nowhere, the line comes from standard input.
// Throws a Failure when there is no answer.
IssuerAnswer ask_issuer(const std::string& command, const std::string& field55);

} // namespace qaven::cli
