// Where the progress lines go.
#include "support/diagnostics.h"

#include "console.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using qaven::test::Printed;
using qaven::test::printed_by;
namespace diagnostics = qaven::diagnostics;

namespace {

void print_one_of_each() {
    diagnostics::line("Device %s", "Opened");
    diagnostics::line("read-ret = %d\n", 0);
    diagnostics::text("%02x ", 0x81U);
    diagnostics::error_text("failed to initialise libusb\n");
    errno = ENODEV;
    diagnostics::system_error("Cannot open device\n");
}

constexpr const char* kProgress = "Device Opened\nread-ret = 0\n81 ";
constexpr const char* kErrors =
    "failed to initialise libusb\nCannot open device\n: No such device\n";

TEST(Diagnostics, ProgressGoesToStandardOutputAndErrorsToStandardError) {
    const Printed printed = printed_by(print_one_of_each);
    EXPECT_EQ(printed.out, kProgress);
    EXPECT_EQ(printed.err, kErrors);
}

TEST(Diagnostics, TheSwitchNamesTheDefault) {
    const Printed printed = printed_by(print_one_of_each, "stdout");
    EXPECT_EQ(printed.out, kProgress);
    EXPECT_EQ(printed.err, kErrors);
}

TEST(Diagnostics, AnUnknownWordIsTheDefault) {
    for (const char* word : {"", "OFF", "on", "stdout "}) {
        const Printed printed = printed_by(print_one_of_each, word);
        EXPECT_EQ(printed.out, kProgress) << word;
        EXPECT_EQ(printed.err, kErrors) << word;
    }
}

TEST(Diagnostics, CanAllGoToStandardError) {
    const Printed printed = printed_by(print_one_of_each, "stderr");
    EXPECT_EQ(printed.out, "");
    EXPECT_EQ(printed.err, std::string(kProgress) + kErrors);
}

TEST(Diagnostics, CanBeSilenced) {
    const Printed printed = printed_by(print_one_of_each, "off");
    EXPECT_EQ(printed.out, "");
    EXPECT_EQ(printed.err, "");
}

TEST(Diagnostics, ALineEndsWithExactlyOneNewline) {
    EXPECT_EQ(printed_by([] { diagnostics::line("%s", ""); }).out, "\n");
    EXPECT_EQ(printed_by([] { diagnostics::line("%s", "a\n"); }).out, "a\n");
    EXPECT_EQ(printed_by([] { diagnostics::line("%s", "a\n\n"); }).out, "a\n\n");
}

TEST(Diagnostics, ALongLineIsPrintedWhole) {
    // Up to 255 characters are formatted without an allocation.
    for (const std::size_t length : {254U, 255U, 256U, 257U, 40000U}) {
        const std::string answer(length, 'x');
        EXPECT_EQ(printed_by([&] { diagnostics::line("%s", answer.c_str()); }).out, answer + "\n");
        EXPECT_EQ(printed_by([&] { diagnostics::line("%s\n", answer.c_str()); }).out,
                  answer + "\n");
        EXPECT_EQ(printed_by([&] { diagnostics::text("%s", answer.c_str()); }).out, answer);
    }
}

TEST(Diagnostics, LinesStandBetweenWhatTheHostPrints) {
    const Printed printed = printed_by([] {
        std::fputs("a", stdout);
        diagnostics::line("b");
        std::fputs("c", stdout);
        diagnostics::text("d");
        std::fputs("e\n", stdout);
    });
    EXPECT_EQ(printed.out, "ab\ncde\n");
}

TEST(Diagnostics, AHostsStreamInMemoryTakesTheLines) {
    char* text = nullptr;
    std::size_t size = 0;
    std::FILE* const own = stdout;
    stdout = open_memstream(&text, &size);
    unsetenv("QAVEN_DIAGNOSTICS");
    diagnostics::line("a");
    setenv("QAVEN_DIAGNOSTICS", "off", 1);
    std::fclose(stdout);
    stdout = own;
    EXPECT_STREQ(text, "a\n");
    std::free(text);
}

// --- a standard output that nobody reads ---

enum class Kind { kPipe, kSocket };

// Standard output into a pipe or a socket for as long as it lives.
class Reader {
  public:
    explicit Reader(Kind kind) : saved_((std::fflush(stdout), dup(STDOUT_FILENO))) {
        std::array<int, 2> ends{};
        EXPECT_EQ(kind == Kind::kPipe ? pipe(ends.data())
                                      : socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()),
                  0);
        end_ = ends[0];
        dup2(ends[1], STDOUT_FILENO);
        close(ends[1]);
        unsetenv("QAVEN_DIAGNOSTICS");
    }
    ~Reader() {
        leave();
        setenv("QAVEN_DIAGNOSTICS", "off", 1);
        dup2(saved_, STDOUT_FILENO);
        close(saved_);
    }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    static void fill() {
        const int flags = fcntl(STDOUT_FILENO, F_GETFL);
        fcntl(STDOUT_FILENO, F_SETFL, flags | O_NONBLOCK);
        const std::string text(1024, '.');
        while (write(STDOUT_FILENO, text.data(), text.size()) > 0) {
        }
        fcntl(STDOUT_FILENO, F_SETFL, flags);
    }

