// Opening and closing the identity-card reader, and reports in both directions, seen from libusb.
#include "idcard_fixture.h"

using namespace idcard_test;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

using Calls = std::vector<std::string>;

class IdCardOpen : public IdCard {};
class IdCardWrite : public IdCard {};
class IdCardRead : public IdCard {};

ControlTransfer set_report(const Bytes& report) {
    return {.request_type = 0x21,
            .request = 9,
            .value = 0x0200,
            .index = 0,
            .length = 64,
            .timeout = 0,
            .data = report};
}

ControlTransfer get_report() {
    return {.request_type = 0xA1,
            .request = 1,
            .value = 0x0100,
            .index = 0,
            .length = 64,
            .timeout = 0,
            .data = {}};
}

int never_completed(unsigned char* /*buf*/, unsigned long /*len*/) {
    return 0;
}

int completed_at_three_reports(unsigned char* /*buf*/, unsigned long len) {
    return len >= 192 ? 1 : 0;
}

TEST_F(IdCardOpen, OpensTheReaderAndClaimsItsFirstInterface) {
    EXPECT_EQ(standard_output([] { EXPECT_EQ(usb_device_open(), 0); }), "");
    EXPECT_EQ(reader().calls, (Calls{"init", "open 2f7a:4463", "driver? 0", "claim 0"}));
}

TEST_F(IdCardOpen, GivesTheCodeOfAFailedStartUp) {
    reader().init_result = -99;
    EXPECT_EQ(standard_output([] { EXPECT_EQ(usb_device_open(), -99); }),
              "initialise libusb failed \n");
    EXPECT_EQ(reader().calls, (Calls{"init"}));
}

TEST_F(IdCardOpen, ReportsAMissingReaderByItsMessageOnly) {
    reader().attached = false;
    EXPECT_EQ(standard_output([] { EXPECT_EQ(usb_device_open(), 0); }), "open device failed \n");
    EXPECT_EQ(reader().calls, (Calls{"init", "open 2f7a:4463"}));
}

TEST_F(IdCardOpen, DetachesAKernelDriverBeforeTheClaim) {
    reader().driver_active_result = 1;
    EXPECT_EQ(standard_output([] { EXPECT_EQ(usb_device_open(), 0); }),
              "Kernel Driver Active\nKernel Driver Detached!\n");
    EXPECT_EQ(reader().calls,
              (Calls{"init", "open 2f7a:4463", "driver? 0", "detach 0", "claim 0"}));
}

TEST_F(IdCardOpen, ClaimsEvenWhenTheDriverStays) {
    reader().driver_active_result = 1;
    reader().detach_result = access_denied;
    EXPECT_EQ(standard_output([] { EXPECT_EQ(usb_device_open(), 0); }), "Kernel Driver Active\n");
    EXPECT_EQ(reader().calls.back(), "claim 0");
}

TEST_F(IdCardOpen, DetachesNothingWhereTheSystemCannotTell) {
    reader().driver_active_result = -12; // not supported on this platform
    EXPECT_EQ(standard_output([] { EXPECT_EQ(usb_device_open(), 0); }), "");
    EXPECT_EQ(reader().calls, (Calls{"init", "open 2f7a:4463", "driver? 0", "claim 0"}));
}

TEST_F(IdCardOpen, GivesTheCodeOfARefusedClaim) {
    reader().claim_result = busy;
    EXPECT_EQ(standard_output([] { EXPECT_EQ(usb_device_open(), busy); }),
              "Claim Interface failed!\n");
}

TEST_F(IdCardOpen, HoldsAReaderWhoseClaimWasRefusedUntilItIsClosed) {
    reader().claim_result = busy;
    usb_device_open();
    reader().calls.clear();
    EXPECT_EQ(usb_device_close(), 0);
    EXPECT_EQ(reader().calls, (Calls{"release 0", "close", "exit"}));
}

TEST_F(IdCardOpen, ClosesWithReleaseCloseAndTheEndOfLibusb) {
    open();
    EXPECT_EQ(standard_output([] { EXPECT_EQ(usb_device_close(), 0); }), "");
    EXPECT_EQ(reader().calls, (Calls{"release 0", "close", "exit"}));
}

TEST_F(IdCardOpen, ClosingWithoutAReaderOnlyEndsLibusb) {
    reader().attached = false;
    usb_device_open();
    reader().calls.clear();
    EXPECT_EQ(usb_device_close(), 0);
    EXPECT_EQ(reader().calls, (Calls{"exit"}));
}

TEST_F(IdCardOpen, ClosingWhatWasNeverStartedLeavesLibusbToItsOtherUsers) {
    EXPECT_EQ(usb_device_close(), 0);
    reader().init_result = -99;
    usb_device_open();
    EXPECT_EQ(usb_device_close(), 0);
    EXPECT_EQ(reader().calls, (Calls{"init"}));
}

TEST_F(IdCardOpen, ClosingTwiceEndsLibusbOnce) {
    open();
    usb_device_close();
    reader().calls.clear();
    EXPECT_EQ(usb_device_close(), 0);
    EXPECT_EQ(reader().calls, Calls{});
}

