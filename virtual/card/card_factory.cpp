// Makes cards out of profile files and saves them again.
#include "virtual/card/card_factory.h"

#include <stdexcept>

#include "virtual/card/card.h"
#include "virtual/card/profile.h"

namespace qaven::virtual_card {

std::unique_ptr<Icc> make_card(const std::filesystem::path& profile) {
    return std::make_unique<Card>(load_profile(profile));
}

void save_card(const Icc& card, const std::filesystem::path& profile) {
    const auto* known = dynamic_cast<const Card*>(&card);
    if (known == nullptr) {
        throw std::runtime_error("Only a card that came from a profile can be saved.");
    }
    save_profile(known->profile(), profile);
}

} // namespace qaven::virtual_card
