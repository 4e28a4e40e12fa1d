// What the verbs do. `run` has two lives: first the launcher starts itself again under umockdev's
// preload library, then it makes the test bed and runs the command in it.
#include "virtual/plug/launcher.h"

#include "virtual/plug/mocked_usbfs.h"
#include "virtual/plug/options.h"
#include "virtual/plug/usbip_command.h"

#include <dlfcn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace qaven::virtual_plug {
namespace {

constexpr int kExitNotWritten = 1; // help that went nowhere
constexpr int kExitUsage = 2;
// As of other programs that run a command: own failure, command not executable, not found.
constexpr int kExitLauncherFailed = 125;
constexpr int kExitNotExecutable = 126;
constexpr int kExitNotFound = 127;
constexpr int kExitSignalBase = 128;

constexpr const char* kMarker = "QAVEN_VIRTUAL_READER_STAGE";
constexpr const char* kPreloadLibrary = "libumockdev-preload.so.0";

// The test bed's sockets lie some fifty characters below the temporary folder, and a socket's path
// has room for 107.
constexpr std::size_t kLongestTemporaryFolder = 50;

std::string environment(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? std::string() : std::string(value);
}

// An instrumented program insists on its runtime being the first library, which the preload library
// is now.
void admit_preload_to_sanitizers() {
    std::string options = environment("ASAN_OPTIONS");
    constexpr auto kSetting = std::string_view("verify_asan_link_order=0");
    if (options.find(kSetting) == std::string::npos) {
        options += options.empty() ? "" : ":";
        options += kSetting;
        setenv("ASAN_OPTIONS", options.c_str(), 1);
    }
}

// Does not return if it succeeds.
[[noreturn]] void start_again_under_preload(char** argv) {
    const std::string others = environment("LD_PRELOAD");
    const std::string preload =
        others.empty() ? kPreloadLibrary : std::string(kPreloadLibrary) + ":" + others;
    setenv("LD_PRELOAD", preload.c_str(), 1);
    setenv(kMarker, "1", 1);
    admit_preload_to_sanitizers();
    constexpr const char* kOwnProgram = "/proc/self/exe";
    if (access(kOwnProgram, X_OK) != 0) {
        throw std::runtime_error("run needs /proc, which is not mounted; usbip works without it");
    }
    execv(kOwnProgram, argv);
    throw std::system_error(errno, std::generic_category(), "cannot start again");
}

// Gives the test bed a short place to stand in and the command its own setting back.
class ShortTemporaryFolder {
  public:
    ShortTemporaryFolder() : original_(environment("TMPDIR")) {
        if (original_.size() > kLongestTemporaryFolder) {
            setenv("TMPDIR", "/tmp", 1);
        }
    }
    ShortTemporaryFolder(const ShortTemporaryFolder&) = delete;
    ShortTemporaryFolder& operator=(const ShortTemporaryFolder&) = delete;
    ShortTemporaryFolder(ShortTemporaryFolder&&) = delete;
    ShortTemporaryFolder& operator=(ShortTemporaryFolder&&) = delete;
    ~ShortTemporaryFolder() {
        if (!original_.empty()) {
            setenv("TMPDIR", original_.c_str(), 1);
        }
    }