    // What has come so far.
    std::string read_all() const {
        fcntl(end_, F_SETFL, O_NONBLOCK);
        std::string text;
        std::array<char, 4096> block{};
        for (ssize_t count = 0; (count = read(end_, block.data(), block.size())) > 0;) {
            text.append(block.data(), static_cast<std::size_t>(count));
        }
        return text;
    }

    // That many characters, slowly.
    std::string read_slowly(std::size_t size) const {
        constexpr int kMostReads = 10000;
        fcntl(end_, F_SETFL, O_NONBLOCK);
        std::string text;
        std::array<char, 1000> block{};
        for (int reads = 0; text.size() < size && reads < kMostReads; ++reads) {
            std::this_thread::sleep_for(std::chrono::milliseconds{1});
            const ssize_t count = read(end_, block.data(), block.size());
            text.append(block.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        }
        return text;
    }

    void leave() {
        if (end_ >= 0) {
            close(end_);
            end_ = -1;
        }
    }

  private:
    int saved_;
    int end_ = -1;
};

template <typename Action>
std::chrono::milliseconds time_of(Action action) {
    const auto begin = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 begin);
}

class UnreadOutput : public testing::TestWithParam<Kind> {};

TEST_P(UnreadOutput, DoesNotEndTheHost) {
    Reader reader(GetParam());
    reader.leave();
    diagnostics::line("a");
    diagnostics::line("%s", std::string(10000, 'x').c_str());
    sigset_t pending{};
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
}

TEST_P(UnreadOutput, LeavesTheHostsOwnSignalAlone) {
    sigset_t pipe_signal{};
    sigemptyset(&pipe_signal);
    sigaddset(&pipe_signal, SIGPIPE);
    sigset_t before{};
    pthread_sigmask(SIG_BLOCK, &pipe_signal, &before);
    raise(SIGPIPE);
    {
        Reader reader(GetParam());
        reader.leave();
        diagnostics::line("a");
    }
    sigset_t pending{};
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 1);
    const timespec now{};
    EXPECT_EQ(sigtimedwait(&pipe_signal, nullptr, &now), SIGPIPE);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST_P(UnreadOutput, IsWaitedForOnce) {
    const Reader reader(GetParam());
    Reader::fill();
    errno = EINTR; // of some call of the host's
    const auto first = time_of([] { diagnostics::line("first"); });
    EXPECT_GE(first.count(), 200);
    EXPECT_LT(first.count(), 2000);
    const auto others = time_of([] {
        for (int line = 0; line < 1000; ++line) {
            diagnostics::line("other");
        }
    });
    EXPECT_LT(others.count(), 2000);
    EXPECT_EQ(reader.read_all().find_first_not_of('.'), std::string::npos);
    diagnostics::line("read again");
    EXPECT_EQ(reader.read_all(), "read again\n");
}

TEST_P(UnreadOutput, OfAnotherThreadsTextIsNotWaitedForLonger) {
    const Reader reader(GetParam());
    flockfile(stdout);
    std::chrono::milliseconds waited{};
    std::thread([&] { waited = time_of([] { diagnostics::line("a"); }); }).join();
    funlockfile(stdout);
    EXPECT_GE(waited.count(), 200);
    EXPECT_LT(waited.count(), 2000);
    diagnostics::line("b");
    EXPECT_EQ(reader.read_all(), "b\n");
}

TEST_P(UnreadOutput, NothingOfALineStaysWithTheHost) {
    const Reader reader(GetParam());
    diagnostics::line("a");
    EXPECT_EQ(reader.read_all(), "a\n");
}

TEST_P(UnreadOutput, ASlowReaderGetsALongLineWhole) {
    const Reader reader(GetParam());
    const std::string line(300000, 'x');
    std::string seen;
    std::thread slow([&] { seen = reader.read_slowly(line.size() + 1); });
    diagnostics::line("%s", line.c_str());
    slow.join();
    EXPECT_EQ(seen, line + "\n");
}

INSTANTIATE_TEST_SUITE_P(Kinds, UnreadOutput, testing::Values(Kind::kPipe, Kind::kSocket));

} // namespace
