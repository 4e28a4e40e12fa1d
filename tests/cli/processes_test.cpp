// Finding the program that holds a reader's node; any open file will do.
#include "tools/qaven/processes.h"

#include "../temporary_folder.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>

namespace {

using namespace qaven::cli;

class Processes : public testing::Test {
  protected:
    void SetUp() override {
        descriptor_ = creat(file_.c_str(), S_IRUSR | S_IWUSR);
        ASSERT_GE(descriptor_, 0);
    }
    void TearDown() override { close(descriptor_); }

    qaven::test::TemporaryFolder folder_;
    std::string file_ = (folder_.path() / "node").string();
    int descriptor_ = -1;
};

TEST_F(Processes, DoNotIncludeThisOne) {
    EXPECT_TRUE(programs_at(file_).empty());
}

TEST_F(Processes, AreNamedWhenTheyHaveTheFileOpen) {
    const pid_t child = fork();
    if (child == 0) {
        // The descriptor comes along.
        while (true) {
            pause();
        }
    }
    const std::vector<std::string> found = programs_at(file_);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].substr(found[0].find(" (")), " (process " + std::to_string(child) + ")");
    EXPECT_TRUE(programs_at(file_).empty());
}

} // namespace
