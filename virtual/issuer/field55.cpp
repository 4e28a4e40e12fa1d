// The issuer's parser for the card data of an authorisation request.
#include "virtual/issuer/field55.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

namespace qaven::virtual_issuer {

namespace {

// Reads front to back and complains with the position of what is wrong.
class Reader {
  public:
    explicit Reader(ByteView bytes) : bytes_(bytes) {}

    bool at_end() const { return at_ == bytes_.size(); }

    TagNumber tag() {
        TagNumber tag = next("a tag");
        if ((tag & 0x1FU) != 0x1FU) {
            return tag;
        }
        std::uint8_t more = 0;
        do {
            if (tag > 0xFFFF) {
                complain("a tag of more than three bytes");
            }
            more = next("the rest of a tag");
            tag = (tag << 8U) | more;
        } while ((more & 0x80U) != 0);
        return tag;
    }

    Bytes value() {
        std::size_t length = next("a length");
        if (length > 0x80) {
            std::size_t count = length & 0x7FU;
            if (count > 2) {
                complain("a length of more than two bytes");
            }
            length = 0;
            for (; count > 0; --count) {
                length = (length << 8U) | next("the rest of a length");
            }
        } else if (length == 0x80) {
            complain("a length of no bytes");
        }
        if (length > bytes_.size() - at_) {
            complain("a value that is longer than what is left");
        }
        const ByteView value = bytes_.subspan(at_, length);
        at_ += length;
        return {value.begin(), value.end()};
    }

  private:
    std::uint8_t next(const char* wanted) {
        if (at_end()) {
            throw std::runtime_error(std::string("The card data ends where ") + wanted +
                                     " should be.");
        }
        return bytes_[at_++];
    }

    [[noreturn]] void complain(const char* what) const {
        throw std::runtime_error(std::string("The card data has ") + what + " at byte " +
                                 std::to_string(at_) + ".");
    }

    ByteView bytes_;
    std::size_t at_ = 0;
};

} // namespace

Field55 Field55::parse(std::string_view hex_text) {
    const auto bytes = virtual_card::from_hex(hex_text);
    if (!bytes || bytes->empty()) {
        throw std::runtime_error(
            "The card data has to be hexadecimal text, two digits for a byte.");
    }
    Field55 field;
    Reader reader(*bytes);
    while (!reader.at_end()) {
        ReceivedObject object;
        object.tag = reader.tag();
        object.value = reader.value();
        if (field.find(object.tag) != nullptr) {
            throw std::runtime_error("The card data has " + tag_text(object.tag) + " twice.");
        }
        field.objects_.push_back(std::move(object));
    }
    return field;
}

const Bytes* Field55::find(TagNumber tag) const {
    const auto found =
        std::find_if(objects_.begin(), objects_.end(),
                     [tag](const ReceivedObject& object) { return object.tag == tag; });
    return found != objects_.end() ? &found->value : nullptr;
}

const Bytes& Field55::require(std::uint32_t tag, std::size_t size) const {
    const Bytes* value = find(tag);
    if (value == nullptr) {
        throw std::runtime_error("The card data has no " + tag_text(tag) + " (" +
                                 std::string(tag_name(tag)) + ").");
    }
    if (value->size() != size) {
        throw std::runtime_error(tag_text(tag) + " (" + std::string(tag_name(tag)) + ") has " +
                                 std::to_string(value->size()) + " bytes instead of " +
                                 std::to_string(size) + ".");
    }
    return *value;
}

std::string_view tag_name(TagNumber tag) {
    constexpr std::array<std::pair<TagNumber, std::string_view>, 18> kNames{{
        {kTag9F26ApplicationCryptogram, "application cryptogram"},
        {kTag9F27Cid, "cryptogram information data"},
        {kTag9F10Iad, "issuer application data"},
        {kTag9F37UnpredictableNumber, "unpredictable number"},
        {kTag9F36Atc, "application transaction counter"},
        {kTag95Tvr, "terminal verification results"},
        {kTag9F13LastOnlineAtc, "last online transaction counter"},
        {kTag9ATransactionDate, "transaction date"},
        {kTag9CTransactionType, "transaction type"},
        {kTag9F02AmountAuthorised, "amount authorised"},
        {kTag5F2ACurrencyCode, "transaction currency code"},
        {kTag5APan, "PAN"},
        {kTag5F34PanSequenceNumber, "PAN sequence number"},
        {kTag82Aip, "application interchange profile"},
        {kTag9F1ATerminalCountryCode, "terminal country code"},
        {kTag9F03AmountOther, "amount other"},
        {kTag9F33TerminalCapabilities, "terminal capabilities"},
        {kTag9F63CardProduct, "card product identification"},
    }};
    const auto* const found = std::find_if(kNames.begin(), kNames.end(),
                                           [tag](const auto& name) { return name.first == tag; });
    return found != kNames.end() ? found->second : "unknown";
}

} // namespace qaven::virtual_issuer
