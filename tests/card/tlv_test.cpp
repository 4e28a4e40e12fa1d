// Data objects and data object lists as the card writes and reads them.
#include <gtest/gtest.h>

#include "counter_terminal.h"

namespace qaven::card_test {
namespace {

namespace card = virtual_card;

TEST(HexText, IsReadInBothCasesAndWithBlanksBetweenBytes) {
    EXPECT_EQ(card::from_hex("9f 02 06"), (Bytes{0x9F, 0x02, 0x06}));
    EXPECT_EQ(card::from_hex(""), Bytes{});
    EXPECT_EQ(card::from_hex("9F0"), std::nullopt) << "half a byte";
    EXPECT_EQ(card::from_hex("9 F0 2"), std::nullopt) << "a blank inside a byte";
    EXPECT_EQ(card::from_hex("9G"), std::nullopt) << "no digit";
}

TEST(DataObject, TakesTheShortestLengthForm) {
    EXPECT_EQ(card::to_hex(card::encode_object(0x5A, hex("62280001"))), "5A0462280001");
    EXPECT_EQ(card::to_hex(card::encode_object(0x9F13, hex("0002"))), "9F13020002");
    const Bytes of_127 = card::encode_object(0x70, Bytes(127));
    EXPECT_EQ(card::to_hex(ByteView(of_127).first(2)), "707F");
    const Bytes of_128 = card::encode_object(0x70, Bytes(128));
    EXPECT_EQ(card::to_hex(ByteView(of_128).first(3)), "708180");
    const Bytes of_256 = card::encode_object(0x70, Bytes(256));
    EXPECT_EQ(card::to_hex(ByteView(of_256).first(4)), "70820100");
}

TEST(DataObject, IsFoundInsideTemplates) {
    const Bytes information = hex("6F0E 8402A000 A508 5004 54455354 8700");
    EXPECT_EQ(card::find_object(information, 0x50), hex("54455354"));
    EXPECT_EQ(card::find_object(information, 0x87), Bytes{});
    EXPECT_EQ(card::find_object(information, 0x9F38), std::nullopt);
}

TEST(DataObject, IsNotFoundBehindOneThatDoesNotFit) {
    EXPECT_EQ(card::find_object(hex("5A08 6228"), 0x5A), std::nullopt);
    EXPECT_EQ(card::find_object(hex("5008 5445 8701 01"), 0x87), std::nullopt);
    EXPECT_EQ(card::find_object(hex("9F"), 0x9F), std::nullopt);
}

TEST(DataObjectList, IsReadEntryByEntry) {
    const auto list = card::parse_dol(hex("9F0206 9505 DF6901"));
    ASSERT_TRUE(list.has_value());
    ASSERT_EQ(list->size(), 3U);
    EXPECT_EQ((*list)[0].tag, 0x9F02U);
    EXPECT_EQ((*list)[2].tag, 0xDF69U);
    EXPECT_EQ(card::dol_value_size(*list), 12U);
}

TEST(DataObjectList, IsRefusedWhenItEndsInsideAnEntry) {
    EXPECT_EQ(card::parse_dol(hex("9F02")), std::nullopt);
    EXPECT_EQ(card::parse_dol(hex("9F")), std::nullopt);
    EXPECT_EQ(card::parse_dol(hex("9F0281")), std::nullopt);
}

} // namespace
} // namespace qaven::card_test
