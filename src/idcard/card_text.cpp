// The text block of an identity card: UCS-2, two bytes a character, at fixed places.
#include "idcard/icc.h"

#include <iconv.h>

#include <algorithm>
#include <array>
#include <span>

using namespace qaven::idcard;

namespace {

struct Field {
    std::size_t offset;
    std::size_t length;
    const char* label;
};

constexpr std::array<Field, 9> base_fields{{
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
constexpr std::size_t card_type_at = 248;
constexpr unsigned char foreign_permit = 'I';
constexpr unsigned char hmt_permit = 'J';

constexpr std::size_t field_text_size = 256;

} // namespace

void idcard_base_info_parse(unsigned char* text) {
    if (text == nullptr) {
        return;
    }
    const std::span<unsigned char, base_text_used> block(text, base_text_used);

    if (block[card_type_at + 1] == 0) {
        if (block[card_type_at] == foreign_permit) {
            print(LOG_LEVEL_INFORMATION, "外国人居住证\n");
            return;
        }
        if (block[card_type_at] == hmt_permit) {
            print(LOG_LEVEL_INFORMATION, "港澳台居住证\n");
            return;
        }
    }

    for (const Field& field : base_fields) {
        // A field that does not convert shows what came before the bad character.
        std::array<char, field_text_size> utf8{};
        const auto ucs2 = block.subspan(field.offset, field.length);
        ucs2_utf8(ucs2.data(), ucs2.size(), utf8.data(), utf8.size());
        print(LOG_LEVEL_INFORMATION, "%s: %s\n", field.label, utf8.data());
    }
}

int ucs2_utf8(unsigned char* in, unsigned long in_len, char* out, unsigned long out_size) {
    return ucs2_utf8(reinterpret_cast<char*>(in), in_len, out, out_size);
}

int ucs2_utf8(char* in, unsigned long in_len, char* out, unsigned long out_size) {
    if (in == nullptr || out == nullptr || out_size == 0) {
        return -1;
    }
    iconv_t converter = iconv_open("utf8", "ucs2");
    if (converter == reinterpret_cast<iconv_t>(-1)) {
        return -1;
    }
    std::fill_n(out, out_size, '\0');
    std::size_t in_left = in_len;
    std::size_t out_left = out_size - 1;
    const std::size_t result = iconv(converter, &in, &in_left, &out, &out_left);
    iconv_close(converter);
    if (result == static_cast<std::size_t>(-1)) {
        return -1;
    }
    *out = '\0';
    return 0;
}
