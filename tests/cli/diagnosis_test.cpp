// What the doctor says about machines that are not at hand.
#include "tools/qaven/diagnosis.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace qaven::cli;

using testing::HasSubstr;

Reader denied() {
    return {1, 7, Access::kDenied, LIBUSB_ERROR_ACCESS, {}};
}

Permissions permissions(unsigned mode, bool rule) {
    Permissions node;
    node.node = "/dev/bus/usb/001/007";
    node.owner = "root";
    node.group = "plugdev";
    node.mode = mode;
    node.rule = rule;
    return node;
}

TEST(Doctor, SaysThatAContainerHasNoBus) {
    const Finding finding = judge_library("1.0.26", LIBUSB_ERROR_OTHER);
    EXPECT_EQ(finding.verdict, Verdict::kProblem);
    EXPECT_EQ(finding.status, kNoReader);
    EXPECT_THAT(finding.advice, HasSubstr("/dev/bus/usb"));
}

TEST(Doctor, SaysWhereTheNodeOfAReaderLies) {
    EXPECT_EQ(denied().node(), "/dev/bus/usb/001/007");
}

TEST(Doctor, SaysWhoOwnsANodeThatMayNotBeOpened) {
    const Finding finding = judge_access(kCardReader, denied(), permissions(0664, false));
    EXPECT_EQ(finding.verdict, Verdict::kProblem);
    EXPECT_EQ(finding.status, kNoReader);
    EXPECT_THAT(finding.sentence,
                HasSubstr("/dev/bus/usb/001/007 belongs to root:plugdev, mode 0664"));
    EXPECT_THAT(finding.advice, HasSubstr("install the udev rule"));
}

TEST(Doctor, SendsAUserToTheGroupThatMayOpenTheNode) {
    const Finding finding = judge_access(kCardReader, denied(), permissions(0664, true));
    EXPECT_THAT(finding.advice, HasSubstr("join the group plugdev"));
}

TEST(Doctor, ExplainsTheRuleToAUserWhomItDoesNotAdmit) {
    Permissions node = permissions(0664, true);
    node.in_group = true;
    for (const Permissions& other : {node, permissions(0600, true)}) {
        const Finding finding = judge_access(kCardReader, denied(), other);
        EXPECT_THAT(finding.advice, HasSubstr("logged in at the machine"));
    }
}

TEST(Doctor, SaysNothingAboutANodeThatCannotBeLookedAt) {
    const Finding finding = judge_access(kCardReader, denied(), permissions(0, false));
    EXPECT_EQ(finding.sentence, "this user may not open the bank-card reader");
}

TEST(Doctor, NamesTheProgramThatHoldsTheReader) {
    const Reader reader{1, 7, Access::kOpen, 0, {{2, Holder::kProgram, LIBUSB_ERROR_BUSY}, {1}}};
    const auto findings = judge_interfaces(kCardReader, reader, {"pcscd (process 512)"});
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_EQ(findings[0].status, kNoReader);
    EXPECT_EQ(findings[0].advice, "end pcscd (process 512);\n"
                                  "systemd starts pcscd again for the next program that asks for "
                                  "it:\nsystemctl stop pcscd.socket pcscd.service");
}

TEST(Doctor, IsNotSteeredByTheNameOfAProgram) {
    const Reader reader{1, 7, Access::kOpen, 0, {{2, Holder::kProgram, LIBUSB_ERROR_BUSY}}};
    const auto findings = judge_interfaces(kCardReader, reader,
                                           {"a\x1B[2J\n (process 5)", "\xC2\x9B\x9B (process 6)"});
    EXPECT_EQ(findings.at(0).advice, "end a?[2J? (process 5), ?? (process 6)");
}

TEST(Doctor, TellsWhyAnInterfaceCannotBeHad) {
    const Reader reader{1, 7, Access::kOpen, 0, {{2, Holder::kUnknown, LIBUSB_ERROR_NO_DEVICE}}};
    const auto findings = judge_interfaces(kCardReader, reader, {});
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_THAT(findings[0].sentence, HasSubstr("No such device"));
}

TEST(Doctor, TellsThatAReaderWasOutOfStepAndHowItCameBack) {
    Slot slot{SlotState::kCard, {0x3B, 0x00}};
    EXPECT_EQ(judge_slots({slot}).size(), 1U);
    slot.leftover = Leftover::kDropped;
    const auto dropped = judge_slots({slot});
    ASSERT_EQ(dropped.size(), 2U);
    EXPECT_EQ(dropped[0].verdict, Verdict::kNote);
    EXPECT_THAT(dropped[0].sentence, HasSubstr("slot 2 was out of step"));
    EXPECT_EQ(dropped[1].verdict, Verdict::kOk);
    slot.leftover = Leftover::kReset;
    EXPECT_THAT(judge_slots({slot}).at(0).sentence, HasSubstr("by a reset"));
}

TEST(Doctor, SaysThatAReaderWhichStaysOutOfStepNeedsReplugging) {
    const auto findings = judge_slots({Slot{SlotState::kOutOfStep, {}, Leftover::kReset}});
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_EQ(findings[0].verdict, Verdict::kProblem);
    EXPECT_EQ(findings[0].status, kFailed);
    EXPECT_THAT(findings[0].advice, HasSubstr("plug it in again"));
}

TEST(Doctor, DoesNotMissTheCardOfOneSlotWhenTheOtherHasOne) {
    const auto findings =
        judge_slots({Slot{SlotState::kEmpty, {}}, Slot{SlotState::kCard, {0x3B, 0x00}}});
    ASSERT_EQ(findings.size(), 2U);
    EXPECT_EQ(findings[0].verdict, Verdict::kNote);
    EXPECT_EQ(findings[0].sentence, "slot 2 is empty");
    EXPECT_EQ(findings[1].verdict, Verdict::kOk);
    EXPECT_EQ(findings[1].sentence, "slot 1 holds a card, which answers 3B00");
}

} // namespace
