// The sinks behind the progress lines, looked up anew for every line so that a tool can switch
// them at any time.
#include "support/diagnostics.h"

#include "support/quiet_writes.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <poll.h>
#include <span>
#include <stdio_ext.h>
#include <string_view>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace qaven::diagnostics {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kLongestWait{200};

// One of the host's two streams. Whoever reads it has stopped reading when a wait was in vain;
// lines are then dropped without another wait until one gets through.
struct Sink {
    std::FILE* stream;
    std::atomic<bool>* stalled;
};

std::atomic<bool> out_stalled{false};
std::atomic<bool> error_stalled{false};

struct Sinks {
    Sink progress;
    Sink errors;
};

// Null streams are silent. Anything but the two other words is the default.
Sinks current_sinks() {
    const char* chosen = std::getenv("QAVEN_DIAGNOSTICS");
    const std::string_view word = chosen == nullptr ? "" : chosen;
    if (word == "off") {
        return {};
    }
    const Sink errors{stderr, &error_stalled};
    return {word == "stderr" ? errors : Sink{stdout, &out_stalled}, errors};
}

// The time that a line may wait for a reader that takes nothing.
class Patience {
  public:
    explicit Patience(milliseconds longest) : longest_(longest) {}

    void begin_anew() { end_ = Clock::now() + longest_; }

    // Waits until the descriptor takes PIPE_BUF bytes, or has an error to tell.
    bool wait_for(int descriptor) const {
        pollfd stream{descriptor, POLLOUT, 0};
        int ready = 0;
        do {
            ready = poll(&stream, 1, static_cast<int>(left().count()));
        } while (ready < 0 && errno == EINTR);
        return ready != 0;
    }

    // Waits a moment; false when there is none left.
    bool wait() const {
        std::this_thread::sleep_for(std::min(milliseconds{1}, left()));
        return left().count() > 0;
    }

  private:
    milliseconds left() const {
        return std::max(std::chrono::ceil<milliseconds>(end_ - Clock::now()), milliseconds{0});
    }

    milliseconds longest_;
    Clock::time_point end_ = Clock::now() + longest_;
};

// The stream's own lock, for the order of what its users print. One of them may hold it while its
// text waits for a full pipe.
class StreamLock {
  public:
    StreamLock(std::FILE* stream, const Patience& patience) : stream_(stream) {
        do {
            held_ = ftrylockfile(stream_) == 0;
        } while (!held_ && patience.wait());
    }
    ~StreamLock() {
        if (held_) {
            funlockfile(stream_);
        }
    }
    StreamLock(const StreamLock&) = delete;
    StreamLock& operator=(const StreamLock&) = delete;

    bool held() const { return held_; }

  private:
    std::FILE* stream_;
    bool held_ = false;
};

// A pipe that is ready takes PIPE_BUF bytes at once; a socket says for itself when it is full.
ssize_t put(int descriptor, std::string_view text) {
    const std::string_view part = text.substr(0, PIPE_BUF);
    const ssize_t sent = send(descriptor, part.data(), part.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    return sent < 0 && errno == ENOTSOCK ? ::write(descriptor, part.data(), part.size()) : sent;
}

// False when the text had to wait in vain. Other failures have nobody to be told to.
bool put_whole(std::FILE* stream, std::string_view text, Patience patience) {
    const int descriptor = fileno(stream);
    if (descriptor < 0) {
        std::fwrite(text.data(), 1, text.size(), stream); // a stream in the host's memory
        return true;
    }
    const StreamLock lock(stream, patience);
    if (!lock.held()) {
        return false;
    }
    // Past the stream's buffer, because its text would go out where nobody watches over it, at the
    // latest when the host ends. What the host has printed before stays before.
    if (__fpending(stream) > 0) {
        if (!patience.wait_for(descriptor)) {
            return false;
        }
        std::fflush(stream);
    }
    while (!text.empty()) {
        if (!patience.wait_for(descriptor)) {
            return false;
        }
        const ssize_t written = put(descriptor, text);
        if (written >= 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
            patience.begin_anew();
        } else if (errno == EAGAIN) {
            if (!patience.wait()) {
                return false;
            }
        } else if (errno != EINTR) {
            return true;
        }
    }
    return true;
}

void put(const Sink& sink, std::string_view text) {
    // What a system error is told by stays as it is behind a line.
    const int error = errno;
    {
        const QuietWrites quiet;
        const Patience patience(*sink.stalled ? milliseconds{0} : kLongestWait);
        *sink.stalled = !put_whole(sink.stream, text, patience);
    }
    errno = error;
}

enum class Ending {
    kNewline, // one is added when the text does not end in one
    kAsIs,
};

void print(const Sink& sink, const char* format, std::va_list arguments, Ending ending) {
    if (sink.stream == nullptr) {
        return;
    }
    // A transfer prints lines of a few words; only a host's long texts are worth an allocation.
    std::array<char, 256> short_text{};
    std::unique_ptr<char[]> long_text;
    std::span<char> room = short_text;
    std::va_list again;
    va_copy(again, arguments);
    int length = std::vsnprintf(room.data(), room.size(), format, arguments);
    if (length >= static_cast<int>(room.size())) {
        const std::size_t size = static_cast<std::size_t>(length) + 1;
        long_text.reset(new (std::nothrow) char[size]);
        if (long_text) {
            room = {long_text.get(), size};
            length = std::vsnprintf(room.data(), room.size(), format, again);
        }
    }
    va_end(again);
    // Without memory for it a long text is cut.
    std::size_t size = std::min(static_cast<std::size_t>(std::max(length, 0)), room.size() - 1);
    if (ending == Ending::kNewline && (size == 0 || room[size - 1] != '\n')) {
        room[size++] = '\n'; // where the terminating zero was
    }
    put(sink, {room.data(), size});
}

} // namespace

void line(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    print(current_sinks().progress, format, arguments, Ending::kNewline);
    va_end(arguments);
}

void text(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    print(current_sinks().progress, format, arguments, Ending::kAsIs);
    va_end(arguments);
}

void system_error(const char* message) {
    std::array<char, 256> text{};
    std::snprintf(text.data(), text.size(), "%s: %s\n", message, std::strerror(errno));
    error_text(text.data());
}

void error_text(const char* message) {
    const Sink sink = current_sinks().errors;
    if (sink.stream != nullptr) {
        put(sink, message);
    }
}

} // namespace qaven::diagnostics
