// Running the issuer's command.
#include "tools/qaven/issuer.h"

#include "common/tags.h"
#include "tools/emv/hex.h"
#include "tools/emv/tlv.h"
#include "tools/qaven/cli/exit_status.h"

#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdint>
#include <optional>
#include <span>
#include <sstream>
#include <system_error>
#include <variant>
#include <vector>

namespace qaven::cli {

using namespace emv;

namespace {

constexpr std::size_t kCodeCharacters = 2;
constexpr std::size_t kArpcBytes = 8;

// Tag 91 of a response.
struct Authentication {
    std::vector<unsigned char> value; // as much as there is of it
    std::size_t announced = 0;        // bytes
    bool whole = false;
};

// Among the response's outermost objects; what is cut short ends them.
std::optional<Authentication> authentication_in(std::string_view response) {
    const HexText data = from_hex(response);
    for (std::size_t at = 0; at < data.bytes.size();) {
        const auto found = read_object(data.bytes, at);
        const Object* const object = std::get_if<Object>(&found);
        if (object == nullptr) {
            const bool authentication = data.bytes[at] == kTag91IssuerAuthenticationData;
            return authentication ? std::optional(Authentication{}) : std::nullopt;
        }
        if (object->tag == kTag91IssuerAuthenticationData) {
            return Authentication{
                {object->value.begin(), object->value.end()}, object->length, object->whole()};
        }
        at += object->size();
    }
    return std::nullopt;
}

std::string cut_short(const Authentication& authentication) {
    if (authentication.value.empty()) {
        return "is cut short: nothing is in its tag 91";
    }
    return "is cut short: of the " + std::to_string(authentication.announced) +
           " bytes of its tag 91 it has " + std::to_string(authentication.value.size());
}

// The authorisation response code behind the ARPC in tag 91.
std::string code_in(const Authentication& authentication) {
    const Bytes code = Bytes(authentication.value).subspan(kArpcBytes, kCodeCharacters);
    return std::string(characters_of(code));
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
    // The signal that this program ignores ends a command that prints into a closed pipe.
    sigset_t closed_pipe;
    sigemptyset(&closed_pipe);
    sigaddset(&closed_pipe, SIGPIPE);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigdefault(&attributes, &closed_pipe);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    pid_t child = 0;
    const int error =
        posix_spawn(&child, "/bin/sh", &actions, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), "the issuer's command");
    }
    return child;
}

// What has come, up to the buffer's size; 0 at the end.
std::size_t read_some(int from, std::span<char> buffer) {
    ssize_t count = 0;
    do {
        count = read(from, buffer.data(), buffer.size());
    } while (count < 0 && errno == EINTR);
    return static_cast<std::size_t>(std::max<ssize_t>(count, 0));
}

// The first line, without its end.
std::string read_line(int from) {
    std::string text;
    std::array<char, 4096> chunk{};
    while (text.find('\n') == std::string::npos) {
        const std::size_t count = read_some(from, chunk);
        if (count == 0) {
            break;
        }
        text.append(chunk.data(), count);
        if (std::min(text.find('\n'), text.size()) > kLongestLine) {
            throw Failure(kFailed, "the issuer's answer is longer than " +
                                       std::to_string(kLongestLine) + " characters");
        }
    }
    return text.substr(0, text.find('\n'));
}

// How the command ended; nothing while it runs and is not to be waited for.
std::optional<bool> ended_well(pid_t child, int options) {
    int status = 0;
    pid_t ended = 0;
    do {
        ended = waitpid(child, &status, options);
    } while (ended < 0 && errno == EINTR);
    if (ended == 0) {
        return std::nullopt;
    }
    return ended == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// True when the command ends well. It may print more than its line, which is thrown away; what it
// left in the background may keep the pipe open, so the end of the pipe is no measure of its own.
// A command that prints on and on finds the pipe closed, and how it ends then tells nothing.
bool ends_well(pid_t child, Pipe& from) {
    constexpr std::size_t patience = 1U << 20U; // bytes
    constexpr int look = 20;                    // milliseconds until the next look at the command
    std::array<char, 4096> chunk{};
    std::size_t more = 0;
    while (more < patience) {
        if (const auto ended = ended_well(child, WNOHANG)) {
            return *ended;
        }
        pollfd pipe{from.reading(), POLLIN, 0};
        if (poll(&pipe, 1, look) > 0) {
            const std::size_t count = read_some(from.reading(), chunk);
            if (count == 0) {
                return ended_well(child, 0).value_or(false);
            }
            more += count;
        }
    }
    from.close_end(0);
    ended_well(child, 0);
    return true;
}

std::string line_of(const std::string& command, const std::string& input) {
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
    std::string line = read_line(from.reading());
    if (!ends_well(child, from)) {
        throw Failure(kFailed, "the issuer's command failed");
    }
    return line;
}

} // namespace

bool IssuerAnswer::approved() const {
    return response_code == "00" || response_code == "10" || response_code == "11";
}

std::string fault_of_response(std::string_view hex) {
    const auto authentication = authentication_in(hex);
    if (!authentication) {
        return "has no tag 91";
    }
    if (!authentication->whole) {
        return cut_short(*authentication);
    }
    if (authentication->value.size() < kArpcBytes + kCodeCharacters) {
        return "has no response code: its tag 91 has " + std::to_string(authentication->announced) +
               " bytes, not 10";
    }
    return {};
}

IssuerAnswer parse_issuer_answer(std::string_view line) {
    std::istringstream words{std::string(line)};
    std::string first;
    std::string second;
    std::string third;
    words >> first >> second >> third;
    if (third.empty() && first.size() == kCodeCharacters && is_hex(second)) {
        const auto authentication = authentication_in(second);
        if (authentication && !authentication->whole) {
            throw Failure(kFailed, "the issuer's answer " + cut_short(*authentication));
        }
        return {first, upper(second)};
    }
    if (second.empty() && is_hex(first)) {
        if (const std::string fault = fault_of_response(first); !fault.empty()) {
            throw Failure(kFailed, "the issuer's answer " + fault);
        }
        return {code_in(*authentication_in(first)), upper(first)};
    }
    throw Failure(kFailed, "the issuer's answer is no line like '00 910A...'");
}

IssuerAnswer ask_issuer(const std::string& command, const std::string& field55) {
    return parse_issuer_answer(command == "-" ? read_line(STDIN_FILENO)
                                              : line_of(command, field55 + "\n"));
}

} // namespace qaven::cli
