// A table as one number. Whoever changes a row of the table looks at all of them.
#pragma once

#include <cstdint>
#include <string_view>

namespace qaven::test {

// FNV-1a, of 64 bits.
class Digest {
  public:
    Digest& add(std::string_view text) {
        for (const char ch : text) {
            sum_ = (sum_ ^ static_cast<unsigned char>(ch)) * 0x100000001B3U;
        }
        return *this;
    }

    [[nodiscard]] std::uint64_t value() const { return sum_; }

  private:
    std::uint64_t sum_ = 0xCBF29CE484222325U;
};

} // namespace qaven::test
