// Finding the reader, claiming an interface, moving bytes; and every line printed on the way.
#include "usb/myusb.h"

#include "console.h"
#include "tests/support/fake_usb.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

using qaven::test::Call;
using qaven::test::ccid_reader;
using qaven::test::FakeDevice;
using qaven::test::FakeUsb;
using qaven::test::hex;
using qaven::test::Printed;
using qaven::test::printed_by;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int kVendor = 0x2F7A;
constexpr int kProduct = 0x4417;

FakeDevice device_with(std::vector<FakeDevice::Interface> interfaces) {
    FakeDevice device = ccid_reader();
    device.interfaces = std::move(interfaces);
    return device;
}

FakeDevice keyboard() {
    FakeDevice device;
    device.vendor = 0x046D;
    device.product = 0xC31C;
    device.interfaces = {{.settings = {{0x83}}}};
    return device;
}

class UsbReader : public testing::Test {
  protected:
    void TearDown() override {
        if (device.handle != nullptr || device.library_started) {
            device.close();
        }
    }

    // A reader connection on interface 2, endpoints 04 and 84.
    void connect() {
        usb.plug(ccid_reader());
        device.init(kVendor, kProduct);
        device.setInterface(2);
        ASSERT_EQ(device.open(), 0);
        usb.clear_log();
    }

    FakeUsb usb;
    Myusb device{};
};

// --- enumeration ---

TEST_F(UsbReader, InitAsksEveryDeviceForItsDescriptors) {
    usb.plug(keyboard());
    usb.plug(ccid_reader());
    const Printed printed = printed_by([&] { device.init(kVendor, kProduct); });
    EXPECT_THAT(usb.log(),
                ElementsAre("init", "get_device_list", "get_device_descriptor 046D:C31C",
                            "get_config_descriptor 046D:C31C 0", "free_config_descriptor",
                            "get_device_descriptor 2F7A:4417", "get_config_descriptor 2F7A:4417 0",
                            "free_config_descriptor", "free_device_list 1"));
    EXPECT_EQ(printed.out, "");
    EXPECT_EQ(printed.err, "");
    EXPECT_EQ(device.vendor_id, kVendor);
    EXPECT_EQ(device.product_id, kProduct);
    EXPECT_EQ(device.ctx, nullptr);
}

TEST_F(UsbReader, InitRecordsTheEndpointsOfEveryInterface) {
    usb.plug(ccid_reader());
    device.init(kVendor, kProduct);
    EXPECT_THAT(device.endpoint_table[0], ElementsAre(0x81, 0, 0, 0, 0));
    EXPECT_THAT(device.endpoint_table[1], ElementsAre(0x02, 0x82, 0x83, 0, 0));
    EXPECT_THAT(device.endpoint_table[2], ElementsAre(0x04, 0x84, 0x85, 0, 0));
    EXPECT_THAT(device.endpoint_table[3], Each(0));
}

TEST_F(UsbReader, DevicesWithOtherIdentifiersRecordNothing) {
    FakeDevice other_product = ccid_reader();
    other_product.product = 0x4463;
    FakeDevice other_vendor = ccid_reader();
    other_vendor.vendor = 0x2F7B;
    usb.plug(other_product);
    usb.plug(other_vendor);
    device.init(kVendor, kProduct);
    for (const auto& row : device.endpoint_table) {
        EXPECT_THAT(row, Each(0));
    }
}

TEST_F(UsbReader, ALaterAlternateSettingOverwritesAnEarlierOne) {
    usb.plug(device_with({{.settings = {{0x01, 0x81, 0x82}, {0x03, 0x83}}}}));
    device.init(kVendor, kProduct);
    EXPECT_THAT(device.endpoint_table[0], ElementsAre(0x03, 0x83, 0x82, 0, 0));
}

TEST_F(UsbReader, OfTwoReadersTheOneEnumeratedLastWins) {
    usb.plug(device_with({{.settings = {{0x01, 0x81, 0x82}}}}));
    usb.plug(device_with({{.settings = {{0x05, 0x86}}}}));
    device.init(kVendor, kProduct);
    EXPECT_THAT(device.endpoint_table[0], ElementsAre(0x05, 0x86, 0x82, 0, 0));
}

