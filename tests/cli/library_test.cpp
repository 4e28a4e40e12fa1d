// The library's operations without a reader, and their answers as JSON.
#include "tools/qaven/library.h"

#include "../temporary_folder.h"
#include "qaven/qaven.h"
#include "tools/qaven/cli/exit_status.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

using namespace qaven::cli;

namespace fs = std::filesystem;

using testing::IsEmpty;

Options options(const std::vector<std::string_view>& words) {
    return read_options({"fly", "", "", {kTrace}, ""}, words).value();
}

using EntryPoint = int (*)(const char*, char*, char*, int, int);

std::string printed(EntryPoint entry_point, const char* json) {
    std::string resmsg(QAVEN_RESMSG_SIZE, '\0');
    std::string errmsg(QAVEN_ERRMSG_SIZE, '\0');
    EXPECT_EQ(entry_point(json, resmsg.data(), errmsg.data(), 0, 0), 0);
    return resmsg.substr(0, resmsg.find('\0'));
}

// Each in a folder of its own.
class Operations : public testing::Test {
  protected:
    void SetUp() override { fs::current_path(folder_.path()); }
    void TearDown() override { fs::current_path(before_); }

    std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder_.path())) {
            names.push_back(entry.path().filename());
        }
        return names;
    }

    fs::path before_ = fs::current_path();
    qaven::test::TemporaryFolder folder_;
};

TEST_F(Operations, GiveTheCodesThatTheLibraryGivesToItsTraceOnly) {
    const Library library(options({}));
    EXPECT_EQ(library.card_information("|A", "A000000333").code, QAVEN_NO_APPLICATION);
    EXPECT_EQ(library.arqc("", "A000000333").code, QAVEN_NO_APPLICATION);
    EXPECT_EQ(library.issuer_answer("", "", "", true).code, QAVEN_BAD_RESPONSE);
}

TEST_F(Operations, AnswerInTheLibrarysOwnJson) {
    const Library library(options({}));
    EXPECT_EQ(library.arqc("", "A000000333").json(),
              printed(QAVEN_genARQC, R"({"aryInput":"","AIDList":"A000000333"})"));
    EXPECT_EQ(
        library.issuer_answer("", "", "", true).json(),
        printed(QAVEN_ARPC_ExeICScript, R"({"Txdata":"","LpAppData":"","ARPC":"","Status":0})"));
    EXPECT_EQ(library.transaction_log("A000000333").json(),
              printed(QAVEN_GetTxDetail, R"({"AIDList":"A000000333"})"));
}

TEST_F(Operations, LeaveNoTrace) {
    const Library library(options({}));
    library.transaction_log("A000000333");
    EXPECT_THAT(files(), IsEmpty());
    EXPECT_EQ(fs::current_path(), folder_.path());
}

TEST_F(Operations, LeaveATraceForTheUserAloneWhereItIsAskedFor) {
    fs::create_directory("here");
    const Library library(options({"--trace", "here"}));
    library.transaction_log("A000000333");
    EXPECT_THAT(files(), testing::ElementsAre("here"));
    EXPECT_GT(fs::file_size("here/Qm_ic.log"), 0U);
    struct stat status {};
    ASSERT_EQ(stat("here/Qm_ic.log", &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(Operations, DoNotBeginWithoutTheTraceThatIsAskedFor) {
    std::ofstream("elsewhere");
    fs::create_directory("linked");
    fs::create_symlink("../elsewhere", "linked/Qm_ic.log");
    fs::create_directories("folder/Qm_ic.log");
    for (const char* const place : {"nowhere", "elsewhere", "linked", "folder"}) {
        EXPECT_THROW(Library(options({"--trace", place})), Failure) << place;
    }
}

TEST(Json, KeepsEveryByte) {
    const Answer answer{0, {{"text", "\x02j\xCA\xBE\xFF\x7F\"\\\n"}, {"other", ""}}};
    EXPECT_EQ(answer.json(), "{\n\t\"text\":\t\"\\u0002j\xCA\xBE\xFF\x7F\\\"\\\\\\n\","
                             "\n\t\"other\":\t\"\"\n}");
    EXPECT_EQ(answer.text("none"), "");
}

} // namespace
