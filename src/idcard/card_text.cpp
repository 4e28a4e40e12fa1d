// The text block of an identity card: UCS-2, two bytes a character, at fixed places.
#include "idcard/icc.h"
#include "idcard/messages.h"

#include <iconv.h>

#include <algorithm>
#include <array>
#include <span>

namespace qaven::idcard {

namespace {

struct Field {
    std::size_t offset;
    std::size_t length;
    const char* label;
};

constexpr std::array<Field, 9> kBaseFields{{
    {0, 30, "姓名"},
    {30, 2, "性别代码"},
    {32, 4, "民族代码"},
    {36, 16, "出生"},
    {52, 70, "住址"},
    // The last character of this label is cut after two of its three bytes, with a question mark
    // for the rest. Front ends that read the listing know it in this form.
    {122, 36, "身份证号\xE7\xA0?"},
    {158, 30, "签发机构"},
    {188, 16, "起始日期"},
    {204, 16, "终止日期"},
}};

// One character of UCS-2 at this place tells the permits from the resident card; the permits lay
// out the rest of the block in their own way.
constexpr std::size_t kCardTypeAt = 248;
constexpr char kForeignPermit = 'I';
constexpr char kHmtPermit = 'J';

constexpr std::size_t kFieldTextSize = 256;

int to_utf8(std::span<char> ucs2, std::span<char> out) {
    if (ucs2.data() == nullptr || out.data() == nullptr || out.empty()) {
        return -1;
    }
    iconv_t converter = iconv_open("utf8", "ucs2");
    if (converter == reinterpret_cast<iconv_t>(-1)) {
        return -1;
    }
    std::ranges::fill(out, '\0');
    char* from = ucs2.data();
    std::size_t from_left = ucs2.size();
    char* to = out.data();
    std::size_t to_left = out.size() - 1;
    const std::size_t result = iconv(converter, &from, &from_left, &to, &to_left);
    iconv_close(converter);
    if (result == static_cast<std::size_t>(-1)) {
        return -1;
    }
    *to = '\0';
    return 0;
}

void print_base_information(std::span<char, kBaseTextUsed> block) {
    if (block[kCardTypeAt + 1] == 0) {
        if (block[kCardTypeAt] == kForeignPermit) {
            message(LOG_LEVEL_INFORMATION, "外国人居住证\n");
            return;
        }
        if (block[kCardTypeAt] == kHmtPermit) {
            message(LOG_LEVEL_INFORMATION, "港澳台居住证\n");
            return;
        }
    }

    for (const Field& field : kBaseFields) {
        // A field that does not convert shows what came before the bad character.
        std::array<char, kFieldTextSize> utf8{};
        to_utf8(block.subspan(field.offset, field.length), utf8);
        message(LOG_LEVEL_INFORMATION, "%s: %s\n", field.label, utf8.data());
    }
}

} // namespace

} // namespace qaven::idcard

namespace idcard = qaven::idcard;

void idcard_base_info_parse(unsigned char* text) {
    if (text != nullptr) {
        idcard::print_base_information(std::span<char, idcard::kBaseTextUsed>(
            reinterpret_cast<char*>(text), idcard::kBaseTextUsed));
    }
}

int ucs2_utf8(unsigned char* in, unsigned long in_len, char* out, unsigned long out_size) {
    return idcard::to_utf8({reinterpret_cast<char*>(in), in_len}, {out, out_size});
}

int ucs2_utf8(char* in, unsigned long in_len, char* out, unsigned long out_size) {
    return idcard::to_utf8({in, in_len}, {out, out_size});
}
