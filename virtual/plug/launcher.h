// Runs a command on a machine with virtual devices in its USB ports.
#pragma once

#include "virtual/card/icc.h"
#include "virtual/usb/device.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

namespace qaven::virtual_plug {

// Where cards and further devices come from.
struct Makers {
    std::function<std::unique_ptr<virtual_card::Icc>(const std::filesystem::path& profile)> card;
    // Writes a card that came from `card` as a profile.
    std::function<void(const virtual_card::Icc& card, const std::filesystem::path& profile)> save;
    // An identity-card reader with a card of this kind on it; null if there is no such kind.
    std::function<std::unique_ptr<virtual_usb::Device>(const std::string& kind)> idcard;
};

// The whole program: reads the command line, sets the stage, runs the command. Returns the exit
// status.
int launch(int argc, char** argv, const Makers& makers);

} // namespace qaven::virtual_plug
