// Letter-coded texts, encodings, masks.
#include "card_text.h"

#include "exit_status.h"
#include "tools/emv/utf8.h"

#include <iconv.h>

#include <algorithm>
#include <array>

namespace tool {

namespace {

constexpr std::size_t kFieldHead = 4;
constexpr std::size_t kLengthDigits = 3;

constexpr std::size_t kShownHead = 6;
constexpr std::size_t kShownTail = 4;

// The length of a track 2 without its padding may end in the character in front of 0 ("02/" after
// "020"); it counts as -1.
std::size_t length_of(std::string_view digits) {
    int length = 0;
    for (const char digit : digits) {
        length = 10 * length + (digit - '0');
    }
    return static_cast<std::size_t>(std::max(length, 0));
}

// GBK and its superset: a system may have the converter of one of them only.
using Encodings = std::array<const char*, 2>;

class Converter {
  public:
    // From or to the first of the encodings that the system knows; UTF-8 is the other side.
    static Converter from(const Encodings& encodings) {
        return {encodings, [](const char* gbk) { return iconv_open("UTF-8", gbk); }};
    }
    static Converter to(const Encodings& encodings) {
        return {encodings, [](const char* gbk) { return iconv_open(gbk, "UTF-8"); }};
    }
    ~Converter() { iconv_close(handle_); }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    // Converts up to the first byte that is no text; gives how many bytes that were.
    std::size_t convert(std::string_view in, std::string& out) const {
        iconv(handle_, nullptr, nullptr, nullptr, nullptr);
        std::string source(in);
        std::string target(4 * in.size(), '\0');
        char* from = source.data();
        char* to = target.data();
        std::size_t from_left = source.size();
        std::size_t to_left = target.size();
        iconv(handle_, &from, &from_left, &to, &to_left);
        target.resize(target.size() - to_left);
        out += target;
        return in.size() - from_left;
    }

  private:
    Converter(const Encodings& encodings, iconv_t (*open)(const char* gbk)) {
        for (const char* const encoding : encodings) {
            handle_ = open(encoding);
            if (handle_ != reinterpret_cast<iconv_t>(-1)) {
                return;
            }
        }
        throw Failure(kFailed, "this system cannot convert GBK");
    }

    iconv_t handle_ = nullptr;
};

// What the superset alone has takes four bytes, the second of them a digit.
bool is_beyond_gbk(std::string_view text) {
    for (std::size_t at = 0; at + 1 < text.size(); ++at) {
        if (static_cast<unsigned char>(text[at]) > 0x80 && text[++at] <= '9' && text[at] >= '0') {
            return true;
        }
    }
    return false;
}

} // namespace

std::vector<LetterFields> letter_records(std::string_view text) {
    std::vector<LetterFields> records;
    while (text.size() >= kFieldHead) {
        const char letter = text.front();
        const std::size_t length = length_of(text.substr(1, kLengthDigits));
        text.remove_prefix(kFieldHead);
        if (records.empty() || records.back().contains(letter)) {
            records.emplace_back();
        }
        records.back().emplace(letter, text.substr(0, length));
        text.remove_prefix(std::min(length, text.size()));
    }
    return records;
}

std::string to_utf8(std::string_view gbk) {
    const Converter converter = Converter::from({"GB18030", "GBK"});
    std::string text;
    while (!gbk.empty()) {
        gbk.remove_prefix(converter.convert(gbk, text));
        if (!gbk.empty()) {
            text += '?';
            gbk.remove_prefix(1);
        }
    }
    text.erase(text.find_last_not_of(" \t") + 1);
    return text;
}

std::string to_gbk(std::string_view utf8) {
    std::string text;
    if (Converter::to({"GBK", "GB18030"}).convert(utf8, text) != utf8.size() ||
        is_beyond_gbk(text)) {
        throw UsageError("'" + std::string(utf8) +
                         "' cannot be written in GBK, the cards' encoding");
    }
    return text;
}

std::string masked_number(std::string_view number) {
    std::vector<std::string_view> characters;
    while (!number.empty()) {
        const std::size_t size = std::max<std::size_t>(character_size(number), 1);
        characters.push_back(number.substr(0, size));
        number.remove_prefix(size);
    }
    const bool longer = characters.size() > kShownHead + kShownTail;
    std::string text;
    for (std::size_t i = 0; i < characters.size(); ++i) {
        const bool shown = longer && (i < kShownHead || i + kShownTail >= characters.size());
        text += shown ? characters[i] : "*";
    }
    return text;
}

std::string masked_track2(std::string_view track2, char separator) {
    const std::size_t at = track2.find(separator);
    std::string text = masked_number(track2.substr(0, at));
    if (at != std::string_view::npos) {
        text += separator;
        text.append(track2.size() - at - 1, '*');
    }
    return text;
}

} // namespace tool
