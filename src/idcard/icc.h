// The identity-card side of the reader family: HID reports to the reader's security module (the
// SAM-V), SAM-V commands and replies, and the text that an identity card carries. A bench kit of
// its own: it keeps its own device handle and shares nothing with the bank-card path.
//
// All functions are to be called from one thread.
#pragma once

#include "support/export.h"

#include <cstddef>

namespace qaven::idcard {

// Everything travels in HID reports of this size.
inline constexpr std::size_t kReportSize = 64;

// Preamble, start code and length field of a SAM-V frame: the bytes that its length does not count.
inline constexpr std::size_t kFrameHeadSize = 7;

// A whole SAM-V reply of the largest length (0xFFFF) in whole reports: 1025 of them. No read of a
// reply goes further, whatever the reader announces.
inline constexpr std::size_t kReplyCapacity =
    (0xFFFF + kFrameHeadSize + kReportSize - 1) / kReportSize * kReportSize;

// What samv_cmd may hand out.
inline constexpr std::size_t kSamvDataCapacity = 65536;

// What is read of the card's block of text, 256 bytes.
inline constexpr std::size_t kBaseTextUsed = 250;

} // namespace qaven::idcard

// What a message is, which its colour shows.
enum log_level : unsigned int {
    LOG_LEVEL_ERROR = 1,
    LOG_LEVEL_WARNING = 2,
    LOG_LEVEL_INFORMATION = 3,
    LOG_LEVEL_PLAIN = 4,
};

// --- the device ---

// Starts libusb, opens the identity-card reader (2F7A:4463) and claims its interface 0. A
// connection that is still held is ended first. Gives 0, also when no reader is attached (the
// message is the only sign of that), or the negative libusb code of the start-up or of the claim. A
// reader whose interface could not be claimed is held all the same, until usb_device_close.
QAVEN_API int usb_device_open();

// Releases the interface, closes the reader and ends libusb, each if there is something to end.
QAVEN_API int usb_device_close();

// Sends len bytes of data as 64-byte output reports, the last one filled up with zeros; no data at
// all is one report of zeros. Gives 0 or the negative libusb code.
QAVEN_API int usb_device_write(unsigned char* data, unsigned long len);

// Waits for a report that is not all zeros (tries polls, 10 ms apart; 0 means 500; after the last
// the all-zero report is taken), then collects reports into buf until completed says that the reply
// is whole. buf: as many whole reports as completed can ask for, 64 bytes at least; never more than
// qaven::idcard::kReplyCapacity is written: a reply that is not whole by then is
// LIBUSB_ERROR_OVERFLOW. *len: the bytes received, whole reports. Gives 0 or the negative libusb
// code.
QAVEN_API int usb_device_read(unsigned char* buf, unsigned long* len,
                              int (*completed)(unsigned char*, unsigned long), unsigned int tries);

// Completion test that takes any single report as the whole reply. Always 1.
QAVEN_API int dump_recv_completed(unsigned char* buf, unsigned long len);

// Completion test for a whole SAM-V reply, by its length field. buf: len bytes. 1 when it is whole,
// else 0.
QAVEN_API int idcard_recv_completed(unsigned char* buf, unsigned long len);

// --- SAM-V ---

// One SAM-V command. 20 01 finds a card, 20 02 selects it, 30 01 reads its base information. Gives
// 0, -1 for a failed transport or a reply too short to hold its status and checksum, -2 for a
// refusal. out: 65536 bytes, gets the data and the checksum; *out_len is the length of the data.
QAVEN_API int samv_cmd(unsigned char cmd, unsigned char para, unsigned char* out,
                       unsigned long* out_len);

// --- the card's text ---

// Prints the base text block of a card, field by field. text: 250 bytes at least.
QAVEN_API void idcard_base_info_parse(unsigned char* text);

// Converts in_len bytes of UCS-2 into UTF-8. out: out_size bytes, of which one is for the
// terminating zero. Gives 0, or -1 for text that is no UCS-2 or does not fit.
QAVEN_API int ucs2_utf8(unsigned char* in, unsigned long in_len, char* out, unsigned long out_size);

// The same for text that is held as char.
QAVEN_API int ucs2_utf8(char* in, unsigned long in_len, char* out, unsigned long out_size);

// --- messages ---

// A formatted text in the colour of its level, on standard output.
[[gnu::format(printf, 2, 3)]] QAVEN_API void print(log_level level, const char* format, ...);

// The title (if there is one) and a hex dump in rows of 16, on standard output. buf: len bytes.
QAVEN_API void print_buf(char* title, unsigned char* buf, unsigned long len);

// Packs len hexadecimal characters into len / 2 bytes, high nibble first; the last character of an
// odd len is not taken, and a character that is no digit counts as 0. Gives 0.
QAVEN_API int hex2bcd(const char* hex, unsigned long len, unsigned char* out);

// The usage text of the bench front end, on standard output.
QAVEN_API void usage(const char* program);
