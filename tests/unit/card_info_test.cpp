// Reading card information: the letter-coded text, the application data text, failures, lines.
#include "engine/operation/card_info.h"

#include "console.h"
#include "engine/card/session.h"
#include "host_calls.h"
#include "payment_card.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

using namespace qaven::test;
using testing::StartsWith;

namespace {

constexpr std::string_view kTrack2 = "6214830123456789012D25122201234F";

class CardInformation : public OperationTest {
  protected:
    // The card information text of a card with one record of these objects.
    std::string information(std::string tag_list, std::string_view objects) {
        expect_reading(card, {object("70", objects)});
        GetInfoCall call;
        call.tag_list = std::move(tag_list);
        EXPECT_EQ(call.run(), 0);
        EXPECT_EQ(call.error_text.text(), kOld);
        return call.user_info.text();
    }

    // The same for what the card gives on request only.
    std::string asked(std::string tag_list, std::string_view command, std::string_view answer) {
        expect_reading(card, {transaction_record()});
        card.expect(command, answer);
        GetInfoCall call;
        call.tag_list = std::move(tag_list);
        EXPECT_EQ(call.run(), 0);
        return call.user_info.text();
    }
};

class CardInformationWithoutCard : public OperationTest {
  protected:
    CardInformationWithoutCard() : OperationTest(ScriptedCard::kNoSlot) {}
};

// --- tag letters ---

std::string flags(std::string_view letters) {
    // Two bytes for each letter is what the tags take at most.
    std::vector<unsigned char> tags(2 * letters.size());
    const int length =
        Qm_ConvertFlag(letters.data(), static_cast<int>(letters.size()), tags.data());
    return hex(std::span(tags).first(static_cast<std::size_t>(length)));
}

TEST(TagLetters, NameTheirTags) {
    EXPECT_EQ(flags("A"), "5A");
    EXPECT_EQ(flags("B"), "5F20");
    EXPECT_EQ(flags("C"), "9F62");
    EXPECT_EQ(flags("D"), "9F61");
    EXPECT_EQ(flags("E"), "57");
    EXPECT_EQ(flags("F"), "9F1F");
    EXPECT_EQ(flags("G"), "9F79");
    EXPECT_EQ(flags("H"), "9F77");
    EXPECT_EQ(flags("I"), "5F24");
    EXPECT_EQ(flags("J"), "5F34");
    EXPECT_EQ(flags("K"), "9F78");
    EXPECT_EQ(flags("L"), "DF20");
    EXPECT_EQ(flags("M"), "DF21");
    EXPECT_EQ(flags("N"), "DF22");
    EXPECT_EQ(flags("O"), "DF23");
    EXPECT_EQ(flags("T"), "9C");
}

TEST(TagLetters, KeepTheirOrderAndSkipOtherCharacters) {
    EXPECT_EQ(flags("|T|B|A"), "9C5F205A");
    EXPECT_EQ(flags("AA"), "5A5A");
    EXPECT_EQ(flags("PQRSUVWXYZa0| "), "");
    EXPECT_EQ(flags(""), "");
    std::array<unsigned char, 2> tags{};
    EXPECT_EQ(Qm_ConvertFlag("AB", 1, tags.data()), 1);
    EXPECT_EQ(Qm_ConvertFlag("AB", -1, tags.data()), 0);
}

// --- the letter-coded text ---

// The killed host had selected an application of another card, whose answer to reset comes when the
// options are asked for.
TEST_F(CardInformation, OfAnOperationThatWasAnsweredAsAKilledHostIsReadAnew) {
    leave_answers_of_a_killed_host("6F07 8405 A000000333 9000");
    expect_select(card);
    expect_options(card, 1);
    EXPECT_EQ(information("A", object("5A", kPan)), "A0196214830123456789012");
    EXPECT_EQ(usb.unread(), 0U);
}

TEST_F(CardInformation, PanAndName) {
    EXPECT_EQ(information("AB", object("5A", kPan) + object("5F20", text_hex("ZHANG/SAN"))),
              "A0196214830123456789012B009ZHANG/SAN");
}

TEST_F(CardInformation, ComesInTableOrderWhateverTheOrderOfTheLetters) {
    EXPECT_EQ(information("BA", object("5F20", text_hex("ZHANG/SAN")) + object("5A", kPan)),
              "A0196214830123456789012B009ZHANG/SAN");
}

TEST_F(CardInformation, AWholeListOfLettersGivesEveryField) {
    expect_reading(
        card, {object("70", object("57", kTrack2) + object("5F20", text_hex("ZHANG/SAN")) +
                                object("9F61", text_hex("110101199001011237")) +
                                object("9F62", "00") + object("9F1F", text_hex("0000"))),
               object("70", object("5A", kPan) + object("5F24", "251231") + object("5F34", "01") +
                                object("DF20", text_hex("one")) + object("DF21", text_hex("two")) +
                                object("DF22", text_hex("three")) + object("DF23", ""))});
    card.expect("80CA9F7900", object("9F79", "000000012345") + "9000");
    card.expect("80CA9F7700", object("9F77", "000000100000") + "9000");
    card.expect("80CA9F7800", object("9F78", "000000050000") + "9000");
    GetInfoCall call;
    call.tag_list = "|A|B|C|D|E|F|G|H|I|J|K|L|M|N|O|T";
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.user_info.text(), "A0196214830123456789012"
                                     "B009ZHANG/SAN"
                                     "C00200"
                                     "D018110101199001011237"
                                     "E0316214830123456789012=25122201234"
                                     "F0040000"
                                     "G012000000012345"
                                     "H012000000100000"
                                     "I006251231"
                                     "J003001"
                                     "K012000000050000"
                                     "L003one"
                                     "M003two"
                                     "N005three"
                                     "O000");
}

