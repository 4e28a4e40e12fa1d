// Writes what a port carries as a pcapng file in the Linux USB capture format (link type 220),
// which Wireshark and tshark open.
#pragma once

#include "virtual/usb/port.h"

#include <filesystem>
#include <fstream>
#include <mutex>

namespace qaven::virtual_usb {

// The file; several ports may write to one.
class CaptureFile {
  public:
    // Throws std::runtime_error if the file cannot be written.
    explicit CaptureFile(const std::filesystem::path& path);

    void append(std::span<const std::uint8_t> packet);

  private:
    std::mutex mutex_;
    std::ofstream file_;
};

// One device's share of it.
class Capture : public PortMonitor {
  public:
    Capture(CaptureFile& file, std::uint16_t bus, std::uint8_t device);

    void submitted(const Urb& urb) override;
    void completed(const Completion& completion) override;

  private:
    void write(std::uint8_t event, const Urb& urb, int status, std::size_t length,
               std::span<const std::uint8_t> data, bool data_travels);

    CaptureFile& file_;
    std::uint16_t bus_;
    std::uint8_t device_;
};

} // namespace qaven::virtual_usb
