// Trace logs, as the library and as hosts write them.
#include "golden.h"
#include "samples.h"

#include "support/qmlog.h"
#include "tools/emv/hex.h"
#include "tools/qaven/decode/trace_reader.h"

#include "../temporary_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>

using namespace qaven::cli::test;
using testing::HasSubstr;

namespace {

using namespace qaven::cli;
using namespace qaven::emv;

TEST(Trace, OfAWholeTransactionIsTheCommittedOne) {
    expect_committed("transaction-trace", traced(sample_file("transaction.trace")));
}

TEST(Trace, ReadsTheSameWithoutCarriageReturns) {
    std::string log = sample_file("transaction.trace");
    const std::string as_written = traced(log);
    std::erase(log, '\r');
    EXPECT_EQ(traced(log), as_written);
}

TEST(Trace, ReadsTheSameInPiecesOfAnySize) {
    const std::string log = sample_file("transaction.trace");
    for (const std::size_t size : {1U, 7U, 1000U}) {
        TraceReader whole;
        whole.feed(log);
        whole.finish();
        TraceReader pieces;
        std::vector<std::string> texts;
        for (std::size_t at = 0; at < log.size(); at += size) {
            pieces.feed(std::string_view(log).substr(at, size));
            while (const auto entry = pieces.next()) {
                texts.push_back(entry->text);
            }
        }
        pieces.finish();
        while (const auto entry = pieces.next()) {
            texts.push_back(entry->text);
        }
        for (const std::string& text : texts) {
            const auto entry = whole.next();
            ASSERT_TRUE(entry);
            EXPECT_EQ(text, entry->text);
        }
        EXPECT_FALSE(whole.next());
    }
}

TEST(Trace, OfALogWithTenEntriesIsNotTornApartByItsCount) {
    std::string entries;
    for (int k = 0; k < 10; ++k) {
        entries += "P012000000001213R0040156W003ABC";
    }
    const std::string text = traced("TxDtailRet:\n\x1F" + entries + "\n\r\niret:0\n\r\n");
    EXPECT_THAT(text, HasSubstr("entries: 10, characters of the last one: 31"));
    EXPECT_THAT(text, HasSubstr("entry 10"));
    EXPECT_THAT(text, HasSubstr("iret (result): 0: success"));
}

TEST(Trace, OfNoLogAndOfAnEmptyOneGoesOnWithTheNextLine) {
    for (const char* const value : {"", "0"}) {
        const std::string text =
            traced("TxDtailRet:" + std::string(value) + "\n\r\niret:-23\n\r\n");
        EXPECT_THAT(text, HasSubstr("iret (result): -23: no single application")) << value;
    }
}

TEST(Trace, SaysWhatAResultMeans) {
    EXPECT_THAT(traced("iRet:-203\n\r\n"),
                HasSubstr("-203: the card did not return the cryptogram"));
    EXPECT_THAT(traced("iRet:27266\n\r\n"),
                HasSubstr("27266: the card answered 6A82 the file or application is not found"));
    EXPECT_THAT(traced("iRet:-99\n\r\n"), HasSubstr("-99: unknown result"));
}

TEST(Trace, GivesChineseTextInUtf8) {
    EXPECT_THAT(traced("--- \xC8\xA1\xBF\xA8\xD0\xC5\xCF\xA2 ---\r\n\r\n"),
                HasSubstr("--- 取卡信息 --- (reading the card)"));
    EXPECT_THAT(traced("\xBB\xF1\xC8\xA1IC\xBF\xA8\xD0\xC5\xCF\xA2\xCA\xA7\xB0\xDC\r\n"),
                HasSubstr("获取IC卡信息失败 (the card could not be read)"));
}

TEST(Trace, OfALineThatTheLibraryHasCutGoesOnBehindIt) {
    const std::string text = traced("resmsg:{\n\t\"IcInfo\":\t\"A0196228000100001\r\nret:0\n\r\n");
    EXPECT_THAT(text, HasSubstr("cut off"));
    EXPECT_THAT(text, HasSubstr("ret (result): 0"));
    EXPECT_FALSE(shows(text, kAccountNumber));
}

TEST(Trace, ExplainsAValueOnceInEachCallOfTheHost) {
    const std::string step = "------QAVEN_GetTxDetail------\n\r\n";
    const std::string line = "AIDList:A000000333010101\n\r\n";
    const std::string text = traced(step + line + line + step + line);
    EXPECT_THAT(text,
                HasSubstr("UnionPay debit)\n  AIDList (applications): as above\n\n------QAVEN"));
    EXPECT_EQ(text.find("UnionPay debit") != text.rfind("UnionPay debit"), true);
}

// Hosts write into the same log, with the library's functions.
class TraceOfAHost : public testing::Test {
  protected:
    static std::string log() {
        std::ifstream file("Qm_ic.log", std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    static void dump(const char* title, std::vector<unsigned char> bytes) {
        WriteKsTitleLogHex(title, bytes.data(), static_cast<int>(bytes.size()));
    }

    qaven::test::WorkingFolder folder_;
};

TEST_F(TraceOfAHost, HasDumpsOfAnyLengthPutTogetherAgain) {
    for (const std::size_t size : {0U, 1U, 31U, 32U, 33U, 64U, 65U, 300U}) {
        dump("sent", std::vector<unsigned char>(size, 0x77));
        WriteKsTitleLog("done", "1");
    }
    TraceReader reader;
    reader.feed(log());
    reader.finish();
    for (const std::size_t size : {0U, 1U, 31U, 32U, 33U, 64U, 65U, 300U}) {
        const auto dumped = reader.next();
        ASSERT_TRUE(dumped);
        EXPECT_EQ(dumped->kind, TraceEntry::Kind::kDump) << size;
        EXPECT_EQ(dumped->text, "sent");
        EXPECT_EQ(dumped->bytes, std::vector<unsigned char>(size, 0x77));
        const auto line = reader.next();
        ASSERT_TRUE(line);
        EXPECT_EQ(line->text, "done: 1");
    }
    EXPECT_FALSE(reader.next());
}

TEST_F(TraceOfAHost, HasNumbersMaskedThatARowTearsApart) {
    // The account number of this dump begins on one row and ends on the next, at every offset.
    for (std::size_t ahead = 20; ahead < 40; ++ahead) {
        std::vector<unsigned char> packed(ahead, 0xEE);
        std::vector<unsigned char> characters(ahead, 0xEE);
        const std::string number = kAccountNumber;
        const auto object = from_hex("5A0A6228000100001234565F").bytes;
        packed.insert(packed.end(), object.begin(), object.end());
        characters.insert(characters.end(), number.begin(), number.end());
        packed.resize(ahead + 40, 0xEE);
        characters.resize(ahead + 40, 0xEE);
        dump("packed", packed);
        dump("characters", characters);
    }
    ASSERT_TRUE(shows(log(), kAccountNumber));
    const std::string text = traced(log());
    EXPECT_FALSE(shows(text, kAccountNumber)) << text;
}

TEST_F(TraceOfAHost, HasItsOwnLinesAndWhatIsInThem) {
    WriteKsTitleLog("answer", "9F3602000495050008006000");
    WriteKsLog("the clerk typed 6228000200006545");
    const std::string text = traced(log());
    EXPECT_THAT(text, HasSubstr("  answer\n    data objects\n"));
    EXPECT_THAT(text, HasSubstr("9F36 (2) application transaction counter (ATC): 0004 (4)"));
    EXPECT_THAT(text, HasSubstr("the clerk typed 622800******6545"));
}

} // namespace
