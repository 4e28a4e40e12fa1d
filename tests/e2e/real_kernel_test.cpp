// What only a real kernel can say: how the reader looks in sysfs, who may open it, and what becomes
// of interfaces that are claimed and given up again and again.
#include "at_the_counter.h"

#include "console.h"
#include "virtual/reader/descriptors.h"

#include <libusb.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

using namespace qaven::test;

namespace {

namespace fs = std::filesystem;
namespace reader = qaven::virtual_reader;

std::string contents(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

std::string line_of(const fs::path& file) {
    const std::string text = contents(file);
    return text.substr(0, text.find('\n'));
}

std::string hex4(unsigned value) {
    constexpr std::size_t digits_and_end = 5;
    std::array<char, digits_and_end> text{};
    std::snprintf(text.data(), text.size(), "%04x", value);
    return text.data();
}

// The reader's folder in sysfs; empty when the kernel knows of none.
fs::path reader_in_sysfs() {
    for (const auto& device : fs::directory_iterator("/sys/bus/usb/devices")) {
        if (line_of(device.path() / "idVendor") == hex4(reader::kVendorId) &&
            line_of(device.path() / "idProduct") == hex4(reader::kProductId)) {
            return device.path();
        }
    }
    return {};
}

class InSysfs : public testing::Test {
  protected:
    void SetUp() override { ASSERT_FALSE(folder_.empty()) << "there is no reader on the bus"; }
    const fs::path folder_ = reader_in_sysfs();
};

TEST_F(InSysfs, TheReaderHasTheDescriptorsThatItSent) {
    std::string sent;
    for (const auto& descriptor :
         {reader::device_descriptor(), reader::configuration_descriptor()}) {
        sent.append(descriptor.begin(), descriptor.end());
    }
    EXPECT_EQ(contents(folder_ / "descriptors"), sent);
}

TEST_F(InSysfs, TheReaderIsAFullSpeedDeviceWithThreeInterfaces) {
    EXPECT_EQ(line_of(folder_ / "speed"), "12");
    EXPECT_EQ(line_of(folder_ / "bConfigurationValue"), "1");
    EXPECT_EQ(line_of(folder_ / "bNumInterfaces"), " 3");
    EXPECT_EQ(line_of(folder_ / "manufacturer"), "qaven");
    EXPECT_EQ(line_of(folder_ / "product"), "Virtual Card Reader");
}

TEST_F(InSysfs, BothSlotsAreInterfacesOfTheSmartCardClass) {
    for (const auto* const interface : {"1", "2"}) {
        const fs::path slot = folder_ / (folder_.filename().string() + ":1." + interface);
        EXPECT_EQ(line_of(slot / "bInterfaceClass"), "0b");
        EXPECT_EQ(line_of(slot / "bNumEndpoints"), "03");
    }
}

class UserWithoutPermission : public AtTheCounter {};

TEST_F(UserWithoutPermission, SeesTheReaderAndMayNotOpenIt) {
    libusb_context* context = nullptr;
    ASSERT_EQ(libusb_init(&context), 0);
    libusb_device** list = nullptr;
    const auto count = libusb_get_device_list(context, &list);
    int opened = LIBUSB_ERROR_NO_DEVICE;
    ASSERT_GE(count, 0);
    for (libusb_device* const device : std::span(list, static_cast<std::size_t>(count))) {
        libusb_device_descriptor descriptor{};
        libusb_get_device_descriptor(device, &descriptor);
        if (descriptor.idVendor == reader::kVendorId) {
            libusb_device_handle* handle = nullptr;
            opened = libusb_open(device, &handle);
        }
    }
    libusb_free_device_list(list, 1);
    libusb_exit(context);
    EXPECT_EQ(opened, LIBUSB_ERROR_ACCESS);
}

TEST_F(UserWithoutPermission, IsToldThatTheCardCannotBeRead) {
    CardInformation answer;
    const auto printed = printed_by([&answer] { answer = read_and_generate(); });
    EXPECT_EQ(answer.result, QAVEN_NO_APPLICATION);
    EXPECT_EQ(answer.errmsg, gbk("获取IC卡信息失败"));
    EXPECT_EQ(answer.resmsg, "");
    EXPECT_NE(printed.err.find("Cannot open device\n"), std::string::npos) << printed.err;
}

std::size_t times(const std::string& text, const std::string& what) {
    std::size_t count = 0;
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
        ++count;
    }
    return count;
}

class ListOfApplications : public AtTheCounter {};

TEST_F(ListOfApplications, OpensTheReaderForEachOfThemAndFindsTheLast) {
    constexpr std::size_t unknown_ones = 10;
    CardRequest request;
    request.arqc = "true";
    request.aids.clear();
    for (std::size_t i = 0; i < unknown_ones; ++i) {
        request.aids += std::string(kUnknown) + '|';
    }
    request.aids += kDebit;
    CardInformation answer;
    const auto printed = printed_by([&] { answer = get_card_information(request); });
    EXPECT_EQ(answer.result, 0);
    EXPECT_TRUE(issuer_.arqc(answer.arqc.field55).verified);
    const std::size_t openings = times(printed.out, "Device Opened\n");
    EXPECT_GT(openings, unknown_ones) << printed.out;
    EXPECT_EQ(times(printed.out, "Released Interface!\n"), openings - 1) << "the last one is kept";
    EXPECT_EQ(printed.err, "");
}

} // namespace
