// Reading GENERATE AC answers and the list objects that both cryptogram steps share.
#include "engine/cryptogram.h"

#include "engine/terminal_data.h"

#include <algorithm>

namespace qaven::cryptogram {

namespace {

using tlv::Bytes;

constexpr std::array<unsigned char, 1> kFormat1{0x80};
constexpr std::size_t kCidByte = 2;
constexpr unsigned char kKindBits = 0xC0;
constexpr std::size_t kMaxValue = 256;

// CID, ATC and application cryptogram.
constexpr std::size_t kFixedPart = 11;

constexpr std::size_t kRandomLength = 4;
constexpr unsigned char kAipLength = 2;

} // namespace

Kind kind_of(const commands::Response& response) {
    return static_cast<Kind>(response.padded()[kCidByte] & kKindBits);
}

std::optional<Answer> parse(const commands::Response& response) {
    std::array<unsigned char, kMaxValue> value{};
    const WipedAtEnd wiped(value);
    const auto length = tlv::extract(kFormat1, response.data(), value);
    if (!length) {
        return std::nullopt;
    }
    Answer answer{};
    const Bytes bytes(value);
    answer.cid = bytes[0];
    std::ranges::copy(bytes.subspan(1, answer.atc.size()), answer.atc.begin());
    std::ranges::copy(bytes.subspan(3, answer.cryptogram.size()), answer.cryptogram.begin());
    if (*length > kFixedPart) {
        const Bytes iad = bytes.subspan(kFixedPart, *length - kFixedPart);
        answer.iad.assign(iad.begin(), iad.end());
    }
    return answer;
}

void append_answer(TlvList& list, const Answer& answer) {
    list.append({0x9F, 0x26}, answer.cryptogram);
    list.append({0x9F, 0x27}, {answer.cid});
    if (!answer.iad.empty()) {
        list.append({0x9F, 0x10}, answer.iad);
    }
    list.append({0x9F, 0x37}, Bytes(gRnd).first(kRandomLength));
    list.append({0x9F, 0x36}, answer.atc);
    list.append({0x95}, terminal_data::kTvr);
}

bool append_last_online_atc(TlvList& list) {
    commands::Response response;
    if (commands::get_data(commands::DataObject::kLastOnlineAtc, response) != 0) {
        return false;
    }
    list.append_object(response.data());
    return true;
}

std::optional<WipedBytes> card_object(TlvList::Tag tag, Bytes application_data) {
    return tlv::value_of(Bytes(tag.begin(), tag.size()), application_data);
}

bool append_card_object(TlvList& list, TlvList::Tag tag, Bytes application_data) {
    const auto value = card_object(tag, application_data);
    if (value) {
        list.append(tag, *value);
    }
    return value.has_value();
}

bool append_aip(TlvList& list, Bytes application_data) {
    const auto aip = card_object({0x82}, application_data);
    if (aip) {
        list.append_with_length({0x82}, kAipLength, *aip);
    }
    return aip.has_value();
}

bool append_amount(TlvList& list, TlvList::Tag tag, char letter, Bytes converted) {
    auto amount = terminal_data::kNoAmount;
    const bool present = terminal_data::letter_value(letter, converted, amount);
    list.append(tag, amount);
    return present;
}

bool append_type(TlvList& list, Bytes converted) {
    std::array type{terminal_data::kDefaultType};
    const bool present = terminal_data::letter_value('T', converted, type);
    list.append({0x9C}, type);
    return present;
}

} // namespace qaven::cryptogram
