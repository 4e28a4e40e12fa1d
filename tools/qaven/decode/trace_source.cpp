// Where a trace comes from: a file, a file that grows, standard input.
#include "tools/qaven/decode/trace_source.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qaven::cli {

namespace {

constexpr std::size_t kPiece = 65536;
constexpr long kLookAgainAfterNanoseconds = 100'000'000;

volatile std::sig_atomic_t interrupted = 0;

void note_interrupt(int /*signal*/) {
    interrupted = 1;
}

class File {
  public:
    explicit File(int descriptor) : descriptor_(descriptor) {}
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File() { close(); }

    bool is_open() const { return descriptor_ >= 0; }

    void open(const std::string& path) {
        close();
        descriptor_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        taken_ = 0;
    }

    void close() {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
            descriptor_ = -1;
        }
    }

    // Bytes read so far.
    off_t taken() const { return taken_; }

    // All there is. False for a failure.
    bool read_on(const TraceSink& sink) {
        std::array<char, kPiece> buffer{};
        while (true) {
            const ssize_t count = ::read(descriptor_, buffer.data(), buffer.size());
            if (count < 0 && errno == EINTR && interrupted == 0) {
                continue;
            }
            if (count <= 0) {
                return count == 0;
            }
            taken_ += count;
            sink.piece({buffer.data(), static_cast<std::size_t>(count)});
        }
    }

    // The path leads to this file still, and it holds what was read of it.
    bool is_still(const std::string& path) const {
        struct stat now {};
        struct stat then {};
        return ::stat(path.c_str(), &now) != 0 ||
               (::fstat(descriptor_, &then) == 0 && now.st_ino == then.st_ino &&
                now.st_dev == then.st_dev && now.st_size >= taken_);
    }

  private:
    int descriptor_;
    off_t taken_ = 0;
};

void sleep_a_little() {
    const std::timespec time{0, kLookAgainAfterNanoseconds};
    nanosleep(&time, nullptr);
}

// Takes SIGINT for itself while it lives.
class Interruption {
  public:
    Interruption() {
        interrupted = 0;
        struct sigaction action {};
        action.sa_handler = note_interrupt;
        sigemptyset(&action.sa_mask);
        sigaction(SIGINT, &action, &before_);
    }
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;
    ~Interruption() { sigaction(SIGINT, &before_, nullptr); }

  private:
    struct sigaction before_ {};
};

} // namespace

bool read_trace(const std::string& path, const TraceSink& sink) {
    File file(-1);
    file.open(path);
    return file.is_open() && file.read_on(sink);
}

void read_standard_input(const TraceSink& sink) {
    File input(::dup(STDIN_FILENO));
    if (input.is_open()) {
        input.read_on(sink);
    }
}

void follow_trace(const std::string& path, const TraceSink& sink) {
    const Interruption interruption;
    File file(-1);
    while (interrupted == 0) {
        if (file.is_open() && !file.is_still(path)) {
            // What the old file got last is not lost.
            file.read_on(sink);
            file.close();
            sink.restart();
        }
        if (!file.is_open()) {
            file.open(path);
        }
        if (file.is_open()) {
            const off_t taken = file.taken();
            file.read_on(sink);
            if (file.taken() == taken) {
                sink.pause();
            }
        }
        sleep_a_little();
    }
}

} // namespace qaven::cli
