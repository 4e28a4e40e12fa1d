// Choosing an application: the walk through a card's directory and the selection by AID.
#include "engine/card/selection.h"

#include "card_test.h"
#include "exact_buffer.h"
#include "tests/support/hex.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace commands = qaven::commands;
namespace selection = qaven::selection;
using qaven::test::Bytes;
using qaven::test::bytes;
using qaven::test::CardTest;
using qaven::test::exact;
using qaven::test::hex;
using qaven::test::repeated;
using qaven::test::room;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int kTimeout = -7;

constexpr std::string_view kPse = "315041592E5359532E4444463031";
constexpr std::string_view kSelectPse = "00A404000E 315041592E5359532E4444463031";
constexpr std::string_view kPseFci = "6F15 840E315041592E5359532E4444463031 A503 880101 9000";
constexpr std::string_view kNoRecord = "6A83";
constexpr std::string_view kNoFile = "6A82";

constexpr std::string_view kDebit = "A0000003330101";
constexpr std::string_view kCredit = "A0000003330102";

static_assert(sizeof(alist) == 32, "further nodes are blocks of 32 bytes");
static_assert(sizeof(flist) == 24, "further nodes are blocks of 24 bytes");

// One data object with a length of one byte.
std::string object(std::string_view tag, std::string_view value) {
    const std::string content = hex(bytes(value));
    const std::array length{static_cast<std::uint8_t>(content.size() / 2)};
    return std::string(tag) + hex(length) + content;
}

// A directory entry: ADF name, label, and a priority indicator if there is one.
std::string entry(std::string_view aid, std::string_view priority = "") {
    std::string content = object("4F", aid) + object("50", "50424F43");
    if (!priority.empty()) {
        content += object("87", priority);
    }
    return object("61", content);
}

std::string directory_entry(std::string_view ddf_name) {
    return object("61", object("9D", ddf_name));
}

std::string record(const std::string& entries) {
    return object("70", entries);
}

std::string read_record(int number) {
    const std::array command{std::uint8_t{0x00}, std::uint8_t{0xB2},
                             static_cast<std::uint8_t>(number), std::uint8_t{0x0C},
                             std::uint8_t{0x00}};
    return hex(command);
}

std::string select(std::string_view name) {
    return "00A40400" + object("", name);
}

// A list of candidates with its head on the stack; further nodes are the caller's to free.
class CandidateList {
  public:
    CandidateList() = default;
    ~CandidateList() {
        for (alist* node = head_.next; node != nullptr;) {
            std::free(std::exchange(node, node->next));
        }
    }
    CandidateList(const CandidateList&) = delete;
    CandidateList& operator=(const CandidateList&) = delete;

    alist* head() { return &head_; }

    std::vector<const alist*> nodes() const {
        std::vector<const alist*> found;
        for (const alist* node = &head_; node != nullptr; node = node->next) {
            found.push_back(node);
        }
        return found;
    }

    // The AIDs of all nodes; an unused one is "".
    std::vector<std::string> aids() const {
        std::vector<std::string> texts;
        for (const alist* node : nodes()) {
            texts.push_back(hex(std::span(node->aid).first(node->aidlen)));
        }
        return texts;
    }

  private:
    alist head_{};
};

class SelectedList {
  public:
    SelectedList() = default;
    ~SelectedList() {
        std::free(head_.fci);
        for (flist* node = head_.next; node != nullptr;) {
            std::free(node->fci);
            std::free(std::exchange(node, node->next));
        }
    }
    SelectedList(const SelectedList&) = delete;
    SelectedList& operator=(const SelectedList&) = delete;

    flist* head() { return &head_; }

    // The FCIs of all nodes; an unused one is "".
    std::vector<std::string> fcis() const {
        std::vector<std::string> texts;
        for (const flist* node = &head_; node != nullptr; node = node->next) {
            texts.push_back(node->fci != nullptr ? hex(std::span(node->fci, node->fcilen)) : "");
        }
        return texts;
    }

  private:
    flist head_{};
};

// --- the directory ---

class Directory : public CardTest {
  protected:
    // A card whose directory has these records.
    void expect_directory(std::initializer_list<std::string> records) {
        card.expect(kSelectPse, kPseFci);
        expect_records(records);
    }

    void expect_records(std::initializer_list<std::string> records) {
        int number = 1;
        for (const std::string& data : records) {
            card.expect(read_record(number++), data + "9000");
        }
        card.expect(read_record(number), kNoRecord);
    }

    int walk() {
        Bytes name = exact(kPse);
        return qmcx_PseAppSelect(name.data(), static_cast<unsigned char>(name.size()), list.head());
    }

    std::string head_aid() { return list.aids().front(); }
    int head_priority() { return list.head()->priority; }

    CandidateList list;
};

TEST_F(Directory, OfOneEntryGivesItsApplication) {
    expect_directory({"70 15 61 13 4F 07 A0000003330101 50 05 4445424954 87 01 01"});
    EXPECT_EQ(walk(), 1);
    EXPECT_EQ(head_aid(), kDebit);
    EXPECT_EQ(list.head()->aidlen, 7);
    EXPECT_EQ(head_priority(), 1);
}

