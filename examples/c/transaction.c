/*
 * A host program at a bank counter: one online transaction with the card in the reader, from the
 * reading of the card to the transaction certificate (TC), each step told on standard output.
 *
 *     cc transaction.c answer.c online.c $(pkg-config --cflags --libs qaven) -o transaction
 *
 * usage: transaction --issuer PROGRAM [--full]
 *
 *   --issuer PROGRAM   the way to the issuer, run twice:
 *                        PROGRAM authorise ARQC   prints the host's response code and the issuer's
 *                                                 response in hex, a blank between them
 *                        PROGRAM settle TC        ends with status 0 if the issuer accepts the TC
 *   --full             long texts are shown whole
 *
 * Exit status: 0 paid, 3 declined, 2 used wrongly, 1 anything else.
 */
#include <qaven/qaven.h>

#include "answer.h"
#include "online.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

/*
 * 12.13 yuan, no cash back, 22 April 2019, 16:13:55, at a merchant's counter: letter, three-digit
 * length and value of each item.
 */
#define TRANSACTION                                                                                \
    "P012000000001213Q012000000000000R0040156S006190422T00203U006161355V013MRCH CNT 0001"
#define APPLICATION "A000000333010101"

enum exit_status { EXIT_PAID = 0, EXIT_FAILED = 1, EXIT_USAGE = 2, EXIT_DECLINED = 3 };

enum outcome { PAID, DECLINED, INTERRUPTED, FAILED };

enum {
    COUNTER_SIZE = 5,            /* four hex digits */
    RESPONSE_CODE_SIZE = 3,      /* two characters */
    ISSUER_RESPONSE_SIZE = 2047, /* the longest that the library takes */
    REQUEST_SIZE = 8192,
    TRIES_AFTER_INTERRUPTION = 10
};

/* What one step of the transaction leaves for a later one. */
struct transaction {
    char application_data[QAVEN_APPDATA_SIZE];
    char arqc[QAVEN_ARQC_SIZE];
    char counter[COUNTER_SIZE];
    char response_code[RESPONSE_CODE_SIZE];
    char issuer_response[ISSUER_RESPONSE_SIZE];
    char tc[QAVEN_TC_SIZE];
};

static char request[REQUEST_SIZE];
static char resmsg[QAVEN_RESMSG_SIZE];
static char errmsg[QAVEN_ERRMSG_SIZE];
static char value[QAVEN_RESMSG_SIZE];

static const char* issuer_program;
static int show_all;

static void head(const char* function, const char* purpose) {
    static int step;
    printf("\nStep %d. %s: %s\n", ++step, function, purpose);
}

static void show_call(void) {
    printf("  The host calls it with\n");
    print_json(request, show_all);
}

static void show_answer(void) {
    printf("  and the library answers\n");
    print_json(resmsg, show_all);
}

/* A value of the answer; "" when the library could not get it. */
static void take(const char* json, const char* key, char* text, size_t size) {
    if (!json_text(json, key, text, size)) {
        text[0] = '\0';
    }
}

static enum outcome read_card(struct transaction* transaction) {
    head("QAVEN_getICCardInfo", "read the card, and let it ask for an authorisation.");
    snprintf(request, sizeof request,
             "{\"TagList\":\"|A|B|C|D|E|F|G|H|I|J|K|L|M|N|O\","
             "\"AIDList\":\"|" APPLICATION "|A000000333010102\","
             "\"aryInput\":\"" TRANSACTION "\",\"isReadArqc\":\"true\"}");
    show_call();
    const int code = QAVEN_getICCardInfo(request, resmsg, errmsg, 0, 0);
    if (code != QAVEN_OK) {
        printf("  It failed with %d; errmsg says, in GBK:\n", code);
        print_failure_text(errmsg);
        return INTERRUPTED;
    }
    show_answer();
    take(resmsg, "IcInfo", value, sizeof value);
    printf("  IcInfo is what was read from the card:\n");
    print_card_information(value);

