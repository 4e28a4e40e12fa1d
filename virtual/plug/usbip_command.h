// qaven-virtual-reader usbip: the loop around the server, and the commands on standard input that
// plug and unplug readers and insert and remove cards.
#pragma once

#include "virtual/plug/device_set.h"
#include "virtual/plug/options.h"
#include "virtual/plug/usbip_server.h"

#include <string>
#include <string_view>
#include <vector>

namespace qaven::virtual_plug {

// Serves until a signal or the line "quit" ends it. Returns the exit status.
int serve_usbip(const Options& options, const DeviceFactory& factory);

// The commands on standard input.
class ControlCommands {
  public:
    ControlCommands(UsbipServer& server, DeviceSet& devices, unsigned slot)
        : server_(server), devices_(devices), slot_(slot) {}

    // Executes one line. Returns the lines to print: information first, "ok" or "error: ..." last.
    [[nodiscard]] std::vector<std::string> execute(std::string_view line);

    [[nodiscard]] bool quitting() const { return quitting_; }

  private:
    [[nodiscard]] std::vector<std::string> dispatch(const std::vector<std::string>& words);
    void move_card(bool in);

    UsbipServer& server_;
    DeviceSet& devices_;
    unsigned slot_; // of the card
    bool quitting_ = false;
};

} // namespace qaven::virtual_plug
