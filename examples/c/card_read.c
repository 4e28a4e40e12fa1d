/*
 * The smallest useful host program: reads the card in the reader, has it generate an ARQC, and
 * prints the library's answers as they come.
 *
 *     cc card_read.c $(pkg-config --cflags --libs qaven) -o card_read
 *
 * transaction.c shows a whole transaction, and what the answers mean.
 */
#include <qaven/qaven.h>

#include <stdio.h>
#include <stdlib.h>

/* 12.13 yuan, no cash back, 22 April 2019, 16:13:55, at a merchant's counter. */
#define TRANSACTION                                                                                \
    "P012000000001213Q012000000000000R0040156S006190422T00203U006161355V013MRCH CNT 0001"

/* The library never writes more than these sizes. */
static char resmsg[QAVEN_RESMSG_SIZE];
static char errmsg[QAVEN_ERRMSG_SIZE];

int main(void) {
    initDriver();

    /* The first field of the AID list is empty: any UnionPay application will do. */
    int code = QAVEN_getICCardInfo("{\"TagList\":\"|A|B|C|D|E|F|G|H|I|J|K|L|M|N|O\","
                                   "\"AIDList\":\"|A000000333010101|A000000333010102\","
                                   "\"aryInput\":\"\",\"isReadArqc\":\"false\"}",
                                   resmsg, errmsg, 0, 0);
    if (code != QAVEN_OK) {
        fprintf(stderr, "the card could not be read: %d\n", code);
        return EXIT_FAILURE;
    }
    puts(resmsg);

    /* This one returns 0 whatever the card says; an ARQC that could not be had is empty. */
    code = QAVEN_genARQC("{\"aryInput\":\"" TRANSACTION "\",\"AIDList\":\"|A000000333010101\"}",
                         resmsg, errmsg, 0, 0);
    puts(resmsg);

    deinit();
    return code == QAVEN_OK ? EXIT_SUCCESS : EXIT_FAILURE;
}
