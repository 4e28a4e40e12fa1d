// Coloured messages, hex in and out, and the usage text of the bench front end, to the byte.
#include "idcard_fixture.h"

#include <string_view>

using namespace idcard_test;

namespace {

TEST(IdCardMessages, WearTheColourOfTheirLevel) {
    const auto shown = [](int level) {
        return standard_output([=] { print(static_cast<log_level>(level), "%s %02d", "slot", 7); });
    };
    EXPECT_EQ(shown(1), "\033[0;31mslot 07\033[0m");
    EXPECT_EQ(shown(2), "\033[1;33mslot 07\033[0m");
    EXPECT_EQ(shown(3), "\033[0;32mslot 07\033[0m");
    EXPECT_EQ(shown(4), "\033[0mslot 07\033[0m");
}

TEST(IdCardMessages, OfAnUnknownLevelArePlain) {
    EXPECT_EQ(standard_output([] { print(static_cast<log_level>(0), "x\n"); }),
              "\033[0mx\n\033[0m");
    EXPECT_EQ(standard_output([] { print(static_cast<log_level>(5), "x\n"); }),
              "\033[0mx\n\033[0m");
}

class HexDump : public testing::Test {
  protected:
    static std::string dump(const std::string& title, Bytes bytes) {
        std::string text = title;
        return standard_output([&] { print_buf(text.data(), bytes.data(), bytes.size()); });
    }
};

constexpr std::string_view row_of_16 = "00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F \n";

TEST_F(HexDump, EndsAShortRowWithANewline) {
    EXPECT_EQ(dump("t:\n", filled(3, 0xFE)), "t:\nFE FF 00 \n");
}

TEST_F(HexDump, EndsAFullRowWithOneNewline) {
    EXPECT_EQ(dump("", filled(16, 0)), row_of_16);
}

TEST_F(HexDump, BreaksAfterEverySixteenthByte) {
    EXPECT_EQ(dump("", filled(17, 0)), std::string(row_of_16) + "10 \n");
    EXPECT_EQ(dump("", Bytes(33, 0xA5)).size(), 33 * 3 + 3U);
}

TEST_F(HexDump, OfNothingIsItsTitle) {
    EXPECT_EQ(dump("rx %d", {}), "rx %d");
    EXPECT_EQ(standard_output([] { print_buf(nullptr, nullptr, 0); }), "");
}

TEST_F(HexDump, NeedsNoTitle) {
    Bytes bytes{0x01};
    EXPECT_EQ(standard_output([&] { print_buf(nullptr, bytes.data(), 1); }), "01 \n");
}

class PackedHex : public testing::Test {
  protected:
    static Bytes pack(const std::string& hex) {
        Bytes out(hex.size() / 2 + 1, 0xEE);
        EXPECT_EQ(hex2bcd(hex.data(), hex.size(), out.data()), 0);
        EXPECT_EQ(out.back(), 0xEE) << "written past the end";
        out.pop_back();
        return out;
    }
};

TEST_F(PackedHex, TakesBothCasesHighNibbleFirst) {
    EXPECT_EQ(pack("0123456789ABCDEFabcdef"),
              (Bytes{0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0xAB, 0xCD, 0xEF}));
}

TEST_F(PackedHex, CountsAnyOtherCharacterAsZero) {
    EXPECT_EQ(pack("G1/2:3@4`5g6 7\xFF"
                   "8"),
              (Bytes{0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08}));
    EXPECT_EQ(pack("0G0g"), (Bytes{0x00, 0x00}));
}

TEST_F(PackedHex, LeavesOutTheLastOfAnOddNumberOfDigits) {
    EXPECT_EQ(pack("20013"), (Bytes{0x20, 0x01}));
    EXPECT_EQ(pack("2"), Bytes{});
    EXPECT_EQ(pack(""), Bytes{});
}

TEST(IdCardUsage, NamesTheProgramAndEveryOption) {
    EXPECT_EQ(standard_output([] { usage("idtool"); }),
              "usage: idtool [-h] [-c cmd] [-b] [-f] [-l] [-n num/name] [-t type]\n"
              "    -h              : display usage\n"
              "    -c cmd          : send samv command\n"
              "                        -c 2001 --> find idcard\n"
              "                        -c 2002 --> select idcard\n"
              "                        -c 3001 --> read idcard base info\n"
              "    -b              : get idcard base information\n"
              "    -f              : get idcard base information and finger data\n"
              "    -l              : list CCID reader\n"
              "    -n num/name     : test CCID reader. e.g:\n"
              "                        -n 1           --> one digit from list CCID reader\n"
              "                        -n contactless --> specify the reader name\n"
              "    -t type         : test CCID reader\n"
              "                        -t PICC\n"
              "                        -t ICC\n"
              "                        -t SAM\n");
}

} // namespace
