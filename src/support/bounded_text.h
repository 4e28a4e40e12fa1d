// A text that grows in a host's buffer and never past its documented size.
#pragma once

#include <algorithm>
#include <cstddef>
#include <span>
#include <string_view>

namespace qaven {

class BoundedText {
  public:
    // The terminating zero takes one character of out; an empty out takes nothing.
    explicit BoundedText(std::span<char> out) : out_(out) {
        if (!out_.empty()) {
            out_[0] = '\0';
        }
    }

    // Appends the piece whole, terminated, or not at all.
    bool append(std::string_view piece) {
        if (!fits(piece.size())) {
            return false;
        }
        std::ranges::copy(piece, out_.subspan(size_).begin());
        size_ += piece.size();
        out_[size_] = '\0';
        return true;
    }

    bool fits(std::size_t more) const { return !out_.empty() && more < out_.size() - size_; }

    std::size_t size() const { return size_; }

  private:
    std::span<char> out_;
    std::size_t size_ = 0;
};

} // namespace qaven