TEST_F(CardInformation, OnlyTheAskedFieldsOfTheCardAreAskedFor) {
    expect_reading(card, {transaction_record()});
    card.expect("80CA9F7700", "6A88");
    GetInfoCall call;
    call.tag_list = "H";
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.user_info.text(), "H000");
}

TEST_F(CardInformation, MissingObjectsHaveLengthZero) {
    EXPECT_EQ(information("ABCDEFIJLMNO", object("9F7F", "00")),
              "A000B000C000D000E000F000I000J000L000M000N000O000");
}

TEST_F(CardInformation, LettersWithoutAFieldGiveNothing) {
    EXPECT_EQ(information("T", object("9C", "33")), "");
    EXPECT_EQ(information("PQRS", object("5A", kPan)), "");
    EXPECT_EQ(information("", object("5A", kPan)), "");
    EXPECT_EQ(information("ab", object("5A", kPan)), "");
}

TEST_F(CardInformation, ThePanEndsAtItsFirstF) {
    EXPECT_EQ(information("A", object("5A", "6214F3FF")), "A0046214");
    EXPECT_EQ(information("A", object("5A", "F214")), "A000");
    EXPECT_EQ(information("A", object("5A", "")), "A000");
    // All digits when none is an F.
    EXPECT_EQ(information("A", object("5A", "6214830123456789")), "A0166214830123456789");
}

TEST_F(CardInformation, AnAbsentOrEmptyNameIsReadFromTheLongOne) {
    EXPECT_EQ(information("B", object("9F0B", text_hex("ZHANG/SAN FENG"))), "B014ZHANG/SAN FENG");
    EXPECT_EQ(information("B", object("5F20", "") + object("9F0B", text_hex("LI/SI"))),
              "B005LI/SI");
    EXPECT_EQ(information("B", object("5F20", "00415A") + object("9F0B", text_hex("LI/SI"))),
              "B005LI/SI");
    EXPECT_EQ(information("B", object("5F20", "00")), "B000");
    EXPECT_EQ(information("B", object("5F20", text_hex("A")) + object("9F0B", text_hex("B"))),
              "B001A");
}

TEST_F(CardInformation, TextsEndAtTheirFirstZeroByte) {
    EXPECT_EQ(information("BDFLMNO", object("5F20", "41420043") + object("9F61", "310032") +
                                         object("9F1F", "0031") + object("DF20", "4100") +
                                         object("DF21", "4200") + object("DF22", "4300") +
                                         object("DF23", "4400")),
              "B002ABD0011F000L001AM001BN001CO001D");
}

TEST_F(CardInformation, TextsAreHandedOnAsTheCardStoresThem) {
    EXPECT_EQ(information("B", object("5F20", "D5C5C8FD2020")), "B006\xD5\xC5\xC8\xFD  ");
}

