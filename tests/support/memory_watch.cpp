// operator new and delete, and calloc, of programs that watch memory.
#include "tests/support/memory_watch.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <cstdlib>
#include <malloc.h>
#include <new>
#include <string_view>

namespace {

struct Watch {
    std::size_t allocations_left = 0; // until one fails; 0: none does
    bool failed = false;
    const std::vector<std::string>* secrets = nullptr;
    std::size_t findings = 0;
};

thread_local constinit Watch watch;

bool fails_now() {
    if (qaven::test::Unwatched::depth > 0 || watch.allocations_left == 0 ||
        --watch.allocations_left > 0) {
        return false;
    }
    watch.failed = true;
    return true;
}

void* allocate(std::size_t size) {
    return fails_now() ? nullptr : std::malloc(std::max<std::size_t>(size, 1));
}

void* allocate_or_throw(std::size_t size) {
    void* const memory = allocate(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void give_back(void* memory) {
    if (memory != nullptr && watch.secrets != nullptr && qaven::test::Unwatched::depth == 0) {
        const std::string_view content(static_cast<const char*>(memory),
                                       malloc_usable_size(memory));
        const bool found = std::ranges::any_of(*watch.secrets, [&](const std::string& secret) {
            return content.find(secret) != std::string_view::npos;
        });
        watch.findings += found ? 1 : 0;
    }
    std::free(memory);
}

} // namespace

void* operator new(std::size_t size) {
    return allocate_or_throw(size);
}
void* operator new[](std::size_t size) {
    return allocate_or_throw(size);
}
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return allocate(size);
}
void operator delete(void* memory) noexcept {
    give_back(memory);
}
void operator delete[](void* memory) noexcept {
    give_back(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    give_back(memory);
}
void operator delete[](void* memory, std::size_t /*size*/) noexcept {
    give_back(memory);
}

// The linker's names: a call of calloc lands in the first.
void* watched_calloc(std::size_t count, std::size_t size) __asm__("__wrap_calloc");
void* real_calloc(std::size_t count, std::size_t size) __asm__("__real_calloc");

void* watched_calloc(std::size_t count, std::size_t size) {
    return fails_now() ? nullptr : real_calloc(count, size);
}

namespace qaven::test {

FailingAllocation::FailingAllocation(std::size_t nth) {
    cJSON_Hooks hooks{allocate, std::free};
    cJSON_InitHooks(&hooks);
    watch.failed = false;
    watch.allocations_left = nth;
}

FailingAllocation::~FailingAllocation() {
    watch.allocations_left = 0;
    cJSON_InitHooks(nullptr);
}

bool FailingAllocation::failed() const {
    return watch.failed;
}

FreedMemory::FreedMemory(const std::vector<std::string>& secrets) {
    watch.findings = 0;
    watch.secrets = &secrets;
}

FreedMemory::~FreedMemory() {
    watch.secrets = nullptr;
}

std::size_t FreedMemory::findings() const {
    return watch.findings;
}

} // namespace qaven::test
