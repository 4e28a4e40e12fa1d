// The command line of qaven-virtual-reader.
#pragma once

#include "virtual/usb/fault.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace qaven::virtual_plug {

// The address that USB/IP hosts connect to.
struct ListenAddress {
    std::string host = "127.0.0.1";
    unsigned port = 3240;
};

struct Options {
    bool help = false;
    bool usbip = false; // serves devices instead of running a command
    ListenAddress listen;
    bool attach = false;
    unsigned slot = 2; // which slot holds the card; 0: none
    std::string profile = "debit";
    std::optional<std::string> other_card; // the profile of a card in the other slot
    std::string driver;
    bool held = false;
    bool no_reader = false;
    bool second_reader = false;
    bool strict = false;
    std::optional<std::filesystem::path> capture;
    std::vector<virtual_usb::Fault> faults;
    std::optional<unsigned> remove_card_after;
    std::optional<std::chrono::milliseconds> replug_after;
    unsigned baud = 0;
    std::optional<std::string> idcard;
    std::optional<std::filesystem::path> save;
    std::vector<std::string> command; // of `run`
};

// A command line that makes no sense; what() is the sentence for the user.
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The arguments after the program's name. Throws UsageError.
[[nodiscard]] Options parse_options(std::span<const char* const> arguments);

[[nodiscard]] std::string usage_text();

} // namespace qaven::virtual_plug
