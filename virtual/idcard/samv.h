// The security module inside an identity-card reader (the SAM-V): command frames in, reply frames
// out, and the order in which a card is found, selected and read.
#pragma once

#include "virtual/idcard/identity_card.h"

#include <optional>
#include <span>

namespace qaven::virtual_idcard {

// The last of the three status bytes.
enum class Sw3 : std::uint8_t {
    kSuccess = 0x90,
    kFound = 0x9F,
    kWrongChecksum = 0x10,
    kWrongLength = 0x11,
    kUnknownCommand = 0x21,
    kReadFailed = 0x41,
    kNoCard = 0x80,
    kSelectFailed = 0x81,
};

class Samv {
  public:
    explicit Samv(std::optional<IdentityCard> card);

    // A whole frame, preamble to checksum. Returns the whole reply.
    Bytes execute(std::span<const std::uint8_t> frame);

    // Power is gone: no card is found or selected any more.
    void reset() { stage_ = Stage::kIdle; }

  private:
    enum class Stage : std::uint8_t { kIdle, kFound, kSelected };

    Bytes find();
    Bytes select();
    Bytes read_base_information() const;

    std::optional<IdentityCard> card_;
    Stage stage_ = Stage::kIdle;
};

// Puts a command frame together from the reports that carry it. A report that starts no frame while
// none is under way is dropped, and so is the padding after a frame.
class FrameCollector {
  public:
    // The frame that this report made whole, if it did.
    std::optional<Bytes> take(std::span<const std::uint8_t> report);

    void reset() { frame_.clear(); }

  private:
    Bytes frame_;
};

} // namespace qaven::virtual_idcard
