// Running the issuer's command.
#include "issuer.h"

#include "exit_status.h"
#include "objects.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <csignal>
#include <iostream>
#include <optional>
#include <sstream>
#include <system_error>

namespace tool {

namespace {

constexpr std::size_t kCodeCharacters = 2;
constexpr std::size_t kArpcDigits = 16;

bool is_hex(std::string_view text) {
    return !text.empty() && text.size() % 2 == 0 &&
           text.find_first_not_of("0123456789ABCDEFabcdef") == std::string_view::npos;
}

std::string upper(std::string text) {
    std::ranges::transform(text, text.begin(),
                           [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

// The authorisation response code behind the ARPC in tag 91.
std::optional<std::string> code_in(const std::string& response) {
    const auto data = object_value(read_objects(response), "91");
    if (!data || data->size() < kArpcDigits + 2 * kCodeCharacters) {
        return std::nullopt;
    }
    std::string code;
    for (std::size_t i = 0; i < kCodeCharacters; ++i) {
        code += static_cast<char>(std::stoi(data->substr(kArpcDigits + 2 * i, 2), nullptr, 16));
    }
    return code;
}

class Pipe {
  public:
    Pipe() {
        if (pipe(ends_.data()) != 0) {
            throw std::system_error(errno, std::generic_category(), "no pipe to the issuer");
        }
    }
    ~Pipe() {
        close_end(0);
        close_end(1);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    int reading() const { return ends_[0]; }
    int writing() const { return ends_[1]; }

    void close_end(std::size_t end) {
        if (ends_.at(end) >= 0) {
            close(ends_.at(end));
            ends_.at(end) = -1;
        }
    }

  private:
    std::array<int, 2> ends_{-1, -1};
};

pid_t start(const std::string& command, const Pipe& to, const Pipe& from) {
    std::string shell = "sh";
    std::string option = "-c";
    std::string line = command;
    const std::array<char*, 4> arguments{shell.data(), option.data(), line.data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, to.reading(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, from.writing(), STDOUT_FILENO);
    for (const int end : {to.reading(), to.writing(), from.reading(), from.writing()}) {
        posix_spawn_file_actions_addclose(&actions, end);
    }
    pid_t child = 0;
    const int error = posix_spawn(&child, "/bin/sh", &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), "the issuer's command");
    }
    return child;
}

std::string read_all(int from) {
    std::string text;
    std::array<char, 4096> chunk{};
    for (ssize_t count = 0; (count = read(from, chunk.data(), chunk.size())) > 0;) {
        text.append(chunk.data(), static_cast<std::size_t>(count));
    }
    return text;
}

std::string output_of(const std::string& command, const std::string& input) {
    // A command that does not read its input is no reason to die.
    std::signal(SIGPIPE, SIG_IGN);
    Pipe to;
    Pipe from;
    const pid_t child = start(command, to, from);
    to.close_end(0);
    from.close_end(1);
    // A request is far smaller than a pipe holds, so nobody waits here.
    if (write(to.writing(), input.data(), input.size()) < 0 && errno != EPIPE) {
        throw std::system_error(errno, std::generic_category(), "the issuer's command");
    }
    to.close_end(1);
    std::string output = read_all(from.reading());
    int status = 0;
    if (waitpid(child, &status, 0) != child || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        throw Failure(kFailed, "the issuer's command failed");
    }
    return output;
}

} // namespace

bool IssuerAnswer::approved() const {
    return response_code == "00" || response_code == "10" || response_code == "11";
}

IssuerAnswer parse_issuer_answer(std::string_view line) {
    std::istringstream words{std::string(line)};
    std::string first;
    std::string second;
    std::string third;
    words >> first >> second >> third;
    if (third.empty() && first.size() == kCodeCharacters && is_hex(second)) {
        return {first, upper(second)};
    }
    if (second.empty() && is_hex(first)) {
        const std::string response = upper(first);
        if (const auto code = code_in(response)) {
            return {*code, response};
        }
    }
    throw Failure(kFailed, "the issuer's answer is no line like '00 910A...'");
}

IssuerAnswer ask_issuer(const std::string& command, const std::string& field55) {
    std::string line;
    if (command == "-") {
        std::getline(std::cin, line);
    } else {
        const std::string output = output_of(command, field55 + "\n");
        line = output.substr(0, output.find('\n'));
    }
    return parse_issuer_answer(line);
}

} // namespace tool
