/*
 * qaven.h: the host's interface to one USB reader and one contact IC bank card.
 *
 * Plain C; also usable from C++. Link with -lqaven (pkg-config qaven).
 *
 * One call runs at a time in a process; a call from a second thread waits. The calls of one
 * transaction belong together, so one thread makes them. Each call takes JSON text and returns JSON
 * text in a buffer that the host supplies. Chinese text in error messages is GBK.
 *
 * Order of a whole online transaction:
 *
 *     initDriver
 *     QAVEN_getICCardInfo ("isReadArqc" "true")  card information and ARQC; the card stays powered
 *     ... the host sends the ARQC text online and receives the issuer's answer ...
 *     QAVEN_ARPC_ExeICScript                     issuer authentication, TC, issuer script
 *     QAVEN_GetTxDetail                          the card's transaction log
 *     deinit
 *
 * The library appends requests and answers, card numbers included, to Qm_ic.log in the working
 * directory. Progress lines go to standard output; with QAVEN_DIAGNOSTICS=stderr in the environment
 * to standard error, with QAVEN_DIAGNOSTICS=off nowhere.
 *
 * A call ends after 120 seconds at the latest, with the failure of a reader that does not answer;
 * QAVEN_DEADLINE in the environment sets another time in milliseconds, 0 none.
 */
#ifndef QAVEN_QAVEN_H
#define QAVEN_QAVEN_H

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define QAVEN_PUBLIC __attribute__((visibility("default")))
#else
#define QAVEN_PUBLIC
#endif

/*
 * Buffer sizes in bytes, the terminating zero included. The library never writes more than this,
 * whatever card and reader say; a host that sizes its buffers by them cannot be overrun.
 */
#define QAVEN_RESMSG_SIZE 32768     /* JSON answer of every entry point */
#define QAVEN_ERRMSG_SIZE 19        /* failure text, GBK, 18 bytes at most */
#define QAVEN_USERINFO_SIZE 2048    /* card information text */
#define QAVEN_APPDATA_SIZE 4096     /* application data text */
#define QAVEN_ARQC_SIZE 1024        /* field-55 text of the ARQC */
#define QAVEN_TC_SIZE 1024          /* TC text */
#define QAVEN_SCRIPT_RESULT_SIZE 64 /* issuer script result text */
#define QAVEN_TXDETAIL_SIZE 2048    /* transaction log text, load log text */
#define QAVEN_FIELD60_SIZE 8        /* card sequence number field */

/*
 * Result codes. QAVEN_getICCardInfo returns them; the other entry points show failure by empty
 * values in their answer and by the trace line "ret:". Positive results are a card's status word
 * (SW1 x 256 + SW2, e.g. 27266 = 0x6A82); small negative ones can also be libusb codes
 * (-7 time-out, -4 reader gone).
 */
enum qaven_result {
    QAVEN_OK = 0,
    QAVEN_NO_CARD = -1,         /* no card, or another one than before; or GPO format unsupported */
    QAVEN_INVALID_CARD = -2,    /* folded from "invalid card" */
    QAVEN_NO_CRYPTOGRAM = -3,   /* no TC or ARQC, or a data object is missing */
    QAVEN_BAD_RESPONSE = -4,    /* data of issuer or card missing or illegal; libusb: reader gone */
    QAVEN_TIMEOUT = -7,         /* the reader did not answer in time */
    QAVEN_BAD_HANDLE = -8,      /* no reader is open */
    QAVEN_CARD_NOT_SEATED = -9, /* card not seated, or more than one card */
    QAVEN_ILLEGAL_DATA = -16,   /* the JSON text, or the reader's answer, is not usable */
    QAVEN_NO_LOAD_LOG = -22,    /* the card keeps no load log */
    QAVEN_NO_APPLICATION = -23, /* no single application for that AID, or no reader at all */
    QAVEN_NO_CDOL2 = -202,      /* card operations only, folded to -4 for hosts */
    QAVEN_NO_TC = -203,         /* card operations only, folded to -3 for hosts */
    QAVEN_NO_TAG = -204,        /* card operations only, folded to -3 for hosts */
    QAVEN_EMPTY_DATA = -205,    /* card operations only, folded to -4 for hosts */
    QAVEN_NO_TAG_91 = -206,     /* card operations only, folded to -4 for hosts */
    QAVEN_NO_TAG_80 = -207      /* no response template 80 */
};

/*
 * initDriver: the first call of a host's sequence. There is nothing to prepare; always 0.
 */
QAVEN_PUBLIC int initDriver(void);

/*
 * deinit: the last call of a host's sequence. It does not touch reader or card; always 0.
 */
QAVEN_PUBLIC int deinit(void);

/*
 * setPortAttr: accepted for hosts that configure serial readers; a USB reader has no port
 * attributes, so all four arguments are ignored.
 */
QAVEN_PUBLIC void setPortAttr(void* port, int attribute1, int attribute2, int attribute3);

