// The integration tests run under the virtual reader's launcher, one suite for each way the reader
// is set up.
#include "../temporary_folder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

// NOLINTNEXTLINE(bugprone-exception-escape): what ends the run there is a failure of the run
int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    const qaven::test::WorkingFolder folder;
    setenv("QAVEN_DIAGNOSTICS", "off", 1);

    const int result = RUN_ALL_TESTS();
    if (testing::UnitTest::GetInstance()->test_to_run_count() == 0) {
        std::cerr << "no test has this name\n";
        return EXIT_FAILURE;
    }
    return result;
}
