// One card read, and the letter table of its card information text.
#include "engine/operation/card_info.h"

#include "common/tags.h"
#include "engine/card/commands.h"
#include "engine/card/reading.h"
#include "engine/card/selection.h"
#include "engine/data/application_data.h"
#include "engine/data/terminal_data.h"
#include "engine/data/tlv_writer.h"
#include "host/err.h"
#include "qaven/qaven.h"
#include "support/boundary.h"
#include "support/bounded_text.h"
#include "support/decimal.h"
#include "support/diagnostics.h"
#include "support/gbk_text.h"
#include "support/hex.h"
#include "support/host_text.h"
#include "support/operation.h"
#include "support/qmlog.h"
#include "support/wiped.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qaven::card_info {

namespace {

using commands::DataObject;
using tlv::Bytes;

// How a field's value reads in the card information text.
enum class Form {
    kPan,       // hexadecimal digits up to the first F
    kText,      // the bytes as stored, up to the first zero byte
    kHex,       // all hexadecimal digits
    kTrack2,    // hexadecimal digits, the first D as =, one trailing F removed
    kFirstByte, // the first byte as a three-digit decimal
    kNotShown,  // the letter names a tag and nothing else
};

struct Field {
    char letter = 0;
    Tag tag{};
    Tag otherwise{};                 // looked for when tag is missing or its text is empty
    std::optional<DataObject> asked; // asked for with GET DATA; otherwise found in the records
    Form form = Form::kNotShown;
};

constexpr Tag kNone{};

// The order of the fields in the card information text.
constexpr std::array kFields{
    Field{'A', kTag5APan, kNone, std::nullopt, Form::kPan},
    Field{'B', kTag5F20CardholderName, kTag9F0BCardholderNameExtended, std::nullopt, Form::kText},
    Field{'C', kTag9F62CardholderIdType, kNone, std::nullopt, Form::kHex},
    Field{'D', kTag9F61CardholderIdNumber, kNone, std::nullopt, Form::kText},
    Field{'E', kTag57Track2, kNone, std::nullopt, Form::kTrack2},
    Field{'F', kTag9F1FTrack1DiscretionaryData, kNone, std::nullopt, Form::kText},
    Field{'G', kTag9F79CashBalance, kNone, DataObject::kCashBalance, Form::kHex},
    Field{'H', kTag9F77CashBalanceLimit, kNone, DataObject::kCashBalanceLimit, Form::kHex},
    Field{'I', kTag5F24ExpirationDate, kNone, std::nullopt, Form::kHex},
    Field{'J', kTag5F34PanSequenceNumber, kNone, std::nullopt, Form::kFirstByte},
    Field{'K', kTag9F78CashTransactionLimit, kNone, DataObject::kCashTransactionLimit, Form::kHex},
    Field{'L', kTagDF20IssuerData, kNone, std::nullopt, Form::kText},
    Field{'M', kTagDF21IssuerData, kNone, std::nullopt, Form::kText},
    Field{'N', kTagDF22IssuerData, kNone, std::nullopt, Form::kText},
    Field{'O', kTagDF23IssuerData, kNone, std::nullopt, Form::kText},
    Field{'T', kTag9CTransactionType, kNone, std::nullopt, Form::kNotShown},
};

using Value = WipedBytes;

WipedText field_text(char letter, std::string_view value) {
    WipedText text(1, letter);
    text += three_digits(value.size());
    text += value;
    return text;
}

WipedText text_of(const Value& value) {
    const auto end = std::ranges::find(value, static_cast<unsigned char>(0));
    return {value.begin(), end};
}

WipedText track2_field(char letter, const Value& value) {
    WipedText digits = hex::text(value);
    std::string length = three_digits(digits.size());
    if (const auto separator = digits.find('D'); separator != std::string::npos) {
        digits[separator] = '=';
    }
    if (!digits.empty() && digits.back() == 'F') {
        digits.pop_back();
        // The length is corrected as a character, so 020 becomes 02/.
        --length.back();
    }
    WipedText text(1, letter);
    text += length;
    text += digits;
    return text;
}

WipedText shown(const Field& field, const Value& value) {
    switch (field.form) {
    case Form::kPan: {
        const WipedText digits = hex::text(value);
        return field_text(field.letter, std::string_view(digits).substr(0, digits.find('F')));
    }
    case Form::kText:
        return field_text(field.letter, text_of(value));
    case Form::kHex:
        return field_text(field.letter, hex::text(value));
    case Form::kTrack2:
        return track2_field(field.letter, value);
    case Form::kFirstByte:
        return field_text(field.letter, three_digits(value.empty() ? 0 : value.front()));
    case Form::kNotShown:
        break;
    }
    return {};
}

// A field of the card's records; "000" when the card has no such object.
WipedText record_field(const Field& field, Bytes records) {
    auto value = tlv::value_of(field.tag, records);
    if (field.otherwise.size() > 0 && (!value || text_of(*value).empty())) {
        value = tlv::value_of(field.otherwise, records);
    }
    return value ? shown(field, *value) : field_text(field.letter, "");
}

// A field that the card gives on request only; "000" when it refuses, nothing at all when its
// answer lacks the object.
WipedText asked_field(const Field& field) {
    commands::Response answer;
    if (commands::get_data(*field.asked, answer) != 0) {
        return field_text(field.letter, "");
    }
    const auto value = tlv::value_of(field.tag, answer.data());
    return value ? shown(field, *value) : WipedText();
}

void write_user_info(std::string_view letters, Bytes records, std::span<char> out) {
    BoundedText text(out);
    for (const Field& field : kFields) {
        if (field.form == Form::kNotShown || letters.find(field.letter) == std::string_view::npos) {
            continue;
        }
        if (!text.append(field.asked ? asked_field(field) : record_field(field, records))) {
            return;
        }
    }
}

std::vector<unsigned char> tags_of(std::string_view letters) {
    std::vector<unsigned char> tags;
    for (const char letter : letters) {
        const auto field = std::ranges::find(kFields, letter, &Field::letter);
        if (field != kFields.end()) {
            const Bytes tag = field->tag;
            tags.insert(tags.end(), tag.begin(), tag.end());
        }
    }
    return tags;
}

// AID and AIP lead the records.
void write_application_data(Bytes aid, const reading::Options& options,
                            const reading::ApplicationData& data, std::span<char> out) {
    std::array<std::uint8_t, 64> place{};
    tlv::Writer head(place);
    head.append(kTag4FAid, aid);
    head.append(kTag82Aip, options.aip);
    application_data::write(head.written(), data.records(), out);
}

constinit OneCard* one_card = nullptr;

int fail(int result, int described, std::span<char> err_msg) {
    qm_closeicc();
    Qm_CloseDevice();
    if (!session::misled()) {
        errors::describe(described, err_msg);
    }
    return result;
}

int read_card_once(const Request& request, const Outputs& outputs, session::AtSuccess at_success) {
    diagnostics::line("ZEB_ICC_GetInfo");
    trace::write("ZEB_ICC_GetInfo\n");
    trace::write(gbk::kCardInfoTitle);

    if (const int result = session::open_with_card(); result != 0) {
        errors::describe(result, outputs.err_msg);
        return result;
    }

    BoundedText(outputs.ic_data).append(application_data::kEmpty);
    trace::write(gbk::kSelectionTitle);
    const auto choice = selection::choose(request.aid);
    if (choice.result != 0) {
        return fail(choice.result, choice.result, outputs.err_msg);
    }
    if (choice.count < 1 && selection::through_directory(request.aid)) {
        // A card without a directory is no error of the card's: the result is the count.
        return fail(choice.count, choice.count, outputs.err_msg);
    }
    if (choice.count != 1 && !selection::through_directory(request.aid)) {
        return fail(QAVEN_NO_APPLICATION, choice.count, outputs.err_msg);
    }

    const auto store = terminal_data::pack({});
    reading::Options options;
    if (const int result = reading::get_processing_options({choice.fci}, {store}, options);
        result != 0) {
        return fail(result, result, outputs.err_msg);
    }

    const auto data = reading::read_records(options.afl);
    if (session::misled()) {
        return QAVEN_TIMEOUT;
    }
    if (one_card != nullptr && !one_card->has(data)) {
        session::end();
        return fail(QAVEN_NO_CARD, QAVEN_NO_CARD, outputs.err_msg);
    }
    write_application_data(choice.aid, options, data, outputs.ic_data);
    write_user_info(request.tag_list, data.bytes(), outputs.user_info);

    if (at_success == session::AtSuccess::kEnd) {
        session::end();
    }
    return 0;
}

} // namespace

