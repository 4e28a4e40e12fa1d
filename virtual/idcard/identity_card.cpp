// The sample cards, field by field in the order of their text blocks.
#include "virtual/idcard/identity_card.h"

#include <algorithm>
#include <cassert>
#include <string>
#include <string_view>

namespace qaven::virtual_idcard {
namespace {

// Appends fields of fixed width, blank-padded, two bytes a character with the low byte first.
class TextBlock {
  public:
    TextBlock& field(std::size_t characters, std::u16string_view text) {
        assert(text.size() <= characters);
        for (std::size_t i = 0; i < characters; ++i) {
            const char16_t character = i < text.size() ? text[i] : u' ';
            bytes_.push_back(static_cast<std::uint8_t>(character & 0xFFU));
            bytes_.push_back(static_cast<std::uint8_t>(character >> 8U));
        }
        return *this;
    }

    [[nodiscard]] Bytes finished() const {
        assert(bytes_.size() == kTextSize);
        return bytes_;
    }

  private:
    Bytes bytes_;
};

// The eighteenth character of an identity number is the check of the first seventeen (GB 11643;
// ISO/IEC 7064, MOD 11-2).
std::u16string with_check_character(std::u16string number) {
    int check = 0;
    for (const char16_t digit : number) {
        check = (check + digit - u'0') * 2 % 11;
    }
    number += u"0123456789X"[(12 - check) % 11];
    return number;
}

// The picture's format is proprietary; hosts check the mark that it begins with and pass the rest
// on.
Bytes photo() {
    Bytes bytes{'W', 'L', 'f'};
    while (bytes.size() < kPhotoSize) {
        bytes.push_back(static_cast<std::uint8_t>(bytes.size() * 31U + 7U));
    }
    return bytes;
}

} // namespace

IdentityCard resident_card() {
    return {.text = TextBlock()
                        .field(15, u"张样本")
                        .field(1, u"2")
                        .field(2, u"01")
                        .field(8, u"19900307")
                        .field(35, u"某市某区样本路7号")
                        .field(18, with_check_character(u"99010119900307002"))
                        .field(15, u"某市公安局某分局")
                        .field(8, u"20200101")
                        .field(8, u"20400101")
                        .field(18, u"")
                        .finished(),
            .photo = photo()};
}

IdentityCard foreign_permit() {
    return {.text = TextBlock()
                        .field(60, u"SAMPLE, ANNA")
                        .field(1, u"2")
                        .field(15, u"XXX990090030702")
                        .field(3, u"XXX")
                        .field(15, u"安娜")
                        .field(8, u"20200101")
                        .field(8, u"20250101")
                        .field(8, u"19900307")
                        .field(2, u"01")
                        .field(4, u"1500")
                        .field(1, u"I")
                        .field(3, u"")
                        .finished(),
            .photo = photo()};
}

IdentityCard hmt_permit() {
    return {.text = TextBlock()
                        .field(15, u"陈样本")
                        .field(1, u"1")
                        .field(2, u"")
                        .field(8, u"19881212")
                        .field(35, u"某市某区样本路9号")
                        .field(18, with_check_character(u"99010119881212001"))
                        .field(15, u"某市公安局某分局")
                        .field(8, u"20200101")
                        .field(8, u"20250101")
                        .field(9, u"H00000000")
                        .field(2, u"01")
                        .field(3, u"")
                        .field(1, u"J")
                        .field(3, u"")
                        .finished(),
            .photo = photo()};
}

} // namespace qaven::virtual_idcard
