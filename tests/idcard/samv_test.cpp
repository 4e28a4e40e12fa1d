// SAM-V commands: the frames, what is made of the replies, and what the console shows of both.
#include "idcard_fixture.h"

#include <cstdio>
#include <cstdlib>
#include <numeric>

using namespace idcard_test;

namespace {

constexpr unsigned char untouched = 0xEE;
constexpr unsigned long length_untouched = 4711;

class Samv : public IdCard {
  protected:
    void SetUp() override {
        IdCard::SetUp();
        open();
    }

    int command(unsigned char cmd, unsigned char para) {
        console_ =
            standard_output([&] { result_ = samv_cmd(cmd, para, out_.data(), &out_length_); });
        return result_;
    }

    [[nodiscard]] Bytes out(std::size_t size) const {
        return {out_.begin(), out_.begin() + static_cast<std::ptrdiff_t>(size)};
    }
    [[nodiscard]] bool nothing_was_handed_out() const {
        return out_ == Bytes(out_.size(), untouched) && out_length_ == length_untouched;
    }

    int result_ = 0;
    Bytes out_ = Bytes(qaven::idcard::kSamvDataCapacity, untouched);
    unsigned long out_length_ = length_untouched;
    std::string console_;
};

const char find_card_sent[] = "tx:\nAA AA AA 96 69 00 03 20 01 22 \n";

std::string dump_of(const Bytes& bytes) {
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        char byte[5];
        std::snprintf(byte, sizeof byte, "%02X %s", bytes[i], i % 16 == 15 ? "\n" : "");
        text += byte;
    }
    return bytes.size() % 16 == 0 ? text : text + "\n";
}

TEST_F(Samv, CommandsGoOutAsTenByteFrames) {
    for (const int read : {2, 4, 6}) {
        usb.fail_control(read, LIBUSB_ERROR_PIPE);
    }
    command(0x20, 0x01);
    command(0x20, 0x02);
    command(0x30, 0x01);
    EXPECT_THAT(
        usb.sent(),
        ElementsAre(
            padded_report({0xAA, 0xAA, 0xAA, 0x96, 0x69, 0x00, 0x03, 0x20, 0x01, 0x22}),   // find
            padded_report({0xAA, 0xAA, 0xAA, 0x96, 0x69, 0x00, 0x03, 0x20, 0x02, 0x21}),   // select
            padded_report({0xAA, 0xAA, 0xAA, 0x96, 0x69, 0x00, 0x03, 0x30, 0x01, 0x32}))); // read
}

TEST_F(Samv, Sw3OfNinetyIsSuccess) {
    answer(samv_reply(0x90, {0xD1, 0xD2, 0xD3}));
    EXPECT_EQ(command(0x20, 0x02), 0);
    EXPECT_EQ(out_length_, 3U);
    // 00 07 00 00 90 D1 D2 D3 add up to 47
    EXPECT_EQ(out(5), (Bytes{0xD1, 0xD2, 0xD3, 0x47, untouched}));
}

TEST_F(Samv, Sw3OfNineFIsSuccess) {
    answer(samv_reply(0x9F, {0x00, 0x00, 0x00, 0x00}));
    EXPECT_EQ(command(0x20, 0x01), 0);
    EXPECT_EQ(out_length_, 4U);
    EXPECT_EQ(out(6), (Bytes{0x00, 0x00, 0x00, 0x00, 0x97, untouched}));
}

TEST_F(Samv, ShowsCommandAndReplyOnTheConsole) {
    answer(samv_reply(0x9F, {0x00, 0x00, 0x00, 0x00}));
    command(0x20, 0x01);
    EXPECT_EQ(console_, "tx:\n"
                        "AA AA AA 96 69 00 03 20 01 22 \n"
                        "recv:\n"
                        "AA AA AA 96 69 00 08 00 00 9F 00 00 00 00 97 \n");
}

TEST_F(Samv, AReplyWithoutDataHasOnlyItsChecksum) {
    answer(samv_reply(0x90, {}));
    EXPECT_EQ(command(0x20, 0x02), 0);
    EXPECT_EQ(out_length_, 0U);
    EXPECT_EQ(out(2), (Bytes{0x94, untouched}));
}