TEST_F(CardInformation, ATrackTwoWithPaddingLosesItAndItsLengthCountsDown) {
    EXPECT_EQ(information("E", object("57", "6214D25F")), "E0076214=25");
    // Only one F goes, and only the first D becomes a separator.
    EXPECT_EQ(information("E", object("57", "62D1D0FF")), "E00762=1D0F");
}

TEST_F(CardInformation, ATrackTwoWithoutPaddingStaysWhole) {
    EXPECT_EQ(information("E", object("57", "6214D25122")), "E0106214=25122");
    EXPECT_EQ(information("E", object("57", "621425122201")), "E012621425122201");
    EXPECT_EQ(information("E", object("57", "")), "E000");
}

TEST_F(CardInformation, TheLengthOfTrackTwoCountsDownAsACharacter) {
    // 20 digits and an F: the last digit of 020 becomes the character before 0.
    EXPECT_EQ(information("E", object("57", "6214830123D25122013F")), "E02/6214830123=25122013");
    EXPECT_EQ(information("E", object("57", std::string(kTrack2) + "1111111F")),
              "E04/6214830123456789012=25122201234F1111111");
}

TEST_F(CardInformation, TheSequenceNumberIsThreeDecimalDigits) {
    EXPECT_EQ(information("J", object("5F34", "00")), "J003000");
    EXPECT_EQ(information("J", object("5F34", "")), "J003000");
    EXPECT_EQ(information("J", object("5F34", "01")), "J003001");
    EXPECT_EQ(information("J", object("5F34", "FF02")), "J003255");
    EXPECT_EQ(information("J", object("5A", kPan)), "J000");
}

TEST_F(CardInformation, RefusedRequestsHaveLengthZero) {
    EXPECT_EQ(asked("G", "80CA9F7900", "6A88"), "G000");
    EXPECT_EQ(asked("H", "80CA9F7700", "6D00"), "H000");
    EXPECT_EQ(asked("K", "80CA9F7800", "6985"), "K000");
}

TEST_F(CardInformation, AnAnswerWithoutItsObjectGivesNothingAtAll) {
    EXPECT_EQ(asked("G", "80CA9F7900", "9F770100 9000"), "");
    EXPECT_EQ(asked("H", "80CA9F7700", "9000"), "");
    EXPECT_EQ(asked("AK", "80CA9F7800", "9F790100 9000"), "A0196214830123456789012");
}

TEST_F(CardInformation, TheFirstObjectInRecordOrderCounts) {
    expect_reading(card, {object("70", object("5F20", text_hex("FIRST"))),
                          object("70", object("5F20", text_hex("SECOND")))});
    GetInfoCall call;
    call.tag_list = "B";
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.user_info.text(), "B005FIRST");
}

TEST_F(CardInformation, RecordsThatCannotBeReadAreMissing) {
    expect_select(card);
    expect_options(card, 2);
    card.expect("00B2010C00", "6A83");
    card.expect("00B2020C00", object("70", object("5F34", "02")) + "9000");
    GetInfoCall call;
    call.tag_list = "AJ";
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.user_info.text(), "A000J003002");
    EXPECT_EQ(call.ic_data.text(), "000017"
                                   "4F05A000000333"
                                   "82027C00"
                                   "70045F340102");
}

// --- the application data text ---

TEST_F(CardInformation, ApplicationDataIsAidAipAndEveryRecordWhole) {
    const std::string first = object("70", object("5A", kPan));
    const std::string second = object("70", object("8C", "9F0206"));
    expect_reading(card, {first, second});
    GetInfoCall call;
    EXPECT_EQ(call.run(), 0);
    // 11 + 14 + 7 bytes; the AID is the one that the host gave.
    EXPECT_EQ(call.ic_data.text(), "000032"
                                   "4F05A000000333"
                                   "82027C00" +
                                       first + second);
    EXPECT_EQ(call.user_info.text(), "");
}

TEST_F(CardInformation, ThroughTheDirectoryTheAidIsTheCards) {
    expect_directory(card);
    expect_options(card, 0, "1C00");
    GetInfoCall call;
    call.aid = "";
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.ic_data.text(), "000014"
                                   "4F08A000000333010101"
                                   "82021C00");
}

