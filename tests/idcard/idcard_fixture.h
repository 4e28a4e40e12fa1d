// A fresh identity-card reader for every test, and the frames that travel.
#pragma once

#include "fake_hid_reader.h"
#include "idcard/icc.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace idcard_test {

inline constexpr int no_device = -4; // LIBUSB_ERROR_NO_DEVICE
inline constexpr int invalid_parameter = -2;
inline constexpr int access_denied = -3;
inline constexpr int busy = -6;
inline constexpr int overflow = -8;
inline constexpr int pipe_error = -9;

class IdCard : public testing::Test {
  protected:
    void SetUp() override { reader() = {}; }
    void TearDown() override { usb_device_close(); }

    static void open() {
        ASSERT_EQ(usb_device_open(), 0);
        reader().calls.clear();
    }
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

inline Bytes padded_report(Bytes bytes) {
    bytes.resize(qaven::idcard::report_size, 0);
    return bytes;
}

} // namespace idcard_test
