// The USB bus, asked directly: which readers are there, and whether this user may have them.
// Nothing is sent to a reader.
#pragma once

#include <libusb.h>

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace qaven::cli {

struct ReaderKind {
    std::uint16_t product;
    const char* name;
    const char* identifiers;
    std::span<const int> interfaces; // what the library claims, in its order
};

inline constexpr std::array kCardInterfaces{2, 1};
inline constexpr std::array kIdentityCardInterfaces{0};

inline constexpr ReaderKind kCardReader{0x4417, "bank-card reader", "2F7A:4417", kCardInterfaces};
inline constexpr ReaderKind kIdentityCardReader{0x4463, "identity-card reader", "2F7A:4463",
                                                kIdentityCardInterfaces};

enum class Access {
    kOpen,   // may be opened
    kDenied, // not by this user
    kFailed, // neither; see error
};

enum class Holder {
    kNobody,
    kDriver, // a driver of the kernel; the library takes the interface from it
    kProgram,
    kUnknown, // the reader cannot be asked; see error
};

struct Interface {
    int number = 0;
    Holder holder = Holder::kNobody;
    int error = 0; // libusb's
};

struct Reader {
    int bus = 0;
    int address = 0;
    Access access = Access::kFailed;
    int error = 0; // libusb's, when it cannot be opened
    std::vector<Interface> interfaces;

    // The device node, "/dev/bus/usb/001/002".
    std::string node() const;
};

class Bus {
  public:
    Bus();
    ~Bus();
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    // libusb's reason for not starting; 0 when it did.
    int error() const { return error_; }

    std::vector<Reader> readers(const ReaderKind& kind) const;

  private:
    libusb_context* context_ = nullptr;
    int error_;
};

// Throws a Failure with kNoReader unless there is a reader that may be used. Gives its node.
std::string require_reader(const ReaderKind& kind);

// True when the bank-card reader says that none of its slots holds a card.
bool slots_are_empty();

// The same as require_reader for the bank-card reader, and kNoCard unless one of its slots holds a
// card. Gives the reader's node.
std::string require_card();

} // namespace qaven::cli