    take(resmsg, "IcARQC", value, sizeof value);
    printf("  IcARQC is JSON text again, the request that goes to the issuer:\n");
    print_json(value, show_all);
    take(value, "LpAppData", transaction->application_data, sizeof transaction->application_data);
    take(value, "ARQC", transaction->arqc, sizeof transaction->arqc);
    if (!data_object(transaction->arqc, "9F36", transaction->counter,
                     sizeof transaction->counter)) {
        printf("  There is no transaction counter in it.\n");
        return FAILED;
    }
    printf(
        "  ARQC holds the card's data objects for field 55 of the host's message, the\n"
        "  authorisation request cryptogram (ARQC, 9F26) among them. The card counts this as its\n"
        "  transaction %s (hex); the reading for IcInfo has used up a number of its own.\n"
        "  The card stays powered and waits for its issuer's answer.\n",
        transaction->counter);
    return PAID;
}

static enum outcome go_online(struct transaction* transaction) {
    head("Online", "the host sends the ARQC to the issuer and waits.");
    fflush(stdout);
    char reply[RESPONSE_CODE_SIZE + ISSUER_RESPONSE_SIZE];
    if (!ask_issuer(issuer_program, "authorise", transaction->arqc, reply, sizeof reply) ||
        sscanf(reply, "%2s %2046s", transaction->response_code, transaction->issuer_response) !=
            2) {
        printf("  The issuer gives no answer that the host could hand to the card.\n");
        return FAILED;
    }
    printf("  The response code is %s: %s. The issuer's response for the card, in hex:\n    %s\n",
           transaction->response_code,
           strcmp(transaction->response_code, "00") == 0 ? "approved" : "declined",
           transaction->issuer_response);
    return PAID;
}

static void explain_script_result(const char* result) {
    if (result[0] == '\0') {
        printf("  There is no script result: no issuer script was run.\n");
        return;
    }
    /* Tag DF31, its length 05, the result, the script identifier. */
    printf("  Scriptresult: the issuer's script %.8s ",
           strlen(result) > 8 ? result + 8 : "(unnamed)");
    if (strncmp(result, "DF310520", 8) == 0) {
        printf("was carried out by the card (result 20).\n");
    } else if (strncmp(result, "DF31051", 7) == 0) {
        printf("was refused by the card at command %c.\n", result[7]);
    } else {
        printf("was not run.\n");
    }
}

static enum outcome finish(struct transaction* transaction) {
    const int approved = strcmp(transaction->response_code, "00") == 0;
    head("QAVEN_ARPC_ExeICScript", "hand the issuer's answer to the card.");
    snprintf(request, sizeof request,
             "{\"Txdata\":\"" TRANSACTION "\",\"LpAppData\":\"%s\",\"ARPC\":\"%s\",\"Status\":%d}",
             transaction->application_data, transaction->issuer_response, approved ? 0 : 1);
    show_call();
    QAVEN_ARPC_ExeICScript(request, resmsg, errmsg, 0, 0);
    show_answer();
    take(resmsg, "TC", transaction->tc, sizeof transaction->tc);
    if (!approved) {
        printf(
            "  Status 1 told the library that the host declined. The card first checked that the\n"
            "  answer comes from its issuer; then it was asked for an AAC, the cryptogram of a\n"
            "  refusal. A refused transaction has no TC and runs no script: both are empty.\n");
        return transaction->tc[0] == '\0' ? DECLINED : FAILED;
    }
    if (transaction->tc[0] == '\0') {
        printf("  TC is empty: the transaction broke off. What the card made of it is not known\n"
               "  yet, and the money must not be taken twice.\n");
        return INTERRUPTED;
    }
    printf(
        "  Behind this call are three exchanges with the card. It was shown the ARPC, the "
        "issuer's\n"
        "  cryptogram, and has made sure that the answer comes from its issuer; it was asked for "
        "the\n"
        "  transaction certificate (TC), its signature under the finished transaction; and it was\n"
        "  sent the issuer's script, if there was one.\n"
        "  TC holds the certificate and the data objects that it covers. The library completes "
        "these\n"
        "  by rules of their own: amounts of zero, type 33, and the first six digits of the "
        "host's\n"
        "  date.\n");
    take(resmsg, "Scriptresult", value, sizeof value);
    explain_script_result(value);
    printf("  The card is now powered off and the reader closed.\n");
    return PAID;
}

static enum outcome settle(const struct transaction* transaction) {
    head("Online", "the host sends the TC to the issuer.");
    fflush(stdout);
    char reply[2];
    if (!ask_issuer(issuer_program, "settle", transaction->tc, reply, sizeof reply)) {
        printf("  The issuer does not accept the TC.\n");
        return FAILED;
    }
    printf("  The issuer accepts the TC.\n");
    return PAID;
}

