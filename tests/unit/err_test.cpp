// Error codes, their descriptions, and what a host gets to see of them.
#include "host/err.h"

#include "tests/support/hex.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <map>
#include <string>

using qaven::test::bytes;

namespace {

std::string gbk(std::string_view hex) {
    const qaven::test::Bytes packed = bytes(hex);
    return {packed.begin(), packed.end()};
}

const std::string kBlank(18, ' ');

// The whole table in stored order, the texts in GBK.
const std::array<std::pair<int, std::string>, 28> kTable{{
    {-1, gbk("20 C3BBD3D0C5E4D6C3B2CECAFD 2020202020")},
    {-2, gbk("20 C3BBD3D0D6B8B6A8B5C4D6D5B6CB 202020")},
    {-3, gbk("20 C3BBD3D0B4F2BFAAD6B8C1EE 2020202020")},
    {-4, gbk("20 C3BBD3D0B9D8B1D5D6B8C1EE 2020202020")},
    {-5, kBlank},
    {-6, kBlank},
    {-7, gbk("20 B5C8B4FDCFECD3A6B3ACCAB1 2020202020")},
    {-8, gbk("20 CEDED0A7C9E8B1B8BEE4B1FA 2020202020")},
    {-9, gbk("20 BFA8CEB4B7C5BAC3BBF2B6E0D5C5BFA8 20")},
    {-10, gbk("20 CEDED0A7B5C4BFA8C6AC 20202020202020")},
    {-11, kBlank},
    {-12, kBlank},
    {-13, kBlank},
    {-14, kBlank},
    {-15, kBlank},
    {-16, gbk("20 CAFDBEDDB7C7B7A8 202020202020202020")},
    {-17, gbk("20 D6B4D0D0 20") + "AUXPREF" + gbk("20 CAA7B0DC")},
    {-18, gbk("20 D6B4D0D0 20") + "AUXSUFF" + gbk("20 CAA7B0DC")},
    {-19, gbk("20 D0B4CAFDBEDDCAA7B0DCCAA7B0DC 202020")},
    {-20, gbk("20 C9E8B1B8CEDECFECD3A6 20202020202020")},
    {-21, gbk("20 C8A1B8A8BFDAB2CECAFDCAA7B0DC 202020")},
    {-22, gbk("20 D6C3B8A8BFDAB2CECAFDCAA7B0DC 202020")},
    {-202, gbk("20 C3BBD3D0D5D2B5BD") + "CDOL2    "},
    {-203, gbk("20 C3BBD3D0C9FAB3C9") + "TC  \t "},
    {-204, gbk("20 C3BBD3D0D5D2B5BDB1EAC7A9 2020202020")},
    {-205, gbk("20 BFD5CAFDBEDDBBF2B7C7B7A8CAFDBEDD 20")},
    {-206, gbk("20 C3BBD3D0B1EAC7A9") + "91" + gbk("B5C4CAFDBEDD 20")},
    {-207, gbk("20 C3BBD3D0B1EAC7A9") + "80" + gbk("B5C4CAFDBEDD 20")},
}};

TEST(ErrorTable, HoldsTwentyEightCodesInOrderAndATerminator) {
    for (std::size_t i = 0; i < kTable.size(); ++i) {
        EXPECT_EQ(err_code_decsript[i].code, kTable[i].first);
        EXPECT_EQ(err_code_decsript[i].text, kTable[i].second) << kTable[i].first;
    }
    EXPECT_EQ(err_code_decsript[kTable.size()].code, 0);
    EXPECT_EQ(err_code_decsript[kTable.size()].text, nullptr);
}

TEST(ErrorTable, EveryDescriptionIsEighteenBytesExceptTheOneOfAMissingTc) {
    for (const auto& [code, text] : kTable) {
        EXPECT_EQ(std::strlen(Qm_ErrGetDesc(code)), code == -203 ? 15U : 18U) << code;
    }
}

TEST(ErrorTable, CodesWithoutADescriptionOfTheirOwnShareOneText) {
    const char* const shared = Qm_ErrGetDesc(-5);
    for (const int code : {-6, -11, -12, -13, -14, -15}) {
        EXPECT_EQ(static_cast<const void*>(Qm_ErrGetDesc(code)), static_cast<const void*>(shared))
            << code;
    }
}

TEST(ErrorDescription, IsAPointerIntoTheTable) {
    for (const err_entry* entry = err_code_decsript; entry->code != 0; ++entry) {
        EXPECT_EQ(static_cast<const void*>(Qm_ErrGetDesc(entry->code)),
                  static_cast<const void*>(entry->text));
    }
}

TEST(ErrorDescription, OfSuccessAndOfUnknownCodesIsEmptyButNotNull) {
    for (const int code : {0, -23, 1, 27266, -100, -201, -208}) {
        ASSERT_NE(Qm_ErrGetDesc(code), nullptr) << code;
        EXPECT_STREQ(Qm_ErrGetDesc(code), "") << code;
    }
}

TEST(ErrorDescription, OfMinusFiveIsEighteenBlanks) {
    EXPECT_EQ(Qm_ErrGetDesc(-5), kBlank);
}

TEST(ErrorDescription, OfAMissingTcEndsInTwoBlanksATabAndABlank) {
    EXPECT_EQ(Qm_ErrGetDesc(-203), gbk("20 C3BBD3D0C9FAB3C9 5443 20 20 09 20"));
}

TEST(ErrorDescription, OfAFailedWriteSaysItsLastWordTwice) {
    EXPECT_EQ(Qm_ErrGetDesc(-19), gbk("20 D0B4CAFDBEDD CAA7B0DC CAA7B0DC 202020"));
}

TEST(LastErrorDescription, IsCopiedWithItsBlanksAndItsTerminator) {
    std::array<char, 21> dst{};
    for (const auto& [code, text] : kTable) {
        dst.fill('#');
        EXPECT_EQ(Qm_GetLastErrDesc(code, dst.data()), dst.data());
        EXPECT_EQ(dst.data(), text) << code;
        EXPECT_EQ(dst[text.size() + 1], '#') << code;
    }
}

TEST(LastErrorDescription, OfAnUnknownCodeEmptiesTheBuffer) {
    std::array<char, 19> dst{};
    dst.fill('#');
    EXPECT_EQ(Qm_GetLastErrDesc(-23, dst.data()), dst.data());
    EXPECT_STREQ(dst.data(), "");
    EXPECT_EQ(dst[1], '#');
}

TEST(HostCode, FoldsTheCardOperationsCodes) {
    const std::map<int, int> folded{{-2, -1},   {-10, -2},  {-203, -3}, {-204, -3},
                                    {-202, -4}, {-205, -4}, {-206, -4}, {-9, -9}};
    for (const auto& [code, host_code] : folded) {
        EXPECT_EQ(transErr(code), host_code) << code;
    }
}

TEST(HostCode, IsTheSameForEveryOtherCode) {
    const std::map<int, int> folded{{-2, -1},   {-10, -2},  {-203, -3}, {-204, -3},
                                    {-202, -4}, {-205, -4}, {-206, -4}};
    for (int code = -300; code <= 300; ++code) {
        if (!folded.contains(code)) {
            EXPECT_EQ(transErr(code), code);
        }
    }
    EXPECT_EQ(transErr(0x6A82), 0x6A82);
}

TEST(HostCode, MinusOneComesFromMinusOneAndFromMinusTwo) {
    EXPECT_EQ(transErr(-1), -1);
    EXPECT_EQ(transErr(-2), -1);
}

} // namespace
