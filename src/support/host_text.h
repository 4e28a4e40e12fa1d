// Texts and buffers as hosts pass them, taken once in the exported shell: a null pointer means an
// empty text, or an output that is not wanted.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace qaven {

// A zero-terminated text that is there.
class HostText {
  public:
    constexpr HostText(const char* text) : text_(text != nullptr ? text : "") {}
    explicit HostText(const unsigned char* text) : HostText(reinterpret_cast<const char*>(text)) {}

    // For printf.
    constexpr const char* c_str() const { return text_; }

    constexpr operator std::string_view() const { return text_; }
    constexpr bool empty() const { return *text_ == '\0'; }

  private:
    const char* text_;
};

// A host's output buffer of its documented size.
constexpr std::span<char> host_buffer(char* out, std::size_t size) {
    return out != nullptr ? std::span(out, size) : std::span<char>();
}

} // namespace qaven