TEST_F(CardInformation, AnAidThatBeginsWithZeroSelectsThroughTheDirectoryToo) {
    for (const std::string_view aid : {"0", "0A000000333", "00"}) {
        expect_directory(card);
        expect_options(card, 0);
        GetInfoCall call;
        call.aid = aid;
        EXPECT_EQ(call.run(), 0) << aid;
    }
}

TEST_F(CardInformation, HalfAnAidDigitIsNotSent) {
    expect_select(card, "A0000003");
    expect_options(card, 0);
    GetInfoCall call;
    call.aid = "A00000033";
    EXPECT_EQ(call.run(), 0);
    EXPECT_THAT(call.ic_data.text(), StartsWith("0000104F04A0000003"));
}

TEST_F(CardInformation, APdolIsAnsweredWithTheTerminalsDefaults) {
    expect_select(card, kPrefix, object("A5", object("9F38", "9F6604 9F0206 9A03 9F2103 9C01")));
    card.expect("80A80000 13 8311 F4000000 000000000000 190422 161355 33",
                object("80", "7C00") + "9000");
    GetInfoCall call;
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.ic_data.text(), "000011"
                                   "4F05A000000333"
                                   "82027C00");
}

TEST_F(CardInformation, WhatTheHostDoesNotPassIsNotNeeded) {
    expect_reading(card, {transaction_record()});
    HostText tags("A");
    HostText aid(kPrefix);
    EXPECT_EQ(ZEB_ICC_GetInfo(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                              nullptr, nullptr, tags.get(), aid.get(), nullptr, nullptr, nullptr,
                              nullptr),
              0);
}

TEST_F(CardInformation, ATagListAndAnAidThatAreNotPassedAreEmptyOnes) {
    card.expect("00A404000E 315041592E5359532E4444463031", "6A82");
    EXPECT_EQ(ZEB_ICC_GetInfo(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                              nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                              nullptr),
              0);
}

// --- failures ---

TEST_F(CardInformationWithoutCard, IsMinusOneAndLeavesTheTextsAlone) {
    GetInfoCall call;
    call.tag_list = "A";
    EXPECT_EQ(call.run(), -1);
    EXPECT_EQ(call.error_text.text(), gbk(" 没有配置参数     "));
    EXPECT_EQ(call.ic_data.text(), kOld);
    EXPECT_EQ(call.user_info.text(), kOld);
}

TEST_F(CardInformation, ACardWithoutADirectoryGivesItsCountAsResultAndAnEmptyErrorText) {
    card.expect("00A404000E 315041592E5359532E4444463031", "6A82");
    GetInfoCall call;
    call.aid = "";
    call.tag_list = "A";
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.error_text.text(), "");
    EXPECT_EQ(call.ic_data.text(), "000000");
    EXPECT_EQ(call.user_info.text(), kOld);
    // No attempt by AID follows.
    EXPECT_EQ(card.commands().size(), 1U);
    EXPECT_TRUE(qaven::session::live());
}

TEST_F(CardInformation, ARefusedFinalSelectionIsTheResult) {
    const std::string entry = object("4F", kAid) + object("87", "01");
    card.expect("00A404000E 315041592E5359532E4444463031",
                object("6F", object("88", "01")) + "9000");
    card.expect("00B2010C00", object("70", object("61", entry)) + "9000");
    card.expect("00B2020C00", "6A83");
    card.expect("00A4040008 A000000333010101", "6283");
    card.expect("00C0000000", "6A81");
    GetInfoCall call;
    call.aid = "0";
    EXPECT_EQ(call.run(), 0x6A81);
    EXPECT_EQ(call.error_text.text(), ""); // status words have no description
    EXPECT_EQ(call.ic_data.text(), "000000");
    EXPECT_TRUE(qaven::session::live());
}

TEST_F(CardInformation, AnAidThatSelectsNothingIsMinusTwentyThree) {
    for (const std::string_view answer : {"6A82", "6A81", "6F00"}) {
        card.expect("00A40400 05 A000000333", answer);
        GetInfoCall call;
        EXPECT_EQ(call.run(), -23) << answer;
        EXPECT_EQ(call.error_text.text(), ""); // described is the count
        EXPECT_EQ(call.ic_data.text(), "000000");
        EXPECT_EQ(call.user_info.text(), kOld);
        EXPECT_TRUE(qaven::session::live());
    }
}

