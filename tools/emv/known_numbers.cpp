// Numbers that are not to be seen, found again wherever a text has them.
#include "tools/emv/known_numbers.h"

#include "tools/emv/hex.h"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

namespace qaven::emv {

namespace {

constexpr std::size_t kTellingBeginning = 8;

constexpr std::size_t kMostNumbers = 4096;

// What damaged texts give for a number can be of any length.
constexpr std::size_t kMostCharacters = 64;

// Expiry and service code stand between account number and the rest of track 2.
constexpr std::size_t kShownOfTrack = 7;

bool separates(char character) {
    constexpr std::string_view kSeparators = " \t\r\n:-.,";
    return kSeparators.find(character) != std::string_view::npos;
}

bool is_letter_or_digit(char character) {
    return is_digit(character) || (character >= 'A' && character <= 'Z');
}

} // namespace

struct KnownNumbers::View {
    std::string characters;
    std::vector<std::size_t> places;
    std::size_t each; // characters of the text for one of these

    void mask(std::size_t from, std::size_t to, std::string& text) const {
        for (std::size_t at = from * each; at < to * each; ++at) {
            text[places[at]] = kMask;
        }
    }

    static View as_written(std::string_view text) {
        View view{{}, {}, 1};
        for (std::size_t at = 0; at < text.size(); ++at) {
            if (!separates(text[at])) {
                view.characters += text[at];
                view.places.push_back(at);
            }
        }
        view.characters = upper(view.characters);
        return view;
    }

    // The characters whose hex the view has; zeros for what is no hex.
    static View of_hex(const View& written, std::size_t start) {
        View view{{}, {}, 2};
        for (std::size_t at = start; at + 2 <= written.characters.size(); at += 2) {
            const int high = digit_value(written.characters[at]);
            const int low = digit_value(written.characters[at + 1]);
            view.characters += high < 0 || low < 0 ? '\0' : static_cast<char>(16 * high + low);
            view.places.push_back(written.places[at]);
            view.places.push_back(written.places[at + 1]);
        }
        view.characters = upper(view.characters);
        return view;
    }

    // Behind an account number: the rest of track 2, up to its end.
    void mask_rest_of_track(std::size_t at, std::string& text) const {
        if (at >= characters.size() || (characters[at] != 'D' && characters[at] != '=')) {
            return;
        }
        const std::size_t first = std::min(at + 1 + kShownOfTrack, characters.size());
        std::size_t end = at + 1;
        while (end < characters.size() && is_digit(characters[end])) {
            ++end;
        }
        mask(std::min(first, end), end, text);
    }
};

void KnownNumbers::add(std::string_view number) {
    const std::string characters = View::as_written(number.substr(0, kMostCharacters)).characters;
    if (characters.size() < kShortestNumber || newer_.numbers.contains(characters)) {
        return;
    }
    if (newer_.numbers.size() == kMostNumbers) {
        older_ = std::exchange(newer_, {});
    }
    newer_.numbers.insert(characters);
    for (std::size_t at = 0; at + kShortestNumber <= characters.size(); ++at) {
        auto& [key, part] = *newer_.parts.try_emplace(characters.substr(at, kShortestNumber)).first;
        part.begins = part.begins || at == 0;
        part.ends = part.ends || at + kShortestNumber == characters.size();
        newer_.sorted.insert(key);
    }
}

bool KnownNumbers::has_number(std::string_view number) const {
    return newer_.numbers.contains(number) || older_.numbers.contains(number);
}

bool KnownNumbers::is_beginning(std::string_view characters) const {
    return std::ranges::any_of(std::array{&newer_, &older_}, [&](const Generation* generation) {
        const auto found = generation->sorted.lower_bound(characters);
        return found != generation->sorted.end() && found->starts_with(characters);
    });
}

const KnownNumbers::Part* KnownNumbers::part(std::string_view characters) const {
    for (const Generation* const generation : {&newer_, &older_}) {
        if (const auto found = generation->parts.find(characters);
            found != generation->parts.end()) {
            return &found->second;
        }
    }
    return nullptr;
}

// Masks what begins here and gives its end.
std::size_t KnownNumbers::mask_at(const View& view, std::size_t at, const Part& first,
                                  std::string& text) const {
    const std::string_view rest = std::string_view(view.characters).substr(at);
    for (std::size_t size = std::min(kLongestNumber, rest.size());
         first.begins && size >= kShortestNumber; --size) {
        if (has_number(rest.substr(0, size))) {
            view.mask(at + kShownAhead, at + size - kShownBehind, text);
            return at + size;
        }
    }
    const Part* last = &first;
    std::size_t size = kShortestNumber;
    while (size < rest.size()) {
        const Part* const next = part(rest.substr(size + 1 - kShortestNumber, kShortestNumber));
        if (next == nullptr) {
            break;
        }
        last = next;
        ++size;
    }
    view.mask(at + (first.begins ? kShownAhead : 0), at + size - (last->ends ? kShownBehind : 0),
              text);
    return at + size;
}

void KnownNumbers::mask_cut_off(const View& view, std::size_t from, std::string& text) const {
    const std::string_view characters(view.characters);
    const std::size_t size = characters.size();
    const std::size_t longest = std::min(kShortestNumber - 1, size - from);
    for (std::size_t count = longest; count >= kTellingBeginning; --count) {
        if (is_beginning(characters.substr(size - count))) {
            view.mask(size - count + kShownAhead, size, text);
            return;
        }
    }
}

void KnownNumbers::mask_view(const View& view, std::string& text) const {
    const std::string_view characters(view.characters);
    std::size_t done = 0;
    std::size_t run = 0; // letters and digits up to here
    for (std::size_t end = 1; end <= characters.size(); ++end) {
        run = is_letter_or_digit(characters[end - 1]) ? run + 1 : 0;
        if (run < kShortestNumber) {
            continue;
        }
        const std::size_t at = end - kShortestNumber;
        if (const Part* const first = part(characters.substr(at, kShortestNumber))) {
            done = mask_at(view, at, *first, text);
            view.mask_rest_of_track(done, text);
            end = done;
            run = 0;
        }
    }
    mask_cut_off(view, done, text);
}

void KnownNumbers::mask(std::string& text) const {
    if (newer_.numbers.empty()) {
        return;
    }
    const View written = View::as_written(text);
    mask_view(written, text);
    for (const std::size_t start : {0U, 1U}) {
        mask_view(View::of_hex(written, start), text);
    }
}

} // namespace qaven::emv
