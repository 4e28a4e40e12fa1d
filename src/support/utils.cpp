// Text, packed bytes, dates, as hosts call them.
#include "support/utils.h"

#include "support/boundary.h"
#include "support/hex.h"
#include "support/host_text.h"
#include "support/local_time.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace hex = qaven::hex;
namespace local_time = qaven::local_time;

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

unsigned char* as_bytes(char* text) {
    return reinterpret_cast<unsigned char*>(text);
}

bool is_blank(unsigned char ch) {
    return ch == ' ' || ch == '\t';
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

// Two characters for each byte.
void put_text(unsigned char* out, const unsigned char* in, std::size_t count) {
    for (std::size_t k = 0; k < count; ++k) {
        out[2 * k] = static_cast<unsigned char>(hex::digit(in[k] >> 4U));
        out[2 * k + 1] = static_cast<unsigned char>(hex::digit(in[k]));
    }
}

// One byte for each pair of characters, also for a pair of which the text has only the first.
template <hex::Rule rule>
void put_pairs(unsigned char* out, const unsigned char* in, std::size_t count) {
    for (std::size_t i = 0; i < count; i += 2) {
        out[i / 2] = hex::byte_of<rule>(in[i], in[i + 1]);
    }
}

int local_time_number(const char* format) {
    return static_cast<int>(std::strtol(local_time::text(format).data(), nullptr, 10));
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
    std::ranges::copy(local_time::date(), out);
}

char* Qm_chartohalf(int value, char* out) {
    const unsigned int byte = low_byte(value);
    out[0] = hex::digit(byte >> 4U);
    out[1] = hex::digit(byte);
    out[2] = '\0';
    return out + 2;
}

void Qm_AsciiToHex(unsigned char* in, unsigned char* out, int len) {
    put_pairs<hex::low_bits>(out, in, count_of(len));
}

void Qm_halftochar(char* in, char* out, int* out_len) {
    const std::string_view text = in;
    if (text.size() % 2 != 0) {
        *out_len = 0;
        return;
    }
    put_pairs<hex::else_lower_case>(as_bytes(out), as_bytes(in), text.size());
    out[text.size() / 2] = '\0';
    *out_len = static_cast<int>(text.size() / 2);
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
    put_pairs<hex::decimal_digit>(out, in, count_of(len));
    return 0;
}

unsigned char asc2bcd(unsigned char* in) {
    return hex::byte_of<hex::else_upper_case>(in[0], in[1]);
}

void var_asc2bcd(unsigned char* out, unsigned char* in, unsigned int len) {
    put_pairs<hex::else_upper_case>(out, in, len - len % 2);
}

void bcd2asc(unsigned char* out, unsigned char value) {
    put_text(out, &value, 1);
}

void var_bcd2asc(unsigned char* out, unsigned char* in, unsigned int len) {
    put_text(out, in, len);
}

int Hex2Asc(unsigned char* out, unsigned char* in, long len) {
    const std::size_t count = count_of(len);
    put_text(out, in, count);
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
    std::ranges::copy(local_time::date_and_time(), out);
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
        for (const char ch : std::string_view(qaven::HostText(text))) {
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
