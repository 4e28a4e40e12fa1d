// The published worked example of the application cryptogram, byte for byte, and the parts of it.
#include <gtest/gtest.h>

#include <algorithm>

#include "counter_terminal.h"
#include "virtual/card/cryptogram_input.h"
#include "virtual/card/cryptography.h"

namespace qaven::card_test {
namespace {

namespace card = virtual_card;
using card::Algorithm;

card::Key key(std::string_view text) {
    const Bytes bytes = hex(text);
    card::Key key{};
    std::copy_n(bytes.begin(), key.size(), key.begin());
    return key;
}

card::Cryptogram cryptogram(std::string_view text) {
    const Bytes bytes = hex(text);
    card::Cryptogram cryptogram{};
    std::copy_n(bytes.begin(), cryptogram.size(), cryptogram.begin());
    return cryptogram;
}

const card::Key example_issuer_key = key("F0C34A8124CEE0A91A0B034AA97D6EAC");
const card::Key example_card_key = key("014D996FCC8F49157DC8B49E3BCDFD99");
const card::Key example_session_key = key("D4102725E6E5AD329E55AAB50BF23DA9");

TEST(PublishedExample, CardKeyComesFromIssuerKeyPanAndSequenceNumber) {
    EXPECT_EQ(card::to_hex(card::derive_card_key(Algorithm::kTripleDes, example_issuer_key,
                                                 "6228000100001", 0x01)),
              "014D996FCC8F49157DC8B49E3BCDFD99");
}

TEST(PublishedExample, SessionKeyComesFromCardKeyAndCounter) {
    EXPECT_EQ(
        card::to_hex(card::derive_session_key(Algorithm::kTripleDes, example_card_key, 0x0240)),
        "D4102725E6E5AD329E55AAB50BF23DA9");
}

TEST(PublishedExample, RequestCryptogramCoversTerminalDataAipAtcAndCvr) {
    const Bytes data = hex("000000000001 000000000000 0156 0080046000 0156 140701 00 1E78EEBC"
                           "7D00 0240 03A04002");
    EXPECT_EQ(card::to_hex(card::compute_mac(Algorithm::kTripleDes, example_session_key, data)),
              "5D016C91005E7CC2");
}

TEST(PublishedExample, ResponseCryptogramForResponseCode01) {
    EXPECT_EQ(card::to_hex(card::compute_arpc(Algorithm::kTripleDes, example_session_key,
                                              cryptogram("5D016C91005E7CC2"), {'0', '1'})),
              "21415243527CE78F");
}

// The same example as it would travel: this holds the order of the objects against it.
TEST(PublishedExample, IssuerVerifiesItFromTheObjectsOfTheRequest) {
    virtual_card::IssuerKeys keys;
    keys.triple_des.cryptogram = example_issuer_key;
    const virtual_issuer::Issuer issuer(keys);
    const auto field = virtual_issuer::Field55::parse(
        "9F26085D016C91005E7CC2 9F270180 9F1008 070101 03A04002 01 9F37041E78EEBC 9F36020240"
        "95050080046000 9A03140701 9C0100 9F0206000000000001 5F2A020156 5A076228000100001F"
        "5F340101 82027D00 9F1A020156 9F0306000000000000 9F330320A100");
    const auto verdict = issuer.verify(field, virtual_issuer::CryptogramKind::kRequest);
    EXPECT_TRUE(verdict.verified) << verdict.reason;
    virtual_issuer::Answer answer;
    answer.arc = {'0', '1'};
    EXPECT_EQ(card::to_hex(issuer.answer(field, answer)), "910A21415243527CE78F3031");
}

TEST(CardKey, UsesTheRightmostSixteenDigitsOfALongPan) {
    const card::Key whole = card::derive_card_key(Algorithm::kTripleDes, example_issuer_key,
                                                  "6228000100001234569", 0x01);
    const card::Key cut =
        card::derive_card_key(Algorithm::kTripleDes, example_issuer_key, "00100001234569", 0x01);
    EXPECT_EQ(whole, cut);
}

TEST(CardKey, RefusesAPanThatIsNotDigits) {
    EXPECT_THROW(card::derive_card_key(Algorithm::kTripleDes, example_issuer_key, "62XY", 0x01),
                 std::runtime_error);
}

// ISO/IEC 9797-1 pads a message that fills its last block with a block of its own.
TEST(Mac, OfAFullBlockDiffersFromTheMacOfThatBlockWithPaddingWrittenOut) {
    const Bytes full = hex("0102030405060708");
    const Bytes written_out = hex("0102030405060708 80");
    EXPECT_NE(card::compute_mac(Algorithm::kTripleDes, example_session_key, full),
              card::compute_mac(Algorithm::kTripleDes, example_session_key, written_out));
}

// The example of the SM4 standard enciphers 0123456789ABCDEFFEDCBA9876543210 under itself. Its
// right half is the complement of its left half, so it is also a card key derivation.
TEST(Sm4, CardKeyDerivationGivesTheExampleOfTheStandard) {
    EXPECT_EQ(
        card::to_hex(card::derive_card_key(Algorithm::kSm4, key("0123456789ABCDEFFEDCBA9876543210"),
                                           "0123456789ABCD", 0xEF)),
        "681EDF34D206965E86B3E94F536E4246");
}

TEST(Sm4, ResponseCryptogramDependsOnRequestCryptogramXorResponseCode) {
    const card::Key session = key("0123456789ABCDEFFEDCBA9876543210");
    const auto one =
        card::compute_arpc(Algorithm::kSm4, session, cryptogram("0123456789ABCDEF"), {0, 0});
    const auto same_sum =
        card::compute_arpc(Algorithm::kSm4, session, cryptogram("0223456789ABCDEF"), {0x03, 0x00});
    const auto other_sum =
        card::compute_arpc(Algorithm::kSm4, session, cryptogram("0223456789ABCDEF"), {0x00, 0x00});
    EXPECT_EQ(one, same_sum);
    EXPECT_NE(one, other_sum);
}

TEST(Sm4, KeysDifferFromTheOnesOf3Des) {
    EXPECT_NE(
        card::derive_card_key(Algorithm::kSm4, example_issuer_key, "6228000100001", 0x01),
        card::derive_card_key(Algorithm::kTripleDes, example_issuer_key, "6228000100001", 0x01));
}

TEST(ScriptMac, IsFourBytesAndCoversHeaderCounterCryptogramAndData) {
    const auto mac = [](std::string_view header, std::uint16_t counter, std::string_view first,
                        std::string_view data) {
        return card::compute_script_mac(Algorithm::kTripleDes, example_session_key, hex(header),
                                        counter, cryptogram(first), hex(data));
    };
    const Bytes genuine = mac("04DA9F790A", 0x0240, "5D016C91005E7CC2", "000000010000");
    EXPECT_EQ(genuine.size(), 4U);
    EXPECT_NE(genuine, mac("04DA9F780A", 0x0240, "5D016C91005E7CC2", "000000010000"));
    EXPECT_NE(genuine, mac("04DA9F790A", 0x0241, "5D016C91005E7CC2", "000000010000"));
    EXPECT_NE(genuine, mac("04DA9F790A", 0x0240, "5D016C91005E7CC3", "000000010000"));
    EXPECT_NE(genuine, mac("04DA9F790A", 0x0240, "5D016C91005E7CC2", "000000010001"));
}

TEST(PinBlock, HoldsLengthDigitsAndFilling) {
    EXPECT_EQ(card::to_hex(card::make_pin_block("123456")), "26123456FFFFFFFF");
    EXPECT_EQ(card::read_pin_block(cryptogram("26123456FFFFFFFF")), "123456");
}

TEST(PinBlock, IsRefusedWhenItDoesNotAddUp) {
    EXPECT_EQ(card::read_pin_block(cryptogram("16123456FFFFFFFF")), std::nullopt) << "wrong format";
    EXPECT_EQ(card::read_pin_block(cryptogram("23123FFFFFFFFFFF")), std::nullopt) << "too short";
    EXPECT_EQ(card::read_pin_block(cryptogram("2D12345678901234")), std::nullopt) << "too long";
    EXPECT_EQ(card::read_pin_block(cryptogram("26123A56FFFFFFFF")), std::nullopt) << "no digit";
    EXPECT_EQ(card::read_pin_block(cryptogram("261234567FFFFFFF")), std::nullopt) << "no filling";
}

TEST(PinBlock, ComesBackFromItsEncipheredFormWithBothAlgorithms) {
    for (const Algorithm algorithm : {Algorithm::kTripleDes, Algorithm::kSm4}) {
        const auto block = cryptogram("26123456FFFFFFFF");
        Bytes enciphered = card::encipher_pin_block(algorithm, example_session_key, block);
        EXPECT_EQ(enciphered.size(), 16U);
        EXPECT_EQ(card::decipher_pin_block(algorithm, example_session_key, enciphered), block);
        enciphered[15] ^= 0x01;
        EXPECT_EQ(card::decipher_pin_block(algorithm, example_session_key, enciphered),
                  std::nullopt);
    }
}

} // namespace
} // namespace qaven::card_test
