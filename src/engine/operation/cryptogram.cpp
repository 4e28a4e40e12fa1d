// Reading GENERATE AC answers and the list objects that both cryptogram steps share.
#include "engine/operation/cryptogram.h"

#include "common/tags.h"
#include "engine/data/terminal_data.h"

#include <algorithm>

namespace qaven::cryptogram {

namespace {

using tlv::Bytes;

constexpr std::size_t kCidByte = 2;
constexpr unsigned char kKindBits = 0xC0;
constexpr std::size_t kMaxValue = 256;

// CID, ATC and application cryptogram.
constexpr std::size_t kFixedPart = 11;

constexpr unsigned char kAipLength = 2;

} // namespace

Kind kind_of(const commands::Response& response) {
    return static_cast<Kind>(response.padded()[kCidByte] & kKindBits);
}

std::optional<Answer> parse(const commands::Response& response) {
    std::array<unsigned char, kMaxValue> value{};
    const WipedAtEnd wiped(value);
    const auto length = tlv::extract(kTag80ResponseFormat1, response.data(), value);
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

void append_answer(tlv::Writer& list, const Answer& answer) {
    list.append(kTag9F26ApplicationCryptogram, answer.cryptogram);
    list.append(kTag9F27Cid, {answer.cid});
    if (!answer.iad.empty()) {
        list.append(kTag9F10Iad, answer.iad);
    }
    list.append(kTag9F37UnpredictableNumber, terminal_data::unpredictable_number());
    list.append(kTag9F36Atc, answer.atc);
    list.append(kTag95Tvr, terminal_data::kTvr);
}

bool append_last_online_atc(tlv::Writer& list) {
    commands::Response response;
    if (commands::get_data(commands::DataObject::kLastOnlineAtc, response) != 0) {
        return false;
    }
    list.append_objects(response.data());
    return true;
}

std::optional<WipedBytes> card_object(Tag tag, Bytes application_data) {
    return tlv::value_of(tag, application_data);
}

bool append_card_object(tlv::Writer& list, Tag tag, Bytes application_data) {
    const auto value = card_object(tag, application_data);
    if (value) {
        list.append(tag, *value);
    }
    return value.has_value();
}

bool append_aip(tlv::Writer& list, Bytes application_data) {
    const auto aip = card_object(kTag82Aip, application_data);
    if (aip) {
        list.append_with_length(kTag82Aip, kAipLength, *aip);
    }
    return aip.has_value();
}

bool append_amount(tlv::Writer& list, Tag tag, char letter, Bytes converted) {
    auto amount = terminal_data::kNoAmount;
    const bool present = terminal_data::letter_value(letter, converted, amount);
    list.append(tag, amount);
    return present;
}

bool append_type(tlv::Writer& list, Bytes converted) {
    std::array type{terminal_data::kDefaultType};
    const bool present = terminal_data::letter_value('T', converted, type);
    list.append(kTag9CTransactionType, type);
    return present;
}

} // namespace qaven::cryptogram