OneCard::OneCard() {
    one_card = this;
}

OneCard::~OneCard() {
    one_card = nullptr;
}

bool OneCard::has(const reading::ApplicationData& data) {
    const Identity found{tlv::value_of(kTag5APan, data.bytes()),
                         tlv::value_of(kTag57Track2, data.bytes()), data.incomplete()};
    if (first_) {
        return found == *first_;
    }
    first_ = found;
    // Nothing can be compared with an object that is empty.
    for (auto* const object : {&first_->number, &first_->track2}) {
        if (*object && (*object)->empty()) {
            object->reset();
        }
    }
    return true;
}

bool OneCard::Identity::operator==(const Identity& other) const {
    const bool numbers = number && other.number;
    const bool tracks = track2 && other.track2;
    if (numbers || tracks) {
        return (!numbers || number == other.number) && (!tracks || track2 == other.track2);
    }
    const auto own = digits();
    const auto others = other.digits();
    return own == others || ((!own || !others) && !incomplete && !other.incomplete);
}

// The card number, from track 2 what stands before its separator.
std::optional<WipedText> OneCard::Identity::digits() const {
    if (!number && !track2) {
        return std::nullopt;
    }
    const WipedText text = hex::text(number ? *number : *track2);
    return text.substr(0, text.find(number ? 'F' : 'D'));
}

int read_card(const Request& request, const Outputs& outputs, session::AtSuccess at_success) {
    return session::from_opening([&] { return read_card_once(request, outputs, at_success); });
}

} // namespace qaven::card_info

namespace card_info = qaven::card_info;
using qaven::host_buffer;
using qaven::HostText;

int Qm_ConvertFlag(const char* letters, int count, unsigned char* tagsout) {
    return qaven::guarded(0, [&] {
        const auto length = static_cast<std::size_t>(std::max(count, 0));
        const auto tags = card_info::tags_of({letters, length});
        std::ranges::copy(tags, tagsout);
        return static_cast<int>(tags.size());
    });
}

int ZEB_ICC_GetInfo(char* /*p0*/, char* /*p1*/, char* /*p2*/, char* /*p3*/, char* /*p4*/,
                    char* /*p5*/, char* /*p6*/, char* /*p7*/, char* /*p8*/, char* TagList,
                    char* AID, char* UserInfo, char* /*p12*/, char* IcData, char* ErrMsg) {
    return qaven::operation::run(static_cast<int>(QAVEN_ILLEGAL_DATA), [&] {
        return card_info::read_card({HostText(TagList), HostText(AID)},
                                    {host_buffer(UserInfo, QAVEN_USERINFO_SIZE),
                                     host_buffer(IcData, QAVEN_APPDATA_SIZE),
                                     host_buffer(ErrMsg, QAVEN_ERRMSG_SIZE)},
                                    qaven::session::AtSuccess::kEnd);
    });
}