  private:
    std::string original_;
};

// The signals that end the launcher go through it to the command, so that the test bed is always
// taken down.
class Signals {
  public:
    // Whoever ignored SIGCHLD would take the exit status from us; umockdev's sockets would ignore
    // SIGPIPE.
    Signals()
        : child_ended_(std::signal(SIGCHLD, SIG_DFL)), pipe_closed_(std::signal(SIGPIPE, SIG_IGN)) {
        sigemptyset(&set_);
        for (const int signal : {SIGCHLD, SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
            sigaddset(&set_, signal);
        }
        pthread_sigmask(SIG_BLOCK, &set_, &before_);
    }
    void restore() const {
        std::signal(SIGCHLD, child_ended_);
        std::signal(SIGPIPE, pipe_closed_);
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }

    // Waits until the child is gone; returns its wait status.
    [[nodiscard]] int wait_for(pid_t child) const {
        while (true) {
            siginfo_t info{};
            const int signal = sigwaitinfo(&set_, &info);
            if (signal == SIGCHLD) {
                int status = 0;
                if (waitpid(child, &status, WNOHANG) == child) {
                    return status;
                }
            } else if (signal > 0 && info.si_code != SI_KERNEL) {
                kill(child, signal); // (from the terminal it has come to the child already)
            }
        }
    }

  private:
    sighandler_t child_ended_;
    sighandler_t pipe_closed_;
    sigset_t set_{};
    sigset_t before_{};
};

[[noreturn]] void become_command(std::span<char* const> arguments, const Signals& signals,
                                 pid_t launcher) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != launcher) {
        _exit(kExitLauncherFailed);
    }
    signals.restore();
    execvp(arguments.front(), arguments.data());
    const int code = errno;
    std::fprintf(stderr, "qaven-virtual-reader: cannot run %s: %s\n", arguments.front(),
                 std::strerror(code));
    _exit(code == ENOENT ? kExitNotFound : kExitNotExecutable);
}

int run_command(std::vector<std::string> words, const Signals& signals) {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (auto& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    const pid_t launcher = getpid();
    const pid_t child = fork();
    if (child < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (child == 0) {
        become_command(arguments, signals, launcher);
    }
    const int status = signals.wait_for(child);
    return WIFSIGNALED(status) ? kExitSignalBase + WTERMSIG(status) : WEXITSTATUS(status);
}

int print_help() {
    std::fputs(usage_text().c_str(), stdout);
    // A pipe that was closed or a full disk is noticed here.
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        std::fputs("qaven-virtual-reader: cannot write to standard output\n", stderr);
        return kExitNotWritten;
    }
    return EXIT_SUCCESS;
}

int run(const Options& options, const DeviceFactory& factory) {
    if (dlopen(kPreloadLibrary, RTLD_LAZY | RTLD_NOLOAD) == nullptr) {
        throw std::runtime_error(std::string(kPreloadLibrary) + " could not be loaded");
    }
    const Signals signals;
    // The preload library and libusb wait by short timeouts; the default slack of 50 microseconds
    // would come on top of each.
    prctl(PR_SET_TIMERSLACK, 1);
    unsetenv(kMarker);

    DeviceSet devices(options, factory);
    std::optional<MockedUsbfs> usbfs;
    {
        const ShortTemporaryFolder short_folder;
        usbfs.emplace();
    }
    PlugSettings plain;
    plain.capture = devices.capture();
    PlugSettings settings = plain;
    settings.driver = options.driver;
    settings.held = options.held;
    settings.interfaces = {virtual_reader::kSlot1.number, virtual_reader::kSlot2.number};
    settings.faults = options.faults;
    settings.replug_after = options.replug_after;
    // libusb lists the device that came last first; that is to be the reader with the card.
    if (devices.second_reader() != nullptr) {
        usbfs->plug(*devices.second_reader(), plain);
    }
    if (devices.reader() != nullptr) {
        usbfs->plug(*devices.reader(), settings);
    }
    if (devices.idcard_reader() != nullptr) {
        usbfs->plug(*devices.idcard_reader(), plain);
    }
    const int status = run_command(options.command, signals);
    devices.save();
    return status;
}

} // namespace

int launch(int argc, char** argv, const DeviceFactory& factory) {
    try {
        const Options options =
            parse_options(std::span<const char* const>(argv, static_cast<std::size_t>(argc))
                              .subspan(argc > 0 ? 1 : 0));
        if (options.help) {
            return print_help();
        }
        if (options.usbip) {
            return serve_usbip(options, factory);
        }
        if (environment(kMarker).empty()) {
            start_again_under_preload(argv);
        }
        return run(options, factory);
    } catch (const UsageError& error) {
        std::fprintf(stderr,
                     "qaven-virtual-reader: %s\n"
                     "Try 'qaven-virtual-reader --help'.\n",
                     error.what());
        return kExitUsage;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "qaven-virtual-reader: %s\n", error.what());
        return kExitLauncherFailed;
    }
}

} // namespace qaven::virtual_plug