TEST_F(CardInformation, AnAidThatIsLongerThanTheCardsNameSelectsNothing) {
    expect_select(card, "A00000033301010199");
    GetInfoCall call;
    call.aid = "A00000033301010199";
    EXPECT_EQ(call.run(), -23);
}

TEST_F(CardInformation, RefusedOptionsAreTheResult) {
    expect_select(card);
    card.expect("80A80000 02 8300", "6985");
    GetInfoCall call;
    EXPECT_EQ(call.run(), 0x6985);
    EXPECT_EQ(call.error_text.text(), "");
    EXPECT_EQ(call.ic_data.text(), "000000");
    EXPECT_TRUE(qaven::session::live());
}

TEST_F(CardInformation, OptionsOfFormatTwoAreMinusOne) {
    expect_select(card);
    card.expect("80A80000 02 8300",
                object("77", object("82", "7C00") + object("94", "08010100")) + "9000");
    GetInfoCall call;
    call.tag_list = "A";
    EXPECT_EQ(call.run(), -1);
    EXPECT_EQ(call.error_text.text(), gbk(" 没有配置参数     "));
    EXPECT_EQ(call.user_info.text(), kOld);
    EXPECT_TRUE(qaven::session::live());
}

TEST_F(CardInformation, EmptyOptionsAreEmptyData) {
    expect_select(card);
    card.expect("80A80000 02 8300", object("80", "7C") + "9000");
    GetInfoCall call;
    EXPECT_EQ(call.run(), -205);
    EXPECT_EQ(call.error_text.text(), gbk(" 空数据或非法数据 "));
}

TEST_F(CardInformation, APdolThatAsksForTooMuchSendsNothing) {
    expect_select(card, kPrefix, object("A5", object("9F38", "9F02FE")));
    GetInfoCall call;
    EXPECT_EQ(call.run(), -205);
    EXPECT_EQ(call.error_text.text(), gbk(" 空数据或非法数据 "));
}

TEST_F(CardInformation, AReaderThatFallsSilentIsTheResult) {
    expect_select(card);
    card.expect_silence("80A80000 02 8300");
    GetInfoCall call;
    EXPECT_EQ(call.run(), LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(call.error_text.text(), gbk(" 等待响应超时     "));
}

// --- lines ---

TEST_F(CardInformation, TracesItsNameAndTwoTitles) {
    information("A", object("5A", kPan));
    EXPECT_EQ(trace.text(), gbk("ZEB_ICC_GetInfo\n\r\n"
                                "--- 取卡信息 ---\r\n\r\n"
                                "--- 应用选择 ---\r\n\r\n"));
}

TEST_F(CardInformationWithoutCard, TracesNoSelection) {
    GetInfoCall call;
    call.run();
    EXPECT_EQ(trace.text(), gbk("ZEB_ICC_GetInfo\n\r\n--- 取卡信息 ---\r\n\r\n"));
}

TEST_F(CardInformation, PrintsItsNameAndTheSlotStatus) {
    expect_reading(card, {transaction_record()});
    GetInfoCall call;
    const Printed printed = printed_by([&call] { call.run(); });
    EXPECT_EQ(without_link_lines(printed.out), "ZEB_ICC_GetInfo\n81 00 00 00 00 00 01 00 00 00 \n");
    EXPECT_EQ(printed.err, "");
    EXPECT_THAT(printed.out, StartsWith("ZEB_ICC_GetInfo\niccep0 = 4\n"));
}

// --- cards that say too much ---

TEST_F(CardInformation, AFieldThatDoesNotFitEndsTheTextBeforeIt) {
    // Values of 255 bytes, lengths in one byte.
    const std::string digits = repeated("21", 255);
    const std::string text = repeated("41", 255);
    expect_reading(card, {short_form_object("5A", digits) + short_form_object("5F20", text) +
                              short_form_object("9F62", digits),
                          short_form_object("9F61", text) + short_form_object("57", digits) +
                              short_form_object("9F1F", text)});
    // What comes behind the field that does not fit is not even asked for.
    GetInfoCall call;
    call.tag_list = "ABCDEFG";
    EXPECT_EQ(call.run(), 0);
    // A, B, C, D and E take 514 + 259 + 514 + 259 + 514 = 2060 characters, so E is out.
    EXPECT_EQ(call.user_info.text().size(), 514U + 259U + 514U + 259U);
    EXPECT_THAT(call.user_info.text().substr(514 + 259 + 514), StartsWith("D255AAA"));
}

TEST_F(CardInformation, ATextThatFillsItsBufferExactlyIsWhole) {
    // 514 + 514 + 514 + 259 + 246 = 2047 characters and the terminator.
    const std::string digits = repeated("21", 255);
    expect_reading(card, {short_form_object("5A", digits) + short_form_object("9F62", digits),
                          short_form_object("57", digits) +
                              short_form_object("9F61", repeated("41", 255)) +
                              short_form_object("9F1F", repeated("42", 242))});
    GetInfoCall call;
    call.tag_list = "ACDEF";
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.user_info.text().size(), QAVEN_USERINFO_SIZE - 1U);
    EXPECT_TRUE(call.user_info.text().ends_with("BBB"));
}

