// Texts of cards and hosts, which are GBK, made fit for a terminal, which takes UTF-8.
#include "decode/text.h"

#include "tools/emv/hex.h"

#include <algorithm>
#include <iconv.h>
#include <optional>

namespace tool {

namespace {

class Conversion {
  public:
    Conversion(const char* to, const char* from) : handle_(iconv_open(to, from)) {}
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
    bool usable() const { return handle_ != reinterpret_cast<iconv_t>(-1); }

    iconv_t handle_;
};

bool is_plain(char character) {
    const auto byte = static_cast<unsigned char>(character);
    return byte >= 0x20 && byte < 0x7F;
}

std::string escaped(char character) {
    return "\\x" + hex(static_cast<unsigned char>(character), 2);
}

// The C1 controls have a form in UTF-8, which some terminals obey.
bool is_control(std::string_view utf8) {
    return utf8.size() == 2 && utf8[0] == '\xC2' && static_cast<unsigned char>(utf8[1]) < 0xA0;
}

} // namespace

std::string readable(std::string_view gbk) {
    static const Conversion convert("UTF-8", "GBK");
    std::string result;
    for (std::size_t at = 0; at < gbk.size();) {
        if (is_plain(gbk[at])) {
            result += gbk[at++];
            continue;
        }
        const std::string_view pair = gbk.substr(at, 2);
        const bool wide = static_cast<unsigned char>(pair[0]) > 0x80 && pair.size() == 2;
        const auto character = wide ? convert(pair) : std::nullopt;
        if (character && !is_control(*character)) {
            result += *character;
            at += 2;
        } else {
            result += escaped(gbk[at++]);
        }
    }
    return result;
}

std::string in_quotes(std::string_view gbk) {
    while (!gbk.empty() && (gbk.back() == '\0' || gbk.back() == ' ')) {
        gbk.remove_suffix(1);
    }
    return '"' + readable(gbk) + '"';
}

std::string as_gbk(std::string_view text) {
    if (std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {
        return std::string(text);
    }
    static const Conversion convert("GBK", "UTF-8");
    return convert(text).value_or(std::string(text));
}

} // namespace tool
