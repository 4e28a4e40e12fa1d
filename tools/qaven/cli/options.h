// The command line of a verb: what it takes, as a table, and what was given. The same table makes
// the help.
#pragma once

#include "tools/qaven/cli/verbs.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qaven::cli {

struct Option {
    std::string_view name;  // with its dashes
    std::string_view value; // what the help calls its value; empty for an option without one
    std::string_view help;  // further lines begin behind a newline
};

// Options that several verbs have.
inline constexpr Option kJson{"--json", "",
                              "print the library's own answer, card numbers included"};
inline constexpr Option kShowPan{"--show-pan", "",
                                 "show card number, track data and ID number in full"};
inline constexpr Option kQuiet{"--quiet", "", "do not say what is being waited for"};

struct Syntax {
    std::string_view verb;
    std::string_view usage; // what follows the verb on the usage line
    std::string_view purpose;
    std::vector<Option> options;
    std::string_view notes; // behind the options in the help
};

class Options {
  public:
    bool has(std::string_view name) const { return given_.contains(name); }

    // The last value that was given.
    std::optional<std::string> value(std::string_view name) const;
    std::string value_or(std::string_view name, std::string_view otherwise) const;

    // Every value, in order.
    std::vector<std::string> all(std::string_view name) const;

  private:
    friend std::optional<Options> read_options(const Syntax& syntax, Arguments arguments);

    std::map<std::string, std::vector<std::string>, std::less<>> given_;
};

// The options given, `--name value` or `--name=value`; nothing when help was asked for, which is
// printed then. Throws UsageError.
std::optional<Options> read_options(const Syntax& syntax, Arguments arguments);

} // namespace qaven::cli
