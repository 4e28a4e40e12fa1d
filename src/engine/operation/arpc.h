// The second half of an online transaction: the issuer's answer goes to the card.
#pragma once

#include "support/export.h"

// Authenticates the issuer, asks for the final cryptogram and runs one issuer script template.
// Seventeen texts:
//
//  1-9  reserved, not used
// 10    in: transaction data string
// 11    in: application data text of the ARQC step
// 12    in: length of position 13, not read
// 13    in: issuer response in hex (tags 91, 72, 71, 9F18)
// 14    in: host status in decimal; 0 approved, anything else declined
// 15    out, 1024 bytes: TC list in upper-case hex, or ""
// 16    out, 64 bytes: issuer script results "DF3105..." , or ""
// 17    out, 19 bytes: GBK description of most failures (not of a refused EXTERNAL AUTHENTICATE)
//
// 0; -202 no CDOL2; -205 empty issuer response; -206 no usable tag 91; -203 the card gave no TC;
// -207 no format 1 response; -8 no reader is open; else the failing step's code. Sends through the
// connection that the ARQC step left, and opens none. Results before the second GENERATE AC leave
// that connection open for another try; all others end it.
QAVEN_API int ZEB_ICC_ARPC_ExeICScript(char* p1, char* p2, char* p3, char* p4, char* p5, char* p6,
                                       char* p7, char* p8, char* p9, char* TxData,
                                       char* lpicappdata, char* p12, char* ARPC, char* HostStatus,
                                       char* TC, char* ScriptResult, char* ErrMsg);
