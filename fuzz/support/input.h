// The bytes of one fuzz input, handed out piece by piece. An input that has run out gives zeros and
// empty pieces, so that every prefix of an input is an input too.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace qaven::fuzz {

using Bytes = std::vector<std::uint8_t>;

// What Input::long_chunk takes again. Longer pieces are cut.
inline void append_long_chunk(Bytes& to, std::span<const std::uint8_t> piece) {
    constexpr std::size_t kLongest = 0xFFFF;
    const auto cut = piece.first(std::min(piece.size(), kLongest));
    to.push_back(static_cast<std::uint8_t>(cut.size() >> 8U));
    to.push_back(static_cast<std::uint8_t>(cut.size()));
    to.insert(to.end(), cut.begin(), cut.end());
}

class Input {
  public:
    Input(const std::uint8_t* data, std::size_t size) : rest_(data, size) {}
    explicit Input(std::span<const std::uint8_t> data) : rest_(data) {}

    [[nodiscard]] bool empty() const { return rest_.empty(); }

    std::uint8_t byte() {
        const std::span<const std::uint8_t> one = take(1);
        return one.empty() ? std::uint8_t{0} : one.front();
    }

    // -128 ... 127.
    int small_number() {
        constexpr int kNumbers = 256;
        const int number = byte();
        return number < kNumbers / 2 ? number : number - kNumbers;
    }

    // 0 ... limit - 1.
    unsigned below(unsigned limit) { return limit == 0 ? 0 : byte() % limit; }

    // As many as there are, at most size.
    std::span<const std::uint8_t> take(std::size_t size) {
        const auto piece = rest_.first(std::min(size, rest_.size()));
        rest_ = rest_.subspan(piece.size());
        return piece;
    }

    // One length byte and so many bytes.
    std::span<const std::uint8_t> chunk() { return take(byte()); }

    // Two length bytes, the high one first, and so many bytes.
    std::span<const std::uint8_t> long_chunk() {
        const unsigned high = byte();
        return take(high << 8U | byte());
    }

    std::span<const std::uint8_t> rest() { return take(rest_.size()); }

    // A copy in a heap block of exactly its size, which the address sanitizer watches.
    static Bytes exact(std::span<const std::uint8_t> piece) { return {piece.begin(), piece.end()}; }

    // A text up to its first NUL, in a heap block of exactly its size, the NUL included.
    static std::vector<char> text(std::span<const std::uint8_t> piece) {
        const auto end = std::ranges::find(piece, std::uint8_t{0});
        std::vector<char> copy;
        copy.reserve(static_cast<std::size_t>(end - piece.begin()) + 1);
        std::transform(piece.begin(), end, std::back_inserter(copy),
                       [](std::uint8_t byte) { return static_cast<char>(byte); });
        copy.push_back('\0');
        return copy;
    }

  private:
    std::span<const std::uint8_t> rest_;
};

} // namespace qaven::fuzz
