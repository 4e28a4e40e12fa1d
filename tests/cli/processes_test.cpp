// Finding the program that holds a reader's node; any open file will do.
#include "processes.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>

namespace {

class Processes : public testing::Test {
  protected:
    void SetUp() override {
        std::string pattern = testing::TempDir() + "node-XXXXXX";
        descriptor_ = mkstemp(pattern.data());
        ASSERT_GE(descriptor_, 0);
        file_ = pattern;
    }
    void TearDown() override {
        close(descriptor_);
        unlink(file_.c_str());
    }

    std::string file_;
    int descriptor_ = -1;
};

TEST_F(Processes, DoNotIncludeThisOne) {
    EXPECT_TRUE(tool::programs_at(file_).empty());
}

TEST_F(Processes, AreNamedWhenTheyHaveTheFileOpen) {
    const pid_t child = fork();
    if (child == 0) {
        // The descriptor comes along.
        while (true) {
            pause();
        }
    }
    const std::vector<std::string> found = tool::programs_at(file_);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].substr(found[0].find(" (")), " (process " + std::to_string(child) + ")");
    EXPECT_TRUE(tool::programs_at(file_).empty());
}

} // namespace
