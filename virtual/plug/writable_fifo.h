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

class WritableFifo {
  public:
    // Makes the FIFO, not writable. Throws std::system_error.
    explicit WritableFifo(const std::string& path);
    WritableFifo(const WritableFifo&) = delete;
    WritableFifo& operator=(const WritableFifo&) = delete;
    WritableFifo(WritableFifo&&) = delete;
    WritableFifo& operator=(WritableFifo&&) = delete;
    ~WritableFifo();

    // Whether a poll finds the node writable.
    void set_writable(bool writable);

  private:
    int fd_ = -1;
    std::vector<std::uint8_t> filling_; // as much as fills the FIFO in one write
    bool writable_ = true;
};

} // namespace qaven::virtual_plug