TEST_F(Samv, BaseInformationOf1295BytesTakesTwentyOneReports) {
    const Bytes data = filled(1284, 0x01);
    const Bytes reply = samv_reply(0x90, data);
    ASSERT_EQ(reply.size(), 1295U);
    ASSERT_EQ(reply[5] * 256 + reply[6], 1288);
    answer(reply);
    EXPECT_EQ(command(0x30, 0x01), 0);
    EXPECT_EQ(usb.reads(), 21);
    EXPECT_EQ(out_length_, 1284U);
    EXPECT_EQ(out(1284), data);
    EXPECT_EQ(out_[1284], reply.back());
    EXPECT_EQ(out_[1285], untouched);
    EXPECT_EQ(console_, "tx:\nAA AA AA 96 69 00 03 30 01 32 \nrecv:\n" + dump_of(reply));
}

TEST_F(Samv, ARefusalIsShownWithItsSw3) {
    answer(samv_reply(0x80, {})); // no card on the reader
    EXPECT_EQ(command(0x20, 0x01), -2);
    EXPECT_EQ(console_,
              std::string(find_card_sent) + "\033[0;31mCommand failed, SW3 = 0x80\n\033[0m");
    EXPECT_TRUE(nothing_was_handed_out());
}

TEST_F(Samv, AReaderThatNeverAnswersIsARefusalAfterAThousandPolls) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(command(0x20, 0x01), -2);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), std::string(1000, '.'));
    EXPECT_EQ(console_,
              std::string(find_card_sent) + "\033[0;31mCommand failed, SW3 = 0x00\n\033[0m");
    EXPECT_EQ(usb.reads(), 1000);
    EXPECT_EQ(std::accumulate(pauses_us().begin(), pauses_us().end(), 0U), 10'000'000U);
    EXPECT_TRUE(nothing_was_handed_out());
}

TEST_F(Samv, ALengthThatHasNoRoomForTheChecksumIsATransportFailure) {
    for (unsigned char length = 0; length < 4; ++length) {
        answer({0xAA, 0xAA, 0xAA, 0x96, 0x69, 0x00, length, 0x00, 0x00, 0x90});
        EXPECT_EQ(command(0x20, 0x01), -1);
        EXPECT_EQ(console_, find_card_sent);
        EXPECT_TRUE(nothing_was_handed_out());
    }
}

TEST_F(Samv, ARefusalIsJudgedBeforeTheLength) {
    answer({0xAA, 0xAA, 0xAA, 0x96, 0x69, 0x00, 0x00, 0x00, 0x00, 0x41});
    EXPECT_EQ(command(0x30, 0x01), -2);
}