/*
 * QAVEN_getICCardInfo: reads the card and, if asked, generates the ARQC.
 *
 * json    zero-terminated JSON object with four text values:
 *           "TagList"     letters of the wanted fields, e.g. "|A|B|E|J" (other characters ignored):
 *                         A PAN, B name, C ID type, D ID number, E track 2, F track 1
 *                         discretionary data, G electronic cash balance, H its limit, I expiry,
 *                         J PAN sequence number, K single transaction limit, L M N O card objects
 *                         DF20 to DF23
 *           "AIDList"     AIDs in hex, separated by "|"; tried in turn while an AID selects no
 *                         single application; an empty field stands for A000000333 (in the ARQC
 *                         step: for the card's directory); an AID that begins with 0 selects
 *                         through the card's directory
 *           "aryInput"    transaction data string: letter, three-digit length, value, repeated,
 *                         e.g. "P012000000001213R0040156S006190422T00203U006161355"
 *           "isReadArqc"  "true" or "True" to run the ARQC step too; anything else: no
 * resmsg  receives the answer, QAVEN_RESMSG_SIZE bytes: {"IcInfo": ..., "IcARQC": ...}.
 *         IcInfo: letter, three-digit length, value for each wanted field, in the order A to O.
 *         IcARQC: "" or the text of {"LpAppData": ..., "ARQC": ..., "Field60": ...}.
 *         Not written on failure.
 * errmsg  receives a GBK text on failure, QAVEN_ERRMSG_SIZE bytes; never cleared.
 * The two integers are ignored.
 *
 * Result: 0; QAVEN_ILLEGAL_DATA for input that is not usable and when memory ran out; else the
 * failing step's code. 0 does not prove a complete reading: a record that cannot be read, because
 * the card was pulled out or the reader is silent, is skipped, and its fields have length 000. A
 * host looks at the fields that it asked for, at A and E at least. IcInfo is empty when the card's
 * directory gives no application, and when TagList asks for none of the letters. A card that is
 * pulled out at the start of a reading gives QAVEN_ILLEGAL_DATA too. After the ARQC step the card
 * stays powered for QAVEN_ARPC_ExeICScript.
 */
QAVEN_PUBLIC int QAVEN_getICCardInfo(const char* json, char* resmsg, char* errmsg, int reserved1,
                                     int reserved2);

/*
 * QAVEN_genARQC: the ARQC step alone; selects and reads the card itself.
 *
 * json    {"aryInput": transaction data string, "AIDList": AIDs in hex separated by "|" (an empty
 *         field selects through the card's directory)}
 * resmsg  {"LpAppData": application data text, "ARQC": field-55 text in hex, "Field60": card
 *         sequence number field}, QAVEN_RESMSG_SIZE bytes; the values are what could be had, also
 *         after a failure.
 * errmsg  written only for input that is not usable, QAVEN_ERRMSG_SIZE bytes.
 *
 * Result: 0, or QAVEN_ILLEGAL_DATA for input that is not usable and when memory ran out.
 */
QAVEN_PUBLIC int QAVEN_genARQC(const char* json, char* resmsg, char* errmsg, int reserved1,
                               int reserved2);

/*
 * QAVEN_ARPC_ExeICScript: passes the issuer's answer to the card of the ARQC step: issuer
 * authentication, second GENERATE AC, one issuer script template.
 *
 * json    {"Txdata": transaction data string, "LpAppData": text of the ARQC step, "ARPC": issuer
 *         response in hex (tag 91, templates 71 and 72), "Status": whole number, 0 = host
 *         approved}
 * resmsg  {"Scriptresult": "" or "DF3105" and the five bytes of the issuer script results,
 *         "TC": TC data objects in hex, or ""}, QAVEN_RESMSG_SIZE bytes. A byte of the script
 *         identifier from 80 on reads as eight digits (FFFFFF80).
 * errmsg  written only for input that is not usable, QAVEN_ERRMSG_SIZE bytes.
 *
 * Result: 0, or QAVEN_ILLEGAL_DATA for input that is not usable and when memory ran out. From the
 * second GENERATE AC on the card is powered off and the reader closed when the call returns.
 */
QAVEN_PUBLIC int QAVEN_ARPC_ExeICScript(const char* json, char* resmsg, char* errmsg, int reserved1,
                                        int reserved2);

/*
 * QAVEN_GetTxDetail: reads the card's transaction log.
 *
 * json    {"AIDList": one AID in hex; empty, or beginning with 0, selects through the card's
 *         directory}
 * resmsg  {"TxDtailRet": log text}, QAVEN_RESMSG_SIZE bytes. The log text begins with two binary
 *         count bytes (records; characters of the last record), then per record: letter,
 *         three-digit length, value for P Q R S T U V W X. "0" alone means no log, or
 *         no application, card or reader to read it from.
 * errmsg  written only for input that is not usable, QAVEN_ERRMSG_SIZE bytes.
 *
 * Result: 0, or QAVEN_ILLEGAL_DATA for input that is not usable and when memory ran out.
 */
QAVEN_PUBLIC int QAVEN_GetTxDetail(const char* json, char* resmsg, char* errmsg, int reserved1,
                                   int reserved2);

/*
 * Test: QAVEN_getICCardInfo on a fixed input (AIDs A000000333010101 and A888000333010101, all
 * letters but F, a short transaction data string, ARQC asked for). The first argument is ignored;
 * the others and the result are those of QAVEN_getICCardInfo.
 */
QAVEN_PUBLIC int Test(void* ignored, char* resmsg, char* errmsg, int reserved1, int reserved2);

#ifdef __cplusplus
}
#endif

#endif