TEST_F(Directory, MayHaveAnEntryInsideAnother) {
    expect_directory({"70 0D 61 0B 61 09 4F 07 A0000003330101"});
    EXPECT_EQ(walk(), 1);
    EXPECT_EQ(head_aid(), kDebit);
}

TEST_F(Directory, MayHaveAPriorityBehindALongLength) {
    expect_directory({"70 0F 61 0D 4F 07 A0000003330101 87 81 01 02"});
    EXPECT_EQ(walk(), 1);
    EXPECT_EQ(head_priority(), 2);
}

TEST_F(Directory, ThatIsNotThereGivesNothing) {
    card.expect(kSelectPse, kNoFile);
    EXPECT_EQ(walk(), 0);
    EXPECT_EQ(head_aid(), "");
    EXPECT_EQ(list.head()->next, nullptr);
}

TEST_F(Directory, OfABlockedCardGivesNothing) {
    card.expect(kSelectPse, "6A81");
    EXPECT_EQ(walk(), 0);
}

TEST_F(Directory, OfASilentCardGivesNothing) {
    card.expect_silence(kSelectPse);
    EXPECT_EQ(walk(), 0);
}

TEST_F(Directory, WithoutAFileIdentifierIsNotRead) {
    card.expect(kSelectPse, "6F10 840E315041592E5359532E4444463031 9000");
    EXPECT_EQ(walk(), 0);
    EXPECT_THAT(card.commands(), ElementsAre(hex(bytes(kSelectPse))));
}

TEST_F(Directory, WithAFileIdentifierOfAnotherLengthIsNotRead) {
    for (const std::string_view identifier :
         {"88020101", "8800", "88", "888101 01", "88820001 01", "8801"}) {
        card.expect(kSelectPse,
                    "6F15 840E315041592E5359532E4444463031" + std::string(identifier) + "9000");
        EXPECT_EQ(walk(), 0) << identifier;
    }
    EXPECT_EQ(card.commands().size(), 6U);
}

TEST_F(Directory, IsReadFromTheFileThatItsFciNames) {
    card.expect(kSelectPse, "6F08 8403315041 A503 88010A 9000");
    card.expect("00B2015400", record(entry(kDebit)) + "9000").expect("00B2025400", kNoRecord);
    EXPECT_EQ(walk(), 1);
}

TEST_F(Directory, WithoutRecordsGivesNothing) {
    expect_directory({});
    EXPECT_EQ(walk(), 0);
    EXPECT_EQ(list.head()->next, nullptr);
}

TEST_F(Directory, IsReadUntilTheFirstRecordThatFails) {
    card.expect(kSelectPse, kPseFci);
    card.expect(read_record(1), record(entry(kDebit)) + "9000");
    card.expect_silence(read_record(2));
    EXPECT_EQ(walk(), 1);
}

TEST_F(Directory, IsReadTo254RecordsAtMost) {
    card.expect(kSelectPse, kPseFci);
    for (int number = 1; number <= 254; ++number) {
        card.expect(read_record(number), record(entry(kDebit)) + "9000");
    }
    EXPECT_EQ(walk(), 254);
    EXPECT_EQ(card.commands().back(), "00B2FE0C00");
}

TEST_F(Directory, KeepsAnEntryWithAPriorityAndAddsANodeBehindIt) {
    expect_directory({record(entry(kDebit, "01") + entry(kCredit, "02"))});
    EXPECT_EQ(walk(), 2);
    EXPECT_THAT(list.aids(), ElementsAre(kDebit, kCredit, ""));
    EXPECT_EQ(list.nodes()[1]->priority, 2);
}

TEST_F(Directory, WritesAnEntryOverTheOneBeforeThatHasNoPriority) {
    expect_directory({record(entry(kDebit) + entry(kCredit, "02"))});
    EXPECT_EQ(walk(), 2) << "both are counted";
    EXPECT_EQ(head_aid(), kCredit);
    EXPECT_EQ(head_priority(), 2);
}

TEST_F(Directory, WithoutAnyPriorityGivesItsLastEntry) {
    expect_directory({record(entry(kDebit)), record(entry(kCredit))});
    EXPECT_EQ(walk(), 2);
    EXPECT_THAT(list.aids(), ElementsAre(kCredit));
    EXPECT_EQ(head_priority(), 0);
}

TEST_F(Directory, AShorterAidLeavesNothingOfALongerOneThatItIsWrittenOver) {
    expect_directory({record(entry("A000000333010101") + entry("A000000333"))});
    EXPECT_EQ(walk(), 2);
    EXPECT_EQ(hex(std::span(list.head()->aid)), "A000000333" + repeated("00", 11));
}

TEST_F(Directory, TheCallersHeadMayHoldAnythingInFront) {
    Bytes name = exact(kPse);
    Bytes fci = exact("88");
    Bytes aid = exact(kDebit);
    alist candidates{};
    flist selected{};
    for (const bool by_name : {true, false}) {
        std::memset(&candidates, 0xEE, sizeof candidates);
        if (by_name) {
            card.expect(kSelectPse, kNoFile);
            EXPECT_EQ(qmcx_PseAppSelect(name.data(), 14, &candidates), 0);
        } else {
            EXPECT_EQ(qmcx_checkADF(fci.data(), 1, &candidates), 0);
        }
        EXPECT_EQ(candidates.next, nullptr);
    }
    std::memset(&selected, 0xEE, sizeof selected);
    card.expect(select(kDebit), kNoFile);
    EXPECT_EQ(qmcx_AidAppSelect(1, aid.data(), 7, &selected), 0);
    EXPECT_EQ(selected.next, nullptr);
}

