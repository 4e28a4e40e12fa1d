// pcapng blocks and the 64-byte header of Linux's memory-mapped USB monitor.
#include "virtual/usb/capture.h"

#include <cerrno>
#include <chrono>
#include <concepts>
#include <stdexcept>
#include <type_traits>

namespace qaven::virtual_usb {
namespace {

constexpr std::uint32_t kSectionHeaderBlock = 0x0A0D0D0A;
constexpr std::uint32_t kInterfaceDescriptionBlock = 1;
constexpr std::uint32_t kEnhancedPacketBlock = 6;
constexpr std::uint32_t kByteOrderMagic = 0x1A2B3C4D;
constexpr std::uint16_t kLinkTypeUsbLinuxMmapped = 220;

constexpr std::size_t kMonitorHeaderSize = 64;

// Little-endian whatever the machine: both formats carry their byte order or are read with that of
// the section header.
template <std::integral T>
void put(Bytes& bytes, T value) {
    auto rest = static_cast<std::make_unsigned_t<T>>(value);
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        bytes.push_back(static_cast<std::uint8_t>(rest & 0xFFU));
        rest = static_cast<std::make_unsigned_t<T>>(static_cast<std::uint64_t>(rest) >> 8U);
    }
}

void write_block(std::ofstream& file, std::uint32_t type, const Bytes& body) {
    Bytes block;
    const std::size_t padding = (4 - body.size() % 4) % 4;
    const auto total = static_cast<std::uint32_t>(12 + body.size() + padding);
    put(block, type);
    put(block, total);
    block.insert(block.end(), body.begin(), body.end());
    block.insert(block.end(), padding, 0);
    put(block, total);
    file.write(reinterpret_cast<const char*>(block.data()),
               static_cast<std::streamsize>(block.size()));
    file.flush();
}

std::chrono::microseconds wall_time() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::system_clock::now().time_since_epoch());
}

} // namespace

CaptureFile::CaptureFile(const std::filesystem::path& path)
    : file_(path, std::ios::binary | std::ios::trunc) {
    if (!file_) {
        throw std::runtime_error("cannot write the capture to " + path.string());
    }
    Bytes section;
    put(section, kByteOrderMagic);
    put(section, std::uint16_t{1}); // version 1.0
    put(section, std::uint16_t{0});
    put(section, std::int64_t{-1}); // length of the section not told
    write_block(file_, kSectionHeaderBlock, section);

    Bytes interface;
    put(interface, kLinkTypeUsbLinuxMmapped);
    put(interface, std::uint16_t{0});
    put(interface, std::uint32_t{0}); // no limit on packet size
    write_block(file_, kInterfaceDescriptionBlock, interface);
}

void CaptureFile::append(std::span<const std::uint8_t> packet) {
    const auto time = static_cast<std::uint64_t>(wall_time().count());
    Bytes body;
    put(body, std::uint32_t{0}); // the one interface
    put(body, static_cast<std::uint32_t>(time >> 32U));
    put(body, static_cast<std::uint32_t>(time & 0xFFFFFFFFU));
    put(body, static_cast<std::uint32_t>(packet.size()));
    put(body, static_cast<std::uint32_t>(packet.size()));
    body.insert(body.end(), packet.begin(), packet.end());
    const std::lock_guard lock(mutex_);
    write_block(file_, kEnhancedPacketBlock, body);
}

Capture::Capture(CaptureFile& file, std::uint16_t bus, std::uint8_t device)
    : file_(file), bus_(bus), device_(device) {}

void Capture::submitted(const Urb& urb) {
    write('S', urb, -EINPROGRESS, urb.in() ? urb.length : urb.data.size(), urb.data, !urb.in());
}

void Capture::completed(const Completion& completion) {
    write('C', completion.urb, completion.status, completion.actual, completion.data,
          completion.urb.in());
}

void Capture::write(std::uint8_t event, const Urb& urb, int status, std::size_t length,
                    std::span<const std::uint8_t> data, bool data_travels) {
    constexpr std::int64_t kMicrosecondsPerSecond = 1'000'000;
    const std::int64_t time = wall_time().count();
    const bool with_setup = event == 'S' && urb.type == TransferType::kControl;
    const auto carried = data_travels ? data : data.first(0);

    Bytes packet;
    packet.reserve(kMonitorHeaderSize + carried.size());
    put(packet, urb.id);
    put(packet, event);
    put(packet, static_cast<std::uint8_t>(urb.type));
    put(packet, urb.endpoint);
    put(packet, device_);
    put(packet, bus_);
    put(packet, static_cast<std::uint8_t>(with_setup ? 0 : '-'));
    // 0: data follow; otherwise the direction says which event of the pair carries them.
    put(packet, static_cast<std::uint8_t>(data_travels ? 0 : (urb.in() ? '<' : '>')));
    put(packet, time / kMicrosecondsPerSecond);
    put(packet, static_cast<std::int32_t>(time % kMicrosecondsPerSecond));
    put(packet, static_cast<std::int32_t>(status));
    put(packet, static_cast<std::uint32_t>(length));
    put(packet, static_cast<std::uint32_t>(carried.size()));
    if (with_setup) {
        packet.insert(packet.end(), urb.setup.begin(), urb.setup.end());
    } else {
        packet.insert(packet.end(), kSetupSize, 0);
    }
    put(packet, std::int32_t{0});  // interval
    put(packet, std::int32_t{0});  // start frame
    put(packet, std::uint32_t{0}); // transfer flags
    put(packet, std::uint32_t{0}); // isochronous descriptors
    packet.insert(packet.end(), carried.begin(), carried.end());
    file_.append(packet);
}

} // namespace qaven::virtual_usb
