// Opening and closing the identity-card reader, and reports in both directions, seen from libusb.
#include "idcard_fixture.h"

#include <unistd.h>

using namespace idcard_test;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

std::vector<unsigned>& idcard_test::pauses_us() {
    static std::vector<unsigned> pauses;
    return pauses;
}

// The tests' own: it comes before the C library's.
extern "C" int usleep(useconds_t duration) {
    pauses_us().push_back(duration);
    return 0;
}

namespace {

class IdCardOpen : public IdCard {};
class IdCardWrite : public IdCard {};
class IdCardRead : public IdCard {};

std::string set_report(const Bytes& report) {
    return "control_out 21 09 0200 0000 0ms " + padded_report(report);
}

constexpr const char* kGetReport = "control_in A1 01 0100 0000 64 0ms";

int never_completed(unsigned char* /*buf*/, unsigned long /*len*/) {
    return 0;
}

int completed_at_three_reports(unsigned char* /*buf*/, unsigned long len) {
    return len >= 192 ? 1 : 0;
}

TEST_F(IdCardOpen, OpensTheReaderAndClaimsItsFirstInterface) {
    EXPECT_EQ(standard_output([] { EXPECT_EQ(usb_device_open(), 0); }), "");
    EXPECT_THAT(usb.log(), ElementsAre("init", "open 2F7A:4463", "kernel_driver_active 0",
                                       "claim_interface 0"));
}

TEST_F(IdCardOpen, GivesTheCodeOfAFailedStartUp) {
    usb.fail(Call::kInit, LIBUSB_ERROR_OTHER);
    EXPECT_EQ(standard_output([] { EXPECT_EQ(usb_device_open(), LIBUSB_ERROR_OTHER); }),
              "initialise libusb failed \n");
    EXPECT_THAT(usb.log(), ElementsAre("init"));
}

TEST_F(IdCardOpen, ReportsAMissingReaderByItsMessageOnly) {
    usb.unplug();
    EXPECT_EQ(standard_output([] { EXPECT_EQ(usb_device_open(), 0); }), "open device failed \n");
    EXPECT_THAT(usb.log(), ElementsAre("init", "open 2F7A:4463"));
}

TEST_F(IdCardOpen, DetachesAKernelDriverBeforeTheClaim) {
    usb.fail(Call::kKernelDriverActive, 1);
    usb.fail(Call::kDetachKernelDriver, 0);
    EXPECT_EQ(standard_output([] { EXPECT_EQ(usb_device_open(), 0); }),
              "Kernel Driver Active\nKernel Driver Detached!\n");
    EXPECT_THAT(usb.log(), ElementsAre("init", "open 2F7A:4463", "kernel_driver_active 0",
                                       "detach_kernel_driver 0", "claim_interface 0"));
}

TEST_F(IdCardOpen, ClaimsEvenWhenTheDriverStays) {
    usb.fail(Call::kKernelDriverActive, 1);
    usb.fail(Call::kDetachKernelDriver, LIBUSB_ERROR_ACCESS);
    EXPECT_EQ(standard_output([] { EXPECT_EQ(usb_device_open(), 0); }), "Kernel Driver Active\n");
    EXPECT_EQ(usb.log().back(), "claim_interface 0");
}

TEST_F(IdCardOpen, DetachesNothingWhereTheSystemCannotTell) {
    usb.fail(Call::kKernelDriverActive, LIBUSB_ERROR_NOT_SUPPORTED);
    EXPECT_EQ(standard_output([] { EXPECT_EQ(usb_device_open(), 0); }), "");
    EXPECT_THAT(usb.log(), ElementsAre("init", "open 2F7A:4463", "kernel_driver_active 0",
                                       "claim_interface 0"));
}

TEST_F(IdCardOpen, GivesTheCodeOfARefusedClaim) {
    usb.fail(Call::kClaim, LIBUSB_ERROR_BUSY);
    EXPECT_EQ(standard_output([] { EXPECT_EQ(usb_device_open(), LIBUSB_ERROR_BUSY); }),
              "Claim Interface failed!\n");
}

TEST_F(IdCardOpen, HoldsAReaderWhoseClaimWasRefusedUntilItIsClosed) {
    usb.fail(Call::kClaim, LIBUSB_ERROR_BUSY);
    usb_device_open();
    usb.clear_log();
    EXPECT_EQ(usb_device_close(), 0);
    EXPECT_THAT(usb.log(), ElementsAre("release_interface 0", "close", "exit"));
}

TEST_F(IdCardOpen, ClosesWithReleaseCloseAndTheEndOfLibusb) {
    open();
    EXPECT_EQ(standard_output([] { EXPECT_EQ(usb_device_close(), 0); }), "");
    EXPECT_THAT(usb.log(), ElementsAre("release_interface 0", "close", "exit"));
}

TEST_F(IdCardOpen, ClosingWithoutAReaderOnlyEndsLibusb) {
    usb.unplug();
    usb_device_open();
    usb.clear_log();
    EXPECT_EQ(usb_device_close(), 0);
    EXPECT_THAT(usb.log(), ElementsAre("exit"));
}

TEST_F(IdCardOpen, ClosingWhatWasNeverStartedLeavesLibusbToItsOtherUsers) {
    EXPECT_EQ(usb_device_close(), 0);
    usb.fail(Call::kInit, LIBUSB_ERROR_OTHER);
    usb_device_open();
    EXPECT_EQ(usb_device_close(), 0);
    EXPECT_THAT(usb.log(), ElementsAre("init"));
}

TEST_F(IdCardOpen, ClosingTwiceEndsLibusbOnce) {
    open();
    usb_device_close();
    usb.clear_log();
    EXPECT_EQ(usb_device_close(), 0);
    EXPECT_THAT(usb.log(), IsEmpty());
}

TEST_F(IdCardOpen, OpeningAgainEndsTheHeldConnectionFirst) {
    open();
    EXPECT_EQ(usb_device_open(), 0);
    EXPECT_THAT(usb.log(),
                ElementsAre("release_interface 0", "close", "exit", "init", "open 2F7A:4463",
                            "kernel_driver_active 0", "claim_interface 0"));
}

TEST_F(IdCardWrite, SendsATenByteFrameAsOneReportPaddedWithZeros) {
    open();
    Bytes frame = filled(10, 0x41);
    EXPECT_EQ(standard_output([&] { EXPECT_EQ(usb_device_write(frame.data(), 10), 0); }), "");
    EXPECT_THAT(usb.log(), ElementsAre(set_report(frame)));
}

TEST_F(IdCardWrite, SendsAHundredAndThirtyBytesAsThreeReports) {
    open();
    Bytes data = filled(130, 0x01);
    EXPECT_EQ(usb_device_write(data.data(), data.size()), 0);
    EXPECT_THAT(usb.log(), ElementsAre(set_report(Bytes(data.begin(), data.begin() + 64)),
                                       set_report(Bytes(data.begin() + 64, data.begin() + 128)),
                                       set_report({data[128], data[129]})));
}

TEST_F(IdCardWrite, SendsWholeReportsWithoutAnEmptyOneBehindThem) {
    open();
    Bytes data = filled(128, 0x01);
    EXPECT_EQ(usb_device_write(data.data(), 64), 0);
    EXPECT_EQ(usb.sent().size(), 1U);
    EXPECT_EQ(usb_device_write(data.data(), 65), 0);
    EXPECT_EQ(usb.sent().size(), 3U);
    EXPECT_EQ(usb_device_write(data.data(), 128), 0);
    EXPECT_EQ(usb.sent().size(), 5U);
    EXPECT_EQ(usb.sent().back(), padded_report({data.begin() + 64, data.end()}));
}

TEST_F(IdCardWrite, SendsNoDataAsOneReportOfZeros) {
    open();
    EXPECT_EQ(usb_device_write(nullptr, 0), 0);
    EXPECT_THAT(usb.sent(), ElementsAre(padded_report({})));
}

TEST_F(IdCardWrite, StopsAtTheFirstReportThatFails) {
    open();
    usb.fail_control(1, LIBUSB_ERROR_PIPE);
    Bytes data = filled(130, 0x01);
    EXPECT_EQ(
        standard_output([&] { EXPECT_EQ(usb_device_write(data.data(), 130), LIBUSB_ERROR_PIPE); }),
        "set report failed \n");
    EXPECT_EQ(usb.sent().size(), 1U);
}

TEST_F(IdCardWrite, ReportsAFailureOfTheLastReport) {
    open();
    usb.fail_control(3, LIBUSB_ERROR_NO_DEVICE);
    Bytes data = filled(130, 0x01);
    EXPECT_EQ(standard_output(
                  [&] { EXPECT_EQ(usb_device_write(data.data(), 130), LIBUSB_ERROR_NO_DEVICE); }),
              "set report failed \n");
    EXPECT_EQ(usb.sent().size(), 3U);
}

TEST_F(IdCardWrite, WithoutAReaderNothingReachesLibusb) {
    Bytes data = filled(130, 0x01);
    EXPECT_EQ(standard_output(
                  [&] { EXPECT_EQ(usb_device_write(data.data(), 130), LIBUSB_ERROR_NO_DEVICE); }),
              "set report failed \n");
    EXPECT_THAT(usb.transfers(), IsEmpty());
}

TEST_F(IdCardWrite, AfterTheCloseNothingReachesLibusb) {
    open();
    usb_device_close();
    Bytes data = filled(10, 0x01);
    EXPECT_EQ(usb_device_write(data.data(), 10), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_THAT(usb.transfers(), IsEmpty());
}

TEST_F(IdCardWrite, RefusesDataThatIsNotThere) {
    open();
    EXPECT_EQ(usb_device_write(nullptr, 1), LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_THAT(usb.transfers(), IsEmpty());
}

TEST_F(IdCardRead, TakesTheFirstReportThatIsNotAllZeros) {
    open();
    Bytes report(64, 0);
    report[63] = 0x01; // the very last byte is enough
    answer(report);
    Bytes buffer(64, 0xEE);
    unsigned long length = 0;
    EXPECT_EQ(usb_device_read(buffer.data(), &length, dump_recv_completed, 1), 0);
    EXPECT_EQ(length, 64U);
    EXPECT_EQ(buffer, report);
    EXPECT_THAT(usb.log(), ElementsAre(kGetReport));
    EXPECT_THAT(pauses_us(), IsEmpty());
}

TEST_F(IdCardRead, PollsWithADotAndATenMillisecondPauseWhileTheReaderWorks) {
    open();
    answer(Bytes(128, 0));
    answer(filled(64, 0x10));
    Bytes buffer(64);
    unsigned long length = 0;
    CaptureStderr();
    EXPECT_EQ(usb_device_read(buffer.data(), &length, dump_recv_completed, 10), 0);
    EXPECT_EQ(GetCapturedStderr(), "..");
    EXPECT_EQ(buffer, filled(64, 0x10));
    EXPECT_THAT(usb.log(), ElementsAre(kGetReport, kGetReport, kGetReport));
    EXPECT_THAT(pauses_us(), ElementsAre(10'000, 10'000));
}

TEST_F(IdCardRead, TakesTheAllZeroReportWhenTheTriesRunOut) {
    open();
    Bytes buffer(64, 0xEE);
    unsigned long length = 0;
    CaptureStderr();
    EXPECT_EQ(usb_device_read(buffer.data(), &length, dump_recv_completed, 3), 0);
    EXPECT_EQ(GetCapturedStderr(), "...");
    EXPECT_EQ(length, 64U);
    EXPECT_EQ(buffer, Bytes(64, 0));
    EXPECT_EQ(usb.reads(), 3);
}

TEST_F(IdCardRead, TriesFiveHundredTimesWhenNoNumberIsGiven) {
    open();
    Bytes buffer(64);
    unsigned long length = 0;
    CaptureStderr();
    EXPECT_EQ(usb_device_read(buffer.data(), &length, dump_recv_completed, 0), 0);
    EXPECT_EQ(GetCapturedStderr(), std::string(500, '.'));
    EXPECT_EQ(usb.reads(), 500);
}

TEST_F(IdCardRead, ReportsAFailedPollOnALineOfItsOwn) {
    open();
    usb.fail_control(2, LIBUSB_ERROR_PIPE);
    Bytes buffer(64, 0xEE);
    unsigned long length = 7;
    CaptureStderr();
    EXPECT_EQ(standard_output([&] {
                  EXPECT_EQ(usb_device_read(buffer.data(), &length, dump_recv_completed, 5),
                            LIBUSB_ERROR_PIPE);
              }),
              "\nget report failed \n");
    EXPECT_EQ(GetCapturedStderr(), ".");
    EXPECT_EQ(length, 7U);
    EXPECT_EQ(buffer, Bytes(64, 0xEE));
}

TEST_F(IdCardRead, CollectsReportsUntilTheReplyIsWhole) {
    open();
    const Bytes reply = filled(192, 0x01);
    answer(reply);
    Bytes buffer(192, 0xEE);
    unsigned long length = 0;
    EXPECT_EQ(usb_device_read(buffer.data(), &length, completed_at_three_reports, 5), 0);
    EXPECT_EQ(length, 192U);
    EXPECT_EQ(buffer, reply);
    EXPECT_EQ(usb.reads(), 3);
}

TEST_F(IdCardRead, TakesFurtherReportsOfZerosAsData) {
    open();
    Bytes reply = filled(64, 0x01);
    reply.resize(192, 0);
    answer(reply);
    Bytes buffer(192, 0xEE);
    unsigned long length = 0;
    EXPECT_EQ(usb_device_read(buffer.data(), &length, completed_at_three_reports, 5), 0);
    EXPECT_EQ(buffer, reply);
    EXPECT_THAT(pauses_us(), IsEmpty());
}

TEST_F(IdCardRead, ReportsAFailureInsideTheReply) {
    open();
    answer(filled(192, 0x01));
    usb.fail_control(3, LIBUSB_ERROR_NO_DEVICE);
    Bytes buffer(192);
    unsigned long length = 0;
    EXPECT_EQ(standard_output([&] {
                  EXPECT_EQ(usb_device_read(buffer.data(), &length, completed_at_three_reports, 5),
                            LIBUSB_ERROR_NO_DEVICE);
              }),
              "get report failed \n");
    EXPECT_EQ(length, 128U);
}

TEST_F(IdCardRead, FillsUpShortReportsWithZeros) {
    open();
    for (const Bytes& report : {Bytes{0x11, 0x22}, Bytes{0x33}, Bytes{}}) {
        usb.answer_control(report);
    }
    Bytes buffer(192, 0xEE);
    unsigned long length = 0;
    EXPECT_EQ(usb_device_read(buffer.data(), &length, completed_at_three_reports, 5), 0);
    Bytes expected(192, 0);
    expected[0] = 0x11;
    expected[1] = 0x22;
    expected[64] = 0x33;
    EXPECT_EQ(buffer, expected);
}

TEST_F(IdCardRead, GivesUpOnAReplyThatIsNeverWhole) {
    open();
    answer(Bytes{0x01});
    Bytes buffer(qaven::idcard::kReplyCapacity); // to the byte: nothing may be written behind it
    unsigned long length = 0;
    EXPECT_EQ(standard_output([&] {
                  EXPECT_EQ(usb_device_read(buffer.data(), &length, never_completed, 1),
                            LIBUSB_ERROR_OVERFLOW);
              }),
              "get report failed \n");
    EXPECT_EQ(length, 65'600U);
    EXPECT_EQ(usb.reads(), 1025);
}

TEST_F(IdCardRead, WithoutAReaderNothingReachesLibusb) {
    Bytes buffer(64);
    unsigned long length = 0;
    EXPECT_EQ(standard_output([&] {
                  EXPECT_EQ(usb_device_read(buffer.data(), &length, dump_recv_completed, 1),
                            LIBUSB_ERROR_NO_DEVICE);
              }),
              "\nget report failed \n");
    EXPECT_THAT(usb.transfers(), IsEmpty());
}

TEST_F(IdCardRead, RefusesABufferLengthOrTestThatIsNotThere) {
    open();
    Bytes buffer(64);
    unsigned long length = 0;
    EXPECT_EQ(usb_device_read(nullptr, &length, dump_recv_completed, 1),
              LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(usb_device_read(buffer.data(), nullptr, dump_recv_completed, 1),
              LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(usb_device_read(buffer.data(), &length, nullptr, 1), LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_THAT(usb.transfers(), IsEmpty());
}

TEST_F(IdCardRead, ADumpIsCompleteWithAnySingleReport) {
    Bytes report(64, 0);
    EXPECT_EQ(dump_recv_completed(report.data(), 64), 1);
    EXPECT_EQ(dump_recv_completed(nullptr, 0), 1);
}

} // namespace
