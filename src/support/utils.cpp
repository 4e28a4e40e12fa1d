// Text, packed bytes, dates. The helpers read hexadecimal characters by different rules; each rule
// stands once, next to the family that uses it.
#include "support/utils.h"

#include "support/boundary.h"

#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string_view>

namespace {

// Text lengths come from hosts; a negative one is an empty text.
std::size_t count_of(long len) {
    return len > 0 ? static_cast<std::size_t>(len) : 0;
}

unsigned char low_byte(int value) {
    return static_cast<unsigned char>(value);
}

char* as_text(unsigned char* bytes) {
    return reinterpret_cast<char*>(bytes);
}

bool is_blank(unsigned char ch) {
    return ch == ' ' || ch == '\t';
}

unsigned char upper_hex_digit(unsigned int nibble) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    return static_cast<unsigned char>(kDigits[nibble & 0x0FU]);
}

// How Qm_AscToBcd reads a character; below the digits everything is 0.
unsigned char nibble_by_range(unsigned char ch) {
    if (ch > 0x60) {
        return low_byte(ch - 0x57);
    }
    if (ch > 0x40) {
        return low_byte(ch - 0x37);
    }
    if (ch > 0x2F) {
        return low_byte(ch - 0x30);
    }
    return 0;
}

// How Qm_AsciiToHex reads a character: letters of either case by their low four bits.
int nibble_by_low_bits(unsigned char ch) {
    return (ch & 0x0F) + (ch > '9' ? 9 : 0);
}

// How Qm_halftochar reads a character: whatever is neither digit nor upper case is lower case.
int nibble_else_lower_case(unsigned char ch) {
    if (ch >= '0' && ch <= '9') {
        return ch - 0x30;
    }
    if (ch >= 'A' && ch <= 'F') {
        return ch - 0x37;
    }
    return ch - 0x57;
}

// How asc2bcd reads a character: whatever is neither digit nor lower case is upper case.
int nibble_else_upper_case(unsigned char ch) {
    if (ch >= '0' && ch <= '9') {
        return ch - 0x30;
    }
    if (ch >= 'a' && ch <= 'f') {
        return ch - 0x57;
    }
    return ch - 0x37;
}

// How var_packTwo2One_30 reads a character: decimal digits only.
int nibble_decimal(unsigned char ch) {
    return ch - 0x30;
}

unsigned char packed(int high, int low) {
    return low_byte(high * 16 + low);
}

// Local date or time, formatted with strftime.
using DateText = std::array<char, 32>;

DateText local_time_text(const char* format) {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    // localtime_r alone would miss a change of the time zone.
    tzset();
    localtime_r(&now, &local);
    DateText text{};
    if (std::strftime(text.data(), text.size(), format, &local) == 0) {
        text.fill('\0');
    }
    return text;
}

int local_time_number(const char* format) {
    return static_cast<int>(std::strtol(local_time_text(format).data(), nullptr, 10));
}

} // namespace

// --- card engine helpers ---

void Qm_AscToBcd(unsigned char* out, unsigned char* in, int len, unsigned int right_align) {
    // Marks that no high nibble is pending. A character that happens to read as this value is lost.
    constexpr unsigned char kNothingPending = 0x55;
    const bool leading_zero_digit = len % 2 != 0 && right_align != 0;
    unsigned char pending = leading_zero_digit ? 0 : kNothingPending;
    const std::size_t count = count_of(len);
    for (std::size_t i = 0; i < count; ++i) {
        const unsigned char nibble = nibble_by_range(in[i]);
        if (pending == kNothingPending) {
            pending = nibble;
        } else {
            *out++ = low_byte(pending * 16 | nibble);
            pending = kNothingPending;
        }
    }
    // The test is the wrong way round for a trailing digit: that one is dropped, and the marker
    // itself goes out behind complete pairs. Callers leave room for it.
    if (pending == kNothingPending) {
        *out = low_byte(pending << 4);
    }
}

void Qm_GetYYMMDD(char* out) {
    DateText text = local_time_text("%y%m%d");
    std::array<unsigned char, 4> scratch{};
    std::array<unsigned char, 6> digits{};
    std::memcpy(digits.data(), text.data(), digits.size());
    Qm_AscToBcd(scratch.data(), digits.data(), static_cast<int>(digits.size()), 0);
    std::memcpy(out, scratch.data(), 3);
}

char* Qm_chartohalf(int value, char* out) {
    const unsigned int byte = low_byte(value);
    out[0] = static_cast<char>(upper_hex_digit(byte >> 4U));
    out[1] = static_cast<char>(upper_hex_digit(byte));
    out[2] = '\0';
    return out + 2;
}

void Qm_AsciiToHex(unsigned char* in, unsigned char* out, int len) {
    const std::size_t count = count_of(len);
    for (std::size_t i = 0; i < count; i += 2) {
        out[i / 2] = packed(nibble_by_low_bits(in[i]), nibble_by_low_bits(in[i + 1]));
    }
}