TEST_F(UsbReader, TheEndpointsOfAnEarlierEnumerationStay) {
    usb.plug(ccid_reader());
    device.init(kVendor, kProduct);
    device.close();
    usb.unplug();
    device.init(kVendor, kProduct);
    EXPECT_THAT(device.endpoint_table[2], ElementsAre(0x04, 0x84, 0x85, 0, 0));
}

TEST_F(UsbReader, InterfacesFromTheEleventhOnAndEndpointsFromTheSixthOnAreIgnored) {
    std::vector<FakeDevice::Interface> interfaces(12);
    for (FakeDevice::Interface& interface : interfaces) {
        interface.settings = {{0x01, 0x81, 0x02, 0x82, 0x03, 0x83, 0x04}};
    }
    usb.plug(device_with(interfaces));
    device.interface_number = 77;
    device.init(kVendor, kProduct);
    for (const auto& row : device.endpoint_table) {
        EXPECT_THAT(row, ElementsAre(0x01, 0x81, 0x02, 0x82, 0x03));
    }
    EXPECT_EQ(device.interface_number, 77);
}

TEST_F(UsbReader, ADeviceWithoutReadableDescriptorIsNamedAndPassedOver) {
    FakeDevice mute = ccid_reader();
    mute.device_descriptor_result = LIBUSB_ERROR_IO;
    usb.plug(mute);
    usb.plug(device_with({{.settings = {{0x05, 0x86}}}}));
    const Printed printed = printed_by([&] { device.init(kVendor, kProduct); });
    EXPECT_EQ(printed.out, "failed to get device descriptor\n");
    EXPECT_EQ(printed.err, "");
    EXPECT_THAT(device.endpoint_table[0], ElementsAre(0x05, 0x86, 0, 0, 0));
    EXPECT_THAT(device.endpoint_table[1], Each(0));
}

TEST_F(UsbReader, AConfigurationThatCannotBeReadIsPassedOverSilently) {
    FakeDevice unconfigured = ccid_reader();
    unconfigured.config_descriptor_result = LIBUSB_ERROR_NOT_FOUND;
    usb.plug(unconfigured);
    usb.plug(device_with({{.settings = {{0x05, 0x86}}}}));
    const Printed printed = printed_by([&] { device.init(kVendor, kProduct); });
    EXPECT_EQ(printed.out, "");
    EXPECT_EQ(printed.err, "");
    EXPECT_THAT(device.endpoint_table[0], ElementsAre(0x05, 0x86, 0, 0, 0));
    EXPECT_THAT(device.endpoint_table[1], Each(0));
}

TEST_F(UsbReader, AnEnumerationThatFailsIsReportedAndRecordsNothing) {
    usb.plug(ccid_reader());
    usb.fail(Call::kGetDeviceList, LIBUSB_ERROR_NO_MEM);
    const Printed printed = printed_by([&] { device.init(kVendor, kProduct); });
    EXPECT_EQ(printed.out, "");
    EXPECT_EQ(printed.err, "Get Device Error\n: No such device\n");
    EXPECT_THAT(device.endpoint_table[2], Each(0));
}

TEST_F(UsbReader, AStartUpThatFailsIsReportedAndTheConnectionIsTriedAllTheSame) {
    usb.plug(ccid_reader());
    usb.fail(Call::kInit, LIBUSB_ERROR_OTHER);
    const Printed printed = printed_by([&] {
        device.init(kVendor, kProduct);
        device.setInterface(2);
        EXPECT_EQ(device.open(), -1);
        device.close();
    });
    EXPECT_EQ(printed.out, "iccep0 = 0\niccep1 = 0\n"
                           "Cannot Released Interface!\nDevice Closed!\n");
    EXPECT_EQ(printed.err, "failed to initialise libusb\n"
                           "Get Device Error\n: No such device\n"
                           "Cannot open device\n: No such device\n");
    EXPECT_EQ(usb.starts(), 0);
}

