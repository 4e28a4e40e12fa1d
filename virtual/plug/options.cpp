// Reading the command line.
#include "virtual/plug/options.h"

#include "virtual/usb/number.h"

#include <algorithm>
#include <functional>
#include <initializer_list>
#include <map>
#include <string_view>

namespace qaven::virtual_plug {
namespace {

unsigned number(const std::string& option, const std::string& text) {
    const auto value = virtual_usb::parse_number(text);
    if (!value) {
        throw UsageError(option + " takes a number, not '" + text + "'");
    }
    return *value;
}

unsigned slot(const std::string& text) {
    if (text == "1" || text == "2") {
        return static_cast<unsigned>(text[0] - '0');
    }
    if (text == "none") {
        return 0;
    }
    throw UsageError("--slot takes 1, 2 or none, not '" + text + "'");
}

// "127.0.0.1:3240", "[::1]:3240"
ListenAddress listen_address(const std::string& text) {
    constexpr unsigned kHighestPort = 65535;
    const auto colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0 || text.starts_with("[]")) {
        throw UsageError("--listen takes ADDRESS:PORT, not '" + text + "'");
    }
    std::string host = text.substr(0, colon);
    if (host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    }
    const unsigned port = number("--listen", text.substr(colon + 1));
    if (port > kHighestPort) {
        throw UsageError("--listen takes a port up to 65535, not '" + text + "'");
    }
    return {.host = std::move(host), .port = port};
}

virtual_usb::Fault fault(const std::string& text) {
    try {
        return virtual_usb::parse_fault(text);
    } catch (const std::invalid_argument& error) {
        throw UsageError(error.what());
    }
}

using Flag = std::function<void(Options&)>;
using Setting = std::function<void(Options&, const std::string&)>;

const std::map<std::string, Flag, std::less<>>& flags() {
    static const std::map<std::string, Flag, std::less<>> kTable{
        {"--attach", [](Options& o) { o.attach = true; }},
        {"--help", [](Options& o) { o.help = true; }},
        {"--hold", [](Options& o) { o.held = true; }},
        {"--no-reader", [](Options& o) { o.no_reader = true; }},
        {"--second", [](Options& o) { o.second_reader = true; }},
        {"--strict", [](Options& o) { o.strict = true; }},
    };
    return kTable;
}

const std::map<std::string, Setting, std::less<>>& settings() {
    using Text = const std::string&;
    static const std::map<std::string, Setting, std::less<>> kTable{
        {"--slot", [](Options& o, Text text) { o.slot = slot(text); }},
        {"--profile", [](Options& o, Text text) { o.profile = text; }},
        {"--other-card", [](Options& o, Text text) { o.other_card = text; }},
        {"--driver", [](Options& o, Text text) { o.driver = text; }},
        {"--listen", [](Options& o, Text text) { o.listen = listen_address(text); }},
        {"--pcap", [](Options& o, Text text) { o.capture = text; }},
        {"--fault", [](Options& o, Text text) { o.faults.push_back(fault(text)); }},
        {"--remove-card-after",
         [](Options& o, Text text) { o.remove_card_after = number("--remove-card-after", text); }},
        {"--replug-after",
         [](Options& o, Text text) {
             o.replug_after = std::chrono::milliseconds(number("--replug-after", text));
         }},
        {"--speed", [](Options& o, Text text) { o.baud = number("--speed", text); }},
        {"--idcard", [](Options& o, Text text) { o.idcard = text; }},
        {"--save", [](Options& o, Text text) { o.save = text; }},
    };
    return kTable;
}

// Options that one of the verbs does not have.
void refuse(std::span<const std::string> words, std::initializer_list<std::string_view> options,
            const std::string& verb) {
    for (const auto& word : words) {
        const std::string_view name = std::string_view(word).substr(0, word.find('='));
        if (std::ranges::find(options, name) != options.end()) {
            throw UsageError(verb + " does not take " + std::string(name));
        }
    }
}

} // namespace

