// One function per card command. Each builds its command in a zeroed staging buffer and exchanges
// it.
//
// Result of all of them: 0 when the card answered 9000; a negative transfer code; -16 for a reply
// that is no response or longer than the function takes; otherwise the final status word
// SW1 * 256 + SW2. Only on 0 are out (response data without status bytes) and *out_len written. An
// 8-bit *out_len receives the low 8 bits of the length.
#pragma once

#include "support/export.h"
#include "support/wiped.h"
#include "usb/reply.h"

#include <array>
#include <cstddef>
#include <span>

// GET CHALLENGE for len (0..255) bytes; out: len bytes, zeros where the card gave fewer.
QAVEN_API int qmcx_getrandom(int len, unsigned char* out);

// READ BINARY of a short file identifier at an offset; out: 512 bytes. len is not sent: Le goes out
// as 00 and the card's 6Cxx supplies the real length.
QAVEN_API int QM_read_binary(int sfi, int offset, int len, unsigned char* out, int* out_len);

// SELECT with lc bytes of data (file name or identifier); out: 256 bytes for the FCI.
QAVEN_API int qmcx_SelectFile(unsigned char p1, unsigned char p2, unsigned char* data,
                              unsigned char lc, unsigned char* out, unsigned int* out_len);

// EXTERNAL AUTHENTICATE with lc bytes of data.
QAVEN_API int qmcx_ExternalAuth(unsigned char* data, unsigned char lc);

// INTERNAL AUTHENTICATE with lc bytes of data; out: 256 bytes.
QAVEN_API int qmcx_InternalAuth(unsigned char* data, unsigned char lc, unsigned char* out,
                                unsigned char* out_len);

// VERIFY with PIN qualifier p2 and lc bytes of PIN block. Only the first lc bytes of the command
// are sent.
QAVEN_API int qmcx_VerifyPin(unsigned char p2, unsigned char* data, unsigned char lc);

// GET PROCESSING OPTIONS with lc bytes of PDOL data, its template 83 included; out: 256 bytes.
QAVEN_API int qmcx_GetProcessOptions(unsigned char* data, unsigned char lc, unsigned char* out,
                                     unsigned char* out_len);

// GET DATA; which: 1 9F13, 2 9F17, 3 9F4F, 4 9F79, 5 9F77, 6 9F78, 8 DF4F, any other 9F36.
// out: 256 bytes.
QAVEN_API int qmcx_GetData(unsigned char which, unsigned char* out, unsigned char* out_len);

// GENERATE AC with reference control p1 (00 AAC, 40 TC, 80 ARQC) and lc bytes of CDOL data;
// out: 256 bytes.
QAVEN_API int qmcx_GenerateAC(unsigned char p1, unsigned char* data, unsigned char lc,
                              unsigned char* out, unsigned char* out_len);

// READ RECORD of a short file identifier; out: 1022 bytes.
QAVEN_API int qmcx_ReadRecord(unsigned char record, unsigned char sfi, unsigned char* out,
                              unsigned int* out_len);

// The close hook for the card, where a card operation gives it up. Card and reader are ended
// elsewhere; it does nothing. Always 0.
QAVEN_API int qm_closeicc();

// The close hook for the reader, where a card operation is done with it; it does nothing either.
QAVEN_API void Qm_CloseDevice();

namespace qaven::commands {

// qmcx_GetData's selectors.
enum class DataObject : unsigned char {
    kLastOnlineAtc = 1,        // 9F13
    kPinTryCounter = 2,        // 9F17
    kLogFormat = 3,            // 9F4F
    kCashBalance = 4,          // 9F79
    kCashBalanceLimit = 5,     // 9F77
    kCashTransactionLimit = 6, // 9F78
    kLoadLogFormat = 8,        // DF4F
};

// Response data of a command, for the engine's own callers: it carries its length.
class Response {
  public:
    static constexpr std::size_t kCapacity = Reply::kCapacity;

    Response() = default;
    ~Response() { const WipedAtEnd wiped(bytes_); }
    Response(const Response&) = delete;
    Response& operator=(const Response&) = delete;

    std::span<const unsigned char> data() const { return std::span(bytes_).first(length_); }

    // The whole zeroed area behind the data, for readers that run past a record's end.
    std::span<const unsigned char, kCapacity> padded() const { return bytes_; }

    void assign(std::span<const unsigned char> data);

    // Where a reply is received; keep says how much of it is the response, and zeroes the rest.
    std::span<unsigned char> place() { return bytes_; }
    void keep(std::size_t length);

  private:
    std::array<unsigned char, kCapacity> bytes_{};
    std::size_t length_ = 0;
};

int select_file(unsigned char p1, unsigned char p2, std::span<const unsigned char> name,
                Response& response);
int external_authenticate(std::span<const unsigned char> data);
int get_processing_options(std::span<const unsigned char> data, Response& response);
int get_data(DataObject which, Response& response);
int generate_ac(unsigned char p1, std::span<const unsigned char> cdol_data, Response& response);
int read_record(unsigned char record, unsigned char sfi, Response& response);

} // namespace qaven::commands