TEST_F(UsbReader, AReaderThatIsNeverFoundLeavesOneStartToBeEnded) {
    for (int attempt = 0; attempt < 3; ++attempt) {
        device.init(kVendor, kProduct);
        EXPECT_EQ(device.open(), -1);
    }
    EXPECT_EQ(usb.starts(), 1);
    device.close();
    EXPECT_EQ(usb.starts(), 0);
}

TEST_F(UsbReader, InitEndsAConnectionThatIsStillHeld) {
    connect();
    const Printed printed = printed_by([&] { device.init(kVendor, kProduct); });
    EXPECT_EQ(printed.out, "Released Interface!\nDevice Closed!\n");
    EXPECT_THAT(usb.log(),
                ElementsAre("release_interface 2", "close", "exit", "init", "get_device_list",
                            "get_device_descriptor 2F7A:4417", "get_config_descriptor 2F7A:4417 0",
                            "free_config_descriptor", "free_device_list 1"));
    EXPECT_EQ(device.handle, nullptr);
}

// --- choice of the interface ---

TEST_F(UsbReader, TheSmallerAddressIsOutAndTheLargerIsIn) {
    usb.plug(ccid_reader());
    device.init(kVendor, kProduct);
    const Printed printed = printed_by([&] { EXPECT_EQ(device.setInterface(2), 0); });
    EXPECT_EQ(printed.out, "iccep0 = 4\niccep1 = 132\n");
    EXPECT_EQ(device.interface_number, 2);
    EXPECT_EQ(device.ep_out, 0x04);
    EXPECT_EQ(device.ep_in, 0x84);
}

TEST_F(UsbReader, AnInterfaceThatListsItsInEndpointFirstIsUnderstood) {
    usb.plug(device_with({{.settings = {{0x81, 0x02, 0x83}}}}));
    device.init(kVendor, kProduct);
    const Printed printed = printed_by([&] { EXPECT_EQ(device.setInterface(0), 0); });
    EXPECT_EQ(printed.out, "iccep0 = 2\niccep1 = 129\n");
    EXPECT_EQ(device.ep_out, 0x02);
    EXPECT_EQ(device.ep_in, 0x81);
}

TEST_F(UsbReader, OnlyTheFirstTwoEndpointsCount) {
    usb.plug(device_with({{.settings = {{0x83, 0x02, 0x81, 0x01}}}}));
    device.init(kVendor, kProduct);
    device.setInterface(0);
    EXPECT_EQ(device.ep_out, 0x02);
    EXPECT_EQ(device.ep_in, 0x83);
}

TEST_F(UsbReader, AnInterfaceWithOneEndpointGetsItAsTheLargerOne) {
    usb.plug(device_with({{.settings = {{0x81}}}}));
    device.init(kVendor, kProduct);
    const Printed printed = printed_by([&] { device.setInterface(0); });
    EXPECT_EQ(printed.out, "iccep0 = 0\niccep1 = 129\n");
}

TEST_F(UsbReader, AnInterfaceWithoutEndpointsHasNoneButMayStillBeOpened) {
    usb.plug(device_with({{.settings = {{0x01, 0x81}}}, {.settings = {{}}}}));
    device.init(kVendor, kProduct);
    device.setInterface(0);
    const Printed printed = printed_by([&] { EXPECT_EQ(device.setInterface(1), 0); });
    EXPECT_EQ(printed.out, "iccep0 = 0\niccep1 = 0\n");
    EXPECT_EQ(device.ep_out, 0);
    EXPECT_EQ(device.ep_in, 0);
    EXPECT_EQ(device.open(), 0);
}

TEST_F(UsbReader, AnInterfaceOutsideTheTableHasNoEndpoints) {
    usb.plug(ccid_reader());
    device.init(kVendor, kProduct);
    for (const int outside : {-1, 10, 1000000}) {
        device.setInterface(2);
        const Printed printed = printed_by([&] { EXPECT_EQ(device.setInterface(outside), 0); });
        EXPECT_EQ(printed.out, "iccep0 = 0\niccep1 = 0\n") << outside;
        EXPECT_EQ(device.ep_out, 0);
        EXPECT_EQ(device.ep_in, 0);
        EXPECT_EQ(device.interface_number, outside);
    }
}

