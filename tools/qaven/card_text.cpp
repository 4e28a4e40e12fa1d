// Letter-coded texts, encodings, masks.
#include "card_text.h"

#include "exit_status.h"

#include <iconv.h>

#include <algorithm>

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

class Converter {
  public:
    Converter(const char* to, const char* from) : handle_(iconv_open(to, from)) {
        if (handle_ == reinterpret_cast<iconv_t>(-1)) {
            throw Failure(kFailed, "this system cannot convert GBK");
        }
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
    iconv_t handle_;
};

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
    const Converter converter("UTF-8", "GB18030");
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
    if (Converter("GBK", "UTF-8").convert(utf8, text) != utf8.size()) {
        throw UsageError("'" + std::string(utf8) +
                         "' cannot be written in GBK, the cards' encoding");
    }
    return text;
}

std::string masked_number(std::string_view number) {
    std::string text(number);
    const bool longer = number.size() > kShownHead + kShownTail;
    const std::size_t head = longer ? kShownHead : 0;
    const std::size_t tail = longer ? kShownTail : 0;
    std::fill(text.begin() + static_cast<std::ptrdiff_t>(head),
              text.end() - static_cast<std::ptrdiff_t>(tail), '*');
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
