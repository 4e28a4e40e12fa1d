// GET PROCESSING OPTIONS with the card's PDOL answered, and the records that its AFL names.
#include "engine/card/reading.h"

#include "card_test.h"
#include "engine/data/terminal_data.h"
#include "exact_buffer.h"
#include "fixed_clock.h"
#include "tests/support/hex.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <string_view>

namespace reading = qaven::reading;
using qaven::test::Bytes;
using qaven::test::bytes;
using qaven::test::CardTest;
using qaven::test::exact;
using qaven::test::FixedClock;
using qaven::test::hex;
using qaven::test::repeated;
using qaven::test::room;
using testing::IsEmpty;

namespace {

constexpr int kNoTag = -204;
constexpr int kEmptyData = -205;
constexpr int kTimeout = -7;
constexpr int kFormat2 = -1;
constexpr unsigned char kUntouched = 99;

constexpr std::string_view kFciWithoutPdol = "6F0E 8407A0000003330101 A503 870101";

// The terminal's qualifiers, amount and unpredictable number, as they stand in its data store.
constexpr std::string_view kStore = "9F0206000000001213 9F1A020156 9C0133 9F3704A1B2C3D4 "
                                    "9F6604F4000000 DF690101 00";

std::string length_byte(std::size_t length) {
    return hex(std::array{static_cast<std::uint8_t>(length)});
}

std::string object(std::string_view tag, std::string_view value) {
    const std::string content = hex(bytes(value));
    return std::string(tag) + length_byte(content.size() / 2) + content;
}

std::string fci_with(std::string_view pdol_object) {
    return "6F3F 8407A0000003330101 A53F 870101" + std::string(pdol_object);
}

// --- GET PROCESSING OPTIONS ---

class ProcessingOptions : public CardTest {
  protected:
    int get(std::string_view fci_text, std::string_view store_text = kStore,
            bool known_size = true) {
        Bytes fci = exact(fci_text);
        Bytes store = exact(store_text);
        aip = room(2);
        aip_length = kUntouched;
        afl = room(254);
        afl_length = kUntouched;
        return qmcx_GetProcOptions(fci.data(), static_cast<unsigned char>(fci.size()), store.data(),
                                   known_size ? static_cast<int>(store.size()) : 0, aip.data(),
                                   &aip_length, afl.data(), &afl_length);
    }

    // The answer to a card without PDOL.
    int get_answered_by(const std::string& response) {
        card.expect("80A80000028300", response);
        return get(kFciWithoutPdol);
    }

    std::string afl_text() const { return hex(std::span(afl).first(afl_length)); }

    void expect_nothing_written() const {
        EXPECT_EQ(aip_length, 0);
        EXPECT_EQ(aip, room(2));
        EXPECT_EQ(afl_length, kUntouched);
        EXPECT_EQ(afl, room(254));
    }

