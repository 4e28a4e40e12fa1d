// Whole transactions, one after the other, in one process: after the first ten neither open files
// nor threads nor heap may grow.
//
// usage: qaven-soak [TRANSACTIONS]     under the virtual reader's launcher, with the debit card
#include "../temporary_folder.h"
#include "data_objects.h"
#include "host.h"
#include "issuer_desk.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <unistd.h>

#include <charconv>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <thread>

// The sanitizers' own count of the heap; there in instrumented programs only.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): their name for it
extern "C" std::size_t __sanitizer_get_current_allocated_bytes() __attribute__((weak));

using namespace qaven::test;

namespace {

constexpr int kWarmingUp = 10;
int transactions = 25;

std::size_t entries_in(const char* folder) {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) {
        ++count;
    }
    return count;
}

// A thread that has ended and been waited for leaves the list a moment later.
std::size_t threads() {
    constexpr int looks = 100;
    std::size_t count = entries_in("/proc/self/task");
    for (int i = 0; count > 1 && i < looks; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        count = entries_in("/proc/self/task");
    }
    return count;
}

std::size_t heap_in_use() {
    if (__sanitizer_get_current_allocated_bytes != nullptr) {
        return __sanitizer_get_current_allocated_bytes();
    }
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

struct Footprint {
    std::size_t files = entries_in("/proc/self/fd");
    std::size_t threads = ::threads();
    std::size_t heap = heap_in_use();
};

std::ostream& operator<<(std::ostream& out, const Footprint& now) {
    return out << now.files << " open files, " << now.threads << " threads, " << now.heap
               << " bytes of heap";
}

// The C library's per-thread cache counts freed blocks as in use until it is full, which takes some
// hundred transactions. It can only be switched off before the program starts.
void start_again_without_block_cache(char** argv) {
    constexpr const char* kName = "GLIBC_TUNABLES";
    constexpr const char* kSetting = "glibc.malloc.tcache_count=0";
    const char* const before = std::getenv(kName);
    if (before != nullptr && std::strcmp(before, kSetting) == 0) {
        return;
    }
    setenv(kName, kSetting, 1);
    execv("/proc/self/exe", argv);
    std::perror("qaven-soak");
    std::exit(EXIT_FAILURE);
}

// Card information, ARQC, issuer's answer with a script, TC, transaction log.
void make_transaction(const IssuerDesk& issuer) {
    clear_trace();
    const auto answer = read_and_generate();
    ASSERT_EQ(answer.result, 0);
    const auto arqc = issuer.arqc(answer.arqc.field55);
    ASSERT_TRUE(arqc.verified) << arqc.reason;
    Reply reply;
    reply.script = {"put-data=9F79:000000020000"};
    const auto completion = hand_over(answer.arqc, issuer.answer(answer.arqc.field55, reply));
    ASSERT_EQ(completion.script_result, "DF31052012345678");
    const auto tc = issuer.tc(completion.tc);
    ASSERT_TRUE(tc.verified) << tc.reason;
    const auto newest = letter_fields(transaction_log(kDebit).substr(2, 106));
    ASSERT_EQ(newest.at('X'), value_of(read_objects(answer.arqc.field55), "9F36"));
}

TEST(Soak, LeavesFilesThreadsAndHeapAsTheyWereAfterTenTransactions) {
    const IssuerDesk issuer;
    for (int i = 0; i < kWarmingUp; ++i) {
        ASSERT_NO_FATAL_FAILURE(make_transaction(issuer)) << "transaction " << i + 1;
    }
    const Footprint before;
    for (int i = kWarmingUp; i < transactions; ++i) {
        ASSERT_NO_FATAL_FAILURE(make_transaction(issuer)) << "transaction " << i + 1;
    }
    const Footprint after;
    EXPECT_EQ(after.files, before.files);
    EXPECT_EQ(after.threads, before.threads);
    EXPECT_EQ(after.heap, before.heap);
    std::cout << "after " << kWarmingUp << " transactions: " << before << "\nafter " << transactions
              << " transactions: " << after << '\n';
}

} // namespace

// NOLINTNEXTLINE(bugprone-exception-escape): what ends the run there is a failure of the run
int main(int argc, char** argv) {
    start_again_without_block_cache(argv);
    testing::InitGoogleTest(&argc, argv);
    if (argc > 1) {
        const char* const end = argv[1] + std::strlen(argv[1]);
        const auto read = std::from_chars(argv[1], end, transactions);
        if (argc > 2 || read.ptr != end || transactions <= kWarmingUp) {
            std::cerr << "usage: qaven-soak [TRANSACTIONS], more than " << kWarmingUp << '\n';
            return 2;
        }
    }
    const WorkingFolder folder;
    setenv("QAVEN_DIAGNOSTICS", "off", 1);
    return RUN_ALL_TESTS();
}
