// The host's description of a transaction: a text of records, each a letter, a three-digit decimal
// length and that many characters, e.g. "P012000000001213S00820190422". What is left at the end
// that is too short for a letter and a length is outside every record.
//
// Letters: P amount, Q other amount, R currency, S date, T type, U time, V merchant name (free
// text), Z SM-algorithm indicator; others are carried along and ignored.
#pragma once

#include "support/export.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

// Current local time as "hhmmss" and zeros. out: 8 bytes.
QAVEN_API void GetTime(unsigned char* out);

// The decimal value of the first n characters (at most 31) of p.
QAVEN_API int getLen(const char* p, int n);

// The first record with this letter in data (dataLen characters): a pointer to its letter, its
// value's length in *valueLen (may be null). Null when there is none.
QAVEN_API const char* getTag(const char* data, int dataLen, char letter, int* valueLen);

// Writes the records P Q R S T U V of in, each brought to a fixed width, and a record for the zero
// behind them. out: 2200 bytes. Always 0.
QAVEN_API int parseTxData(const char* in, char* out);

// Completes in to the 90 characters P Q R S T U V with the terminal's values; out: 92 zeroed bytes.
// The date record takes characters 3 to 8 of the host's date (YYYYMMDD gives YYMMDD). Always 0.
QAVEN_API int GetTransData(unsigned char* in, unsigned char* out);

// The same, except that the date record takes the first six characters (YYYYMMDD gives YYYYMM).
QAVEN_API int ARPCGetTransData(unsigned char* in, unsigned char* out);

// Converts in to a list of one-letter tags, one length byte, packed digits (raw bytes for V).
// out: as many bytes as in has characters, zeroed beforehand; no terminator is written. Returns the
// number of bytes written.
QAVEN_API int Qm_ConvertTxData2BCD(unsigned char* out, unsigned char* in);

// The earlier conversion: an odd trailing digit is dropped together with its byte.
QAVEN_API int oldQm_ConvertTxData2BCD(unsigned char* out, unsigned char* in);

namespace qaven::transaction_data {

// Size of a buffer that takes the completed form and its terminator.
constexpr std::size_t kCompletedBuffer = 92;

// Where the six characters of the completed date start in the host's date. The ARQC step cuts the
// century off YYYYMMDD; the issuer-authentication step takes the date as it begins.
enum class DateFrom : std::size_t { kFirstCharacter = 0, kBehindCentury = 2 };

// Completes text as GetTransData or ARPCGetTransData does.
void complete(std::string_view text, std::span<char> out, DateFrom date_from);

// Converts text as Qm_ConvertTxData2BCD does; stops before it would pass out's end.
std::size_t convert(std::string_view text, std::span<std::uint8_t> out);

} // namespace qaven::transaction_data