/* 1, 0 or -1 as print_transaction_log. */
static int look_into_log(const struct transaction* transaction) {
    head("QAVEN_GetTxDetail", "read the card's own log of its transactions.");
    snprintf(request, sizeof request, "{\"AIDList\":\"" APPLICATION "\"}");
    show_call();
    QAVEN_GetTxDetail(request, resmsg, errmsg, 0, 0);
    show_answer();
    take(resmsg, "TxDtailRet", value, sizeof value);
    const int found = print_transaction_log(value, transaction->counter);
    if (found < 0) {
        printf("  This is no log: there is no card or no reader to read it from.\n");
    }
    return found;
}

static enum outcome compare_log(const struct transaction* transaction, enum outcome outcome) {
    const int found = look_into_log(transaction);
    if (outcome == PAID) {
        printf(found == 1 ? "  The newest entry is the transaction just made.\n"
                          : "  The transaction just made is not in it.\n");
        return found == 1 ? PAID : FAILED;
    }
    printf(found == 0 ? "  The refused transaction is not in it.\n"
                      : "  It should be there, without the refused transaction.\n");
    return found == 0 ? DECLINED : FAILED;
}

/* What the issuer's script changed shows in the card information. */
static void read_single_limit(void) {
    head("QAVEN_getICCardInfo", "read one field again, the one that the issuer's script is about.");
    snprintf(request, sizeof request,
             "{\"TagList\":\"|K\",\"AIDList\":\"|" APPLICATION "\",\"aryInput\":\"\","
             "\"isReadArqc\":\"false\"}");
    show_call();
    if (QAVEN_getICCardInfo(request, resmsg, errmsg, 0, 0) == QAVEN_OK) {
        show_answer();
        take(resmsg, "IcInfo", value, sizeof value);
        print_card_information(value);
    }
}

static enum outcome run_transaction(struct transaction* transaction) {
    memset(transaction, 0, sizeof *transaction);
    enum outcome outcome = read_card(transaction);
    if (outcome == PAID) {
        outcome = go_online(transaction);
    }
    if (outcome == PAID) {
        outcome = finish(transaction);
    }
    if (outcome == PAID) {
        outcome = settle(transaction);
    }
    if (outcome == PAID || outcome == DECLINED) {
        outcome = compare_log(transaction, outcome);
    }
    return outcome;
}

/*
 * After an interruption: waits until the reader is back, and makes sure that the card has not
 * completed the transaction. Only then it may be made once more.
 */
static enum outcome clear_up(const struct transaction* transaction) {
    int found = -1;
    for (int tries = 0; found < 0 && tries < TRIES_AFTER_INTERRUPTION; ++tries) {
        printf("\n   (The host waits a second for somebody to see to the reader.)\n");
        fflush(stdout);
        sleep(1);
        found = look_into_log(transaction);
    }
    if (found == 0) {
        printf(
            "  The reader works again, and the card has no entry of the transaction: nothing was\n"
            "  paid, so the transaction may be made once more, from the beginning.\n");
        return PAID;
    }
    printf(found < 0 ? "  The reader stays away.\n"
                     : "  The card did complete the transaction: the issuer has to be told.\n");
    return FAILED;
}

static int read_options(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--full") == 0) {
            show_all = 1;
        } else if (strcmp(argv[i], "--issuer") == 0 && i + 1 < argc) {
            issuer_program = argv[++i];
        } else {
            return 0;
        }
    }
    return issuer_program != NULL;
}

int main(int argc, char** argv) {
    static struct transaction transaction;
    if (!read_options(argc, argv)) {
        fprintf(stderr, "usage: transaction --issuer PROGRAM [--full]\n");
        return EXIT_USAGE;
    }
    head("initDriver", "the host announces itself. It always answers 0.");
    initDriver();
    enum outcome outcome = run_transaction(&transaction);
    if (outcome == INTERRUPTED && clear_up(&transaction) == PAID) {
        outcome = run_transaction(&transaction);
    }
    if (outcome == PAID) {
        read_single_limit();
    }
    head("deinit", "the host is done.");
    deinit();

    switch (outcome) {
    case PAID:
        return EXIT_PAID;
    case DECLINED:
        return EXIT_DECLINED;
    default:
        printf("\nThe transaction failed.\n");
        return EXIT_FAILED;
    }
}