TEST_F(Directory, TreatsAnEmptyPriorityLikeNone) {
    const std::string without_value =
        object("61", object("4F", kDebit) + object("50", "50424F43") + "8700");
    expect_directory({record(without_value + entry(kCredit))});
    EXPECT_EQ(walk(), 2);
    EXPECT_THAT(list.aids(), ElementsAre(kCredit));
}

TEST_F(Directory, IsNotSortedByPriority) {
    expect_directory({record(entry(kDebit, "0F")), record(entry(kCredit, "01"))});
    EXPECT_EQ(walk(), 2);
    EXPECT_EQ(head_aid(), kDebit);
    EXPECT_EQ(head_priority(), 0x0F);
}

TEST_F(Directory, KeepsTheWholeFirstByteOfAPriority) {
    expect_directory({record(entry(kDebit, "8122"))});
    EXPECT_EQ(walk(), 1);
    EXPECT_EQ(head_priority(), 0x81);
}

TEST_F(Directory, FindsAPriorityInsideATemplateOfItsEntry) {
    expect_directory({record(object("61", object("4F", kDebit) + object("73", "870103")))});
    EXPECT_EQ(walk(), 1);
    EXPECT_EQ(head_priority(), 3);
}

TEST_F(Directory, DoesNotTakeThePriorityOfTheNextEntry) {
    expect_directory({record(entry(kDebit) + object("61", object("87", "05")))});
    EXPECT_EQ(walk(), 1);
    EXPECT_THAT(list.aids(), ElementsAre(kDebit));
    EXPECT_EQ(head_priority(), 0);
}

TEST_F(Directory, KeepsAnEntryWhosePriorityItsLengthCutsOff) {
    // The entry says 11 bytes: name, and tag and length of a priority indicator.
    expect_directory({record("610B 4F07A0000003330101 870105" + entry(kCredit))});
    EXPECT_EQ(walk(), 2);
    EXPECT_THAT(list.aids(), ElementsAre(kDebit, kCredit));
    EXPECT_EQ(head_priority(), 5) << "the byte behind the entry's end";
}

TEST_F(Directory, SurvivesAPriorityWhoseLengthTheRecordCutsOff) {
    expect_directory({"700C 610A 4F07A0000003330101 87"});
    EXPECT_EQ(walk(), 1);
    EXPECT_THAT(list.aids(), ElementsAre(kDebit));
    EXPECT_EQ(head_priority(), 0);
}

TEST_F(Directory, DoesNotTakeAnEntryThatBeginsWithItsLabel) {
    const std::string label_first =
        object("61", object("50", "50424F43") + object("4F", kDebit) + object("87", "01"));
    expect_directory({record(label_first + entry(kCredit))});
    EXPECT_EQ(walk(), 1);
    EXPECT_EQ(head_aid(), kCredit);
}

TEST_F(Directory, StepsOverEmptyEntriesAndNames) {
    expect_directory(
        {record("6100" + object("61", "4F00") + object("61", "9D00") + entry(kDebit, "01"))});
    EXPECT_EQ(walk(), 1);
    EXPECT_EQ(head_aid(), kDebit);
}

TEST_F(Directory, DoesNotTakeANameBehindAnEmptyEntry) {
    expect_directory({record("6100" + object("4F", kDebit) + entry(kCredit))});
    EXPECT_EQ(walk(), 1);
    EXPECT_EQ(head_aid(), kCredit);
}

TEST_F(Directory, FindsEntriesInsideAndOutsideARecordTemplate) {
    expect_directory({entry(kDebit, "01"), record(object("A5", entry(kCredit, "02")))});
    EXPECT_EQ(walk(), 2);
    EXPECT_THAT(list.aids(), ElementsAre(kDebit, kCredit, ""));
}

TEST_F(Directory, FindsAnEntryInsideAnotherOne) {
    const std::string nested =
        object("61", object("4F", kDebit) + object("87", "01") + entry(kCredit, "02"));
    expect_directory({record(nested)});
    EXPECT_EQ(walk(), 2);
    EXPECT_THAT(list.aids(), ElementsAre(kDebit, kCredit, ""));
}

TEST_F(Directory, HasAids16BytesLong) {
    expect_directory({record(entry(repeated("A1", 16), "01"))});
    EXPECT_EQ(walk(), 1);
    EXPECT_EQ(head_aid(), repeated("A1", 16));
    EXPECT_EQ(head_priority(), 1);
}