Options parse_options(std::span<const char* const> arguments) {
    Options options;
    const std::vector<std::string> words(arguments.begin(), arguments.end());
    if (words.empty()) {
        throw UsageError("missing verb: run or usbip");
    }
    if (words.front() == "--help") {
        options.help = true;
        return options;
    }
    if (words.front() != "run" && words.front() != "usbip") {
        throw UsageError("unknown verb '" + words.front() + "'");
    }
    options.usbip = words.front() == "usbip";
    std::size_t at = 1;
    for (; at < words.size() && words[at] != "--"; ++at) {
        std::string name = words[at];
        if (const auto flag = flags().find(name); flag != flags().end()) {
            flag->second(options);
            continue;
        }
        std::optional<std::string> value;
        if (const auto equals = name.find('='); equals != std::string::npos) {
            value = name.substr(equals + 1);
            name.resize(equals);
        }
        const auto setting = settings().find(name);
        if (setting == settings().end()) {
            throw UsageError("unknown option '" + words[at] + "'; put the command after --");
        }
        if (!value) {
            if (at + 1 >= words.size()) {
                throw UsageError(name + " needs a value");
            }
            value = words[++at];
        }
        setting->second(options, *value);
    }
    if (options.help) {
        return options;
    }
    const auto given = std::span(words).first(at);
    if (options.usbip) {
        refuse(given, {"--driver", "--hold"}, "usbip");
        if (at < words.size()) {
            throw UsageError("usbip takes no command");
        }
        if (options.attach) {
            refuse(given, {"--listen"}, "usbip --attach");
        }
        return options;
    }
    refuse(given, {"--attach", "--listen"}, "run");
    if (at + 1 >= words.size()) {
        throw UsageError("missing command after --");
    }
    options.command.assign(words.begin() + static_cast<std::ptrdiff_t>(at) + 1, words.end());
    return options;
}

std::string usage_text() {
    return R"(usage: qaven-virtual-reader run [options] -- COMMAND ARGS
       qaven-virtual-reader usbip [--listen ADDR:PORT | --attach] [options]

run: runs COMMAND with a virtual bank-card reader (2F7A:4417) on its USB bus and a virtual card in
the reader. The exit status is that of COMMAND, or 128 + n if signal n ended it.

usbip: serves the same reader over USB/IP until a signal or the command "quit" ends it. Commands on
standard input: unplug, plug, card out, card in, fault after=N:KIND, status, quit.

  --listen ADDR:PORT      address to listen on (default 127.0.0.1:3240); a host attaches the reader
                          with "usbip attach -r ADDR -b 1-1"; ADDR must be a numeric IP address
  --attach                plugs the reader into this machine; needs the kernel module vhci-hcd and
                          write permission for its files in sysfs

Both verbs:

  --slot 1|2|none         the slot that holds the card (default 2)
  --profile NAME|FILE     the card: a shipped profile's name or a profile file (default debit)
  --other-card NAME|FILE  another card, in the other slot
  --driver NAME           (run) binds a kernel driver of this name to the reader's slots
  --hold                  (run) another program has claimed the reader's slots
  --no-reader             no bank-card reader
  --second                adds a second reader, without a card
  --strict                malformed messages get the CCID-defined error
  --pcap FILE             capture of the USB traffic, for Wireshark (pcapng)
  --fault after=N:KIND    injects a fault after N bulk transfers; KIND is timeout, stall (this
                          transfer), halt (until cleared), unplug, overflow, short, garbage, late
                          or late=MS, extension or extension=MS; may be given several times
  --replug-after MS       an unplugged reader comes back after MS milliseconds
  --remove-card-after N   the card is taken out after N command APDUs
  --speed BAUD            speed of the card's line in bit/s (default: no delay)
  --save FILE             saves the card as a profile at the end
  --idcard KIND           adds an identity-card reader (2F7A:4463); KIND is resident, foreign, hmt
                          or none
  --help                  this text
)";
}

} // namespace qaven::virtual_plug
