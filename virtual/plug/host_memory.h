// The memory of a host program, as umockdev lets an ioctl handler see it, and counted references to
// umockdev's objects.
#pragma once

#include <umockdev.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <utility>
#include <vector>

namespace qaven::virtual_plug {

// A counted reference to a GObject.
template <typename T>
class Ref {
  public:
    Ref() = default;
    // Takes over a reference that the caller owns.
    static Ref adopt(T* object) {
        Ref ref;
        ref.object_ = object;
        return ref;
    }
    static Ref share(T* object) { return adopt(static_cast<T*>(g_object_ref(object))); }
    Ref(const Ref&) = delete;
    Ref& operator=(const Ref&) = delete;
    Ref(Ref&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    Ref& operator=(Ref&& other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    ~Ref() {
        if (object_ != nullptr) {
            g_object_unref(object_);
        }
    }
    [[nodiscard]] T* get() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }

  private:
    T* object_ = nullptr;
};

using DataRef = Ref<UMockdevIoctlData>;
using ClientRef = Ref<UMockdevIoctlClient>;

// The block of host memory that a pointer at `offset` of `data` points to; empty if it cannot be
// read.
inline DataRef resolve(UMockdevIoctlData* data, std::size_t offset, std::size_t size) {
    GError* error = nullptr;
    auto found = DataRef::adopt(umockdev_ioctl_data_resolve(data, offset, size, &error));
    if (error != nullptr) {
        g_error_free(error);
        return {};
    }
    return found;
}

template <typename T>
bool load(UMockdevIoctlData* data, T& value) {
    const DataRef block = resolve(data, 0, sizeof(T));
    if (!block || block.get()->data_len < static_cast<gint>(sizeof(T))) {
        return false;
    }
    std::memcpy(&value, block.get()->data, sizeof(T));
    return true;
}

inline void store(UMockdevIoctlData* block, std::size_t offset,
                  std::span<const std::uint8_t> bytes) {
    if (!bytes.empty()) {
        std::vector<std::uint8_t> copy(bytes.begin(), bytes.end());
        umockdev_ioctl_data_update(block, offset, copy.data(), static_cast<gint>(copy.size()));
    }
}

template <typename T>
void store_value(UMockdevIoctlData* block, std::size_t offset, T value) {
    std::array<std::uint8_t, sizeof(T)> bytes{};
    std::memcpy(bytes.data(), &value, sizeof(T));
    store(block, offset, bytes);
}

} // namespace qaven::virtual_plug
