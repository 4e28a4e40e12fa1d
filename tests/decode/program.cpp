// The commands run as programs.
#include "program.h"

#include <array>
#include <chrono>
#include <csignal>
#include <poll.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace qaven::cli::test {

namespace {

constexpr auto kPatience = std::chrono::seconds(10);

// A file in memory that can be read from its beginning.
int file_with(const std::string& content) {
    const int file = memfd_create("input", MFD_CLOEXEC);
    if (file < 0 ||
        write(file, content.data(), content.size()) != static_cast<ssize_t>(content.size()) ||
        lseek(file, 0, SEEK_SET) != 0) {
        throw std::runtime_error("no input for the program");
    }
    return file;
}

} // namespace

Program::Program(const std::vector<std::string>& arguments, const std::string& input) {
    std::vector<std::string> texts{QAVEN_COMMAND};
    texts.insert(texts.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    argv.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        argv.push_back(text.data());
    }
    argv.push_back(nullptr);

    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) {
        throw std::runtime_error("no pipe for the program");
    }
    const int source = file_with(input);
    errors_end_ = memfd_create("errors", MFD_CLOEXEC);
    process_ = fork();
    if (process_ == 0) {
        dup2(source, STDIN_FILENO);
        dup2(ends[1], STDOUT_FILENO);
        dup2(errors_end_, STDERR_FILENO);
        close(ends[0]);
        close(ends[1]);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(source);
    close(ends[1]);
    output_end_ = ends[0];
}

Program::~Program() {
    if (process_ > 0) {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    close(output_end_);
    close(errors_end_);
}

bool Program::read_once(int milliseconds) {
    pollfd wanted{output_end_, POLLIN, 0};
    if (poll(&wanted, 1, milliseconds) <= 0) {
        return false;
    }
    std::array<char, 4096> buffer{};
    const ssize_t count = read(output_end_, buffer.data(), buffer.size());
    if (count <= 0) {
        return false;
    }
    output_.append(buffer.data(), static_cast<std::size_t>(count));
    return true;
}

bool Program::says(std::string_view text) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (output_.find(text) == std::string::npos) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        read_once(100);
    }
    return true;
}

void Program::interrupt() const {
    kill(process_, SIGINT);
}

Ending Program::end() {
    constexpr int kPatienceMilliseconds =
        static_cast<int>(std::chrono::milliseconds(kPatience).count());
    while (read_once(kPatienceMilliseconds)) {
    }
    int status = 0;
    waitpid(process_, &status, 0);
    process_ = -1;
    Ending ending{WIFEXITED(status) ? WEXITSTATUS(status) : -1, output_, ""};
    std::array<char, 4096> buffer{};
    lseek(errors_end_, 0, SEEK_SET);
    for (ssize_t count = 0; (count = read(errors_end_, buffer.data(), buffer.size())) > 0;) {
        ending.errors.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return ending;
}

Ending run(const std::vector<std::string>& arguments, const std::string& input) {
    return Program(arguments, input).end();
}

} // namespace qaven::cli::test
