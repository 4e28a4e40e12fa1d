// qaven-virtual-reader usbip: the loop around the server, and the lines by which a tester or a
// script moves readers and cards.
#pragma once

#include "virtual/plug/desk.h"
#include "virtual/plug/options.h"
#include "virtual/plug/usbip_server.h"

#include <string>
#include <string_view>
#include <vector>

namespace qaven::virtual_plug {

// Serves until a signal or the line "quit" ends it. Returns the exit status.
int serve_usbip(const Options& options, const Makers& makers);

// The hand that moves things.
class Hand {
  public:
    Hand(UsbipServer& server, Desk& desk, unsigned slot)
        : server_(server), desk_(desk), slot_(slot) {}

    // Carries out one line; returns what there is to say: information first, "ok" or "error: ..."
    // last.
    [[nodiscard]] std::vector<std::string> obey(std::string_view line);

    [[nodiscard]] bool quitting() const { return quitting_; }

  private:
    [[nodiscard]] std::vector<std::string> carry_out(const std::vector<std::string>& words);
    void move_card(bool in);

    UsbipServer& server_;
    Desk& desk_;
    unsigned slot_; // of the card
    bool quitting_ = false;
};

} // namespace qaven::virtual_plug
