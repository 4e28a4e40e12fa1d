// The unit tests run in a temporary directory of their own, where the trace log lands, and without
// progress lines on the console.
#include "../temporary_folder.h"

#include <gtest/gtest.h>

#include <cstdlib>

// NOLINTNEXTLINE(bugprone-exception-escape): what ends the run there is a failure of the run
int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    const qaven::test::WorkingFolder folder;
    setenv("QAVEN_DIAGNOSTICS", "off", 1);
    return RUN_ALL_TESTS();
}