    Bytes aip = room(2);
    unsigned char aip_length = kUntouched;
    Bytes afl = room(254);
    unsigned char afl_length = kUntouched;
};

TEST_F(ProcessingOptions, OfACardWithoutPdolAreAskedForWithAnEmptyTemplate) {
    card.expect("80A8000002 8300", "800E 7C00 08010100 10010401 18010200 9000");
    EXPECT_EQ(get(kFciWithoutPdol), 0);
}

TEST_F(ProcessingOptions, AreTheAipAndTheAflOfFormat1) {
    EXPECT_EQ(get_answered_by("800E 7C00 08010100 10010401 18010200 9000"), 0);
    EXPECT_EQ(hex(aip), "7C00");
    EXPECT_EQ(aip_length, 2);
    EXPECT_EQ(afl_length, 12);
    EXPECT_EQ(afl_text(), "080101001001040118010200");
    EXPECT_EQ(afl[12], 0xEE) << "and nothing behind it";
}

TEST_F(ProcessingOptions, AreAskedForWithTheValuesInThePdolsOrder) {
    card.expect("80A8000010 830E F4000000 000000001213 A1B2C3D4", "80067C0008010100 9000");
    EXPECT_EQ(get(fci_with("9F3809 9F6604 9F0206 9F3704")), 0);
    EXPECT_EQ(hex(aip), "7C00");
}

TEST_F(ProcessingOptions, AreAskedForWithTheTerminalsOwnStore) {
    const FixedClock clock(2019, 4, 22, 16, 13, 55);
    const Bytes no_transaction = exact("00");
    Bytes store = room(104);
    Qm_PackGpoData(store.data(), no_transaction.data());
    const std::string number = hex(std::span(gRnd).first(4));
    card.expect("80A8000010 830E F4000000 000000000000" + number, "80067C0008010100 9000");
    EXPECT_EQ(get(fci_with("9F3809 9F6604 9F0206 9F3704"), hex(store)), 0);
}

TEST_F(ProcessingOptions, TakeAStoreOfLengthZeroForAZeroTerminatedOne) {
    card.expect("80A8000006 8304 A1B2C3D4", "80027C00 9000");
    EXPECT_EQ(get(fci_with("9F3803 9F3704"), kStore, /*known_size=*/false), 0);
    card.expect("80A8000006 8304 00000000", "80027C00 9000");
    EXPECT_EQ(
        get(fci_with("9F3803 9F3704"), "9C0133 00 00 9F3704A1B2C3D4 00", /*known_size=*/false), 0)
        << "the number stands behind the store's end";
}

TEST_F(ProcessingOptions, AreAskedForWithZerosForWhatTheTerminalDoesNotHave) {
    card.expect("80A8000005 8303 000000", "80027C00 9000");
    EXPECT_EQ(get(fci_with("9F3803 DF6003")), 0);
    card.expect("80A8000006 8304 00000000", "80027C00 9000");
    EXPECT_EQ(get(fci_with("9F3803 9F3704"), "00"), 0);
}

TEST_F(ProcessingOptions, WithAnEmptyPdolAreNotAskedFor) {
    EXPECT_EQ(get(fci_with("9F3800")), kEmptyData);
    expect_nothing_written();
    EXPECT_THAT(card.commands(), IsEmpty());
}

TEST_F(ProcessingOptions, WithABrokenPdolAreNotAskedFor) {
    for (const std::string_view pdol :
         {"9F3801 9F", "9F3802 9F37", "9F3804 9F3704 9F", "9F3803 9A8203", "9F3803 FF0301"}) {
        EXPECT_EQ(get(fci_with(pdol)), kNoTag) << pdol;
        expect_nothing_written();
    }
    EXPECT_THAT(card.commands(), IsEmpty());
}

TEST_F(ProcessingOptions, CanBeAskedForWith253Bytes) {
    card.expect("80A80000FF 83FD A1B2C3D4" + repeated("00", 249), "80027C00 9000");
    EXPECT_EQ(get(fci_with("9F3806 9F3704 9F4CF9")), 0);
}

TEST_F(ProcessingOptions, AreNotAskedForWithMoreBytesThanACommandHolds) {
    for (const std::string_view pdol :
         {"9F3806 9F3704 9F4CFA", "9F3805 9F4C820100", "9F3808 9F3704 9F4C82FFFF"}) {
        EXPECT_EQ(get(fci_with(pdol)), kEmptyData) << pdol;
        expect_nothing_written();
    }
    EXPECT_THAT(card.commands(), IsEmpty());
}

TEST_F(ProcessingOptions, TakeAPdolThatTheFciCutsOffForZeros) {
    // Zeros in a list are tags of length zero; an odd one is half an entry.
    card.expect("80A8000006 8304 A1B2C3D4", "80027C00 9000");
    EXPECT_EQ(get(fci_with("9F3805 9F3704")), 0);
    EXPECT_EQ(get(fci_with("9F3804 9F3704")), kNoTag);
}

TEST_F(ProcessingOptions, TakeAPdolWithoutALengthForNone) {
    for (const std::string_view pdol : {"9F38", "9F3881", "9F3882", "9F388200"}) {
        card.expect("80A8000002 8300", "80027C00 9000");
        EXPECT_EQ(get(fci_with(pdol)), 0) << pdol;
    }
}

TEST_F(ProcessingOptions, TakeALongFormPdolsLengthFromTheSecondByteOfTheFci) {
    card.expect("80A8000006 8304 A1B2C3D4", "80027C00 9000");
    EXPECT_EQ(get("5003 4D4144 9F388106 9F3704 9F0206"), 0);
}

TEST_F(ProcessingOptions, MayBeAskedForByALongPdol) {
    card.expect("80A8000006 8304 A1B2C3D4", "80027C00 9000");
    EXPECT_EQ(get("9F388200F0" + repeated("9F3700", 79) + "9F3704"), 0);
}

// The length of such an FCI is 0 in its byte.
TEST_F(ProcessingOptions, AreAskedForByThePdolOfAnFciOf256Bytes) {
    card.expect("80A8000006 8304 A1B2C3D4", "80027C00 9000");
    EXPECT_EQ(get("8408A000000333010101 9F38039F3704" + repeated("00", 240)), 0);
}

TEST_F(ProcessingOptions, HandThroughWhyTheCardRefused) {
    EXPECT_EQ(get_answered_by("6985"), 0x6985);
    expect_nothing_written();
    card.expect_silence("80A8000002 8300");
    EXPECT_EQ(get(kFciWithoutPdol), kTimeout);
    expect_nothing_written();
}

TEST_F(ProcessingOptions, CanBeFetchedWithAFollowUp) {
    card.expect("80A8000002 8300", "6108").expect("00C0000008", "80067C0008010100 9000");
    EXPECT_EQ(get(kFciWithoutPdol), 0);
    EXPECT_EQ(afl_text(), "08010100");
}

TEST_F(ProcessingOptions, MayComeWithoutAnAfl) {
    EXPECT_EQ(get_answered_by("80027C00 9000"), 0);
    EXPECT_EQ(aip_length, 2);
    EXPECT_EQ(afl_length, 0);
}

TEST_F(ProcessingOptions, OfFormat1WithoutAWholeAipAreRefused) {
    for (const std::string_view response : {"8000", "80017C", "8001", "80820001 7C", "808101 7C"}) {
        EXPECT_EQ(get_answered_by(std::string(response) + "9000"), kEmptyData) << response;
        expect_nothing_written();
    }
}

TEST_F(ProcessingOptions, InAnyOtherResponseAreRefused) {
    for (const std::string_view response :
         {"", "00", "80", "808200", "7700", "9408 00000000", "FF 80027C00", "5F", "82027C00 80"}) {
        EXPECT_EQ(get_answered_by(std::string(response) + "9000"), kEmptyData) << response;
        expect_nothing_written();
    }
    for (const std::string_view only_an_aip : {"82", "770182", "828200", "82820002"}) {
        EXPECT_EQ(get_answered_by(std::string(only_an_aip) + "9000"), kFormat2) << only_an_aip;
        expect_nothing_written();
    }
}

TEST_F(ProcessingOptions, AreFoundInsideATemplateToo) {
    EXPECT_EQ(get_answered_by("7708 80067C0008010100 9000"), 0);
    EXPECT_EQ(afl_text(), "08010100");
}

TEST_F(ProcessingOptions, TakeOnlyTheAflBytesThatAreThere) {
    EXPECT_EQ(get_answered_by("800E 7C00 08010100 1001 9000"), 0);
    EXPECT_EQ(hex(aip), "7C00");
    EXPECT_EQ(afl_length, 6);
    EXPECT_EQ(afl_text(), "080101001001");
    EXPECT_EQ(get_answered_by("80FF 7C00 9000"), 0);
    EXPECT_EQ(afl_length, 0);
    EXPECT_EQ(get_answered_by("8082FFFF 7C00 08010100 9000"), 0);
    EXPECT_EQ(afl_text(), "08010100");
}

TEST_F(ProcessingOptions, TakeZerosForAipBytesThatAreNotThere) {
    EXPECT_EQ(get_answered_by("8006 7C 9000"), 0);
    EXPECT_EQ(hex(aip), "7C00");
    EXPECT_EQ(afl_length, 0);
    EXPECT_EQ(get_answered_by("8002 9000"), 0);
    EXPECT_EQ(hex(aip), "0000");
}

TEST_F(ProcessingOptions, MayComeWithALongAfl) {
    const std::string entries = repeated("08010100", 62);
    EXPECT_EQ(get_answered_by("8081FA 7C00" + entries + "9000"), 0);
    EXPECT_EQ(afl_length, 248);
    EXPECT_EQ(afl_text(), entries);
    EXPECT_EQ(get_answered_by("80FE 7C00" + repeated("A1", 252) + "9000"), 0);
    EXPECT_EQ(afl_length, 252);
}

TEST_F(ProcessingOptions, OfFormat2AreNotTaken) {
    EXPECT_EQ(get_answered_by("7712 82027C00 940C 080101001001040118010200 9000"), kFormat2);
    expect_nothing_written();
}

TEST_F(ProcessingOptions, OfFormat2LeaveAnAipBehindOnlyWhenItIsTooShort) {
    EXPECT_EQ(get_answered_by("7706 82017C 94011F 9000"), kFormat2);
    EXPECT_EQ(aip_length, 2);
    EXPECT_EQ(hex(aip), "7C94") << "two bytes from behind the length";
    EXPECT_EQ(get_answered_by("7705 8200 940155 9000"), kFormat2);
    EXPECT_EQ(aip_length, 2);
    EXPECT_EQ(hex(aip), "9401");
    EXPECT_EQ(get_answered_by("7702 8200 9000"), kFormat2);
    EXPECT_EQ(hex(aip), "0000");
    EXPECT_EQ(afl_length, kUntouched);
}

// --- the records ---

std::string read_record(unsigned int sfi, int number) {
    return hex(std::array{std::uint8_t{0x00}, std::uint8_t{0xB2}, static_cast<std::uint8_t>(number),
                          static_cast<std::uint8_t>(sfi << 3U | 4U), std::uint8_t{0x00}});
}

class Records : public CardTest {
  protected:
    void read(std::string_view afl_text) {
        Bytes afl = exact(afl_text);
        EXPECT_EQ(qmcx_GetAppData(afl.data(), static_cast<unsigned char>(afl.size()), nullptr, 0,
                                  data.data(), &data_length, sda.data(), &sda_length),
                  0);
    }