void Qm_halftochar(char* in, char* out, int* out_len) {
    const std::string_view text = in;
    if (text.size() % 2 != 0) {
        *out_len = 0;
        return;
    }
    std::size_t written = 0;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        const auto high = static_cast<unsigned char>(text[i]);
        const auto low = static_cast<unsigned char>(text[i + 1]);
        out[written++] =
            static_cast<char>(packed(nibble_else_lower_case(high), nibble_else_lower_case(low)));
    }
    out[written] = '\0';
    *out_len = static_cast<int>(written);
}

// --- general helpers ---

int TrimStr(unsigned char* out, unsigned char* in) {
    int copied = 0;
    for (const unsigned char* ch = in; *ch != 0; ++ch) {
        if (!is_blank(*ch)) {
            out[copied++] = *ch;
        }
    }
    out[copied] = 0;
    return copied;
}

int TrimLeft(unsigned char* s) {
    if (s == nullptr) {
        return 0;
    }
    int leading = 0;
    while (is_blank(s[leading])) {
        ++leading;
    }
    if (leading > 0) {
        std::memmove(s, s + leading, std::strlen(as_text(s + leading)) + 1);
    }
    return leading;
}

void TrimRight(unsigned char* s) {
    if (s == nullptr) {
        return;
    }
    // Stops at the second character: of a text of blanks the first one stays.
    for (std::size_t end = std::strlen(as_text(s)); end > 1 && is_blank(s[end - 1]); --end) {
        s[end - 1] = 0;
    }
}

void Trim(unsigned char* s) {
    TrimLeft(s);
    TrimRight(s);
}

unsigned char CalLRC(const unsigned char* data, int len) {
    unsigned char lrc = 0;
    const std::size_t count = count_of(len);
    for (std::size_t i = 0; i < count; ++i) {
        lrc ^= data[i];
    }
    return lrc;
}

unsigned char unpackOne2Two_30(unsigned char* out, unsigned char value) {
    out[0] = low_byte((value >> 4) + 0x30);
    out[1] = low_byte((value & 0x0F) + 0x30);
    return out[1];
}

int var_packTwo2One_30(unsigned char* out, unsigned char* in, int len) {
    const std::size_t count = count_of(len);
    for (std::size_t i = 0; i < count; i += 2) {
        out[i / 2] = packed(nibble_decimal(in[i]), nibble_decimal(in[i + 1]));
    }
    return 0;
}

unsigned char asc2bcd(unsigned char* in) {
    return packed(nibble_else_upper_case(in[0]), nibble_else_upper_case(in[1]));
}

void var_asc2bcd(unsigned char* out, unsigned char* in, unsigned int len) {
    for (std::size_t k = 0; k < len / 2; ++k) {
        out[k] = asc2bcd(in + 2 * k);
    }
}

void bcd2asc(unsigned char* out, unsigned char value) {
    out[0] = upper_hex_digit(static_cast<unsigned int>(value) >> 4U);
    out[1] = upper_hex_digit(value);
}

void var_bcd2asc(unsigned char* out, unsigned char* in, unsigned int len) {
    for (std::size_t k = 0; k < len; ++k) {
        bcd2asc(out + 2 * k, in[k]);
    }
}

int Hex2Asc(unsigned char* out, unsigned char* in, long len) {
    const std::size_t count = count_of(len);
    for (std::size_t k = 0; k < count; ++k) {
        bcd2asc(out + 2 * k, in[k]);
    }
    out[2 * count] = 0;
    return 0;
}

unsigned char Int2ReverseHex(unsigned char* out, unsigned int value) {
    for (unsigned int k = 0; k < 4; ++k) {
        out[k] = static_cast<unsigned char>(value >> (24U - 8U * k));
    }
    return out[3];
}

unsigned int ReverseHex2Int(unsigned char* in) {
    unsigned int value = 0;
    for (unsigned int k = 0; k < 4; ++k) {
        value = value << 8U | in[k];
    }
    return value;
}

void GetDateTime(char* out) {
    DateText text = local_time_text("%Y%m%d%H%M%S");
    std::array<unsigned char, 14> digits{};
    std::memcpy(digits.data(), text.data(), digits.size());
    std::array<unsigned char, 7> bcd{};
    var_asc2bcd(bcd.data(), digits.data(), static_cast<unsigned int>(digits.size()));
    std::memcpy(out, bcd.data(), bcd.size());
}

int GetIntDate() {
    return local_time_number("%y%m%d");
}

int GetIntTime() {
    return local_time_number("%H%M%S");
}

// --- shared by the layers ---

int Split(const char* text, std::list<std::string>& out, char sep) {
    return qaven::guarded(0, [&] {
        out.emplace_back();
        int fields = 1;
        for (const char ch : std::string_view(qaven::text_or_empty(text))) {
            if (ch == sep) {
                out.emplace_back();
                ++fields;
            } else {
                out.back().push_back(ch);
            }
        }
        return fields;
    });
}
