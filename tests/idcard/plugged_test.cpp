// The shipped library on real libusb, with a virtual identity-card reader in a USB port. One suite
// per set of the launcher's options.
#include "idcard/icc.h"

#include <qaven/qaven.h>

#include <gtest/gtest.h>

#include <array>
#include <span>
#include <string>
#include <vector>

namespace {

class Plugged : public testing::Test {
  protected:
    void TearDown() override { EXPECT_EQ(usb_device_close(), 0); }

    int command(unsigned char cmd, unsigned char para) {
        testing::internal::CaptureStdout();
        const int result = samv_cmd(cmd, para, out_.data(), &length_);
        console_ = testing::internal::GetCapturedStdout();
        return result;
    }

    std::string read_and_list() {
        EXPECT_EQ(command(0x20, 0x01), 0);
        EXPECT_EQ(command(0x20, 0x02), 0);
        EXPECT_EQ(command(0x30, 0x01), 0);
        EXPECT_EQ(length_, 1284U); // lengths, text, picture
        testing::internal::CaptureStdout();
        idcard_base_info_parse(std::span(out_).subspan<4>().data());
        return testing::internal::GetCapturedStdout();
    }

    std::vector<unsigned char> out_ = std::vector<unsigned char>(qaven::idcard::kSamvDataCapacity);
    unsigned long length_ = 0;
    std::string console_;
};

class ResidentCard : public Plugged {};
class ForeignPermit : public Plugged {};
class HmtPermit : public Plugged {};
class EmptyIdCardReader : public Plugged {};
class NoIdCardReader : public Plugged {};
class BothReaders : public Plugged {};

TEST_F(ResidentCard, IsFoundSelectedReadAndListed) {
    ASSERT_EQ(usb_device_open(), 0);
    EXPECT_EQ(read_and_list(),
              "\033[0;32m姓名: 张样本            \n\033[0m"
              "\033[0;32m性别代码: 2\n\033[0m"
              "\033[0;32m民族代码: 01\n\033[0m"
              "\033[0;32m出生: 19900307\n\033[0m"
              "\033[0;32m住址: 某市某区样本路7号                          \n\033[0m"
              "\033[0;32m身份证号\xE7\xA0?: 990101199003070023\n\033[0m"
              "\033[0;32m签发机构: 某市公安局某分局       \n\033[0m"
              "\033[0;32m起始日期: 20200101\n\033[0m"
              "\033[0;32m终止日期: 20400101\n\033[0m");
}

TEST_F(ResidentCard, IsReadAgainAfterCloseAndOpen) {
    ASSERT_EQ(usb_device_open(), 0);
    const std::string first = read_and_list();
    ASSERT_EQ(usb_device_close(), 0);
    EXPECT_EQ(command(0x20, 0x01), -1);
    ASSERT_EQ(usb_device_open(), 0);
    EXPECT_EQ(read_and_list(), first);
}

TEST_F(ResidentCard, IsReadAfterAnOpenOnTopOfAnOpen) {
    ASSERT_EQ(usb_device_open(), 0);
    ASSERT_EQ(usb_device_open(), 0); // the kernel lets an interface be claimed once only
    EXPECT_FALSE(read_and_list().empty());
}

TEST_F(ResidentCard, IsNotReadBeforeItIsSelected) {
    ASSERT_EQ(usb_device_open(), 0);
    EXPECT_EQ(command(0x20, 0x01), 0);
    EXPECT_EQ(command(0x30, 0x01), -2);
    EXPECT_EQ(console_, "tx:\nAA AA AA 96 69 00 03 30 01 32 \n"
                        "\033[0;31mCommand failed, SW3 = 0x41\n\033[0m");
}

TEST_F(ForeignPermit, IsNamed) {
    ASSERT_EQ(usb_device_open(), 0);
    EXPECT_EQ(read_and_list(), "\033[0;32m外国人居住证\n\033[0m");
}

TEST_F(HmtPermit, IsNamed) {
    ASSERT_EQ(usb_device_open(), 0);
    EXPECT_EQ(read_and_list(), "\033[0;32m港澳台居住证\n\033[0m");
}

TEST_F(EmptyIdCardReader, RefusesToFindACard) {
    ASSERT_EQ(usb_device_open(), 0);
    EXPECT_EQ(command(0x20, 0x01), -2);
    EXPECT_EQ(console_, "tx:\nAA AA AA 96 69 00 03 20 01 22 \n"
                        "\033[0;31mCommand failed, SW3 = 0x80\n\033[0m");
}

TEST_F(NoIdCardReader, IsNoticedByTheFirstCommand) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(usb_device_open(), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "open device failed \n");
    EXPECT_EQ(command(0x20, 0x01), -1);
    EXPECT_EQ(console_, "set report failed \n");
}

TEST_F(BothReaders, WorkSideBySide) {
    ASSERT_EQ(usb_device_open(), 0);
    EXPECT_EQ(command(0x20, 0x01), 0);

    // A bank card is read and its connection ended while the identity card is in use.
    std::array<char, QAVEN_RESMSG_SIZE> answer{};
    std::array<char, QAVEN_ERRMSG_SIZE> error{};
    testing::internal::CaptureStdout();
    EXPECT_EQ(
        QAVEN_getICCardInfo(R"({"TagList":"A","AIDList":"","aryInput":"","isReadArqc":"false"})",
                            answer.data(), error.data(), 0, 0),
        0);
    testing::internal::GetCapturedStdout();
    EXPECT_NE(std::string(answer.data()).find("\"IcInfo\""), std::string::npos) << answer.data();

    EXPECT_EQ(command(0x20, 0x02), 0);
    EXPECT_EQ(command(0x30, 0x01), 0);
}

} // namespace