TEST_F(Directory, CutsLongerAidsTo16Bytes) {
    for (const std::size_t size : {17U, 32U, 100U}) {
        expect_directory({record(entry(repeated("A1", size), "07"))});
        EXPECT_EQ(walk(), 1) << size;
        EXPECT_EQ(list.head()->aidlen, 16);
        EXPECT_EQ(head_aid(), repeated("A1", 16));
        EXPECT_EQ(head_priority(), 7);
        ASSERT_NE(list.head()->next, nullptr);
        EXPECT_EQ(list.head()->next->next, nullptr);
        std::free(std::exchange(list.head()->next, nullptr));
    }
}

TEST_F(Directory, ReadsZerosWhereARecordEndsInsideAName) {
    expect_directory({"70 06 61 04 4F 07 A000"});
    EXPECT_EQ(walk(), 1);
    EXPECT_EQ(head_aid(), "A0000000000000");
}

TEST_F(Directory, SurvivesARecordThatEndsAnywhere) {
    const Bytes whole = bytes(record(entry(kDebit, "01")));
    for (std::size_t size = 1; size < whole.size(); ++size) {
        expect_directory({hex(std::span(whole).first(size))});
        const int count = walk();
        EXPECT_EQ(count, size < 4 ? 0 : size < 6 ? 0 : 1) << size;
        std::free(std::exchange(list.head()->next, nullptr));
    }
}

TEST_F(Directory, SurvivesLengthsThatGoFarBeyondTheRecord) {
    expect_directory({"70 FF 61 FF 4F FF A0000003330101"});
    EXPECT_EQ(walk(), 1);
    EXPECT_EQ(head_aid(), "A0000003330101" + repeated("00", 9));
    EXPECT_EQ(list.head()->aidlen, 16);
}

TEST_F(Directory, ScansEveryRecordForTheLengthOfTheLastOne) {
    // The first record's second entry begins behind the length of the last record.
    const std::string last = record(entry(kCredit));
    expect_directory({record(entry(kDebit, "01") + entry("A0000003330103", "03")), last});
    EXPECT_EQ(walk(), 2);
    EXPECT_THAT(list.aids(), ElementsAre(kDebit, kCredit));
}

TEST_F(Directory, ScansAShortRecordAsIfZerosFollowed) {
    // A zero is a tag with a length: the scan steps over zeros to the end.
    expect_directory({record(entry(kDebit, "01")),
                      record(entry(kCredit, "02") + entry("A0000003330103", "03"))});
    EXPECT_EQ(walk(), 3);
    EXPECT_THAT(list.aids(), ElementsAre(kDebit, kCredit, "A0000003330103", ""));
}

TEST_F(Directory, ScansNothingWhenItsLastRecordIsEmpty) {
    expect_directory({record(entry(kDebit, "01")), ""});
    EXPECT_EQ(walk(), 0);
}

TEST_F(Directory, ScansTheLowByteOfALongRecordsLength) {
    // 256 + 4 bytes: only an entry that begins in the first four is seen.
    const std::string entries = entry(kDebit, "01") + entry(kCredit, "02");
    const std::string filling = repeated("FF", 260 - entries.size() / 2);
    expect_directory({entries + filling});
    EXPECT_EQ(walk(), 1);
    EXPECT_EQ(head_aid(), kDebit);
}

TEST_F(Directory, ScansNothingOfARecordOf256Bytes) {
    const std::string entries = entry(kDebit, "01");
    expect_directory({entries + repeated("FF", 256 - entries.size() / 2)});
    EXPECT_EQ(walk(), 0);
}

TEST_F(Directory, PaddingInARecordEndsItsScan) {
    expect_directory({"FF" + entry(kDebit, "01"), entry(kCredit, "02") + "FF"});
    EXPECT_EQ(walk(), 1);
    EXPECT_EQ(head_aid(), kCredit);
}

// --- directories named by directories ---

constexpr std::string_view kDdf = "4444463031";
constexpr std::string_view kDdfFci = "6F0C 84054444463031 A503 880101 9000";

TEST_F(Directory, WalksADirectoryThatItNames) {
    expect_directory({record(directory_entry(kDdf))});
    card.expect(select(kDdf), kDdfFci);
    expect_records({record(entry(kDebit, "01") + entry(kCredit, "02"))});
    EXPECT_EQ(walk(), 2);
    EXPECT_EQ(head_aid(), kDebit);
    EXPECT_EQ(head_priority(), 1);
    EXPECT_EQ(list.head()->next, nullptr) << "this level's own node ends the list";
}

TEST_F(Directory, ReadsAllItsRecordsBeforeItWalksOn) {
    expect_directory({record(directory_entry(kDdf)), record(entry(kCredit))});
    card.expect(select(kDdf), kDdfFci);
    expect_records({record(entry(kDebit))});
    EXPECT_EQ(walk(), 2);
}

TEST_F(Directory, WritesItsLaterEntriesOverThoseOfADirectoryThatItNamed) {
    expect_directory({record(directory_entry(kDdf)), record(entry(kCredit, "02"))});
    card.expect(select(kDdf), kDdfFci);
    expect_records({record(entry(kDebit, "01") + entry("A0000003330103", "03"))});
    EXPECT_EQ(walk(), 3);
    EXPECT_THAT(list.aids(), ElementsAre(kCredit, ""));
    EXPECT_EQ(head_priority(), 2);
}

