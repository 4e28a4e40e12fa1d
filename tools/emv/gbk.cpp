// GBK and UTF-8.
#include "tools/emv/gbk.h"

#include "tools/emv/hex.h"

#include <iconv.h>

#include <algorithm>
#include <array>

namespace qaven::emv {

namespace {

// GBK and its superset: a system may have the converter of one of them only. Which comes first
// matters to no text of GBK.
constexpr std::array kEncodings{"GB18030", "GBK"};

class Conversion {
  public:
    static Conversion to_utf8() {
        return {[](const char* gbk) { return iconv_open("UTF-8", gbk); }};
    }
    static Conversion from_utf8() {
        return {[](const char* gbk) { return iconv_open(gbk, "UTF-8"); }};
    }
    Conversion(const Conversion&) = delete;
    Conversion& operator=(const Conversion&) = delete;
    ~Conversion() {
        if (usable()) {
            iconv_close(handle_);
        }
    }

    // The converted text, if all of it converts.
    std::optional<std::string> operator()(std::string_view text) const {
        if (!usable()) {
            return std::nullopt;
        }
        std::string in(text);
        // A character of one encoding has four bytes in the other at most.
        std::string out(4 * in.size() + 4, '\0');
        char* from = in.data();
        char* to = out.data();
        std::size_t left = in.size();
        std::size_t room = out.size();
        iconv(handle_, nullptr, nullptr, nullptr, nullptr);
        if (iconv(handle_, &from, &left, &to, &room) == static_cast<std::size_t>(-1)) {
            return std::nullopt;
        }
        out.resize(out.size() - room);
        return out;
    }

  private:
    Conversion(iconv_t (*open)(const char* gbk)) {
        for (const char* const encoding : kEncodings) {
            handle_ = usable() ? handle_ : open(encoding);
        }
    }

    bool usable() const { return handle_ != reinterpret_cast<iconv_t>(-1); }

    iconv_t handle_ = reinterpret_cast<iconv_t>(-1);
};

bool is_plain(char character) {
    const auto byte = static_cast<unsigned char>(character);
    return byte >= 0x20 && byte < 0x7F;
}

// The C1 controls have a form in UTF-8, which some terminals obey.
bool is_control(std::string_view utf8) {
    return utf8.size() == 2 && utf8[0] == '\xC2' && static_cast<unsigned char>(utf8[1]) < 0xA0;
}

// What the superset alone has takes four bytes, the second of them a digit.
bool is_beyond_gbk(std::string_view text) {
    for (std::size_t at = 0; at + 1 < text.size(); ++at) {
        if (static_cast<unsigned char>(text[at]) > 0x80 && is_digit(text[++at])) {
            return true;
        }
    }
    return false;
}

} // namespace

std::size_t gbk_character_size(std::string_view gbk) {
    const bool wide = static_cast<unsigned char>(gbk[0]) > 0x80 && gbk.size() > 1;
    const std::size_t size = !wide ? 1 : is_digit(gbk[1]) ? 4 : 2;
    return size <= gbk.size() ? size : 1;
}

std::string readable(std::string_view gbk) {
    static const Conversion convert = Conversion::to_utf8();
    std::string result;
    while (!gbk.empty()) {
        std::size_t size = gbk_character_size(gbk);
        const auto character = size > 1 ? convert(gbk.substr(0, size)) : std::nullopt;
        if (is_plain(gbk[0])) {
            result += gbk[0];
        } else if (character && !is_control(*character)) {
            result += *character;
        } else {
            result += "\\x" + hex(static_cast<unsigned char>(gbk[0]), 2);
            size = 1;
        }
        gbk.remove_prefix(size);
    }
    return result;
}

std::string_view without_filling(std::string_view gbk) {
    constexpr std::string_view kFilling("\0 ", 2);
    return gbk.substr(0, gbk.find_last_not_of(kFilling) + 1);
}

std::string in_quotes(std::string_view gbk) {
    return '"' + readable(without_filling(gbk)) + '"';
}

std::optional<std::string> to_gbk(std::string_view utf8) {
    static const Conversion convert = Conversion::from_utf8();
    auto text = convert(utf8);
    return text && !is_beyond_gbk(*text) ? text : std::nullopt;
}

} // namespace qaven::emv
