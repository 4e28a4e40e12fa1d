// Conversions between ASCII text, packed bytes and dates. Two families with overlapping jobs: the
// card engine's helpers (Qm_) and the general ones. Helpers that look alike read characters by
// different rules and are not interchangeable.
//
// None of them validates its input. Lengths are characters for text and bytes for packed data; each
// declaration says what the raw buffers must hold.
#pragma once

#include "support/export.h"

#include <list>
#include <string>

// --- card engine helpers ---

// Packs len hexadecimal characters of in. An odd len with right_align non-zero gets a leading zero
// digit; without it the last digit is dropped. When all digits are packed one byte 0x50 follows the
// packed data. in: len characters; out: (len + 1) / 2 + 1 bytes.
QAVEN_API void Qm_AscToBcd(unsigned char* out, unsigned char* in, int len,
                           unsigned int right_align);

// Current local date as BCD YY MM DD. out: 3 bytes.
QAVEN_API void Qm_GetYYMMDD(char* out);

// Low byte of value as two upper-case hexadecimal characters and a zero. out: 3 bytes. Returns
// out + 2.
QAVEN_API char* Qm_chartohalf(int value, char* out);

// Packs len hexadecimal characters, no terminator. An odd len also reads the character after the
// last. in: len characters (rounded up to even); out: (len + 1) / 2 bytes.
QAVEN_API void Qm_AsciiToHex(unsigned char* in, unsigned char* out, int len);

// Packs a zero-terminated hexadecimal string and adds a zero byte; *out_len is the packed count. An
// odd string gives *out_len 0 and writes nothing else. out: strlen(in) / 2 + 1 bytes.
QAVEN_API void Qm_halftochar(char* in, char* out, int* out_len);

// --- general helpers ---

// Copies in without blanks and tabs, terminated; returns the count. out: strlen(in) + 1 bytes.
QAVEN_API int TrimStr(unsigned char* out, unsigned char* in);

// Removes leading blanks and tabs in place; returns how many (0 for a null pointer).
QAVEN_API int TrimLeft(unsigned char* s);

// Removes trailing blanks and tabs in place. The first character is never removed.
QAVEN_API void TrimRight(unsigned char* s);

// TrimLeft, then TrimRight.
QAVEN_API void Trim(unsigned char* s);

// Longitudinal redundancy check: XOR of len bytes; 0 for len <= 0.
QAVEN_API unsigned char CalLRC(const unsigned char* data, int len);

// Both nibbles of value plus 0x30, no terminator; decimal use only. out: 2 bytes. Returns out[1].
QAVEN_API unsigned char unpackOne2Two_30(unsigned char* out, unsigned char value);

// Packs decimal digit pairs. in: len characters (rounded up to even); out: (len + 1) / 2 bytes.
// Returns 0.
QAVEN_API int var_packTwo2One_30(unsigned char* out, unsigned char* in, int len);

// Two hexadecimal characters to one byte. in: 2 characters.
QAVEN_API unsigned char asc2bcd(unsigned char* in);

// len characters to len / 2 bytes by asc2bcd; an odd last character is ignored.
QAVEN_API void var_asc2bcd(unsigned char* out, unsigned char* in, unsigned int len);

// One byte to two upper-case hexadecimal characters, no terminator. out: 2 bytes.
QAVEN_API void bcd2asc(unsigned char* out, unsigned char value);

// len bytes to 2 * len characters by bcd2asc, no terminator.
QAVEN_API void var_bcd2asc(unsigned char* out, unsigned char* in, unsigned int len);

// len bytes to upper-case hexadecimal text with terminator. out: 2 * len + 1 bytes. Returns 0.
QAVEN_API int Hex2Asc(unsigned char* out, unsigned char* in, long len);

// 32-bit value, most significant byte first. out: 4 bytes. Returns the least significant byte.
QAVEN_API unsigned char Int2ReverseHex(unsigned char* out, unsigned int value);

// 4 bytes, most significant first, to a 32-bit value.
QAVEN_API unsigned int ReverseHex2Int(unsigned char* in);

// Current local date and time as BCD YYYY MM DD hh mm ss. out: 7 bytes.
QAVEN_API void GetDateTime(char* out);

// Current local date as the integer YYMMDD.
QAVEN_API int GetIntDate();

// Current local time as the integer hhmmss.
QAVEN_API int GetIntTime();

// --- shared by the layers ---

// Splits text at sep and appends the fields to out; returns how many. Empty fields are kept, so an
// empty text gives one empty field; fields are not trimmed.
QAVEN_API int Split(const char* text, std::list<std::string>& out, char sep);