// --- opening ---

TEST_F(UsbReader, OpeningClaimsTheChosenInterface) {
    usb.plug(ccid_reader());
    device.init(kVendor, kProduct);
    device.setInterface(2);
    usb.clear_log();
    const Printed printed = printed_by([&] { EXPECT_EQ(device.open(), 0); });
    EXPECT_EQ(printed.out, "Device Opened\n");
    EXPECT_EQ(printed.err, "");
    EXPECT_THAT(usb.log(),
                ElementsAre("open 2F7A:4417", "kernel_driver_active 2", "claim_interface 2"));
    EXPECT_NE(device.handle, nullptr);
}

TEST_F(UsbReader, OpeningAnOpenReaderGivesTheOldHandleBack) {
    connect();
    const Printed printed = printed_by([&] { EXPECT_EQ(device.open(), 0); });
    EXPECT_EQ(printed.out, "Device Opened\n");
    EXPECT_THAT(usb.log(), ElementsAre("release_interface 2", "close", "open 2F7A:4417",
                                       "kernel_driver_active 2", "claim_interface 2"));
    EXPECT_EQ(usb.open_handles(), 1);
}

TEST_F(UsbReader, WithoutAReaderOpeningFailsWithASystemError) {
    device.init(kVendor, kProduct);
    device.setInterface(2);
    const Printed printed = printed_by([&] { EXPECT_EQ(device.open(), -1); });
    EXPECT_EQ(printed.out, "");
    EXPECT_EQ(printed.err, "Cannot open device\n: No such device\n");
    EXPECT_EQ(device.handle, nullptr);
}

TEST_F(UsbReader, OnlyTheLowSixteenBitsOfTheIdentifiersReachLibusb) {
    usb.plug(ccid_reader());
    device.init(0x10000 | kVendor, 0x70000 | kProduct);
    usb.clear_log();
    EXPECT_EQ(device.open(), 0);
    EXPECT_EQ(usb.log().front(), "open 2F7A:4417");
}

TEST_F(UsbReader, AKernelDriverIsDetachedBeforeTheClaim) {
    FakeDevice reader = ccid_reader();
    reader.interfaces[2].kernel_driver = true;
    usb.plug(reader);
    device.init(kVendor, kProduct);
    device.setInterface(2);
    usb.clear_log();
    const Printed printed = printed_by([&] { EXPECT_EQ(device.open(), 0); });
    EXPECT_EQ(printed.out, "Device Opened\nKernel Driver Active\nKernel Driver Detached!\n");
    EXPECT_EQ(printed.err, "");
    EXPECT_THAT(usb.log(), ElementsAre("open 2F7A:4417", "kernel_driver_active 2",
                                       "detach_kernel_driver 2", "claim_interface 2"));
}

TEST_F(UsbReader, AKernelDriverThatStaysIsNoErrorByItself) {
    usb.plug(ccid_reader());
    usb.fail(Call::kKernelDriverActive, 1);
    usb.fail(Call::kDetachKernelDriver, LIBUSB_ERROR_OTHER);
    device.init(kVendor, kProduct);
    device.setInterface(2);
    const Printed printed = printed_by([&] { EXPECT_EQ(device.open(), 0); });
    EXPECT_EQ(printed.out, "Device Opened\nKernel Driver Active\n");
    EXPECT_EQ(printed.err, "");
}

TEST_F(UsbReader, AnyAnswerButOneMeansThatNoKernelDriverIsActive) {
    usb.plug(ccid_reader());
    device.init(kVendor, kProduct);
    device.setInterface(2);
    for (const int answer : {static_cast<int>(LIBUSB_ERROR_NOT_SUPPORTED), 2}) {
        usb.fail(Call::kKernelDriverActive, answer);
        usb.clear_log();
        const Printed printed = printed_by([&] { EXPECT_EQ(device.open(), 0); });
        EXPECT_EQ(printed.out, "Device Opened\n") << answer;
        EXPECT_THAT(usb.log(),
                    ElementsAre("open 2F7A:4417", "kernel_driver_active 2", "claim_interface 2"));
        device.close();
        device.init(kVendor, kProduct);
    }
}

