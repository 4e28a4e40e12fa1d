// The listing of a card's text, and the conversion below it.
#include "idcard_fixture.h"

#include <dlfcn.h>
#include <iconv.h>

#include <string_view>

using namespace idcard_test;

namespace {

// A system that has lost its conversion tables.
bool converters_are_missing = false;

} // namespace

extern "C" iconv_t iconv_open(const char* tocode, const char* fromcode) {
    if (converters_are_missing) {
        return reinterpret_cast<iconv_t>(-1);
    }
    static const auto real =
        reinterpret_cast<decltype(&iconv_open)>(dlsym(RTLD_NEXT, "iconv_open"));
    return real(tocode, fromcode);
}

namespace {

std::string green_line(const std::string& text) {
    return "\033[0;32m" + text + "\n\033[0m";
}

// Two bytes a character, low byte first, filled up with blanks as the cards are.
void put(Bytes& block, std::size_t offset, std::size_t length, std::u16string_view text) {
    std::u16string padded(text);
    padded.resize(length / 2, u' ');
    for (std::size_t i = 0; i < padded.size(); ++i) {
        block[offset + 2 * i] = static_cast<unsigned char>(padded[i] & 0xFF);
        block[offset + 2 * i + 1] = static_cast<unsigned char>(padded[i] >> 8);
    }
}

Bytes resident_card() {
    Bytes block(250, 0x00); // no byte more than is ever read
    put(block, 0, 30, u"张样本");
    put(block, 30, 2, u"2");
    put(block, 32, 4, u"01");
    put(block, 36, 16, u"19900307");
    put(block, 52, 70, u"某市某区样本路7号");
    put(block, 122, 36, u"99010119900307002X");
    put(block, 158, 30, u"某市公安局");
    put(block, 188, 16, u"20200101");
    put(block, 204, 16, u"20400101");
    put(block, 220, 30, u"");
    return block;
}

std::string listing(Bytes block) {
    return standard_output([&] { idcard_base_info_parse(block.data()); });
}

TEST(IdCardText, ListsTheNineFieldsOfAResidentCard) {
    EXPECT_EQ(
        listing(resident_card()),
        green_line("姓名: 张样本" + std::string(12, ' ')) + green_line("性别代码: 2") +
            green_line("民族代码: 01") + green_line("出生: 19900307") +
            green_line("住址: 某市某区样本路7号" + std::string(26, ' ')) +
            green_line(
                "\xE8\xBA\xAB\xE4\xBB\xBD\xE8\xAF\x81\xE5\x8F\xB7\xE7\xA0?: 99010119900307002X") +
            green_line("签发机构: 某市公安局" + std::string(10, ' ')) +
            green_line("起始日期: 20200101") + green_line("终止日期: 20400101"));
}

TEST(IdCardText, NamesAForeignResidentPermitAndStops) {
    Bytes block = resident_card();
    put(block, 248, 2, u"I");
    EXPECT_EQ(listing(block), green_line("外国人居住证"));
}

TEST(IdCardText, NamesAHongKongMacaoTaiwanPermitAndStops) {
    Bytes block = resident_card();
    put(block, 248, 2, u"J");
    EXPECT_EQ(listing(block), green_line("港澳台居住证"));
}

TEST(IdCardText, OtherCardTypesAreListedAsResidentCards) {
    const std::string resident = listing(resident_card());
    for (const char16_t type : {u'K', u'H', u'i', u'\u0149', u'\u014A', u'\u4900', u'\0'}) {
        Bytes block = resident_card();
        put(block, 248, 2, std::u16string(1, type));
        EXPECT_EQ(listing(block), resident) << std::hex << static_cast<unsigned>(type);
    }
}

TEST(IdCardText, AFieldShowsWhatComesBeforeABadCharacter) {
    Bytes block = resident_card();
    put(block, 0, 30, u"张\xD800样");
    EXPECT_TRUE(listing(block).starts_with(green_line("姓名: 张") + green_line("性别代码: 2")));
}

TEST(IdCardText, AFieldEndsAtAZeroCharacter) {
    Bytes block = resident_card();
    put(block, 0, 30, std::u16string_view(u"张\0样", 3));
    EXPECT_TRUE(listing(block).starts_with(green_line("姓名: 张")));
}

TEST(IdCardText, WithoutATextNothingIsPrinted) {
    EXPECT_EQ(standard_output([] { idcard_base_info_parse(nullptr); }), "");
}

class Ucs2 : public testing::Test {
  protected:
    // Both overloads, one after the other; they have to agree to the byte.
    int convert(Bytes ucs2, std::size_t out_size) {
        text_.assign(out_size + 1, '#');
        const int result = ucs2_utf8(ucs2.data(), ucs2.size(), text_.data(), out_size);
        std::string other(out_size + 1, '#');
        EXPECT_EQ(
            ucs2_utf8(reinterpret_cast<char*>(ucs2.data()), ucs2.size(), other.data(), out_size),
            result);
        EXPECT_EQ(other, text_);
        EXPECT_EQ(text_.back(), '#') << "written past the end";
        text_.pop_back();
        return result;
    }

    const Bytes zhang_a{0x20, 0x5F, 0x41, 0x00}; // U+5F20, U+0041: four bytes of UTF-8
    std::string text_;
};

TEST_F(Ucs2, BecomesUtf8AndTheRestOfTheBufferZeros) {
    EXPECT_EQ(convert(zhang_a, 8), 0);
    EXPECT_EQ(text_, std::string("张A\0\0\0\0", 8));
}

TEST_F(Ucs2, OfNoLengthIsAnEmptyText) {
    EXPECT_EQ(convert(Bytes(1, 0), 4), -1);
    unsigned char nothing = 0;
    char out[2] = {'#', '#'};
    EXPECT_EQ(ucs2_utf8(&nothing, 0, out, 2), 0);
    EXPECT_EQ(std::string(out, 2), std::string(2, '\0'));
}

TEST_F(Ucs2, FitsWithItsTerminatingZero) {
    EXPECT_EQ(convert(zhang_a, 5), 0);
    EXPECT_EQ(text_, std::string("张A\0", 5));
}

TEST_F(Ucs2, ThatLeavesNoRoomForTheTerminatingZeroFails) {
    EXPECT_EQ(convert(zhang_a, 4), -1);
    EXPECT_EQ(text_, std::string("张\0", 4));
}

TEST_F(Ucs2, IntoABufferOfNoSizeWritesNothing) {
    EXPECT_EQ(convert(zhang_a, 0), -1);
}

TEST_F(Ucs2, WithHalfACharacterAtTheEndFails) {
    EXPECT_EQ(convert({0x41, 0x00, 0x42}, 8), -1);
    EXPECT_EQ(text_, std::string("A\0\0\0\0\0\0\0", 8));
}

TEST_F(Ucs2, DoesNotKnowSurrogates) {
    EXPECT_EQ(convert({0x3D, 0xD8, 0x00, 0xDE}, 8), -1);
    EXPECT_EQ(text_, std::string(8, '\0'));
}

TEST_F(Ucs2, FailsWithoutAConverter) {
    converters_are_missing = true;
    EXPECT_EQ(convert(zhang_a, 8), -1);
    converters_are_missing = false;
}

TEST_F(Ucs2, ThatIsNotThereFails) {
    char out[2] = {'#', '#'};
    EXPECT_EQ(ucs2_utf8(static_cast<char*>(nullptr), 2, out, 2), -1);
    unsigned char in[2] = {0x41, 0x00};
    EXPECT_EQ(ucs2_utf8(in, 2, nullptr, 2), -1);
}

} // namespace
