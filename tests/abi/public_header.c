/*
 * A host that takes the address of everything in the public header, in the types it is documented
 * with. Compiled as C and as C++, in old and new standards of both; never run.
 */
#include "qaven/qaven.h"
#include "qaven/qaven.h" /* twice, as happens in a host of several headers */

typedef int (*json_entry_point)(const char* json, char* resmsg, char* errmsg, int, int);

json_entry_point entry_points[] = {
    QAVEN_getICCardInfo,
    QAVEN_genARQC,
    QAVEN_ARPC_ExeICScript,
    QAVEN_GetTxDetail,
};
int (*driver_lifecycle[])(void) = {initDriver, deinit};
void (*port_attributes)(void*, int, int, int) = setPortAttr;
int (*self_test)(void*, char*, char*, int, int) = Test;

char resmsg[QAVEN_RESMSG_SIZE];
char errmsg[QAVEN_ERRMSG_SIZE];
char user_info[QAVEN_USERINFO_SIZE];
char application_data[QAVEN_APPDATA_SIZE];
char arqc[QAVEN_ARQC_SIZE];
char tc[QAVEN_TC_SIZE];
char script_result[QAVEN_SCRIPT_RESULT_SIZE];
char transaction_log[QAVEN_TXDETAIL_SIZE];
char field60[QAVEN_FIELD60_SIZE];

enum qaven_result result = QAVEN_OK;