TEST_F(Directory, KeepsNoPriorityOfAnEntryThatIsWrittenOver) {
    expect_directory({record(directory_entry(kDdf)), record(entry(kCredit))});
    card.expect(select(kDdf), kDdfFci);
    expect_records({record(entry(kDebit, "01"))});
    EXPECT_EQ(walk(), 2);
    EXPECT_EQ(head_aid(), kCredit);
    EXPECT_EQ(head_priority(), 0);
}

TEST_F(Directory, KeepsItsEarlierEntriesBeforeThoseOfADirectoryThatItNames) {
    expect_directory({record(entry(kCredit, "02")), record(directory_entry(kDdf))});
    card.expect(select(kDdf), kDdfFci);
    expect_records({record(entry(kDebit, "01"))});
    EXPECT_EQ(walk(), 2);
    EXPECT_THAT(list.aids(), ElementsAre(kCredit, kDebit));
}

TEST_F(Directory, CountsNothingForADirectoryThatCannotBeSelected) {
    expect_directory({record(directory_entry(kDdf)), record(entry(kCredit, "02"))});
    card.expect(select(kDdf), kNoFile);
    EXPECT_EQ(walk(), 1);
    EXPECT_EQ(head_aid(), kCredit);
}

TEST_F(Directory, CountsNothingForADirectoryWithoutAFileIdentifier) {
    expect_directory({record(directory_entry(kDdf)), record(entry(kCredit, "02"))});
    card.expect(select(kDdf), "6F07 84054444463031 9000");
    EXPECT_EQ(walk(), 1);
}

TEST_F(Directory, GoesOnAtTheLengthByteOfADirectorysName) {
    // That byte is read as a tag and the name's first byte as its length: 'D' (44) goes far.
    expect_directory({record(directory_entry(kDdf) + entry(kCredit, "02"))});
    card.expect(select(kDdf), kNoFile);
    EXPECT_EQ(walk(), 0) << "the entry behind the name is stepped over";

    // Here it is 04, the rest of the name.
    expect_directory({record(directory_entry("0411223344") + entry(kCredit, "02"))});
    card.expect(select("0411223344"), kNoFile);
    EXPECT_EQ(walk(), 1);
    EXPECT_EQ(head_aid(), kCredit);
}

TEST_F(Directory, TakesAnEntryThatADirectorysNameSpells) {
    // The name's length (06) is read as a tag of length 00, and 61 03 4F 01 A1 follows.
    expect_directory({record(directory_entry("0061034F01A1"))});
    card.expect(select("0061034F01A1"), kNoFile);
    EXPECT_EQ(walk(), 1);
    EXPECT_EQ(head_aid(), "A1");
}

TEST_F(Directory, ThatNamesItselfIsWalkedEightLevelsDeep) {
    for (int level = 0; level < 8; ++level) {
        expect_directory({record(directory_entry(kPse))});
    }
    EXPECT_EQ(walk(), 0);
}

TEST_F(Directory, CountsTheEntriesOfEveryLevelOfALoop) {
    for (int level = 0; level < 8; ++level) {
        expect_directory({record(entry(kDebit)), record(directory_entry(kPse) + "500342424242")});
    }
    EXPECT_EQ(walk(), 8);
    EXPECT_EQ(head_aid(), kDebit);
}

TEST_F(Directory, ThatNamesItselfOverAndOverIsLeftAfter255Selections) {
    // Three of these per record, eight levels deep, would be thousands.
    constexpr std::string_view kName = "0411223344";
    const std::string three =
        record(directory_entry(kName) + directory_entry(kName) + directory_entry(kName));
    expect_directory({three});
    for (int further = 0; further < 254; ++further) {
        card.expect(select(kName), kPseFci);
        expect_records({three});
    }
    EXPECT_EQ(walk(), 0);
}

TEST_F(Directory, HeldByTheCallerIsWalkedWithoutSelectingIt) {
    expect_records({record(entry(kDebit, "01") + entry(kCredit, "02"))});
    Bytes fci = exact("6F15 840E315041592E5359532E4444463031 A503 880101");
    EXPECT_EQ(qmcx_checkADF(fci.data(), static_cast<unsigned char>(fci.size()), list.head()), 2);
    EXPECT_THAT(list.aids(), ElementsAre(kDebit, kCredit, ""));
}

TEST_F(Directory, HeldByTheCallerIsTheFirstOfEightLevels) {
    expect_records({record(directory_entry(kPse))});
    for (int level = 1; level < 8; ++level) {
        expect_directory({record(directory_entry(kPse))});
    }
    Bytes fci = exact("6F15 840E315041592E5359532E4444463031 A503 880101");
    EXPECT_EQ(qmcx_checkADF(fci.data(), static_cast<unsigned char>(fci.size()), list.head()), 0);
}

TEST_F(Directory, HeldByTheCallerMayBeBroken) {
    for (const std::string_view fci_text :
         {"6F", "6F15 84", "88", "8801", "88020101", "FF880101"}) {
        Bytes fci = exact(fci_text);
        EXPECT_EQ(qmcx_checkADF(fci.data(), static_cast<unsigned char>(fci.size()), list.head()), 0)
            << fci_text;
    }
    EXPECT_THAT(card.commands(), IsEmpty());
}

// --- by AID ---

