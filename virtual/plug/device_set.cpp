// Makes the devices that the options ask for.
#include "virtual/plug/device_set.h"

#include "virtual/card/find_profile.h"

namespace qaven::virtual_plug {

DeviceSet::DeviceSet(const Options& options, const DeviceFactory& factory) {
    const virtual_reader::Behaviour behaviour{.strict = options.strict,
                                              .baud = options.baud,
                                              .remove_card_after = options.remove_card_after};
    if (!options.no_reader) {
        if (options.slot != 0) {
            card_ = factory.card(virtual_card::find_profile(options.profile));
        }
        reader_.emplace(options.slot == 1 ? card_.get() : nullptr,
                        options.slot == 2 ? card_.get() : nullptr, behaviour);
        if (options.other_card) {
            other_card_ = factory.card(virtual_card::find_profile(*options.other_card));
            reader_->insert_card(options.slot == 1 ? 2 : 1, *other_card_);
        }
    }
    if (options.second_reader) {
        second_.emplace(nullptr, nullptr, behaviour);
    }
    if (options.idcard) {
        idcard_ = factory.idcard(*options.idcard);
        if (!idcard_) {
            throw UsageError("unknown kind of identity card '" + *options.idcard + "'");
        }
    }
    if (options.capture) {
        capture_.emplace(*options.capture);
    }
    if (options.save && card_) {
        save_ = [save = factory.save, card = card_.get(), file = *options.save] {
            save(*card, file);
        };
    }
}

void DeviceSet::save() const {
    if (save_) {
        save_();
    }
}

} // namespace qaven::virtual_plug
