// The devices that the command line asks for: readers with cards in them, and a capture of their
// USB traffic.
#pragma once

#include "virtual/card/icc.h"
#include "virtual/plug/options.h"
#include "virtual/reader/reader.h"
#include "virtual/usb/capture.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace qaven::virtual_plug {

// Makes the cards, and the devices other than the bank-card reader.
struct DeviceFactory {
    std::function<std::unique_ptr<virtual_card::Icc>(const std::filesystem::path& profile)> card;
    // Writes a card that came from `card` as a profile.
    std::function<void(const virtual_card::Icc& card, const std::filesystem::path& profile)> save;
    // An identity-card reader with a card of this kind on it; null if there is no such kind.
    std::function<std::unique_ptr<virtual_usb::Device>(const std::string& kind)> idcard;
};

class DeviceSet {
  public:
    // Throws UsageError for an option that cannot be met, std::runtime_error for a profile or a
    // capture file that cannot be opened.
    DeviceSet(const Options& options, const DeviceFactory& factory);

    // Null where the options want none.
    [[nodiscard]] virtual_reader::Reader* reader() { return reader_ ? &*reader_ : nullptr; }
    [[nodiscard]] virtual_reader::Reader* second_reader() { return second_ ? &*second_ : nullptr; }
    [[nodiscard]] virtual_usb::Device* idcard_reader() { return idcard_.get(); }
    [[nodiscard]] virtual_card::Icc* card() { return card_.get(); }
    [[nodiscard]] virtual_usb::CaptureFile* capture() { return capture_ ? &*capture_ : nullptr; }

    // Writes the card as it is now, if the options want that.
    void save() const;

  private:
    std::unique_ptr<virtual_card::Icc> card_;
    std::unique_ptr<virtual_card::Icc> other_card_;
    std::optional<virtual_reader::Reader> reader_;
    std::optional<virtual_reader::Reader> second_;
    std::unique_ptr<virtual_usb::Device> idcard_;
    std::optional<virtual_usb::CaptureFile> capture_;
    std::function<void()> save_;
};

} // namespace qaven::virtual_plug