constexpr std::string_view kPrefix = "A000000333";
constexpr std::string_view kDebitFci = "6F0C 8408A000000333010101 A500";

class ByAid : public CardTest {
  protected:
    int select_by_aid(int partial, std::string_view aid_text) {
        Bytes aid = exact(aid_text);
        return qmcx_AidAppSelect(partial, aid.data(), static_cast<unsigned char>(aid.size()),
                                 list.head());
    }

    SelectedList list;
};

TEST_F(ByAid, TheWholeNameSelectsItsApplication) {
    for (const int partial : {0, 1}) {
        SelectedList selected;
        Bytes aid = exact("A000000333010101");
        card.expect(select("A000000333010101"), std::string(kDebitFci) + "9000");
        EXPECT_EQ(qmcx_AidAppSelect(partial, aid.data(), 8, selected.head()), 1) << partial;
        EXPECT_THAT(selected.fcis(), ElementsAre(hex(bytes(kDebitFci))));
    }
}

TEST_F(ByAid, ANameWithALongLengthIsAsLongAsItSays) {
    const std::string fci = "6F0B 848108 A000000333010101";
    card.expect(select("A000000333010101"), fci + "9000");
    EXPECT_EQ(select_by_aid(0, "A000000333010101"), 1);
    card.expect(select("A000000333010102"), fci + "9000");
    EXPECT_EQ(select_by_aid(1, "A000000333010102"), 0);
}

TEST_F(ByAid, APrefixSelectsTheFirstApplicationAndAsksForNoOther) {
    card.expect(select(kPrefix), std::string(kDebitFci) + "9000");
    EXPECT_EQ(select_by_aid(1, kPrefix), 1);
    EXPECT_THAT(list.fcis(), ElementsAre(hex(bytes(kDebitFci)), ""));
}

TEST_F(ByAid, APrefixIsNotEnoughWithoutPartialSelection) {
    for (const int partial : {0, 2, -1}) {
        card.expect(select(kPrefix), std::string(kDebitFci) + "9000");
        EXPECT_EQ(select_by_aid(partial, kPrefix), 0) << partial;
    }
    EXPECT_THAT(list.fcis(), ElementsAre(""));
}

TEST_F(ByAid, AnotherNameOfTheSameLengthSelectsNothing) {
    card.expect(select("A000000333010102"), std::string(kDebitFci) + "9000");
    EXPECT_EQ(select_by_aid(1, "A000000333010102"), 0);
    EXPECT_THAT(list.fcis(), ElementsAre(""));
}

TEST_F(ByAid, AShorterAidIsTakenForAPrefixUnseen) {
    card.expect(select("A111"), std::string(kDebitFci) + "9000");
    EXPECT_EQ(select_by_aid(1, "A111"), 1) << "the card has matched it";
}

TEST_F(ByAid, AnAidLongerThanTheCardsNameSelectsNothing) {
    card.expect(select("A00000033301010199"), std::string(kDebitFci) + "9000");
    EXPECT_EQ(select_by_aid(1, "A00000033301010199"), 0);
}

TEST_F(ByAid, ABlockedCardSelectsNothing) {
    card.expect(select(kPrefix), "6A81");
    EXPECT_EQ(select_by_aid(1, kPrefix), 0);
}

TEST_F(ByAid, ARefusedOrSilentSelectSelectsNothing) {
    card.expect(select(kPrefix), kNoFile);
    EXPECT_EQ(select_by_aid(1, kPrefix), 0);
    card.expect_silence(select(kPrefix));
    EXPECT_EQ(select_by_aid(1, kPrefix), 0);
    EXPECT_THAT(list.fcis(), ElementsAre(""));
}

TEST_F(ByAid, AnFciWithoutANameSelectsNothing) {
    for (const std::string_view fci : {"6F02A500", "6F028400", "", "84", "FF8405A000000333"}) {
        card.expect(select(kPrefix), std::string(fci) + "9000");
        EXPECT_EQ(select_by_aid(1, kPrefix), 0) << fci;
    }
}

TEST_F(ByAid, AnEmptyAidIsNotTheNameOfAnApplicationWithoutOne) {
    card.expect(select(""), "6F028400 9000");
    EXPECT_EQ(select_by_aid(1, ""), 0);
}

TEST_F(ByAid, AnFciOf256BytesIsCopiedWholeAndItsLengthKeptInOneByte) {
    const std::string fci = "8408A000000333010101" + repeated("00", 246);
    card.expect(select(kPrefix), fci + "9000");
    EXPECT_EQ(select_by_aid(1, kPrefix), 1);
    ASSERT_NE(list.head()->fci, nullptr);
    EXPECT_EQ(hex(std::span(list.head()->fci, 256)), fci);
    EXPECT_EQ(list.head()->fcilen, 0);
}

TEST_F(ByAid, AnEmptyAidIsAPrefixOfEveryName) {
    Bytes no_aid = room(1);
    card.expect("00A4040000", std::string(kDebitFci) + "9000");
    EXPECT_EQ(qmcx_AidAppSelect(1, no_aid.data(), 0, list.head()), 1);
}