TEST_F(CardInformation, OneCharacterTooManyLeavesTheFieldOut) {
    const std::string digits = repeated("21", 255);
    expect_reading(card, {short_form_object("5A", digits) + short_form_object("9F62", digits),
                          short_form_object("57", digits) +
                              short_form_object("9F61", repeated("41", 255)) +
                              short_form_object("9F1F", repeated("42", 243))});
    GetInfoCall call;
    call.tag_list = "ACDEF";
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.user_info.text().size(), 514U + 514U + 514U + 259U);
}

TEST_F(CardInformation, AValueThatClaimsMoreThanTheRecordHoldsIsFilledWithZeros) {
    EXPECT_EQ(information("C", "9F62041122"), "C00811220000");
}

TEST_F(CardInformation, ALengthBehind81IsTheSecondByteOfAllRecords) {
    // Two bytes of C, but the record announces seven: five zeros follow.
    EXPECT_EQ(information("C", "9F6281021122 00"), "C01411220000000000");
    // The same of a text ends at the first of them.
    EXPECT_EQ(information("D", "9F6181024142 00"), "D002AB");
}

TEST_F(CardInformation, AnAnswerOfTheLargestSizeIsTakenWhole) {
    const std::string value = repeated("37", 252);
    EXPECT_EQ(asked("G", "80CA9F7900", short_form_object("9F79", value) + "9000"), "G504" + value);
}

TEST_F(CardInformation, ApplicationDataLeavesOutWholeRecordsThatDoNotFit) {
    // 11 bytes lead; 2044 are what the text can take.
    const std::string half = repeated("9A0101", 333);
    expect_reading(card, {half, half, half, object("70", object("5F34", "05"))});
    GetInfoCall call;
    call.tag_list = "J";
    EXPECT_EQ(call.run(), 0);
    const std::string text = call.ic_data.text();
    EXPECT_EQ(text, "002015"
                    "4F05A000000333"
                    "82027C00" +
                        half + half + object("70", object("5F34", "05")));
    // The card information is not cut by that.
    EXPECT_EQ(call.user_info.text(), "J003005");
}

TEST_F(CardInformation, ApplicationDataOfTheLargestSizeIsWhole) {
    const std::string large = repeated("9A0101", 333) + "00"; // 1000 bytes
    expect_reading(card, {large, large, repeated("9A0101", 11)});
    GetInfoCall call;
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.ic_data.text().size(), 6U + 2U * 2044U);
    EXPECT_EQ(call.ic_data.text().substr(0, 6), "002044");
}

TEST_F(CardInformation, OneByteTooManyLeavesTheRecordOut) {
    const std::string large = repeated("9A0101", 333) + "00"; // 1000 bytes
    expect_reading(card, {large, large, repeated("9A0101", 11) + "00"});
    GetInfoCall call;
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.ic_data.text().substr(0, 6), "002011");
}

TEST_F(CardInformation, AnAidThatIsLongerThanAnyAidIsCut) {
    const std::string sixteen = repeated("A1", 16);
    card.expect("00A40400 10" + sixteen, "6A82");
    GetInfoCall call;
    call.aid = repeated("A1", 300);
    EXPECT_EQ(call.run(), -23);
}

TEST_F(CardInformation, AVeryLongTagListIsRead) {
    EXPECT_EQ(information(repeated("|A", 3000), object("5F34", "01") + object("5A", kPan)),
              "A0196214830123456789012");
}

} // namespace