    std::string data_text() const {
        return hex(std::span(data).first(static_cast<std::size_t>(data_length)));
    }
    std::string sda_text() const {
        return hex(std::span(sda).first(static_cast<std::size_t>(sda_length)));
    }

    Bytes data = room(8000);
    int data_length = 99;
    Bytes sda = room(256);
    int sda_length = 99;
};

TEST_F(Records, AreReadFromTheFirstToTheLastThatTheAflNames) {
    card.expect("00B2010C00", "70035A0162 9000")
        .expect("00B2020C00", "7003570163 9000")
        .expect("00B2030C00", "70039C0164 9000");
    read("08010302");
    EXPECT_EQ(data_text(), "70035A0162700357016370039C0164");
    EXPECT_EQ(sda_text(), "5A0162570163") << "the first two, without their templates";
    EXPECT_EQ(hex(std::span(data).subspan(15, 1)), "EE");
    EXPECT_EQ(hex(std::span(sda).subspan(6, 1)), "EE");
}

TEST_F(Records, OfOtherFilesAreAuthenticatedWithTheirTemplates) {
    card.expect("00B2011C00", "70035A0162 9000").expect("00B2021C00", "7003570163 9000");
    read("18010201");
    EXPECT_EQ(data_text(), "70035A01627003570163");
    EXPECT_EQ(sda_text(), "70035A0162");
}

TEST_F(Records, OfAllEntriesStandInTheAflsOrder) {
    card.expect(read_record(2, 1), "7003570163 9000")
        .expect(read_record(1, 3), "70035A0162 9000")
        .expect(read_record(1, 4), "70039C0164 9000")
        .expect(read_record(30, 1), "70035F0165 9000");
    read("10010101 08030401 F0010100");
    EXPECT_EQ(data_text(), "700357016370035A016270039C016470035F0165");
    EXPECT_EQ(sda_text(), "7003570163"
                          "5A0162");
}

TEST_F(Records, OfFilesThatCannotBeAreNotRead) {
    read("00010101");
    read("F8010101");
    read("07010101 F1010101 FF010101 01010101");
    EXPECT_EQ(data_length, 0);
    EXPECT_EQ(sda_length, 0);
    EXPECT_THAT(card.commands(), IsEmpty());
}

TEST_F(Records, OfTheLowestAndTheHighestFileAreRead) {
    card.expect("00B2010C00", "7000 9000").expect("00B201F400", "7000 9000");
    read("08010100 F0010100");
    EXPECT_EQ(data_text(), "70007000");
}

TEST_F(Records, AreNoneWhenTheFirstIsBehindTheLast) {
    read("08030203");
    EXPECT_THAT(card.commands(), IsEmpty());
}

TEST_F(Records, MayHaveAnyNumber) {
    card.expect(read_record(1, 0), "7000 9000").expect(read_record(1, 1), "6A83");
    read("08000100");
    EXPECT_EQ(data_text(), "7000");
    card.expect(read_record(1, 254), "6A83").expect(read_record(1, 255), "7000 9000");
    read("08FEFF00");
    EXPECT_EQ(data_text(), "7000");
}

TEST_F(Records, OfAnUnfinishedEntryAreNotRead) {
    card.expect("00B2010C00", "7000 9000");
    read("08010100 100101");
    EXPECT_EQ(data_text(), "7000");
    read("080101");
    EXPECT_EQ(data_length, 0);
}

TEST_F(Records, OfAnEmptyAflAreNone) {
    Bytes afl = room(1);
    EXPECT_EQ(qmcx_GetAppData(afl.data(), 0, nullptr, 0, data.data(), &data_length, sda.data(),
                              &sda_length),
              0);
    EXPECT_EQ(data_length, 0);
    EXPECT_EQ(sda_length, 0);
    EXPECT_EQ(data, room(8000));
    EXPECT_EQ(sda, room(256));
}

TEST_F(Records, ThatCannotBeReadAreSkipped) {
    card.expect("00B2010C00", "6A83")
        .expect("00B2020C00", "70035A0162 9000")
        .expect_silence("00B2030C00")
        .expect("00B2040C00", "7003570163 9000")
        .expect("00B2050C00", "70039C0164 9000");
    read("08010502");
    EXPECT_EQ(data_text(), "70035A0162700357016370039C0164");
    EXPECT_EQ(sda_text(), "5A0162570163") << "a record that failed is not counted";
}

TEST_F(Records, DoNotDependOnTheListOfTags) {
    card.expect("00B2010C00", "70035A0162 9000");
    Bytes afl = exact("08010100");
    Bytes tags = exact("57");
    EXPECT_EQ(qmcx_GetAppData(afl.data(), 4, tags.data(), 1, data.data(), &data_length, sda.data(),
                              &sda_length),
              0);
    EXPECT_EQ(data_text(), "70035A0162");
    EXPECT_EQ(hex(tags), "57");
}

TEST_F(Records, WithoutATemplateAreCountedAndAddNothing) {
    card.expect("00B2010C00", "5A0162 9000")
        .expect("00B2020C00", "7003570163 9000")
        .expect("00B2030C00", "70039C0164 9000");
    read("08010302");
    EXPECT_EQ(data_text(), "5A0162700357016370039C0164");
    EXPECT_EQ(sda_text(), "570163");
}

TEST_F(Records, WithoutDataAreCountedAndAddNothing) {
    card.expect("00B2010C00", "9000").expect("00B2020C00", "7003570163 9000");
    read("08010201");
    EXPECT_EQ(data_text(), "7003570163");
    EXPECT_EQ(sda_text(), "");
}

TEST_F(Records, OfNoneToAuthenticateAddNothing) {
    card.expect("00B2010C00", "70035A0162 9000");
    read("08010100");
    EXPECT_EQ(sda_length, 0);
}

TEST_F(Records, CanBeFewerThanThoseToAuthenticate) {
    card.expect("00B2010C00", "70035A0162 9000");
    read("080101FF");
    EXPECT_EQ(sda_text(), "5A0162");
}

TEST_F(Records, AreAuthenticatedByTheShiftedFileIdentifier) {
    // 0A and 0B are both SFI 1.
    card.expect("00B2010C00", "70035A0162 9000");
    read("0A010101");
    EXPECT_EQ(sda_text(), "5A0162");
    card.expect("00B2010C00", "70035A0162 9000");
    read("0B010101");
    EXPECT_EQ(sda_text(), "70035A0162");
    card.expect("00B2011400", "70035A0162 9000");
    read("10010101");
    EXPECT_EQ(sda_text(), "70035A0162") << "SFI 2";
}

TEST_F(Records, GiveTheValueBehindALengthOfThreeBytes) {
    card.expect("00B2010C00", "70820003 5A0162 9000");
    read("08010101");
    EXPECT_EQ(sda_text(), "5A0162");
}

TEST_F(Records, GiveTheValueBehindALengthOfTwoBytesOneByteLate) {
    card.expect("00B2010C00", "708103 5A0162 570163 9000");
    read("08010101");
    EXPECT_EQ(sda_text(), "016257");
    card.expect("00B2010C00", "708103 5A0162 9000");
    read("08010101");
    EXPECT_EQ(sda_text(), "016200") << "the last byte is behind the record";
}

TEST_F(Records, GiveTheWholeTemplateWithItsLength) {
    card.expect("00B2011400", "70820003 5A0162 570163 9000");
    read("10010101");
    EXPECT_EQ(sda_text(), "708200035A0162");
    card.expect("00B2011400", "708103 5A0162 570163 9000");
    read("10010101");
    EXPECT_EQ(sda_text(), "7081035A0162");
    card.expect("00B2011400", "7003 5A0162 570163 9000");
    read("10010101");
    EXPECT_EQ(sda_text(), "70035A0162");
}

TEST_F(Records, GiveTheTemplateWhereverItStands) {
    card.expect("00B2010C00", "570163 70035A0162 9000");
    read("08010101");
    EXPECT_EQ(data_text(), "57016370035A0162");
    EXPECT_EQ(sda_text(), "5A0162");
    card.expect("00B2011400", "570163 70035A0162 9000");
    read("10010101");
    EXPECT_EQ(sda_text(), "70035A0162");
}

TEST_F(Records, GiveZerosForWhatATemplateOnlyClaims) {
    card.expect("00B2010C00", "7008 5A0162 9000").expect("00B2020C00", "9C 9000");
    read("08010202");
    EXPECT_EQ(data_text(), "70085A01629C");
    EXPECT_EQ(sda_text(), "5A01620000000000") << "never what another record left";
}

TEST_F(Records, GiveNothingForATemplateThatIsOnlyATag) {
    card.expect("00B2010C00", "570163 70 9000").expect("00B2020C00", "70035A0162 9000");
    read("08010202");
    EXPECT_EQ(sda_text(), "5A0162");
}

TEST_F(Records, GiveNothingForATagAtTheirEndWhereTemplatesGoWhole) {
    card.expect("00B2011400", "570163 70 9000").expect("00B2021400", "70035A0162 9000");
    read("10010202");
    EXPECT_EQ(sda_text(), "70035A0162");
}

TEST_F(Records, WithAHugeTemplateFillTheAuthenticationDataAndNoMore) {
    card.expect("00B2010C00", "7082FFFF 5A0162 9000").expect("00B2020C00", "7003570163 9000");
    read("08010202");
    EXPECT_EQ(sda_length, 256);
    EXPECT_EQ(sda_text(), "5A0162" + repeated("00", 253));
}

TEST_F(Records, AuthenticateTheFirst256Bytes) {
    const std::string first = object("70", repeated("A1", 200));
    const std::string second = object("70", repeated("A2", 100));
    card.expect("00B2010C00", first + "9000").expect("00B2020C00", second + "9000");
    read("08010202");
    EXPECT_EQ(data_text(), first + second);
    EXPECT_EQ(sda_text(), repeated("A1", 200) + repeated("A2", 56));
}

TEST_F(Records, Fill8000Bytes) {
    for (int number = 1; number <= 8; ++number) {
        card.expect(read_record(1, number), repeated("A1", 1000) + "9000");
    }
    read("08010800");
    EXPECT_EQ(data_length, 8000);
    EXPECT_EQ(data_text(), repeated("A1", 8000));
}

TEST_F(Records, AreLeftOutFromTheOneThatWouldPass8000Bytes) {
    for (int number = 1; number <= 7; ++number) {
        card.expect(read_record(1, number), repeated("A1", 1000) + "9000");
    }
    card.expect(read_record(1, 8), repeated("A2", 1001) + "9000");
    card.expect(read_record(1, 9), repeated("A3", 10) + "9000");
    read("08010900");
    EXPECT_EQ(data_length, 7000) << "a later one that would fit is left out too";
    EXPECT_EQ(hex(std::span(data).subspan(6999, 2)), "A1EE");
}

TEST_F(Records, AreKeptApartForTheEngine) {
    card.expect("00B2010C00", "70035A0162 9000")
        .expect("00B2020C00", "9000")
        .expect("00B2030C00", "570163 9000");
    const auto read_data = reading::read_records(exact("08010300"));
    const auto records = read_data.records();
    ASSERT_EQ(records.size(), 3U);
    EXPECT_EQ(hex(records[0]), "70035A0162");
    EXPECT_EQ(hex(records[1]), "");
    EXPECT_EQ(hex(records[2]), "570163");
}

TEST(ApplicationTags, AreEightInTwelveBytes) {
    EXPECT_EQ(hex(qmcx_appdatatag), "8C5A5F348D5F209F629F6157");
}

} // namespace
