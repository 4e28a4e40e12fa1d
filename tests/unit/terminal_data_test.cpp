// The terminal side of a transaction: what the cards' data object lists can ask for.
#include "engine/data/terminal_data.h"

#include "engine/data/transaction_data.h"
#include "exact_buffer.h"
#include "fixed_clock.h"
#include "tests/support/hex.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <ctime>
#include <string>
#include <string_view>

namespace terminal_data = qaven::terminal_data;
using qaven::test::Bytes;
using qaven::test::bytes;
using qaven::test::exact;
using qaven::test::exact_text;
using qaven::test::FixedClock;
using qaven::test::hex;
using qaven::test::repeated;
using qaven::test::room;

namespace {

constexpr std::size_t kStoreSize = 104;

// "示例商户名" in GBK.
constexpr std::string_view kExampleMerchant = "CABEC0FDC9CCBBA7C3FB";

// The objects of a store, as hexadecimal values.
struct Store {
    std::string amount = "000000000000";
    std::string other_amount = "000000000000";
    std::string currency = "0156";
    std::string type = "33";
    std::string date = "190422";
    std::string time = "161355";
    std::string random;
    std::string merchant = std::string(kExampleMerchant) + repeated("00", 10);
    std::string algorithm = "01";

    std::string text() const {
        return "9F0206" + amount + "9F0306" + other_amount + "9F1A020156" + "95050008006000" +
               "5F2A02" + currency + "9C01" + type + "9A03" + date + "9F2103" + time + "9F3704" +
               random + "9F6604F4000000" + "9F7A0101" + "9F7B06000001000000" + "9F4E14" + merchant +
               "DF6901" + algorithm + "00";
    }
};

class TerminalData : public testing::Test {
  protected:
    // Builds the store from converted transaction data, zero included.
    static std::string pack(std::string_view converted_text) {
        const Bytes converted = exact(converted_text);
        Bytes store = room(kStoreSize);
        EXPECT_EQ(Qm_PackGpoData(store.data(), converted.data()), 104);
        return hex(store);
    }

    // ... from a host's text.
    static std::string pack_text(std::string_view text) {
        Bytes in = exact_text(text);
        Bytes converted(text.size() + 1);
        Qm_ConvertTxData2BCD(converted.data(), in.data());
        return pack(hex(converted));
    }

    // The four bytes that the C library draws in the stopped second.
    static std::string random() {
        std::srand(static_cast<unsigned int>(std::time(nullptr)));
        Bytes drawn;
        for (int k = 0; k < 4; ++k) {
            drawn.push_back(static_cast<std::uint8_t>(std::rand() % 256));
        }
        return hex(drawn);
    }

    static Store expected() {
        Store store;
        store.random = random();
        return store;
    }