TEST_F(Samv, TheLongestReplyIsTakenWhole) {
    const Bytes data = filled(65'531, 0x01);
    const Bytes reply = samv_reply(0x90, data);
    ASSERT_EQ(reply.size(), 65'542U);
    ASSERT_EQ(reply[5] * 256 + reply[6], 65'535);
    answer(reply);
    EXPECT_EQ(command(0x30, 0x01), 0);
    EXPECT_EQ(usb.reads(), 1025);
    EXPECT_EQ(out_length_, 65'531U);
    EXPECT_EQ(out(65'531), data);
    EXPECT_EQ(out_[65'531], reply.back());
    EXPECT_EQ(out_[65'532], untouched);
}

TEST_F(Samv, AReplyThatAnnouncesMoreThanItSendsEndsInZeros) {
    answer({0xAA, 0xAA, 0xAA, 0x96, 0x69, 0xFF, 0xFF, 0x00, 0x00, 0x90, 0xD1});
    EXPECT_EQ(command(0x30, 0x01), 0);
    EXPECT_EQ(usb.reads(), 1025);
    EXPECT_EQ(out_length_, 65'531U);
    EXPECT_EQ(out(3), (Bytes{0xD1, 0x00, 0x00}));
}

TEST_F(Samv, ACommandThatCannotBeSentIsATransportFailure) {
    usb.fail_control(1, LIBUSB_ERROR_PIPE);
    EXPECT_EQ(command(0x20, 0x01), -1);
    EXPECT_EQ(console_, "set report failed \n");
    EXPECT_EQ(usb.reads(), 0);
    EXPECT_TRUE(nothing_was_handed_out());
}

TEST_F(Samv, AReplyThatCannotBeReadIsATransportFailure) {
    usb.fail_control(2, LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(command(0x20, 0x01), -1);
    EXPECT_EQ(console_, std::string(find_card_sent) + "\nget report failed \n");
    EXPECT_TRUE(nothing_was_handed_out());
}

TEST_F(Samv, AReplyThatBreaksOffIsATransportFailure) {
    answer(samv_reply(0x90, filled(1284, 0x01)));
    usb.fail_control(6, LIBUSB_ERROR_PIPE);
    EXPECT_EQ(command(0x30, 0x01), -1);
    EXPECT_EQ(console_, "tx:\nAA AA AA 96 69 00 03 30 01 32 \nget report failed \n");
    EXPECT_TRUE(nothing_was_handed_out());
}

TEST_F(Samv, WithoutAReaderACommandIsATransportFailure) {
    usb_device_close();
    EXPECT_EQ(command(0x20, 0x01), -1);
    EXPECT_THAT(usb.transfers(), IsEmpty());
}

TEST_F(Samv, WithoutAPlaceForTheAnswerNothingIsSent) {
    EXPECT_EQ(samv_cmd(0x20, 0x01, nullptr, &out_length_), -1);
    EXPECT_EQ(samv_cmd(0x20, 0x01, out_.data(), nullptr), -1);
    EXPECT_THAT(usb.transfers(), IsEmpty());
}

TEST_F(Samv, TheConsoleStaysSilentForToolsThatAskForIt) {
    answer(samv_reply(0x9F, {}));
    answer(samv_reply(0x80, {}));
    setenv("QAVEN_DIAGNOSTICS", "off", 1);
    EXPECT_EQ(command(0x20, 0x01), 0);
    EXPECT_EQ(console_, "");
    EXPECT_EQ(command(0x20, 0x01), -2);
    EXPECT_EQ(console_, "");
    unsetenv("QAVEN_DIAGNOSTICS");
}

TEST(SamvCompletion, NeedsTheLengthFieldAndEverythingItCounts) {
    Bytes frame{0xAA, 0xAA, 0xAA, 0x96, 0x69, 0x01, 0x02};
    EXPECT_EQ(idcard_recv_completed(frame.data(), 0), 0);
    EXPECT_EQ(idcard_recv_completed(frame.data(), 6), 0);
    EXPECT_EQ(idcard_recv_completed(frame.data(), 7), 0);
    EXPECT_EQ(idcard_recv_completed(frame.data(), 0x0102 + 6), 0);
    EXPECT_EQ(idcard_recv_completed(frame.data(), 0x0102 + 7), 1);
    EXPECT_EQ(idcard_recv_completed(frame.data(), 0x0102 + 8), 1);
}

TEST(SamvCompletion, AReportOfZerosIsAWholeReply) {
    Bytes report(64, 0);
    Bytes six_bytes(6, 0);
    EXPECT_EQ(idcard_recv_completed(six_bytes.data(), 6), 0);
    EXPECT_EQ(idcard_recv_completed(report.data(), 7), 1);
    EXPECT_EQ(idcard_recv_completed(report.data(), 64), 1);
}

TEST(SamvCompletion, TheLargestLengthIsWholeAt65542Bytes) {
    Bytes frame{0xAA, 0xAA, 0xAA, 0x96, 0x69, 0xFF, 0xFF};
    EXPECT_EQ(idcard_recv_completed(frame.data(), 65'541), 0);
    EXPECT_EQ(idcard_recv_completed(frame.data(), 65'542), 1);
}

TEST(SamvCompletion, NothingIsNeverWhole) {
    EXPECT_EQ(idcard_recv_completed(nullptr, 64), 0);
}

} // namespace