TEST_F(IdCardOpen, OpeningAgainEndsTheHeldConnectionFirst) {
    open();
    EXPECT_EQ(usb_device_open(), 0);
    EXPECT_EQ(reader().calls, (Calls{"release 0", "close", "exit", "init", "open 2f7a:4463",
                                     "driver? 0", "claim 0"}));
}

TEST_F(IdCardWrite, SendsATenByteFrameAsOneReportPaddedWithZeros) {
    open();
    Bytes frame = filled(10, 0x41);
    EXPECT_EQ(standard_output([&] { EXPECT_EQ(usb_device_write(frame.data(), 10), 0); }), "");
    EXPECT_EQ(reader().transfers, std::vector{set_report(padded_report(frame))});
}

TEST_F(IdCardWrite, SendsAHundredAndThirtyBytesAsThreeReports) {
    open();
    Bytes data = filled(130, 0x01);
    EXPECT_EQ(usb_device_write(data.data(), data.size()), 0);
    EXPECT_EQ(reader().transfers,
              (std::vector{set_report(Bytes(data.begin(), data.begin() + 64)),
                           set_report(Bytes(data.begin() + 64, data.begin() + 128)),
                           set_report(padded_report({data[128], data[129]}))}));
}

TEST_F(IdCardWrite, SendsWholeReportsWithoutAnEmptyOneBehindThem) {
    open();
    Bytes data = filled(128, 0x01);
    EXPECT_EQ(usb_device_write(data.data(), 64), 0);
    EXPECT_EQ(reader().sent().size(), 1U);
    EXPECT_EQ(usb_device_write(data.data(), 65), 0);
    EXPECT_EQ(reader().sent().size(), 3U);
    EXPECT_EQ(usb_device_write(data.data(), 128), 0);
    EXPECT_EQ(reader().sent().size(), 5U);
    EXPECT_EQ(reader().sent().back(), Bytes(data.begin() + 64, data.end()));
}

TEST_F(IdCardWrite, SendsNoDataAsOneReportOfZeros) {
    open();
    EXPECT_EQ(usb_device_write(nullptr, 0), 0);
    EXPECT_EQ(reader().sent(), (std::vector<Bytes>{Bytes(64, 0)}));
}

TEST_F(IdCardWrite, StopsAtTheFirstReportThatFails) {
    open();
    reader().failures_at[0] = pipe_error;
    Bytes data = filled(130, 0x01);
    EXPECT_EQ(standard_output([&] { EXPECT_EQ(usb_device_write(data.data(), 130), pipe_error); }),
              "set report failed \n");
    EXPECT_EQ(reader().sent().size(), 1U);
}

TEST_F(IdCardWrite, ReportsAFailureOfTheLastReport) {
    open();
    reader().failures_at[2] = no_device;
    Bytes data = filled(130, 0x01);
    EXPECT_EQ(standard_output([&] { EXPECT_EQ(usb_device_write(data.data(), 130), no_device); }),
              "set report failed \n");
    EXPECT_EQ(reader().sent().size(), 3U);
}

TEST_F(IdCardWrite, WithoutAReaderNothingReachesLibusb) {
    Bytes data = filled(130, 0x01);
    EXPECT_EQ(standard_output([&] { EXPECT_EQ(usb_device_write(data.data(), 130), no_device); }),
              "set report failed \n");
    EXPECT_TRUE(reader().transfers.empty());
}

TEST_F(IdCardWrite, AfterTheCloseNothingReachesLibusb) {
    open();
    usb_device_close();
    Bytes data = filled(10, 0x01);
    EXPECT_EQ(usb_device_write(data.data(), 10), no_device);
    EXPECT_TRUE(reader().transfers.empty());
}

TEST_F(IdCardWrite, RefusesDataThatIsNotThere) {
    open();
    EXPECT_EQ(usb_device_write(nullptr, 1), invalid_parameter);
    EXPECT_TRUE(reader().transfers.empty());
}

TEST_F(IdCardRead, TakesTheFirstReportThatIsNotAllZeros) {
    open();
    Bytes report(64, 0);
    report[63] = 0x01; // the very last byte is enough
    reader().answer(report);
    Bytes buffer(64, 0xEE);
    unsigned long length = 0;
    EXPECT_EQ(usb_device_read(buffer.data(), &length, dump_recv_completed, 1), 0);
    EXPECT_EQ(length, 64U);
    EXPECT_EQ(buffer, report);
    EXPECT_EQ(reader().transfers, std::vector{get_report()});
    EXPECT_TRUE(reader().pauses_us.empty());
}

TEST_F(IdCardRead, PollsWithADotAndATenMillisecondPauseWhileTheReaderWorks) {
    open();
    reader().input_reports = {Bytes(64, 0), Bytes(64, 0)};
    reader().answer(filled(64, 0x10));
    Bytes buffer(64);
    unsigned long length = 0;
    CaptureStderr();
    EXPECT_EQ(usb_device_read(buffer.data(), &length, dump_recv_completed, 10), 0);
    EXPECT_EQ(GetCapturedStderr(), "..");
    EXPECT_EQ(buffer, filled(64, 0x10));
    EXPECT_EQ(reader().transfers, (std::vector{get_report(), get_report(), get_report()}));
    EXPECT_EQ(reader().pauses_us, (std::vector<unsigned>{10'000, 10'000}));
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
    EXPECT_EQ(reader().reports_asked_for(), 3U);
}

