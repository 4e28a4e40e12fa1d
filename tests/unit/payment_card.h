// A debit card for the scripted card: what it answers to selection, reading and the cryptogram
// commands, and the ground for tests of whole card operations.
#pragma once

#include "fixed_clock.h"
#include "host_calls.h"
#include "scripted_card.h"
#include "tests/support/fake_usb.h"
#include "trace_log.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace qaven::test {

// A data object in hexadecimal. Lengths from 128 on take the form 81 LL.
std::string object(std::string_view tag, std::string_view value);

// A data object whose length is one byte whatever it is, as cards write it that do not know the
// form 81 LL.
std::string short_form_object(std::string_view tag, std::string_view value);

// A text's bytes in hexadecimal.
std::string text_hex(std::string_view text);

inline constexpr std::string_view kOk = "9000";
inline constexpr std::string_view kPrefix = "A000000333";
inline constexpr std::string_view kAid = "A000000333010101";

// A byte count in six digits and the data: application data as the operations hand it on.
std::string application_data_text(std::string_view data_hex);

// --- scripts, in the order of a reading ---

// SELECT of an AID that the card answers with this FCI content behind its DF name.
void expect_select(ScriptedCard& card, std::string_view aid = kPrefix,
                   std::string_view further_fci = "");

// The directory with one application of a given AID, and its final selection.
void expect_directory(ScriptedCard& card, std::string_view aid = kAid,
                      std::string_view further_fci = "");

// GET PROCESSING OPTIONS without a PDOL; the AFL names one file of count records.
void expect_options(ScriptedCard& card, std::size_t count, std::string_view aip = "7C00");

// The records of that file.
void expect_records(ScriptedCard& card, const std::vector<std::string>& records);

// Selection by the prefix, options and records.
void expect_reading(ScriptedCard& card, const std::vector<std::string>& records);

// --- the card's data for a transaction ---

inline constexpr std::string_view kPan = "6214830123456789012F";
inline constexpr std::string_view kCdol1 =
    "9F0206 9F0306 9F1A02 9505 5F2A02 9A03 9C01 9F3704 9F2103";
inline constexpr std::string_view kCdol2 = "8A02 9F0206 9F0306 9F1A02 9505 5F2A02 9A03 9C01 9F3704";

// One record with PAN, PAN sequence number 01, CDOL1 and CDOL2.
std::string transaction_record();

// AID, AIP and that record as the reading step hands them on, and as text.
std::string transaction_data_hex();
std::string transaction_data_text();

// What the terminal puts where a CDOL asks for 9F37 in the second that the clock shows.
std::string unpredictable_number();

// GENERATE AC for the ARQC with the CDOL1 data of kTxData.
std::string generate_arqc_command();

// GENERATE AC answers: CID, ATC 0012, the cryptogram, issuer application data.
inline constexpr std::string_view kCryptogram = "1122334455667788";
inline constexpr std::string_view kIad = "0701010399000001";
std::string cryptogram_answer(std::string_view cid, std::string_view iad = kIad);

// GET DATA for the last online ATC register.
inline constexpr std::string_view kGetLastOnlineAtc = "80CA9F1300";
inline constexpr std::string_view kLastOnlineAtc = "9F1302000F";

class OperationTest : public testing::Test {
  protected:
    explicit OperationTest(int slot = ScriptedCard::kMainSlot) : card(usb, slot) {}

    // The reader object outlives the test, the bus does not.
    void TearDown() override { card.disconnect(); }

    // Connects and forgets how that was done.
    void connect();

    // The reader still has what a host that was killed got for power-on, slot status and its first
    // command. To the next opening all three pass for its own.
    void leave_answers_of_a_killed_host(std::string_view to_first_command);

    FakeUsb usb;
    FixedClock clock{2019, 4, 22, 16, 13, 55};
    ScriptedCard card;
    TraceLog trace;
};

} // namespace qaven::test
