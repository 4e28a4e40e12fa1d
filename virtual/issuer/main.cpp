// qaven-issuer: the issuer on the command line.
#include <exception>
#include <iostream>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <cjson/cJSON.h>

#include "virtual/card/find_profile.h"
#include "virtual/card/json.h"
#include "virtual/issuer/issuer.h"

namespace card = qaven::virtual_card;
namespace issuer = qaven::virtual_issuer;

namespace {

constexpr int kExitVerified = 0;
constexpr int kExitNotVerified = 1;
constexpr int kExitNotWritten = 1;
constexpr int kExitNoVerdict = 2;

constexpr std::string_view kUsage =
    "qaven-issuer verify    --profile NAME|FILE --arqc HEX [--json]\n"
    "qaven-issuer verify-tc --profile NAME|FILE --tc HEX [--json]\n"
    "qaven-issuer answer    --profile NAME|FILE --arqc HEX [--arc CC] [--script COMMAND]...\n"
    "                       [--template 71|72] [--script-id HEX] [--wrong-arpc] [--wrong-mac]\n"
    "\n"
    "verify and verify-tc list the data objects and verify the cryptogram: exit status 0 if it is\n"
    "genuine, 1 if it is not, 2 if the arguments, the profile or the card data are invalid.\n"
    "answer prints the issuer's response as hex: tag 91 and, with --script, a script template.\n"
    "--profile is the card profile with the issuer keys, a shipped one or a file, --arc the two\n"
    "characters of the response code (default 00). Script commands:\n"
    "  application-block  application-unblock  card-block  pin-unblock  pin-change=DIGITS\n"
    "  put-data=TAG:VALUE  update-record=SFI:NUMBER:RECORD  plain=COMMAND (sent without MAC)\n";

struct Options {
    std::string verb;
    std::string profile;
    std::string card_data;
    bool json = false;
    issuer::Answer answer;
};

// The value that follows an option.
std::string_view take_value(const std::vector<std::string_view>& arguments, std::size_t& at) {
    if (at + 1 >= arguments.size()) {
        throw std::invalid_argument(std::string(arguments[at]) + " needs a value.");
    }
    return arguments[++at];
}

card::Arc read_arc(std::string_view text) {
    if (text.size() != 2) {
        throw std::invalid_argument("--arc takes two characters.");
    }
    return {static_cast<std::uint8_t>(text[0]), static_cast<std::uint8_t>(text[1])};
}

issuer::TagNumber read_template(std::string_view text) {
    if (text != "71" && text != "72") {
        throw std::invalid_argument("--template takes 71 or 72.");
    }
    return text == "71" ? qaven::kTag71IssuerScript1 : qaven::kTag72IssuerScript2;
}

std::array<std::uint8_t, 4> read_script_identifier(std::string_view text) {
    const auto bytes = card::from_hex(text);
    if (!bytes || bytes->size() != 4) {
        throw std::invalid_argument("--script-id takes eight hexadecimal digits.");
    }
    return {(*bytes)[0], (*bytes)[1], (*bytes)[2], (*bytes)[3]};
}

bool read_answer_option(Options& options, const std::vector<std::string_view>& arguments,
                        std::size_t& at) {
    const std::string_view name = arguments[at];
    issuer::Answer& answer = options.answer;
    if (name == "--arc") {
        answer.arc = read_arc(take_value(arguments, at));
    } else if (name == "--script") {
        answer.script.push_back(issuer::parse_script_command(take_value(arguments, at)));
    } else if (name == "--template") {
        answer.script_template = read_template(take_value(arguments, at));
    } else if (name == "--script-id") {
        answer.script_identifier = read_script_identifier(take_value(arguments, at));
    } else if (name == "--wrong-arpc") {
        answer.genuine_authentication = false;
    } else if (name == "--wrong-mac") {
        answer.genuine_script_macs = false;
    } else {
        return false;
    }
    return true;
}

Options read_options(const std::vector<std::string_view>& arguments) {
    Options options;
    options.verb = arguments.empty() ? "" : arguments.front();
    if (options.verb != "verify" && options.verb != "verify-tc" && options.verb != "answer") {
        throw std::invalid_argument("The verb has to be verify, verify-tc or answer.");
    }
    const std::string_view card_data_name = options.verb == "verify-tc" ? "--tc" : "--arqc";
    for (std::size_t at = 1; at < arguments.size(); ++at) {
        const std::string_view name = arguments[at];
        if (name == "--profile") {
            options.profile = take_value(arguments, at);
        } else if (name == card_data_name) {
            options.card_data = take_value(arguments, at);
        } else if (name == "--json" && options.verb != "answer") {
            options.json = true;
        } else if (options.verb != "answer" || !read_answer_option(options, arguments, at)) {
            throw std::invalid_argument("Unknown option " + std::string(name) + " of " +
                                        options.verb + ".");
        }
    }
    if (options.profile.empty() || options.card_data.empty()) {
        throw std::invalid_argument(options.verb + " needs --profile and " +
                                    std::string(card_data_name) + ".");
    }
    return options;
}

std::string_view algorithm_name(card::Algorithm algorithm) {
    return algorithm == card::Algorithm::kSm4 ? "SM4" : "3DES";
}

void print_words(const issuer::Field55& field, const issuer::Verdict& verdict) {
    for (const issuer::ReceivedObject& object : field.objects()) {
        std::string tag = issuer::tag_text(object.tag);
        tag.resize(6, ' ');
        std::cout << (issuer::is_covered(object.tag) ? "* " : "  ") << tag
                  << card::to_hex(object.value) << "  " << issuer::tag_name(object.tag) << '\n';
    }
    std::cout << "(* enters the cryptogram or its check)\n";
    if (const auto& comparison = verdict.comparison) {
        std::cout << "The card says:\n";
        for (const std::string& phrase : issuer::describe(comparison->cvr)) {
            std::cout << "  " << phrase << '\n';
        }
        std::cout << "Received " << card::to_hex(comparison->received) << ", computed "
                  << card::to_hex(comparison->computed) << " ("
                  << algorithm_name(comparison->algorithm) << ").\n";
    }
    std::cout << (verdict.verified ? "VERIFIED. " : "NOT VERIFIED. ") << verdict.reason << '\n';
}

void add_text(cJSON* object, const char* name, const std::string& text) {
    cJSON_AddStringToObject(object, name, text.c_str());
}

void print_json(const issuer::Field55& field, const issuer::Verdict& verdict) {
    const card::JsonTree tree(cJSON_CreateObject());
    cJSON_AddBoolToObject(tree.get(), "verified", verdict.verified ? 1 : 0);
    add_text(tree.get(), "reason", verdict.reason);
    if (const auto& comparison = verdict.comparison) {
        add_text(tree.get(), "received", card::to_hex(comparison->received));
        add_text(tree.get(), "computed", card::to_hex(comparison->computed));
        add_text(tree.get(), "algorithm", std::string(algorithm_name(comparison->algorithm)));
        cJSON* card_says = cJSON_AddArrayToObject(tree.get(), "card");
        for (const std::string& phrase : issuer::describe(comparison->cvr)) {
            cJSON_AddItemToArray(card_says, cJSON_CreateString(phrase.c_str()));
        }
    }
    cJSON* objects = cJSON_AddArrayToObject(tree.get(), "objects");
    for (const issuer::ReceivedObject& object : field.objects()) {
        cJSON* entry = cJSON_CreateObject();
        add_text(entry, "tag", issuer::tag_text(object.tag));
        add_text(entry, "name", std::string(issuer::tag_name(object.tag)));
        cJSON_AddBoolToObject(entry, "covered", issuer::is_covered(object.tag) ? 1 : 0);
        add_text(entry, "value", card::to_hex(object.value));
        cJSON_AddItemToArray(objects, entry);
    }
    const std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_Print(tree.get()), &cJSON_free);
    std::cout << text.get() << '\n';
}

