// Runs every case a hundred times under callgrind, which writes one dump for each of them, named by
// the case. tools/instructions counts what is in them.
#include "cases.h"

#include <valgrind/callgrind.h>

#include <cstdio>

int main() {
    constexpr int kTimes = 100;
    if (RUNNING_ON_VALGRIND == 0) {
        std::fputs("qaven-instructions runs under valgrind --tool=callgrind\n", stderr);
        return 1;
    }
    for (const qaven::bench::Case& measured : qaven::bench::cases()) {
        // What is made once is made here.
        measured.run();
        CALLGRIND_ZERO_STATS;
        for (int i = 0; i < kTimes; ++i) {
            measured.run();
        }
        CALLGRIND_DUMP_STATS_AT(measured.name);
    }
    return 0;
}
