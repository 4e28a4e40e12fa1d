// Capturing the two standard streams by their descriptors.
#include "console.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <unistd.h>

namespace qaven::test {

namespace {

// Sends one stream into a temporary file for as long as it lives.
class Capture {
  public:
    explicit Capture(std::FILE* stream)
        : stream_(stream), file_(std::tmpfile()), saved_(dup(fileno(stream))) {
        if (file_ == nullptr || saved_ < 0) {
            throw std::runtime_error("cannot capture a standard stream");
        }
        std::fflush(stream_);
        dup2(fileno(file_), fileno(stream_));
    }

    ~Capture() {
        restore();
        close(saved_);
        std::fclose(file_);
    }

    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    std::string text() {
        restore();
        std::rewind(file_);
        std::string all;
        std::array<char, 4096> block{};
        std::size_t count = 0;
        while ((count = std::fread(block.data(), 1, block.size(), file_)) > 0) {
            all.append(block.data(), count);
        }
        return all;
    }

  private:
    void restore() {
        std::fflush(stream_);
        dup2(saved_, fileno(stream_));
    }

    std::FILE* stream_;
    std::FILE* file_;
    int saved_;
};

// Sets an environment variable for as long as it lives.
class Variable {
  public:
    Variable(const char* name, const char* value) : name_(name) {
        if (const char* before = std::getenv(name)) {
            before_ = before;
        }
        set(value);
    }
    ~Variable() { set(before_ ? before_->c_str() : nullptr); }

    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

  private:
    void set(const char* value) {
        if (value != nullptr) {
            setenv(name_, value, 1);
        } else {
            unsetenv(name_);
        }
    }

    const char* name_;
    std::optional<std::string> before_;
};

} // namespace

Printed printed_by(const std::function<void()>& action, const char* sink) {
    const Variable diagnostics("QAVEN_DIAGNOSTICS", sink);
    Capture out(stdout);
    Capture err(stderr);
    action();
    return {out.text(), err.text()};
}

} // namespace qaven::test
