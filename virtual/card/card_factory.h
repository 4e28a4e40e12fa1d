// Makes cards out of profile files and saves them again.
#pragma once

#include <filesystem>
#include <memory>

#include "virtual/card/icc.h"

namespace qaven::virtual_card {

// Throws std::runtime_error with a sentence when the profile cannot be used.
std::unique_ptr<Icc> make_card(const std::filesystem::path& profile);

// Writes the card as it is now as a profile: counters, logs, limits, PIN tries and blocks included.
// A card made from that file goes on where this one stands. Takes cards from make_card only; throws
// std::runtime_error with a sentence when the file cannot be written. Not while a command runs.
void save_card(const Icc& card, const std::filesystem::path& profile);

} // namespace qaven::virtual_card
