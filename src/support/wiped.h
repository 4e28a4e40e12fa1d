// Memory that held a PIN, a card's records or a cryptogram, wiped before it is given back: what a
// process leaves lying about ends up in core dumps and in swap.
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string.h> // explicit_bzero
#include <string>
#include <vector>

namespace qaven {

template <typename T>
struct WipingAllocator {
    using value_type = T;

    WipingAllocator() = default;
    template <typename U>
    constexpr WipingAllocator(const WipingAllocator<U>& /*other*/) noexcept {}

    T* allocate(std::size_t count) { return std::allocator<T>().allocate(count); }

    void deallocate(T* memory, std::size_t count) noexcept {
        explicit_bzero(memory, count * sizeof(T));
        std::allocator<T>().deallocate(memory, count);
    }

    bool operator==(const WipingAllocator& /*other*/) const = default;
};

using WipedBytes = std::vector<unsigned char, WipingAllocator<unsigned char>>;

// A text of up to 15 characters lies in the object itself and is not wiped.
using WipedText = std::basic_string<char, std::char_traits<char>, WipingAllocator<char>>;

// Wipes a buffer of the enclosing scope at its end.
class WipedAtEnd {
  public:
    explicit WipedAtEnd(std::span<unsigned char> buffer) : buffer_(buffer) {}
    ~WipedAtEnd() { explicit_bzero(buffer_.data(), buffer_.size()); }
    WipedAtEnd(const WipedAtEnd&) = delete;
    WipedAtEnd& operator=(const WipedAtEnd&) = delete;

  private:
    std::span<unsigned char> buffer_;
};

} // namespace qaven