int run(const Options& options) {
    const issuer::Issuer bank = issuer::Issuer::from_profile(card::find_profile(options.profile));
    const issuer::Field55 field = issuer::Field55::parse(options.card_data);
    if (options.verb == "answer") {
        std::cout << card::to_hex(bank.answer(field, options.answer)) << '\n';
        return kExitVerified;
    }
    const auto kind = options.verb == "verify" ? issuer::CryptogramKind::kRequest
                                               : issuer::CryptogramKind::kTransactionCertificate;
    const issuer::Verdict verdict = bank.verify(field, kind);
    if (options.json) {
        print_json(field, verdict);
    } else {
        print_words(field, verdict);
    }
    return verdict.verified ? kExitVerified : kExitNotVerified;
}

int choose(const std::vector<std::string_view>& arguments) {
    if (!arguments.empty() && arguments.front() == "--help") {
        std::cout << kUsage;
        return kExitVerified;
    }
    return run(read_options(arguments));
}

} // namespace

int main(int argc, char** argv) {
    try {
        const auto words = std::span(argv, static_cast<std::size_t>(argc)).subspan(1);
        const int status = choose({words.begin(), words.end()});
        if (!std::cout.flush()) {
            std::cerr << "cannot write to standard output\n";
            return status == kExitVerified ? kExitNotWritten : status;
        }
        return status;
    } catch (const std::invalid_argument& error) {
        std::cerr << error.what() << "\nTry 'qaven-issuer --help'.\n";
        return kExitNoVerdict;
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return kExitNoVerdict;
    }
}
