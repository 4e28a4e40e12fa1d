// qaven info: the card's information, each field under its name.
#include "qaven/qaven.h"
#include "tools/emv/letter_records.h"
#include "tools/emv/values.h"
#include "tools/qaven/applications.h"
#include "tools/qaven/bus.h"
#include "tools/qaven/cli/exit_status.h"
#include "tools/qaven/cli/options.h"
#include "tools/qaven/cli/terminal.h"
#include "tools/qaven/cli/verbs.h"
#include "tools/qaven/library.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace qaven::cli {

using namespace emv;

namespace {

constexpr const char* kAllLetters = "|A|B|C|D|E|F|G|H|I|J|K|L|M|N|O";

Syntax syntax() {
    return {"info",
            "[OPTIONS]",
            "Reads the card in the reader and shows what it says about itself.",
            {kAidList, kTrace, kJson, kShowPan, kQuiet},
            {}};
}

void print_information(std::span<const LetterRecord> records, bool show_pan) {
    Privacy privacy(show_pan);
    for (const LetterField& field : kCardInformation) {
        const std::string value = value_of(records, field.letter);
        print_field(field.name,
                    value.empty() ? "-" : record_text(field.form, value, kCashCurrency, privacy));
    }
}

bool has_every_field(const Answer& answer) {
    const std::string information = answer.text("IcInfo");
    const LetterRecords fields = letter_records(information);
    return std::ranges::all_of(kCardInformation, [&](const LetterField& field) {
        return !value_of(fields.records, field.letter).empty();
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

} // namespace qaven::cli
