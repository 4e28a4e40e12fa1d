// The FIFO that stands in for a USB device's node.
//
// libusb learns of finished transfers by polling the node for writability. A full FIFO says that
// there is nothing to reap, an empty one that there is something. (A plain file would always be
// writable, and a waiting host would spin.)
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qaven::virtual_plug {

class Gate {
  public:
    // Makes the FIFO, closed. Throws std::system_error.
    explicit Gate(const std::string& path);
    Gate(const Gate&) = delete;
    Gate& operator=(const Gate&) = delete;
    Gate(Gate&&) = delete;
    Gate& operator=(Gate&&) = delete;
    ~Gate();

    // Whether a poll finds the node writable.
    void set(bool writable);

  private:
    int fd_ = -1;
    std::vector<std::uint8_t> filling_; // as much as fills the FIFO in one write
    bool writable_ = true;
};

} // namespace qaven::virtual_plug
