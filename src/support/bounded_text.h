// A text that grows in a host's buffer and never past its documented size.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace qaven {

class BoundedText {
  public:
    // out holds capacity bytes, the terminating zero included; a null out takes nothing.
    BoundedText(char* out, std::size_t capacity)
        : out_(out), capacity_(out != nullptr ? capacity : 0) {
        if (capacity_ > 0) {
            out_[0] = '\0';
        }
    }

    // Appends the piece whole, terminated, or not at all.
    bool append(std::string_view piece) {
        if (!fits(piece.size())) {
            return false;
        }
        std::copy_n(piece.data(), piece.size(), out_ + size_);
        size_ += piece.size();
        out_[size_] = '\0';
        return true;
    }

    bool fits(std::size_t more) const { return capacity_ > 0 && more < capacity_ - size_; }

    std::size_t size() const { return size_; }

  private:
    char* out_;
    std::size_t capacity_;
    std::size_t size_ = 0;
};

} // namespace qaven
