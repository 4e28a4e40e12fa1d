// The debit card's data and scripts.
#include "payment_card.h"

#include "tests/support/hex.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace qaven::test {

namespace {

constexpr std::string_view kDirectoryName = "315041592E5359532E4444463031";

std::string byte_hex(std::size_t value) {
    std::array<char, 8> digits{};
    std::snprintf(digits.data(), digits.size(), "%02zX", value & 0xFFU);
    return digits.data();
}

std::size_t count_of(std::string_view hex_text) {
    return bytes(hex_text).size();
}

std::string select_command(std::string_view name) {
    return "00A40400" + byte_hex(count_of(name)) + std::string(name);
}

} // namespace

std::string short_form_object(std::string_view tag, std::string_view value) {
    return std::string(tag) + byte_hex(count_of(value)) + std::string(value);
}

std::string object(std::string_view tag, std::string_view value) {
    const std::string_view form = count_of(value) < 0x80 ? "" : "81";
    return std::string(tag) + std::string(form) + byte_hex(count_of(value)) + std::string(value);
}

std::string text_hex(std::string_view text) {
    return hex(Bytes(text.begin(), text.end()));
}

std::string application_data_text(std::string_view data_hex) {
    const Bytes data = bytes(data_hex);
    std::array<char, 16> count{};
    std::snprintf(count.data(), count.size(), "%06zu", data.size());
    return count.data() + hex(data);
}

void expect_select(ScriptedCard& card, std::string_view aid, std::string_view further_fci) {
    card.expect(select_command(aid),
                object("6F", object("84", kAid) + std::string(further_fci)) + std::string(kOk));
}

void expect_directory(ScriptedCard& card, std::string_view aid, std::string_view further_fci) {
    const std::string entry = object("4F", aid) + object("50", "50424F43") + object("87", "01");
    card.expect(select_command(kDirectoryName),
                object("6F", object("84", kDirectoryName) + object("A5", object("88", "01"))) +
                    std::string(kOk));
    card.expect("00B2010C00", object("70", object("61", entry)) + std::string(kOk));
    card.expect("00B2020C00", "6A83");
    expect_select(card, aid, further_fci);
}

void expect_options(ScriptedCard& card, std::size_t count, std::string_view aip) {
    card.expect("80A80000 02 8300",
                object("80", std::string(aip) + "0801" + byte_hex(count) + "00") +
                    std::string(kOk));
}

void expect_records(ScriptedCard& card, const std::vector<std::string>& records) {
    for (std::size_t number = 1; number <= records.size(); ++number) {
        card.expect("00B2" + byte_hex(number) + "0C00", records[number - 1] + std::string(kOk));
    }
}

void expect_reading(ScriptedCard& card, const std::vector<std::string>& records) {
    expect_select(card);
    expect_options(card, records.size());
    expect_records(card, records);
}

std::string transaction_record() {
    return object("70", object("5A", kPan) + object("5F34", "01") + object("8C", kCdol1) +
                            object("8D", kCdol2));
}

std::string transaction_data_hex() {
    return hex(bytes(object("4F", kPrefix) + object("82", "7C00") + transaction_record()));
}

std::string transaction_data_text() {
    return application_data_text(transaction_data_hex());
}

std::string unpredictable_number() {
    std::srand(static_cast<unsigned int>(std::time(nullptr)));
    Bytes number(4);
    for (std::uint8_t& byte : number) {
        byte = static_cast<std::uint8_t>(std::rand() % 256);
    }
    return hex(number);
}

std::string generate_arqc_command() {
    return "80AE8000 20 000000001213 000000000000 0156 0008006000 0156 190422 03 " +
           unpredictable_number() + " 161355";
}

std::string cryptogram_answer(std::string_view cid, std::string_view iad) {
    return object("80", std::string(cid) + "0012" + std::string(kCryptogram) + std::string(iad)) +
           std::string(kOk);
}

void OperationTest::connect() {
    ASSERT_EQ(card.connect(), 0);
    card.clear_events();
    usb.clear_log();
}

void OperationTest::leave_answers_of_a_killed_host(std::string_view to_first_command) {
    constexpr std::uint8_t data_block = 0x80;
    constexpr std::uint8_t slot_status = 0x81;
    usb.answer(reply_message(data_block, 0, 0, card.atr));
    usb.answer(reply_message(slot_status, 1, 0, {}));
    usb.answer(reply_message(data_block, 2, 0, bytes(to_first_command)));
}

} // namespace qaven::test
