// The stand-ins of the four card operations; each passes its call on.
#include "noted_operations.h"

#include "engine/card/apdu.h"

#include <initializer_list>
#include <utility>

namespace {

using Text = char*;

std::vector<std::string> latest;
qaven::test::HookCalls hook_calls;
int latest_wait = 0;

void note(std::initializer_list<const char*> texts) {
    latest.clear();
    for (const char* text : texts) {
        latest.emplace_back(text != nullptr ? text : "(none)");
    }
}

} // namespace

// The linker's names: a call of an operation lands in __wrap_, and __real_ is the operation.
int real_get_info(Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text,
                  Text, Text) __asm__("__real__Z15ZEB_ICC_GetInfoPcS_S_S_S_S_S_S_S_S_S_S_S_S_S_");
int noted_get_info(Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text,
                   Text, Text) __asm__("__wrap__Z15ZEB_ICC_GetInfoPcS_S_S_S_S_S_S_S_S_S_S_S_S_S_");
int real_generate_arqc(
    Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text,
    Text) __asm__("__real__Z15ZEB_ICC_GenARQCPcS_S_S_S_S_S_S_S_S_S_S_S_S_S_S_S_");
int noted_generate_arqc(
    Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text,
    Text) __asm__("__wrap__Z15ZEB_ICC_GenARQCPcS_S_S_S_S_S_S_S_S_S_S_S_S_S_S_S_");
int real_run_issuer_answer(
    Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text,
    Text) __asm__("__real__Z24ZEB_ICC_ARPC_ExeICScriptPcS_S_S_S_S_S_S_S_S_S_S_S_S_S_S_S_");
int noted_run_issuer_answer(
    Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text,
    Text) __asm__("__wrap__Z24ZEB_ICC_ARPC_ExeICScriptPcS_S_S_S_S_S_S_S_S_S_S_S_S_S_S_S_");
int real_read_transaction_log(
    Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text,
    Text) __asm__("__real__Z19ZEB_ICC_GetTxDetailPcS_S_S_S_S_S_S_S_S_S_S_S_");
int noted_read_transaction_log(
    Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text, Text,
    Text) __asm__("__wrap__Z19ZEB_ICC_GetTxDetailPcS_S_S_S_S_S_S_S_S_S_S_S_");

int noted_get_info(Text p1, Text p2, Text p3, Text p4, Text p5, Text p6, Text p7, Text p8, Text p9,
                   Text p10, Text p11, Text p12, Text p13, Text p14, Text p15) {
    note({p1, p2, p3, p4, p5, p6, p7, p8, p9, p10, p11});
    return real_get_info(p1, p2, p3, p4, p5, p6, p7, p8, p9, p10, p11, p12, p13, p14, p15);
}

int noted_generate_arqc(Text p1, Text p2, Text p3, Text p4, Text p5, Text p6, Text p7, Text p8,
                        Text p9, Text p10, Text p11, Text p12, Text p13, Text p14, Text p15,
                        Text p16, Text p17) {
    note({p1, p2, p3, p4, p5, p6, p7, p8, p9, p10, p11, p12});
    return real_generate_arqc(p1, p2, p3, p4, p5, p6, p7, p8, p9, p10, p11, p12, p13, p14, p15, p16,
                              p17);
}

int noted_run_issuer_answer(Text p1, Text p2, Text p3, Text p4, Text p5, Text p6, Text p7, Text p8,
                            Text p9, Text p10, Text p11, Text p12, Text p13, Text p14, Text p15,
                            Text p16, Text p17) {
    note({p1, p2, p3, p4, p5, p6, p7, p8, p9, p10, p11, p12, p13, p14});
    return real_run_issuer_answer(p1, p2, p3, p4, p5, p6, p7, p8, p9, p10, p11, p12, p13, p14, p15,
                                  p16, p17);
}

int noted_read_transaction_log(Text p1, Text p2, Text p3, Text p4, Text p5, Text p6, Text p7,
                               Text p8, Text p9, Text p10, Text p11, Text p12, Text p13) {
    note({p1, p2, p3, p4, p5, p6, p7, p8, p9, p10});
    return real_read_transaction_log(p1, p2, p3, p4, p5, p6, p7, p8, p9, p10, p11, p12, p13);
}

int real_close_card() __asm__("__real__Z11qm_closeiccv");
int noted_close_card() __asm__("__wrap__Z11qm_closeiccv");
void real_close_reader() __asm__("__real__Z14Qm_CloseDevicev");
void noted_close_reader() __asm__("__wrap__Z14Qm_CloseDevicev");

int noted_close_card() {
    ++hook_calls.card;
    return real_close_card();
}

void noted_close_reader() {
    ++hook_calls.reader;
    real_close_reader();
}

int real_exchange(qaven::apdu::Command,
                  qaven::Reply&) __asm__("__real__ZN5qaven4apdu8exchangeENS0_7CommandERNS_5ReplyE");
int noted_exchange(qaven::apdu::Command, qaven::Reply&) __asm__(
    "__wrap__ZN5qaven4apdu8exchangeENS0_7CommandERNS_5ReplyE");

int noted_exchange(qaven::apdu::Command command, qaven::Reply& reply) {
    latest_wait = command.wait;
    return real_exchange(command, reply);
}

namespace qaven::test {

int noted_wait() {
    return latest_wait;
}

HookCalls take_hook_calls() {
    return std::exchange(hook_calls, {});
}

const std::vector<std::string>& noted_texts() {
    return latest;
}

} // namespace qaven::test