TEST_F(ByAid, ABlockedApplicationOnARealReaderShowsByItsFetchedFci) {
    card.expect(select(kPrefix), std::string(kDebitFci) + "6283");
    card.expect("00C0000000", std::string(kDebitFci) + "9000");
    EXPECT_EQ(select_by_aid(1, kPrefix), 1);
    EXPECT_THAT(list.fcis(), ElementsAre(hex(bytes(kDebitFci)), ""));
}

// --- by AID, the first application blocked ---

// Answers SELECT with a series of results, as a card would without its warnings being followed up.
class BlockedApplication : public testing::Test {
  protected:
    static constexpr int kBlocked = 0x6283;
    static constexpr int kNoMore = 0x6A82;

    struct Answer {
        int result;
        std::string fci;
    };

    int select_by_aid(int partial, std::string_view aid_text) {
        const Bytes aid = exact(aid_text);
        const auto by_name = [this](unsigned char p2, std::span<const unsigned char> name,
                                    commands::Response& response) {
            sent.push_back(hex(std::array{p2}) + " " + hex(name));
            const Answer answer = answers.front();
            // The last answer is given again and again.
            if (answers.size() > 1) {
                answers.pop_front();
            }
            response.assign(bytes(answer.fci));
            return answer.result;
        };
        return selection::select_by_aid(by_name, partial, aid, list.head());
    }

    std::deque<Answer> answers;
    std::vector<std::string> sent;
    SelectedList list;
};

TEST_F(BlockedApplication, IsPassedOverForTheNextOnes) {
    answers = {{kBlocked, std::string(kDebitFci)},
               {0, "6F0A8408A000000333010102"},
               {0, "6F0A8408A000000333010103"},
               {kNoMore, ""}};
    EXPECT_EQ(select_by_aid(1, kPrefix), 2);
    EXPECT_THAT(sent,
                ElementsAre("00 A000000333", "02 A000000333", "02 A000000333", "02 A000000333"));
    EXPECT_THAT(list.fcis(),
                ElementsAre("6F0A8408A000000333010102", "6F0A8408A000000333010103", ""));
}

TEST_F(BlockedApplication, IsSkippedWhereverItComes) {
    answers = {{kBlocked, std::string(kDebitFci)},
               {kBlocked, "6F0A8408A000000333010102"},
               {0, "6F0A8408A000000333010103"},
               {kBlocked, "6F0A8408A000000333010104"},
               {kNoMore, ""}};
    EXPECT_EQ(select_by_aid(1, kPrefix), 1);
    EXPECT_EQ(sent.size(), 5U);
    EXPECT_THAT(list.fcis(), ElementsAre("6F0A8408A000000333010103", ""));
}

TEST_F(BlockedApplication, AloneSelectsNothing) {
    answers = {{kBlocked, std::string(kDebitFci)}, {kNoMore, ""}};
    EXPECT_EQ(select_by_aid(1, kPrefix), 0);
    EXPECT_EQ(sent.size(), 2U);
    EXPECT_THAT(list.fcis(), ElementsAre(""));
}

TEST_F(BlockedApplication, TheNamesOfTheNextOnesAreNotChecked) {
    answers = {{kBlocked, std::string(kDebitFci)}, {0, "6F058403D15600"}, {0, ""}, {-7, ""}};
    EXPECT_EQ(select_by_aid(1, kPrefix), 2);
    EXPECT_THAT(list.fcis(), ElementsAre("6F058403D15600", "", ""));
}

TEST_F(BlockedApplication, SelectsNothingByItsWholeName) {
    answers = {{kBlocked, std::string(kDebitFci)}};
    EXPECT_EQ(select_by_aid(1, "A000000333010101"), 0);
    EXPECT_EQ(sent.size(), 1U);
    EXPECT_THAT(list.fcis(), ElementsAre(""));
}

TEST_F(BlockedApplication, SelectsNothingWithoutPartialSelection) {
    answers = {{kBlocked, std::string(kDebitFci)}};
    EXPECT_EQ(select_by_aid(0, kPrefix), 0);
    EXPECT_EQ(sent.size(), 1U);
}

TEST_F(BlockedApplication, WithoutANameInItsFciSelectsNothing) {
    answers = {{kBlocked, ""}};
    EXPECT_EQ(select_by_aid(1, kPrefix), 0);
    EXPECT_EQ(sent.size(), 1U);
}

TEST_F(BlockedApplication, TheNextOnesAreAskedFor255TimesAtMost) {
    answers = {{kBlocked, std::string(kDebitFci)}, {kBlocked, std::string(kDebitFci)}};
    EXPECT_EQ(select_by_aid(1, kPrefix), 0);
    EXPECT_EQ(sent.size(), 256U);
}

TEST_F(BlockedApplication, ACardThatNeverEndsGives255Applications) {
    answers = {{kBlocked, std::string(kDebitFci)}, {0, std::string(kDebitFci)}};
    EXPECT_EQ(select_by_aid(1, kPrefix), 255);
    EXPECT_EQ(sent.size(), 256U);
    EXPECT_EQ(list.fcis().size(), 256U) << "and a node behind them";
}

// --- the final selection ---

