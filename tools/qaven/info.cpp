// qaven info: the card's information, each field under its name.
#include "applications.h"
#include "bus.h"
#include "card_text.h"
#include "exit_status.h"
#include "library.h"
#include "options.h"
#include "qaven/qaven.h"
#include "terminal.h"
#include "tools/emv/code_words.h"
#include "tools/emv/date_time.h"
#include "tools/emv/gbk.h"
#include "tools/emv/letter_records.h"
#include "tools/emv/money.h"
#include "verbs.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

namespace tool {

namespace {

constexpr const char* kAllLetters = "|A|B|C|D|E|F|G|H|I|J|K|L|M|N|O";

Syntax syntax() {
    return {"info",
            "[OPTIONS]",
            "Reads the card in the reader and shows what it says about itself.",
            {kAidList, kTrace, kJson, kShowPan, kQuiet},
            {}};
}

struct Shown {
    char letter;
    const char* label;
};

constexpr std::array kShown{
    Shown{'A', "card number"},
    Shown{'J', "card sequence number"},
    Shown{'I', "expires"},
    Shown{'B', "cardholder"},
    Shown{'C', "ID type"},
    Shown{'D', "ID number"},
    Shown{'E', "track 2"},
    Shown{'F', "track 1 discretionary data"},
    Shown{'G', "electronic cash balance"},
    Shown{'H', "electronic cash limit"},
    Shown{'K', "electronic cash single limit"},
    Shown{'L', "issuer's data DF20"},
    Shown{'M', "issuer's data DF21"},
    Shown{'N', "issuer's data DF22"},
    Shown{'O', "issuer's data DF23"},
};

// Electronic cash is in the currency of the card, which is the yuan.
constexpr std::string_view kCash = "0156";

// Nobody who reads along needs the issuer's data of track 1, and it may hold the card number.
constexpr const char* kNotShown = "(not shown)";

std::string in_words(char letter, const std::string& value, bool show_pan) {
    switch (letter) {
    case 'A':
        return show_pan ? value : masked_number(value);
    case 'C':
        return identity_type_text(value);
    case 'D':
        return show_pan ? readable(without_filling(value))
                        : masked_number(readable(without_filling(value)));
    case 'F':
        return show_pan ? readable(without_filling(value)) : kNotShown;
    case 'E':
        return show_pan ? value : masked_track2(value, '=');
    case 'G':
    case 'H':
    case 'K':
        return amount_text(value, kCash);
    case 'I':
        return date_text(value);
    default:
        return readable(without_filling(value));
    }
}

void print_information(std::span<const LetterRecord> records, bool show_pan) {
    for (const auto& [letter, label] : kShown) {
        const std::string value = value_of(records, letter);
        print_field(label, value.empty() ? "-" : in_words(letter, value, show_pan));
    }
}

bool has_every_field(const Answer& answer) {
    const std::string information = answer.text("IcInfo");
    const LetterRecords fields = letter_records(information);
    return std::ranges::all_of(kShown, [&](const Shown& shown) {
        return !value_of(fields.records, shown.letter).empty();
    });
}

struct Reading {
    Answer answer;
    bool whole;
};

// The library leaves empty what the card does not have, and what a failed transfer has lost. A
// reading that lacks a field counts when the next one says the same.
Reading read_whole(const Library& library, const std::string& aids) {
    constexpr int kMostReadings = 3;
    Answer answer = library.card_information(kAllLetters, aids);
    bool whole = answer.code != QAVEN_OK || has_every_field(answer);
    for (int reading = 2; !whole && reading <= kMostReadings; ++reading) {
        Answer next = library.card_information(kAllLetters, aids);
        if (next.code != QAVEN_OK) {
            break;
        }
        whole = has_every_field(next) || next.texts == answer.texts;
        answer = std::move(next);
    }
    return {std::move(answer), whole};
}

} // namespace

int info_command(Arguments arguments) {
    const auto options = read_options(syntax(), arguments);
    if (!options) {
        return kFine;
    }
    const std::string aids = aid_list(*options);
    const Library library(*options);
    const std::string reader = require_card();
    say_waiting(options->has(kQuiet.name), "the card in the reader");
    const auto [answer, whole] = read_whole(library, aids);
    if (answer.code != QAVEN_OK) {
        throw operation_failure("the card could not be read", answer.code);
    }
    const std::string information = answer.text("IcInfo");
    const LetterRecords fields = letter_records(information);
    if (options->has(kJson.name)) {
        std::puts(answer.json().c_str());
    } else {
        print_information(fields.records, options->has(kShowPan.name));
    }
    require_whole_reading(reader);
    if (value_of(fields.records, 'A').empty() && value_of(fields.records, 'E').empty()) {
        throw Failure(kFailed, "the card gave no card number and no track 2: it may have been "
                               "pulled out, or could not be read whole");
    }
    if (!whole) {
        throw Failure(kFailed, "the card was not read whole: transfers failed while it was there");
    }
    return kFine;
}

} // namespace tool