TEST_F(UsbReader, ARefusedClaimFailsAndKeepsTheHandle) {
    usb.plug(ccid_reader());
    usb.fail(Call::kClaim, LIBUSB_ERROR_BUSY);
    device.init(kVendor, kProduct);
    device.setInterface(2);
    usb.clear_log();
    const Printed printed = printed_by([&] { EXPECT_EQ(device.open(), -1); });
    EXPECT_EQ(printed.out, "Device Opened\n");
    EXPECT_EQ(printed.err, "Cannot Claim Interface\n: No such device\n");
    EXPECT_THAT(usb.log(),
                ElementsAre("open 2F7A:4417", "kernel_driver_active 2", "claim_interface 2"));
    EXPECT_NE(device.handle, nullptr);
    EXPECT_EQ(usb.open_handles(), 1);
}

// --- closing ---

TEST_F(UsbReader, ClosingReleasesClosesAndEndsTheLibrary) {
    connect();
    const Printed printed = printed_by([&] { device.close(); });
    EXPECT_EQ(printed.out, "Released Interface!\nDevice Closed!\n");
    EXPECT_EQ(printed.err, "");
    EXPECT_THAT(usb.log(), ElementsAre("release_interface 2", "close", "exit"));
    EXPECT_EQ(device.handle, nullptr);
    EXPECT_EQ(usb.starts(), 0);
}

TEST_F(UsbReader, ARefusedReleaseIsReportedAndTheReaderClosedAllTheSame) {
    connect();
    usb.fail(Call::kRelease, LIBUSB_ERROR_NO_DEVICE);
    const Printed printed = printed_by([&] { device.close(); });
    EXPECT_EQ(printed.out, "Cannot Released Interface!\nDevice Closed!\n");
    EXPECT_THAT(usb.log(), ElementsAre("release_interface 2", "close", "exit"));
    EXPECT_EQ(device.handle, nullptr);
}

TEST_F(UsbReader, ClosingWithoutAHandleEndsTheLibraryAlone) {
    device.init(kVendor, kProduct);
    usb.clear_log();
    const Printed printed = printed_by([&] { device.close(); });
    EXPECT_EQ(printed.out, "Cannot Released Interface!\nDevice Closed!\n");
    EXPECT_EQ(printed.err, "");
    EXPECT_THAT(usb.log(), ElementsAre("exit"));
}

TEST_F(UsbReader, ClosingWhatWasNeverStartedTouchesNothing) {
    const Printed printed = printed_by([&] { device.close(); });
    EXPECT_EQ(printed.out, "Cannot Released Interface!\nDevice Closed!\n");
    EXPECT_THAT(usb.log(), IsEmpty());
}

TEST_F(UsbReader, ClosingTwiceTouchesTheReaderOnce) {
    connect();
    device.close();
    usb.clear_log();
    const Printed printed = printed_by([&] { device.close(); });
    EXPECT_EQ(printed.out, "Cannot Released Interface!\nDevice Closed!\n");
    EXPECT_THAT(usb.log(), IsEmpty());
}

TEST_F(UsbReader, ANewConnectionStartsAgainWithInit) {
    connect();
    device.close();
    device.init(kVendor, kProduct);
    device.setInterface(1);
    usb.clear_log();
    EXPECT_EQ(device.open(), 0);
    EXPECT_THAT(usb.log(),
                ElementsAre("open 2F7A:4417", "kernel_driver_active 1", "claim_interface 1"));
}

// --- transfers ---

TEST_F(UsbReader, WritingSendsToTheOutEndpoint) {
    connect();
    std::array<unsigned char, 3> data{0x62, 0x00, 0xFF};
    const Printed printed = printed_by([&] { EXPECT_EQ(device.write(data.data(), 3), 0); });
    EXPECT_EQ(printed.out, "write Successful!\n");
    EXPECT_EQ(printed.err, "");
    EXPECT_THAT(usb.log(), ElementsAre("bulk_out 04 10000ms 6200FF"));
    EXPECT_EQ(device.transferred, 3);
}

