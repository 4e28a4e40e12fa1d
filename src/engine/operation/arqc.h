// The first half of an online transaction: an ARQC and the data that goes to the issuer with it.
#pragma once

#include "support/export.h"

// Generates the ARQC. Seventeen texts:
//
//  1-8  reader parameters, carried along and not read
//  9    selection mode, not read: every AID is tried in turn whatever it says
// 10    TxData      in: transaction data string
// 11    AIDList     in: AIDs in hex separated by "|"; each selects the application until one gives
//                   another result than -23; an empty one selects through the card's directory
// 12    lpicappdata in/out, 4096 bytes: application data text; when empty the card is read first
// 13    ARQCLen     out, 4 bytes: "%03d" of the byte length of the field-55 data
// 14    ARQC        out, 1024 bytes: field-55 data in upper-case hex
// 15    Field60     out, 8 bytes: 60 03 and "0%02x" of the PAN sequence number; untouched when the
//                   card has none
// 16    one-byte cell, not written
// 17    error text  out, 19 bytes: the GBK description of every failure
//
// 0; -1 no card; -23 no AID selects a single application; -204 no CDOL1, or no format 1 response;
// -203 the card did not give an ARQC; else the failing step's code. After success the card stays
// powered and the reader open; after a failure behind the reading step both are ended.
QAVEN_API int ZEB_ICC_GenARQC(char* p1, char* p2, char* ReaderNameStr, char* p4, char* p5, char* p6,
                              char* p7, char* p8, char* p9, char* TxData, char* AIDList,
                              char* lpicappdata, char* ARQCLen, char* ARQC, char* Field60,
                              char* p16, char* ErrMsg);
