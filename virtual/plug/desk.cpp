// Options to devices.
#include "virtual/plug/desk.h"

#include "virtual/card/find_profile.h"

namespace qaven::virtual_plug {

Desk::Desk(const Options& options, const Makers& makers) {
    const virtual_reader::Behaviour behaviour{.strict = options.strict,
                                              .baud = options.baud,
                                              .remove_card_after = options.remove_card_after};
    if (!options.no_reader) {
        if (options.slot != 0) {
            card_ = makers.card(virtual_card::find_profile(options.profile));
        }
        reader_.emplace(options.slot == 1 ? card_.get() : nullptr,
                        options.slot == 2 ? card_.get() : nullptr, behaviour);
    }
    if (options.second_reader) {
        second_.emplace(nullptr, nullptr, behaviour);
    }
    if (options.idcard) {
        idcard_ = makers.idcard(*options.idcard);
        if (!idcard_) {
            throw UsageError("there is no identity card of kind '" + *options.idcard + "'");
        }
    }
    if (options.capture) {
        capture_.emplace(*options.capture);
    }
    if (options.save && card_) {
        save_ = [save = makers.save, card = card_.get(), file = *options.save] {
            save(*card, file);
        };
    }
}

void Desk::save() const {
    if (save_) {
        save_();
    }
}

} // namespace qaven::virtual_plug
