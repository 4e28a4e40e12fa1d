// qaven idcard: the text of the identity card on the identity-card reader, each field under its
// name.
#include "idcard/icc.h"

#include "tools/emv/date_time.h"
#include "tools/qaven/bus.h"
#include "tools/qaven/cli/exit_status.h"
#include "tools/qaven/cli/options.h"
#include "tools/qaven/cli/terminal.h"
#include "tools/qaven/cli/verbs.h"

#include <nlohmann/json.hpp>

#include <array>
#include <cstdio>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace qaven::cli {

using namespace emv;

namespace {

Syntax syntax() {
    return {"idcard",
            "[OPTIONS]",
            "Reads the identity card that lies on the identity-card reader.",
            {{kJson.name, "", "print the fields as JSON"}, kQuiet},
            "Of a foreigner's or a Hong Kong, Macao or Taiwan resident's permit only the kind is\n"
            "shown; they lay out their text in another way."};
}

constexpr std::size_t kTextCharacters = 256;

// One character of UCS-2, its low byte first, tells the permits from the resident card.
constexpr std::size_t kCardTypeAt = 248;

struct Field {
    std::size_t offset;
    std::size_t length;
    const char* label;
};

constexpr std::array kFields{
    Field{0, 30, "name"},        Field{30, 2, "sex"},          Field{32, 4, "ethnic group code"},
    Field{36, 16, "born"},       Field{52, 70, "address"},     Field{122, 36, "ID number"},
    Field{158, 30, "issued by"}, Field{188, 16, "valid from"}, Field{204, 16, "valid until"},
};

using Text = std::span<const unsigned char>;
using Listing = std::vector<std::pair<std::string, std::string>>;

class Connection {
  public:
    Connection() { usb_device_open(); }
    ~Connection() { usb_device_close(); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
};

struct Step {
    unsigned char command;
    unsigned char parameter;
    const char* complaint;
    ExitStatus refused; // the status when the reader refuses this step
};

constexpr std::array kSteps{
    Step{0x20, 0x01, "there is no identity card on the reader", kNoCard},
    Step{0x20, 0x02, "the identity card cannot be selected", kFailed},
    Step{0x30, 0x01, "the identity card cannot be read", kFailed},
};

constexpr int kRefused = -2;

// The data of the last step.
std::vector<unsigned char> read_card() {
    std::vector<unsigned char> data(qaven::idcard::kSamvDataCapacity);
    unsigned long length = 0;
    for (const Step& step : kSteps) {
        const int result = samv_cmd(step.command, step.parameter, data.data(), &length);
        if (result == kRefused) {
            throw Failure(step.refused, step.complaint);
        }
        if (result != 0) {
            throw Failure(kFailed, "the identity-card reader does not answer");
        }
    }
    data.resize(length);
    return data;
}

// Two lengths of two bytes each, then the text and the picture that they measure.
std::vector<unsigned char> text_in(const std::vector<unsigned char>& data) {
    constexpr std::size_t lengths = 4;
    const std::size_t size =
        data.size() < lengths ? 0U : static_cast<std::size_t>(data[0]) << 8U | data[1];
    if (size < qaven::idcard::kBaseTextUsed || data.size() < lengths + size) {
        throw Failure(kFailed, "the identity card's answer holds no text");
    }
    const auto begin = data.begin() + lengths;
    return {begin, begin + static_cast<std::ptrdiff_t>(size)};
}

std::string utf8(Text ucs2) {
    std::vector<unsigned char> source(ucs2.begin(), ucs2.end());
    std::array<char, kTextCharacters> text{};
    // Text that does not convert ends before its first bad character.
    ucs2_utf8(source.data(), source.size(), text.data(), text.size());
    std::string trimmed(text.data());
    trimmed.erase(trimmed.find_last_not_of(' ') + 1);
    return trimmed;
}

std::string in_words(const Field& field, const std::string& value) {
    const std::string_view label = field.label;
    if (label == "sex") {
        return value == "1" ? "male (1)" : value == "2" ? "female (2)" : value;
    }
    // A card without an end of its validity says so in words.
    return is_date(value) ? date_text(value) : value;
}

Listing listing_of(Text text) {
    if (text[kCardTypeAt + 1] == 0 && text[kCardTypeAt] == 'I') {
        return {{"kind", "foreigner's residence permit"}};
    }
    if (text[kCardTypeAt + 1] == 0 && text[kCardTypeAt] == 'J') {
        return {{"kind", "Hong Kong, Macao or Taiwan resident's permit"}};
    }
    Listing listing{{"kind", "resident identity card"}};
    for (const Field& field : kFields) {
        listing.emplace_back(field.label,
                             in_words(field, utf8(text.subspan(field.offset, field.length))));
    }
    return listing;
}

} // namespace

int idcard_command(Arguments arguments) {
    const auto options = read_options(syntax(), arguments);
    if (!options) {
        return kFine;
    }
    require_reader(kIdentityCardReader);
    say_waiting(options->has(kQuiet.name), "the identity card on the reader");
    const Connection connection;
    const Listing listing = listing_of(text_in(read_card()));
    if (options->has(kJson.name)) {
        nlohmann::ordered_json object;
        for (const auto& [label, value] : listing) {
            object[label] = value;
        }
        std::puts(object.dump(1, '\t').c_str());
        return kFine;
    }
    for (const auto& [label, value] : listing) {
        print_field(label, value);
    }
    return kFine;
}

} // namespace qaven::cli
