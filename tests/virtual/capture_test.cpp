// The capture file, byte for byte.
#include "../temporary_folder.h"
#include "reader_on_port.h"
#include "virtual/usb/capture.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

using namespace virtual_test;

namespace {

// A pcapng block: type and body.
struct Block {
    std::uint32_t type;
    Bytes body;
};

template <typename T>
T number(std::span<const std::uint8_t> bytes, std::size_t at) {
    T value{};
    std::memcpy(&value, bytes.subspan(at, sizeof(T)).data(), sizeof(T));
    return value;
}

class Capture : public ReaderOnPort {
  protected:
    void SetUp() override {
        file_.emplace(folder_.path() / "a.pcapng");
        capture_.emplace(*file_, std::uint16_t{1}, std::uint8_t{5});
        device_.emplace(nullptr, &card_);
        port_.emplace(*device_, &*capture_);
    }

    std::vector<Block> blocks() const {
        std::ifstream in(folder_.path() / "a.pcapng", std::ios::binary);
        const Bytes all{std::istreambuf_iterator<char>(in), {}};
        std::vector<Block> found;
        for (std::size_t at = 0; at < all.size();) {
            const auto size = number<std::uint32_t>(all, at + 4);
            EXPECT_EQ(size % 4, 0U);
            EXPECT_EQ(number<std::uint32_t>(all, at + size - 4), size);
            const auto body = std::span(all).subspan(at + 8, size - 12);
            found.push_back(
                {.type = number<std::uint32_t>(all, at), .body = Bytes(body.begin(), body.end())});
            at += size;
        }
        return found;
    }

    // The n-th packet block's USB header and data.
    Bytes packet(std::size_t n) const {
        const auto block = blocks().at(2 + n);
        EXPECT_EQ(block.type, 6U);
        const auto size = number<std::uint32_t>(block.body, 12);
        const auto data = std::span(block.body).subspan(20, size);
        return {data.begin(), data.end()};
    }

    const qaven::test::TemporaryFolder folder_;
    std::optional<usb::CaptureFile> file_;
    std::optional<usb::Capture> capture_;
};

TEST_F(Capture, StartsWithASectionAndAnInterfaceOfLinuxUsbPackets) {
    const auto all = blocks();
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0].type, 0x0A0D0D0AU);
    EXPECT_EQ(number<std::uint32_t>(all[0].body, 0), 0x1A2B3C4DU);
    EXPECT_EQ(all[1].type, 1U);
    EXPECT_EQ(number<std::uint16_t>(all[1].body, 0), 220);
}

TEST_F(Capture, ASubmittedWriteCarriesItsData) {
    send(hex("65 00 00 00 00 00 01 00 00 00"));
    const Bytes usb = packet(0);
    ASSERT_EQ(usb.size(), 74U);
    EXPECT_EQ(number<std::uint64_t>(usb, 0), 1U); // the transfer
    EXPECT_EQ(usb[8], 'S');
    EXPECT_EQ(usb[9], 3); // bulk
    EXPECT_EQ(usb[10], reader::kSlot2.bulk_out);
    EXPECT_EQ(usb[11], 5); // device
    EXPECT_EQ(number<std::uint16_t>(usb, 12), 1);
    EXPECT_EQ(usb[14], '-'); // no set-up bytes
    EXPECT_EQ(usb[15], 0);   // data present
    EXPECT_EQ(number<std::int32_t>(usb, 28), -EINPROGRESS);
    EXPECT_EQ(number<std::uint32_t>(usb, 32), 10U);
    EXPECT_EQ(number<std::uint32_t>(usb, 36), 10U);
    EXPECT_EQ(show(std::span(usb).subspan(64)), "65 00 00 00 00 00 01 00 00 00");
}

TEST_F(Capture, ACompletedWriteTellsHowMuchMoved) {
    send(hex("65 00 00 00 00 00 01 00 00 00"));
    const Bytes usb = packet(1);
    ASSERT_EQ(usb.size(), 64U);
    EXPECT_EQ(usb[8], 'C');
    EXPECT_EQ(usb[15], '>');
    EXPECT_EQ(number<std::int32_t>(usb, 28), 0);
    EXPECT_EQ(number<std::uint32_t>(usb, 32), 10U);
    EXPECT_EQ(number<std::uint32_t>(usb, 36), 0U);
}

TEST_F(Capture, AReadCarriesItsDataWhenItCompletes) {
    send(hex("65 00 00 00 00 00 01 00 00 00"));
    receive();
    const Bytes submitted = packet(2);
    ASSERT_EQ(submitted.size(), 64U);
    EXPECT_EQ(submitted[15], '<');
    EXPECT_EQ(number<std::uint32_t>(submitted, 32), 64U);
    const Bytes completed = packet(3);
    EXPECT_EQ(completed[15], 0);
    EXPECT_EQ(show(std::span(completed).subspan(64)), "81 00 00 00 00 00 01 01 00 01");
}

TEST_F(Capture, AFailureCarriesItsStatus) {
    receive();
    port_->unplug();
    EXPECT_EQ(number<std::int32_t>(packet(1), 28), -ESHUTDOWN);
}

TEST_F(Capture, AppearanceOfTheDeviceIsEnumeration) {
    port_->enumerate(now_);
    const Bytes request = packet(0);
    EXPECT_EQ(request[9], 2);  // control
    EXPECT_EQ(request[14], 0); // set-up bytes present
    EXPECT_EQ(show(std::span(request).subspan(40, 8)), "80 06 00 01 00 00 12 00");
    EXPECT_EQ(packet(1).size(), 64U + 18U);
    EXPECT_EQ(packet(5).size(), 64U + 0xCAU);
    EXPECT_EQ(blocks().size(), 2U + 8U);
}

TEST(CaptureFile, ThatCannotBeWrittenIsAnError) {
    EXPECT_THROW(usb::CaptureFile("/nonexistent/folder/a.pcapng"), std::runtime_error);
}

} // namespace