TEST_F(UsbReader, AFailedWriteGivesTheLibusbCode) {
    connect();
    std::array<unsigned char, 3> data{0x62, 0x00, 0xFF};
    usb.fail_bulk(1, LIBUSB_ERROR_TIMEOUT, "62");
    const Printed printed =
        printed_by([&] { EXPECT_EQ(device.write(data.data(), 3), LIBUSB_ERROR_TIMEOUT); });
    EXPECT_EQ(printed.out, "write error!\n");
    EXPECT_EQ(printed.err, "");
    EXPECT_EQ(device.transferred, 1);
}

TEST_F(UsbReader, ReadingReportsResultAndByteCount) {
    connect();
    usb.answer("80 02000000 00 00 00 00 00 9000");
    std::array<unsigned char, 64> data{};
    const Printed printed = printed_by([&] { EXPECT_EQ(device.read(data.data(), 64), 0); });
    EXPECT_EQ(printed.out, "read Successful!\nread-ret = 0, transferred =12\n");
    EXPECT_EQ(printed.err, "");
    EXPECT_THAT(usb.log(), ElementsAre("bulk_in 84 64 10000ms"));
    EXPECT_EQ(hex(std::span(data).first(13)), "800200000000000000009000"
                                              "00");
    EXPECT_EQ(device.transferred, 12);
}

TEST_F(UsbReader, AReadThatTimesOutGivesMinusOneAndNoCount) {
    connect();
    std::array<unsigned char, 64> data{};
    const Printed printed = printed_by([&] { EXPECT_EQ(device.read(data.data(), 64), -1); });
    EXPECT_EQ(printed.out, "read error!\n");
    EXPECT_EQ(printed.err, "");
}

TEST_F(UsbReader, EveryFailureOfAReadIsMinusOne) {
    connect();
    std::array<unsigned char, 64> data{};
    for (const int code : {LIBUSB_ERROR_IO, LIBUSB_ERROR_PIPE, LIBUSB_ERROR_OVERFLOW,
                           LIBUSB_ERROR_NO_DEVICE, LIBUSB_ERROR_OTHER}) {
        usb.answer_failure(code);
        EXPECT_EQ(device.read(data.data(), 64), -1) << code;
    }
}

TEST_F(UsbReader, ReadingWithATimeOutReportsItsCountOnSuccess) {
    connect();
    usb.answer("8081");
    std::array<unsigned char, 64> data{};
    const Printed printed =
        printed_by([&] { EXPECT_EQ(device.readTimeout(data.data(), 64, 250), 0); });
    EXPECT_EQ(printed.out, "read Successful!\nreadtimeout-ret = 0, transferred =2\n");
    EXPECT_EQ(printed.err, "");
    EXPECT_THAT(usb.log(), ElementsAre("bulk_in 84 64 250ms"));
}

TEST_F(UsbReader, ReadingWithATimeOutReportsItsCountOnFailureToo) {
    connect();
    std::array<unsigned char, 64> data{};
    Printed printed = printed_by(
        [&] { EXPECT_EQ(device.readTimeout(data.data(), 64, 250), LIBUSB_ERROR_TIMEOUT); });
    EXPECT_EQ(printed.out, "read error!\nreadtimeout-ret = -7, transferred =0\n");
    usb.answer_failure(LIBUSB_ERROR_PIPE, "800500");
    printed =
        printed_by([&] { EXPECT_EQ(device.readTimeout(data.data(), 64, 250), LIBUSB_ERROR_PIPE); });
    EXPECT_EQ(printed.out, "read error!\nreadtimeout-ret = -9, transferred =3\n");
    EXPECT_EQ(printed.err, "");
}

TEST_F(UsbReader, AReadWithoutTimeToWaitDoesNotWaitForEver) {
    // To libusb a time-out of 0 is none at all.
    connect();
    std::array<unsigned char, 64> data{};
    device.readTimeout(data.data(), 64, 0);
    device.readTimeout(data.data(), 64, -5);
    EXPECT_THAT(usb.log(), ElementsAre("bulk_in 84 64 1ms", "bulk_in 84 64 1ms"));
}