class FinalSelection : public CardTest {
  protected:
    int select_finally(std::string_view aid_text) {
        Bytes aid = exact(aid_text);
        return qmcx_FinalAppSelect(aid.data(), static_cast<unsigned char>(aid.size()), fci.data(),
                                   &length);
    }

    Bytes fci = room(256);
    unsigned char length = 99;
};

TEST_F(FinalSelection, GivesTheWholeFci) {
    card.expect(select(kDebit), std::string(kDebitFci) + "9000");
    EXPECT_EQ(select_finally(kDebit), 0);
    EXPECT_EQ(length, 14);
    EXPECT_EQ(hex(std::span(fci).first(15)), hex(bytes(kDebitFci)) + "EE");
}

TEST_F(FinalSelection, KeepsTheLengthOfAnFciOf256BytesInOneByte) {
    card.expect(select(kDebit), repeated("A1", 256) + "9000");
    EXPECT_EQ(select_finally(kDebit), 0);
    EXPECT_EQ(hex(fci), repeated("A1", 256));
    EXPECT_EQ(length, 0);
}

TEST_F(FinalSelection, HandsThroughWhyItFailed) {
    card.expect(select(kDebit), kNoFile);
    EXPECT_EQ(select_finally(kDebit), 0x6A82);
    card.expect(select(kDebit), "6A81");
    EXPECT_EQ(select_finally(kDebit), 0x6A81);
    card.expect_silence(select(kDebit));
    EXPECT_EQ(select_finally(kDebit), kTimeout);
    card.expect(select(kDebit), repeated("A1", 257) + "9000");
    EXPECT_EQ(select_finally(kDebit), -16) << "longer than an FCI can be";
    EXPECT_EQ(length, 99);
    EXPECT_EQ(fci, room(256));
}

// --- the choice by a host's AID text ---

class Choice : public CardTest {};

TEST_F(Choice, GoesThroughTheDirectoryForAnEmptyAidOrOneThatBeginsWithZero) {
    EXPECT_TRUE(selection::through_directory(""));
    EXPECT_TRUE(selection::through_directory("0"));
    EXPECT_TRUE(selection::through_directory("0A000000333"));
    EXPECT_FALSE(selection::through_directory("A000000333"));
    EXPECT_FALSE(selection::through_directory(" 0"));
}

TEST_F(Choice, FinallySelectsTheDirectorysHeadCandidate) {
    card.expect(kSelectPse, kPseFci)
        .expect(read_record(1), record(entry(kDebit, "02") + entry(kCredit, "01")) + "9000")
        .expect(read_record(2), kNoRecord)
        .expect(select(kDebit), std::string(kDebitFci) + "9000");
    const auto choice = selection::choose("");
    EXPECT_TRUE(choice.selected());
    EXPECT_EQ(choice.count, 2);
    EXPECT_EQ(hex(choice.aid), kDebit);
    EXPECT_EQ(hex(choice.fci), hex(bytes(kDebitFci)));
}

TEST_F(Choice, FailsWithTheResultOfTheFinalSelection) {
    card.expect(kSelectPse, kPseFci)
        .expect(read_record(1), record(entry(kDebit)) + "9000")
        .expect(read_record(2), kNoRecord)
        .expect(select(kDebit), kNoFile);
    const auto choice = selection::choose("0");
    EXPECT_FALSE(choice.selected());
    EXPECT_EQ(choice.count, 1);
    EXPECT_EQ(choice.result, 0x6A82);
}

TEST_F(Choice, EndsAtACardWithoutADirectory) {
    card.expect(kSelectPse, kNoFile);
    const auto choice = selection::choose("");
    EXPECT_FALSE(choice.selected());
    EXPECT_EQ(choice.count, 0);
}

TEST_F(Choice, ByAidTakesTheFirstApplicationUnderThePrefix) {
    card.expect(select(kPrefix), std::string(kDebitFci) + "9000");
    const auto choice = selection::choose("A000000333");
    EXPECT_TRUE(choice.selected());
    EXPECT_EQ(choice.count, 1);
    EXPECT_EQ(hex(choice.aid), kPrefix) << "as the host gave it";
    EXPECT_EQ(hex(choice.fci), hex(bytes(kDebitFci)));
}

TEST_F(Choice, ByAidHasAnFciOf256BytesWhole) {
    const std::string fci = "8408A000000333010101 9F38039F3704" + repeated("00", 240);
    card.expect(select(kPrefix), fci + "9000");
    EXPECT_EQ(hex(selection::choose("A000000333").fci), hex(bytes(fci)));
}

TEST_F(Choice, ByAidFailsWithACountOfZero) {
    card.expect(select(kPrefix), kNoFile);
    const auto choice = selection::choose("A000000333");
    EXPECT_FALSE(choice.selected());
    EXPECT_EQ(choice.count, 0);
    EXPECT_EQ(choice.result, 0);
}

TEST_F(Choice, ByAidCutsAnAidTo16Bytes) {
    card.expect(select(repeated("A1", 16)), kNoFile);
    EXPECT_FALSE(selection::choose(repeated("A1", 40)).selected());
}

TEST_F(Choice, ByAidDropsAnOddDigit) {
    card.expect(select("A000"), kNoFile);
    EXPECT_FALSE(selection::choose("A0003").selected());
}

} // namespace
