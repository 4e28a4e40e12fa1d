// Output buffers as a host hands them in: exactly the documented size, with a guard zone on both
// sides. Under the address sanitizer the zones are poisoned and the first stray access stops the
// program; everywhere else a changed zone is found when the buffer goes.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>

#if defined(__SANITIZE_ADDRESS__)
#define QAVEN_FUZZ_POISONS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QAVEN_FUZZ_POISONS 1
#endif
#endif
#ifdef QAVEN_FUZZ_POISONS
#include <sanitizer/asan_interface.h>
#endif

namespace qaven::fuzz {

template <typename Element, std::size_t size>
class Guarded {
  public:
    Guarded() : memory_(std::make_unique<Memory>()) {
        static_assert(sizeof(Element) == 1, "a buffer of bytes or characters");
        std::memset(memory_.get(), kGuardByte, sizeof(Memory));
#ifdef QAVEN_FUZZ_POISONS
        __asan_poison_memory_region(memory_->before.data(), kZone);
        __asan_poison_memory_region(memory_->after.data(), kZone);
#endif
    }

    ~Guarded() {
#ifdef QAVEN_FUZZ_POISONS
        __asan_unpoison_memory_region(memory_->before.data(), kZone);
        __asan_unpoison_memory_region(memory_->after.data(), kZone);
#endif
        check(memory_->before, "in front of");
        check(memory_->after, "behind");
    }

    Guarded(const Guarded&) = delete;
    Guarded& operator=(const Guarded&) = delete;

    Element* data() {
        return memory_->room.data();
    }
    operator Element*() {
        return data();
    } // NOLINT(google-explicit-constructor): it is the buffer

    // The text that the library left here must end inside the buffer.
    void must_be_text() {
        if (std::memchr(data(), 0, size) == nullptr) {
            std::fputs("a text without an end\n", stderr);
            std::abort();
        }
    }

  private:
    // The zone is a multiple of what the sanitizer can poison, whatever the size between.
    static constexpr std::size_t kZone = 64;
    static constexpr unsigned char kGuardByte = 0xEE;

    struct Memory {
        alignas(16) std::array<unsigned char, kZone> before;
        alignas(16) std::array<Element, size> room;
        std::array<unsigned char, kZone> after;
    };

    static void check(std::span<const unsigned char> zone, const char* where) {
        for (const unsigned char byte : zone) {
            if (byte != kGuardByte) {
                std::fprintf(stderr, "written %s a buffer of %u bytes\n", where,
                             static_cast<unsigned>(size));
                std::abort();
            }
        }
    }

    std::unique_ptr<Memory> memory_;
};

} // namespace qaven::fuzz