TEST_F(UsbReader, AZeroLengthPacketIsASuccessfulRead) {
    connect();
    usb.answer("");
    std::array<unsigned char, 64> data{};
    const Printed printed =
        printed_by([&] { EXPECT_EQ(device.readTimeout(data.data(), 64, 250), 0); });
    EXPECT_EQ(printed.out, "read Successful!\nreadtimeout-ret = 0, transferred =0\n");
}

TEST_F(UsbReader, OnlyTheLowByteOfAnEndpointReachesLibusb) {
    connect();
    device.ep_out = 0x7F04;
    device.ep_in = 0x7F84;
    std::array<unsigned char, 64> data{};
    device.write(data.data(), 1);
    device.readTimeout(data.data(), 64, 5);
    EXPECT_THAT(usb.log(), ElementsAre("bulk_out 04 10000ms 00", "bulk_in 84 64 5ms"));
}

TEST_F(UsbReader, TransfersOnAnInterfaceWithoutEndpointsFailInLibusb) {
    usb.plug(ccid_reader());
    device.init(kVendor, kProduct);
    device.setInterface(9);
    device.interface_number = 2;
    ASSERT_EQ(device.open(), 0);
    usb.clear_log();
    std::array<unsigned char, 64> data{};
    EXPECT_EQ(device.write(data.data(), 1), LIBUSB_ERROR_IO);
    EXPECT_THAT(usb.log(), ElementsAre("bulk_out 00 10000ms 00"));
}

TEST_F(UsbReader, ANegativeLengthNeverReachesLibusb) {
    connect();
    std::array<unsigned char, 64> data{};
    EXPECT_LT(device.write(data.data(), -1), 0);
    EXPECT_EQ(device.read(data.data(), -1), -1);
    EXPECT_LT(device.readTimeout(data.data(), -1, 5), 0);
    EXPECT_THAT(usb.log(), IsEmpty());
}

TEST_F(UsbReader, AnUnpluggedReaderFailsEveryTransfer) {
    connect();
    usb.unplug();
    std::array<unsigned char, 64> data{};
    EXPECT_EQ(device.write(data.data(), 1), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(device.read(data.data(), 64), -1);
    EXPECT_EQ(device.readTimeout(data.data(), 64, 5), LIBUSB_ERROR_NO_DEVICE);
}

TEST_F(UsbReader, WithoutAHandleTransfersAreRefusedBeforeTheyReachLibusb) {
    device.init(kVendor, kProduct);
    EXPECT_EQ(device.open(), -1);
    usb.clear_log();
    std::array<unsigned char, 64> data{};
    Printed printed = printed_by([&] { EXPECT_EQ(device.write(data.data(), 10), -8); });
    EXPECT_EQ(printed.out, "write error!\n");
    printed = printed_by([&] { EXPECT_EQ(device.read(data.data(), 64), -1); });
    EXPECT_EQ(printed.out, "read error!\n");
    printed = printed_by([&] { EXPECT_EQ(device.readTimeout(data.data(), 64, 5), -8); });
    EXPECT_EQ(printed.out, "read error!\nreadtimeout-ret = -8, transferred =0\n");
    EXPECT_EQ(printed.err, "");
    EXPECT_THAT(usb.log(), IsEmpty());
}

TEST_F(UsbReader, AfterClosingTransfersAreRefusedToo) {
    connect();
    std::array<unsigned char, 64> data{};
    usb.answer("8081");
    EXPECT_EQ(device.read(data.data(), 64), 0);
    EXPECT_EQ(device.transferred, 2);
    device.close();
    usb.clear_log();
    EXPECT_EQ(device.write(data.data(), 10), -8);
    EXPECT_EQ(device.transferred, 0);
    EXPECT_EQ(device.read(data.data(), 64), -1);
    EXPECT_EQ(device.readTimeout(data.data(), 64, 5), -8);
    EXPECT_THAT(usb.log(), IsEmpty());
}

} // namespace
