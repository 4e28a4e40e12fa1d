// The card's logs as letter-coded texts: transactions, and loads of electronic cash.
#pragma once

#include "support/export.h"

// Reads the transaction log. Thirteen texts:
//
//  1-9  reserved, not read
// 10    in: one AID in hex; empty or beginning with 0 selects through the card's directory
// 11    out, 2048 zeroed bytes: two binary count bytes (records read; characters of the last
//       record, modulo 256), then per record letter, three-digit length and value for P Q R S T U V
//       W X, without a terminator. "0" alone: no log, or no application.
// 12    one-byte cell, not used
// 13    out, 19 bytes: GBK description of a failure
//
// 0, also for a card without a log; -1 no card; the selection's own result otherwise (0 for an AID
// that selects nothing). Works on the connection it finds, else on one of its own.
QAVEN_API int ZEB_ICC_GetTxDetail(char* p1, char* p2, char* p3, char* p4, char* p5, char* p6,
                                  char* p7, char* p8, char* p9, char* AID, char* TxDetail,
                                  char* p12, char* ErrMsg);

// Reads the load log of the application aid (hex text). recordIndex below 0: all records, 0: the
// first, n: records 1 to n (at most 10). out, 2048 bytes: per record P004, Q012 and R012 with the
// record's first fourteen bytes in hex, then letter, length and value for S T U V W.
//
// 0; -1 no card; -22 no load log, or recordIndex above 10; else the selection's result.
QAVEN_API int ReadAmtLog(const char* aid, int recordIndex, char* out);
