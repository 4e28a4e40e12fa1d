// Filling and draining a FIFO.
#include "virtual/plug/writable_fifo.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace qaven::virtual_plug {
namespace {

// The least that a pipe holds; the kernel rounds up to its page.
constexpr int kSmallestPipe = 4096;

constexpr mode_t kEverybodyReadsAndWrites = 0666;

[[noreturn]] void fail(const std::string& path) {
    throw std::system_error(errno, std::generic_category(), "FIFO " + path);
}

} // namespace

WritableFifo::WritableFifo(const std::string& path) {
    if (mkfifo(path.c_str(), kEverybodyReadsAndWrites) != 0) {
        fail(path);
    }
    fd_ = ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (fd_ < 0) {
        fail(path);
    }
    const int size = fcntl(fd_, F_SETPIPE_SZ, kSmallestPipe);
    if (size <= 0) {
        ::close(fd_);
        fail(path);
    }
    filling_.resize(static_cast<std::size_t>(size));
    set_writable(false);
}

WritableFifo::~WritableFifo() {
    ::close(fd_);
}

void WritableFifo::set_writable(bool writable) {
    if (writable == writable_) {
        return;
    }
    const auto moved = writable ? ::read(fd_, filling_.data(), filling_.size())
                                : ::write(fd_, filling_.data(), filling_.size());
    if (moved == static_cast<ssize_t>(filling_.size())) {
        writable_ = writable;
    }
}

} // namespace qaven::virtual_plug