TEST_F(IdCardRead, TriesFiveHundredTimesWhenNoNumberIsGiven) {
    open();
    Bytes buffer(64);
    unsigned long length = 0;
    CaptureStderr();
    EXPECT_EQ(usb_device_read(buffer.data(), &length, dump_recv_completed, 0), 0);
    EXPECT_EQ(GetCapturedStderr(), std::string(500, '.'));
    EXPECT_EQ(reader().reports_asked_for(), 500U);
}

TEST_F(IdCardRead, ReportsAFailedPollOnALineOfItsOwn) {
    open();
    reader().failures_at[1] = pipe_error;
    Bytes buffer(64, 0xEE);
    unsigned long length = 7;
    CaptureStderr();
    EXPECT_EQ(standard_output([&] {
                  EXPECT_EQ(usb_device_read(buffer.data(), &length, dump_recv_completed, 5),
                            pipe_error);
              }),
              "\nget report failed \n");
    EXPECT_EQ(GetCapturedStderr(), ".");
    EXPECT_EQ(length, 7U);
    EXPECT_EQ(buffer, Bytes(64, 0xEE));
}

TEST_F(IdCardRead, CollectsReportsUntilTheReplyIsWhole) {
    open();
    const Bytes reply = filled(192, 0x01);
    reader().answer(reply);
    Bytes buffer(192, 0xEE);
    unsigned long length = 0;
    EXPECT_EQ(usb_device_read(buffer.data(), &length, completed_at_three_reports, 5), 0);
    EXPECT_EQ(length, 192U);
    EXPECT_EQ(buffer, reply);
    EXPECT_EQ(reader().reports_asked_for(), 3U);
}

TEST_F(IdCardRead, TakesFurtherReportsOfZerosAsData) {
    open();
    Bytes reply = filled(64, 0x01);
    reply.resize(192, 0);
    reader().answer(reply);
    Bytes buffer(192, 0xEE);
    unsigned long length = 0;
    EXPECT_EQ(usb_device_read(buffer.data(), &length, completed_at_three_reports, 5), 0);
    EXPECT_EQ(buffer, reply);
    EXPECT_TRUE(reader().pauses_us.empty());
}

TEST_F(IdCardRead, ReportsAFailureInsideTheReply) {
    open();
    reader().answer(filled(192, 0x01));
    reader().failures_at[2] = no_device;
    Bytes buffer(192);
    unsigned long length = 0;
    EXPECT_EQ(standard_output([&] {
                  EXPECT_EQ(usb_device_read(buffer.data(), &length, completed_at_three_reports, 5),
                            no_device);
              }),
              "get report failed \n");
    EXPECT_EQ(length, 128U);
}

TEST_F(IdCardRead, FillsUpShortReportsWithZeros) {
    open();
    reader().input_reports = {{0x11, 0x22}, {0x33}, {}};
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
    reader().answer(Bytes{0x01});
    Bytes buffer(qaven::idcard::reply_capacity); // to the byte: nothing may be written behind it
    unsigned long length = 0;
    EXPECT_EQ(standard_output([&] {
                  EXPECT_EQ(usb_device_read(buffer.data(), &length, never_completed, 1), overflow);
              }),
              "get report failed \n");
    EXPECT_EQ(length, 65'600U);
    EXPECT_EQ(reader().reports_asked_for(), 1025U);
}

TEST_F(IdCardRead, WithoutAReaderNothingReachesLibusb) {
    Bytes buffer(64);
    unsigned long length = 0;
    EXPECT_EQ(standard_output([&] {
                  EXPECT_EQ(usb_device_read(buffer.data(), &length, dump_recv_completed, 1),
                            no_device);
              }),
              "\nget report failed \n");
    EXPECT_TRUE(reader().transfers.empty());
}

TEST_F(IdCardRead, RefusesABufferLengthOrTestThatIsNotThere) {
    open();
    Bytes buffer(64);
    unsigned long length = 0;
    EXPECT_EQ(usb_device_read(nullptr, &length, dump_recv_completed, 1), invalid_parameter);
    EXPECT_EQ(usb_device_read(buffer.data(), nullptr, dump_recv_completed, 1), invalid_parameter);
    EXPECT_EQ(usb_device_read(buffer.data(), &length, nullptr, 1), invalid_parameter);
    EXPECT_TRUE(reader().transfers.empty());
}

TEST_F(IdCardRead, ADumpIsCompleteWithAnySingleReport) {
    Bytes report(64, 0);
    EXPECT_EQ(dump_recv_completed(report.data(), 64), 1);
    EXPECT_EQ(dump_recv_completed(nullptr, 0), 1);
}

} // namespace