    FixedClock clock{2019, 4, 22, 16, 13, 55};
};

TEST_F(TerminalData, HasADefaultForEveryObject) {
    EXPECT_EQ(pack("00"), expected().text());
    EXPECT_EQ(expected().text().size() / 2, kStoreSize);
}

TEST_F(TerminalData, HasTheHostsValues) {
    Store store = expected();
    store.amount = "000000001213";
    store.other_amount = "000000000100";
    store.currency = "0840";
    store.type = "03";
    store.date = "190421";
    store.time = "070809";
    store.merchant = hex(bytes("4C55524F20434E542030333238")) + repeated("00", 7);
    store.algorithm = "00";
    EXPECT_EQ(pack_text("P012000000001213Q012000000000100R0040840S00820190421T00203U006070809"
                        "V013LURO CNT 0328Z00200"),
              store.text());
}

TEST_F(TerminalData, ComesInOneOrderWhateverTheHosts) {
    Store store = expected();
    store.amount = "000000001213";
    store.type = "03";
    store.algorithm = "00";
    EXPECT_EQ(pack_text("Z00200T00203I00200P012000000001213"), store.text());
}

TEST_F(TerminalData, HasTheFirstOfTwoRecords) {
    Store store = expected();
    store.type = "03";
    EXPECT_EQ(pack_text("T00203T00204"), store.text());
}

TEST_F(TerminalData, EndsItsListAtAZero) {
    EXPECT_EQ(pack("00 540103 00"), expected().text());
}

// --- date and time ---

TEST_F(TerminalData, HasADateWithoutItsCentury) {
    Store store = expected();
    store.date = "190422";
    EXPECT_EQ(pack("5304 20190422 00"), store.text());
    EXPECT_EQ(pack("5303 190422 00"), store.text());
}

TEST_F(TerminalData, HasTheFirstThreeBytesOfADateOfAnyOtherLength) {
    Store store = expected();
    store.date = "201904";
    EXPECT_EQ(pack("5305 2019042233 00"), store.text());
    EXPECT_EQ(pack("5303 201904 00"), store.text()) << "as the issuer's answer gives it";
    store.date = "190000";
    EXPECT_EQ(pack("5301 19 00"), store.text());
    store.date = "000000";
    EXPECT_EQ(pack("5300 00"), store.text());
}

TEST_F(TerminalData, HasTheCurrentLocalDateAndTimeOtherwise) {
    FixedClock::set_zone("CST-8");
    Store store = expected();
    store.date = "190423";
    store.time = "001355";
    EXPECT_EQ(pack("00"), store.text());
}

TEST_F(TerminalData, HasTheFirstThreeBytesOfATime) {
    Store store = expected();
    store.time = "061558";
    EXPECT_EQ(pack("5503 061558 00"), store.text());
    EXPECT_EQ(pack("5504 06155840 00"), store.text());
}

TEST_F(TerminalData, LeavesDateTimeAndNumberBehind) {
    std::fill(std::begin(YYMMDD), std::end(YYMMDD), static_cast<unsigned char>(0xEE));
    std::fill(std::begin(HHMMSS), std::end(HHMMSS), static_cast<unsigned char>(0xEE));
    std::fill(std::begin(gRnd), std::end(gRnd), static_cast<unsigned char>(0xEE));
    pack("5304 20200131 5503 070809 00");
    EXPECT_EQ(hex(YYMMDD), "2001310000") << "the rest of the date is cleared";
    EXPECT_EQ(hex(std::span(HHMMSS).first(3)), "070809");
    EXPECT_EQ(hex(gRnd), random() + "EEEEEEEEEE");
}

TEST_F(TerminalData, LeavesTheCurrentDateAndTimeBehindToo) {
    pack("00");
    EXPECT_EQ(hex(YYMMDD), "1904220000");
    EXPECT_EQ(hex(std::span(HHMMSS).first(3)), "161355");
    pack("5304 20200131 5503 070809 00");
    pack("00");
    EXPECT_EQ(hex(YYMMDD), "1904220000") << "every store writes them anew";
    EXPECT_EQ(hex(std::span(HHMMSS).first(3)), "161355");
}

// --- the unpredictable number ---

TEST_F(TerminalData, CarriesTheSameNumberThroughoutASecond) {
    const std::string first = pack("00");
    std::rand();
    EXPECT_EQ(pack("00"), first);
}

TEST(TerminalNumber, ChangesWithTheSecond) {
    std::string first;
    {
        const FixedClock clock(2019, 4, 22, 16, 13, 55);
        terminal_data::pack({});
        first = hex(std::span(gRnd).first(4));
    }
    const FixedClock clock(2019, 4, 22, 16, 13, 56);
    terminal_data::pack({});
    EXPECT_NE(hex(std::span(gRnd).first(4)), first);
}

// --- the merchant's name ---

TEST_F(TerminalData, FillsAShortMerchantWithZeros) {
    Store store = expected();
    store.merchant = repeated("41", 13) + repeated("00", 7);
    EXPECT_EQ(pack("560D" + repeated("41", 13) + "00"), store.text());
    store.merchant = repeated("00", 20);
    EXPECT_EQ(pack("5600 00"), store.text()) << "an empty name is not the default one";
}

TEST_F(TerminalData, TakesAMerchantOf20Bytes) {
    Store store = expected();
    store.merchant = repeated("41", 20);
    EXPECT_EQ(pack("5614" + repeated("41", 20) + "00"), store.text());
}

TEST_F(TerminalData, WritesTheObjectBehindALongMerchantOverItsRest) {
    Store store = expected();
    store.merchant = repeated("41", 20);
    store.algorithm = "00";
    EXPECT_EQ(pack("5619" + repeated("41", 25) + "5A0100 00"), store.text());
}

TEST_F(TerminalData, LeavesTheRestOfALongMerchantBehindItsEnd) {
    const Bytes converted = exact("561E" + repeated("41", 20) + repeated("42", 10) + "00");
    Bytes store = room(kStoreSize + 10);
    Store expected_store = expected();
    expected_store.merchant = repeated("41", 20);
    EXPECT_EQ(Qm_PackGpoData(store.data(), converted.data()), 104);
    EXPECT_EQ(hex(std::span(store).first(kStoreSize)), expected_store.text());
    EXPECT_EQ(hex(std::span(store).subspan(kStoreSize)), repeated("42", 5) + repeated("EE", 5));
}

TEST_F(TerminalData, LeavesBehindNoMoreThanTheScratchHolds) {
    const Bytes converted = exact("56FF" + repeated("41", 255) + "00");
    Bytes store = room(kStoreSize + 108);
    EXPECT_EQ(Qm_PackGpoData(store.data(), converted.data()), 104);
    EXPECT_EQ(hex(std::span(store).subspan(kStoreSize)), repeated("41", 103) + repeated("EE", 5));
}

TEST_F(TerminalData, LeavesNothingBehindOfAMerchantThatIsWrittenOver) {
    const Bytes converted = exact("5619" + repeated("41", 25) + "00");
    Bytes store = room(kStoreSize + 5);
    EXPECT_EQ(Qm_PackGpoData(store.data(), converted.data()), 104);
    EXPECT_EQ(hex(std::span(store).subspan(kStoreSize - 5)), "DF69010100" + repeated("EE", 5));
}

TEST_F(TerminalData, SurvivesAMerchantLongerThanTheScratch) {
    const std::string converted = "56FF" + repeated("41", 255) + "00";
    Store store = expected();
    store.merchant = repeated("41", 20);
    EXPECT_EQ(hex(terminal_data::pack(exact(converted))), store.text());
}

// --- values that are too short or too long ---

TEST_F(TerminalData, CutsALongValueBehind) {
    Store store = expected();
    store.amount = "112233445566";
    store.currency = "0840";
    store.type = "03";
    store.algorithm = "00";
    EXPECT_EQ(pack("5007 11223344556677 5203 084099 5402 0399 5A02 0099 00"), store.text());
}

TEST_F(TerminalData, FollowsAShortValueByWhatTheLetterBeforeItLeft) {
    Store store = expected();
    store.amount = "112233445566";
    store.other_amount = "AABB33445566";
    store.currency = "08BB";
    EXPECT_EQ(pack("5006 112233445566 5102 AABB 5201 08 00"), store.text());
}

TEST_F(TerminalData, FollowsAShortValueByZerosWhenNoneWasBeforeIt) {
    Store store = expected();
    store.amount = "120000000000";
    EXPECT_EQ(pack("5001 12 00"), store.text());
    store = expected();
    store.currency = "0800";
    EXPECT_EQ(pack("5201 08 00"), store.text());
}

TEST_F(TerminalData, CarriesLeftOversOnToDateAndTime) {
    Store store = expected();
    store.amount = "112233445566";
    store.date = "992233";
    store.time = "882233";
    EXPECT_EQ(pack("5006 112233445566 5301 99 5501 88 00"), store.text());
}

TEST_F(TerminalData, ClearsTheScratchBeforeMerchantAndAlgorithm) {
    Store store = expected();
    store.amount = "112233445566";
    store.merchant = "41" + repeated("00", 19);
    store.algorithm = "00";
    EXPECT_EQ(pack("5006 112233445566 5601 41 5A00 00"), store.text());
}

TEST_F(TerminalData, TakesAnEmptyValueForAPresentOne) {
    Store store = expected();
    store.type = "00";
    store.currency = "0000";
    EXPECT_EQ(pack("5200 5400 00"), store.text());
}

TEST_F(TerminalData, CutsOffAtTheEndOfAListOfKnownSize) {
    Store store = expected();
    store.amount = "112200000000";
    EXPECT_EQ(hex(terminal_data::pack(exact("5006 1122"))), store.text());
    EXPECT_EQ(hex(terminal_data::pack(exact("540103 50"))), [&] {
        Store plain = expected();
        plain.type = "03";
        return plain.text();
    }());
    EXPECT_EQ(hex(terminal_data::pack({})), expected().text());
}

TEST_F(TerminalData, IsNotMisledByAnUnknownLetter) {
    Store store = expected();
    store.type = "03";
    EXPECT_EQ(pack("4901 54 540103 00"), store.text());
}

// --- one letter alone ---

TEST(LetterValue, IsCopiedAsFarAsItsPlaceGoes) {
    Bytes out = room(6);
    EXPECT_TRUE(terminal_data::letter_value('P', exact("5007 11223344556677 00"), out));
    EXPECT_EQ(hex(out), "112233445566");
}

TEST(LetterValue, ThatIsMissingLeavesItsPlaceAlone) {
    Bytes out = room(6);
    EXPECT_FALSE(terminal_data::letter_value('Q', exact("5006 112233445566 00"), out));
    EXPECT_FALSE(terminal_data::letter_value('Q', exact("00 5106 112233445566 00"), out));
    EXPECT_EQ(hex(out), "EEEEEEEEEEEE");
}

} // namespace
