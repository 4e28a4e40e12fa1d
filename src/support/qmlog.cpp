// One open, one append and one close per call on "./Qm_ic.log".
#include "support/qmlog.h"

#include "support/host_text.h"
#include "support/quiet_writes.h"

#include <cstdarg>
#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <span>
#include <sys/stat.h>
#include <unistd.h>

char DbgLog[QAVEN_DBGLOG_SIZE];

namespace {

constexpr const char* kLogFile = "./Qm_ic.log";

constexpr std::size_t kBytesPerRow = 32;

// The blanks around a row break belong to the log's layout.
constexpr const char* kRowBreak = " \r\n ";

struct Close {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

using File = std::unique_ptr<std::FILE, Close>;

// The file has card numbers: it is nobody else's.
constexpr mode_t kNewFileMode = 0600;

// A pipe, or a terminal's like, would make the host wait for its other end.
bool takes_lines(int descriptor) {
    struct stat what {};
    return fstat(descriptor, &what) == 0 && (S_ISREG(what.st_mode) || S_ISCHR(what.st_mode));
}

File open_file() {
    const int descriptor = open(
        kLogFile, O_RDWR | O_APPEND | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, kNewFileMode);
    if (descriptor < 0) {
        return nullptr;
    }
    File file(takes_lines(descriptor) ? fdopen(descriptor, "a+") : nullptr);
    if (!file) {
        close(descriptor);
    }
    return file;
}

// The log as long as one call needs it. What is buffered goes out when it is closed.
class LogFile {
  public:
    explicit operator bool() const { return file_ != nullptr; }
    std::FILE* get() const { return file_.get(); }

  private:
    qaven::QuietWrites quiet_; // lives longer than the file
    File file_ = open_file();
};

std::span<const unsigned char> bytes_of(const unsigned char* data, int len) {
    if (data == nullptr || len <= 0) {
        return {};
    }
    return {data, static_cast<std::size_t>(len)};
}

} // namespace

namespace qaven::trace {

void write(std::string_view text) {
    if (const LogFile log; log) {
        std::fwrite(text.data(), 1, text.size(), log.get());
        std::fputs("\r\n", log.get());
    }
}

void line(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(DbgLog, sizeof DbgLog, format, arguments);
    va_end(arguments);
    write(DbgLog);
}

} // namespace qaven::trace

using qaven::HostText;

void WriteKsLog(const char* text) {
    qaven::trace::write(HostText(text));
}

void WriteKsLogPlain(const char* text) {
    qaven::trace::write(HostText(text));
}

void WriteKsTitleLog(const char* title, const char* text) {
    if (const LogFile log; log) {
        std::fprintf(log.get(), "%s: %s\r\n", HostText(title).c_str(), HostText(text).c_str());
    }
}

void WriteKsLogHex(unsigned char* data, int len) {
    const LogFile log;
    if (!log) {
        return;
    }
    std::fputs("HEX: ", log.get());
    for (const unsigned byte : bytes_of(data, len)) {
        std::fprintf(log.get(), "%02X ", byte);
    }
    std::fputs("\r\n", log.get());
}

void WriteKsTitleLogHex(const char* title, unsigned char* data, int len) {
    const LogFile log;
    if (!log) {
        return;
    }
    const std::span<const unsigned char> bytes = bytes_of(data, len);
    std::fprintf(log.get(), "%s(HEX): ", HostText(title).c_str());
    // A dump of one full row still fits on the title line.
    if (bytes.size() > kBytesPerRow) {
        std::fputs(kRowBreak, log.get());
    }
    std::size_t written = 0;
    for (const unsigned byte : bytes) {
        std::fprintf(log.get(), "%02X ", byte);
        ++written;
        if (written % kBytesPerRow == 0) {
            std::fputs(kRowBreak, log.get());
        }
    }
    std::fputs("\r\n", log.get());
}
