// The utilities and the virtual reader against each other, with nothing between them but the
// control transfers: what one puts into a report the other has to understand.
#include "idcard_fixture.h"
#include "virtual/idcard/idcard_device.h"
#include "virtual/idcard/identity_card.h"

#include <chrono>
#include <span>

using namespace idcard_test;
namespace virtual_idcard = qaven::virtual_idcard;
namespace virtual_usb = qaven::virtual_usb;

namespace {

class UtilitiesOnVirtualReader : public IdCard {
  protected:
    void put(std::string_view kind) {
        device_ = virtual_idcard::make_idcard_reader(kind);
        ASSERT_NE(device_, nullptr);
        device_->reset();
        reader().device = [this](const ControlTransfer& transfer, Bytes& in) {
            now_ += std::chrono::milliseconds(10); // at least the pause between two polls
            const auto reply =
                device_->control({.request_type = static_cast<std::uint8_t>(transfer.request_type),
                                  .request = static_cast<std::uint8_t>(transfer.request),
                                  .value = static_cast<std::uint16_t>(transfer.value),
                                  .index = static_cast<std::uint16_t>(transfer.index),
                                  .length = static_cast<std::uint16_t>(transfer.length)},
                                 transfer.data, now_);
            in = reply.data;
            return reply.handshake == virtual_usb::Handshake::ack;
        };
        open();
    }

    int command(unsigned char cmd, unsigned char para) {
        int result = 0;
        testing::internal::CaptureStderr();
        console_ = standard_output([&] { result = samv_cmd(cmd, para, out_.data(), &length_); });
        dots_ = testing::internal::GetCapturedStderr();
        return result;
    }

    std::string listing_of_the_card() {
        EXPECT_EQ(command(0x20, 0x01), 0);
        EXPECT_EQ(command(0x20, 0x02), 0);
        EXPECT_EQ(command(0x30, 0x01), 0);
        return standard_output(
            [&] { idcard_base_info_parse(std::span(out_).subspan<4>().data()); });
    }

    std::unique_ptr<virtual_usb::Device> device_;
    virtual_usb::TimePoint now_;
    Bytes out_ = Bytes(qaven::idcard::samv_data_capacity);
    unsigned long length_ = 0;
    std::string console_;
    std::string dots_;
};

TEST_F(UtilitiesOnVirtualReader, FindSelectAndReadGiveTheTextOfAResidentCard) {
    put("resident");
    const std::string listing = listing_of_the_card();
    EXPECT_NE(listing.find("姓名: 张样本 "), std::string::npos) << listing;
    EXPECT_NE(listing.find("?: 99010119900307002"), std::string::npos) << listing;
    EXPECT_NE(listing.find("终止日期: 20400101\n"), std::string::npos) << listing;
    EXPECT_EQ(length_, 1284U);
    const Bytes text = virtual_idcard::resident_card().text;
    EXPECT_TRUE(std::equal(text.begin(), text.end(), out_.begin() + 4));
}

TEST_F(UtilitiesOnVirtualReader, ReadTheWholeReplyInTwentyOneReportsAfterThePolls) {
    put("resident");
    command(0x20, 0x01);
    command(0x20, 0x02);
    const std::size_t before = reader().reports_asked_for();
    command(0x30, 0x01);
    EXPECT_EQ(dots_, "..");
    EXPECT_EQ(reader().reports_asked_for() - before, dots_.size() + 21);
}

TEST_F(UtilitiesOnVirtualReader, TellThePermitsApart) {
    put("foreign");
    EXPECT_EQ(listing_of_the_card(), "\033[0;32m外国人居住证\n\033[0m");
    put("hmt");
    EXPECT_EQ(listing_of_the_card(), "\033[0;32m港澳台居住证\n\033[0m");
}

TEST_F(UtilitiesOnVirtualReader, SayWhenThereIsNoCard) {
    put("none");
    EXPECT_EQ(command(0x20, 0x01), -2);
    EXPECT_TRUE(console_.ends_with("\033[0;31mCommand failed, SW3 = 0x80\n\033[0m")) << console_;
}

TEST_F(UtilitiesOnVirtualReader, SayWhenCommandsComeOutOfOrder) {
    put("resident");
    EXPECT_EQ(command(0x30, 0x01), -2);
    EXPECT_TRUE(console_.ends_with("\033[0;31mCommand failed, SW3 = 0x41\n\033[0m")) << console_;
}

} // namespace
