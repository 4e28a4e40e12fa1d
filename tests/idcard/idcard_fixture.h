// A fresh identity-card reader for every test, and the frames that travel.
#pragma once

#include "idcard/icc.h"
#include "tests/support/fake_usb.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

namespace idcard_test {

using qaven::test::Bytes;
using qaven::test::Call;
using qaven::test::ControlTransfer;
using qaven::test::FakeUsb;
using testing::ElementsAre;
using testing::IsEmpty;

// What the pauses of the utilities would have taken since the test began; they pass at once.
std::vector<unsigned>& pauses_us();

class IdCard : public testing::Test {
  protected:
    void SetUp() override {
        pauses_us().clear();
        usb.plug(qaven::test::identity_card_reader());
    }
    void TearDown() override { usb_device_close(); }

    void open() {
        ASSERT_EQ(usb_device_open(), 0);
        usb.clear_log();
    }

    // The reader replies in reports; the last of them is as short as it comes out.
    void answer(const Bytes& reply) {
        for (std::size_t at = 0; at < reply.size(); at += qaven::idcard::kReportSize) {
            const auto first = reply.begin() + static_cast<std::ptrdiff_t>(at);
            const std::size_t count =
                std::min<std::size_t>(qaven::idcard::kReportSize, reply.size() - at);
            usb.answer_control({first, first + static_cast<std::ptrdiff_t>(count)});
        }
    }

    FakeUsb usb;
};

// What a call puts on standard output.
template <typename Call>
std::string standard_output(Call call) {
    testing::internal::CaptureStdout();
    call();
    return testing::internal::GetCapturedStdout();
}

// Bytes that count up, to tell each from its neighbours.
inline Bytes filled(std::size_t size, unsigned char first) {
    Bytes bytes(size);
    std::ranges::generate(bytes, [next = first]() mutable { return next++; });
    return bytes;
}

// AA AA AA 96 69, length, SW1 SW2 SW3, data, checksum over everything from the length on.
inline Bytes samv_reply(unsigned char sw3, const Bytes& data) {
    const std::size_t length = 3 + data.size() + 1;
    Bytes frame{0xAA,
                0xAA,
                0xAA,
                0x96,
                0x69,
                static_cast<unsigned char>(length >> 8),
                static_cast<unsigned char>(length & 0xFF),
                0x00,
                0x00,
                sw3};
    frame.reserve(frame.size() + data.size() + 1);
    frame.insert(frame.end(), data.begin(), data.end());
    unsigned char checksum = 0;
    std::for_each(frame.begin() + 5, frame.end(),
                  [&](unsigned char byte) { checksum = checksum ^ byte; });
    frame.push_back(checksum);
    return frame;
}

// A report as it travels, in hexadecimal.
inline std::string padded_report(Bytes bytes) {
    bytes.resize(qaven::idcard::kReportSize, 0);
    return qaven::test::hex(bytes);
}

} // namespace idcard_test
