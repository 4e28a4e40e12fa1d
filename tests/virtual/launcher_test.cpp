// What the launcher owes the command it runs and the machine it runs on.
#include "../temporary_folder.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

// Arguments of the tests' own command line.
std::string echo_reader;
std::string real_reader;
std::string host_tests;

std::string shell_word(const std::string& text) {
    return "'" + text + "'";
}

std::string read_file(const fs::path& path) {
    std::ifstream in(path);
    return {std::istreambuf_iterator<char>(in), {}};
}

class Launcher : public testing::Test {
  protected:
    void SetUp() override { fs::create_directory(folder_ / "tmp"); }

    // Runs a shell line with TMPDIR inside the test's folder; what it writes goes to output().
    int shell(const std::string& line) const {
        const std::string whole = "export TMPDIR=" + shell_word((folder_ / "tmp").string()) +
                                  "; { " + line + "\n} >" +
                                  shell_word((folder_ / "output").string()) + " 2>&1";
        // NOLINTNEXTLINE(cert-env33-c): running shell lines is what this fixture is for
        const int status = std::system(whole.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    int run(const std::string& options, const std::string& command) const {
        return shell(shell_word(echo_reader) + " run " + options + " -- " + command);
    }

    [[nodiscard]] std::string output() const { return read_file(folder_ / "output"); }

    // A test bed that stays behind would lie here.
    [[nodiscard]] bool nothing_left() const { return fs::is_empty(folder_ / "tmp"); }

    template <typename Condition>
    static bool comes_true(Condition condition) {
        for (int i = 0; i < 500; ++i) {
            if (condition()) {
                return true;
            }
            std::this_thread::sleep_for(milliseconds(10));
        }
        return false;
    }

    // Starts the launcher with a command that tells its process number and then waits.
    pid_t start_waiting_command() const {
        const pid_t launcher = fork();
        if (launcher == 0) {
            setenv("TMPDIR", (folder_ / "tmp").c_str(), 1);
            const std::string command =
                "echo $$ >" + shell_word((folder_ / "pid").string()) + "; exec sleep 60";
            execl(echo_reader.c_str(), echo_reader.c_str(), "run", "--", "sh", "-c",
                  command.c_str(), nullptr);
            _exit(EXIT_FAILURE);
        }
        return launcher;
    }

    [[nodiscard]] pid_t command_pid() const {
        pid_t pid = 0;
        std::istringstream(read_file(folder_ / "pid")) >> pid;
        return pid;
    }

    const qaven::test::TemporaryFolder temporary_;
    const fs::path folder_ = temporary_.path();
};

TEST_F(Launcher, GivesTheExitStatusOfItsCommand) {
    EXPECT_EQ(run("", "true"), 0);
    EXPECT_EQ(run("", "sh -c 'exit 7'"), 7);
    EXPECT_TRUE(nothing_left());
}

TEST_F(Launcher, GivesASignalAs128AndItsNumber) {
    EXPECT_EQ(run("", "sh -c 'kill -KILL $$'"), 128 + SIGKILL);
    EXPECT_TRUE(nothing_left());
}

TEST_F(Launcher, LeavesSignalsToTheCommandAsTheyWere) {
    const std::string line = "sh -c 'kill -PIPE $$; echo it lives'";
    EXPECT_EQ(run("", line), 128 + SIGPIPE);
    EXPECT_EQ(shell("trap '' PIPE; " + shell_word(echo_reader) + " run -- " + line), 0);
    EXPECT_EQ(output(), "it lives\n");
}

// RTLD_DEEPBIND looks for open and ioctl in libusb's own libraries first; a libusb that is there
// from the start has them from the mocked bus.
TEST_F(Launcher, ShowsTheReaderToAHostThatBindsDeeplyIfLibusbIsPreloaded) {
    const std::string command = shell_word(echo_reader) +
                                " run -- /usr/bin/python3 -c 'import ctypes, os\n"
                                "usb = ctypes.CDLL(\"libusb-1.0.so.0\", os.RTLD_NOW | "
                                "os.RTLD_DEEPBIND)\n"
                                "usb.libusb_init(None)\n"
                                "usb.libusb_open_device_with_vid_pid.restype = ctypes.c_void_p\n"
                                "usb.libusb_open_device_with_vid_pid(None, 0x2F7A, 0x4417) or "
                                "exit(9)'";
    EXPECT_EQ(shell(command), 9) << output();
    EXPECT_EQ(shell("LD_PRELOAD=libusb-1.0.so.0 " + command), 0) << output();
}

// The address sanitizer's runtime reads /proc itself, before the program begins.
#ifndef __SANITIZE_ADDRESS__
TEST_F(Launcher, SaysThatItNeedsProc) {
    const std::string without_proc = "unshare --map-root-user --mount sh -c '"
                                     "mount -t tmpfs none /proc && exec \"$@\"' sh ";
    if (shell(without_proc + "true") != 0) {
        GTEST_SKIP() << "this kernel lets no user hide /proc: " << output();
    }
    EXPECT_EQ(shell(without_proc + shell_word(echo_reader) + " run -- true"), 125);
    EXPECT_NE(output().find("run needs /proc"), std::string::npos) << output();
    EXPECT_EQ(shell("echo quit | " + without_proc + shell_word(echo_reader) +
                    " usbip --listen 127.0.0.1:0"),
              0)
        << output();
}
#endif

TEST_F(Launcher, TellsACommandThatIsMissingFromOneThatIsNoProgram) {
    EXPECT_EQ(run("", "/nonexistent/command"), 127);
    EXPECT_EQ(run("", "/"), 126);
    EXPECT_NE(output().find("cannot run /"), std::string::npos);
}

TEST_F(Launcher, ExplainsItselfToWhoMisusesIt) {
    EXPECT_EQ(run("--slot 9", "true"), 2);
    EXPECT_EQ(output(), "qaven-virtual-reader: --slot takes 1, 2 or none, not '9'\n"
                        "Try 'qaven-virtual-reader --help'.\n");
    EXPECT_EQ(run("--idcard unknown", "true"), 2);
    EXPECT_EQ(run("--profile nobody", "true"), 125);
    EXPECT_NE(output().find("there is no card profile 'nobody'"), std::string::npos);
    EXPECT_EQ(run("--pcap /nonexistent/folder/file", "true"), 125);
    EXPECT_TRUE(nothing_left());
}

TEST_F(Launcher, LeavesArgumentsAndEnvironmentAsTheyAre) {
    EXPECT_EQ(
        shell("COLOUR=green " + shell_word(echo_reader) +
              " run -- sh -c 'echo \"$COLOUR $1 $TMPDIR\"; env | grep -c QAVEN_VIRTUAL' sh 'a b'"),
        1);
    EXPECT_EQ(output(), "green a b " + (folder_ / "tmp").string() + "\n0\n");
}

TEST_F(Launcher, CopesWithATemporaryFolderTooLongForSockets) {
    const fs::path deep = folder_ / std::string(100, 'd');
    fs::create_directory(deep);
    EXPECT_EQ(shell("TMPDIR=" + shell_word(deep.string()) + " " + shell_word(echo_reader) +
                    " run -- sh -c 'echo $TMPDIR; exec \"$@\"' sh " + shell_word(host_tests) +
                    " --gtest_filter=Default.TheReaderIsOnTheBusOnce"),
              0)
        << output();
    EXPECT_EQ(output().substr(0, deep.string().size()), deep.string());
}

TEST_F(Launcher, PassesATerminationOnAndCleansUp) {
    const pid_t launcher = start_waiting_command();
    ASSERT_TRUE(comes_true([this] { return command_pid() != 0; }));
    kill(launcher, SIGTERM);
    int status = 0;
    ASSERT_EQ(waitpid(launcher, &status, 0), launcher);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 128 + SIGTERM);
    EXPECT_TRUE(nothing_left());
}

TEST_F(Launcher, TakesItsCommandAlongWhenItIsKilled) {
    const pid_t launcher = start_waiting_command();
    ASSERT_TRUE(comes_true([this] { return command_pid() != 0; }));
    kill(launcher, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(launcher, &status, 0), launcher);
    const std::string process = "/proc/" + std::to_string(command_pid()) + "/cmdline";
    EXPECT_TRUE(comes_true([&process] { return read_file(process).empty(); }));
}

TEST_F(Launcher, KeepsTheReplyOfAKilledCommandForTheNextOne) {
    const std::string host = shell_word(host_tests) + " --gtest_filter=";
    EXPECT_EQ(run("--speed 1200", "sh -c \"" + host + "KilledHost.*; echo ended with \\$?; exec " +
                                      host + "HostAfterwards.*\""),
              0)
        << output();
    EXPECT_NE(output().find("ended with 137\n"), std::string::npos);
}

TEST_F(Launcher, TwoOfThemDoNotMeet) {
    const std::string one = shell_word(echo_reader) + " run -- " + shell_word(host_tests) +
                            " --gtest_filter=Default.AnInterfaceGoesToOneHandleAtATime";
    EXPECT_EQ(shell(one + " & first=$!; " + one + " && wait $first"), 0) << output();
    EXPECT_TRUE(nothing_left());
}

TEST_F(Launcher, SavesTheCardAsItIsAtTheEnd) {
    const fs::path saved = folder_ / "saved";
    EXPECT_EQ(run("--remove-card-after 1 --save " + shell_word(saved.string()),
                  shell_word(host_tests) + " --gtest_filter=CardTakenOut.*"),
              0)
        << output();
    EXPECT_EQ(read_file(saved), "1 commands\n");
}

TEST_F(Launcher, StartsFromASavedCard) {
    const fs::path saved = folder_ / "saved.json";
    EXPECT_EQ(
        shell(shell_word(real_reader) + " run --save " + shell_word(saved.string()) + " -- true"),
        0)
        << output();
    EXPECT_EQ(shell(shell_word(real_reader) + " run --profile " + shell_word(saved.string()) +
                    " -- true"),
              0)
        << output();
}

TEST_F(Launcher, ServesHostsAndObeysLinesUntilItIsToldToQuit) {
    EXPECT_EQ(shell("printf 'unplug\\nstatus\\nplug\\ncard out\\njump\\nquit\\n' | " +
                    shell_word(echo_reader) +
                    " usbip --listen 127.0.0.1:0 | sed 's/port .*/port/'"),
              0);
    EXPECT_EQ(output(), "listening at 127.0.0.1 port\n"
                        "1-1 2F7A:4417 on offer\n"
                        "ok\n"
                        "1-1 2F7A:4417 unplugged\n"
                        "ok\n"
                        "ok\n"
                        "ok\n"
                        "error: unknown command; try plug [BUSID], unplug [BUSID], card in, card "
                        "out, fault after=N:KIND, status or quit\n"
                        "ok\n");
}

TEST_F(Launcher, SavesTheCardWhenASignalEndsTheServing) {
    const fs::path saved = folder_ / "saved";
    // The server has its handlers in place when it has told what it offers.
    EXPECT_EQ(shell(shell_word(echo_reader) + " usbip --listen 127.0.0.1:0 --save " +
                    shell_word(saved.string()) + " </dev/null & server=$!; " +
                    "until grep -q 'on offer' " + shell_word((folder_ / "output").string()) +
                    "; do sleep 0.02; done; kill -TERM $server; wait $server"),
              0)
        << output();
    EXPECT_EQ(read_file(saved), "0 commands\n");
}

TEST_F(Launcher, SaysWhyAProfileMakesNoCard) {
    const auto said = [this](const std::string& name) {
        EXPECT_EQ(
            shell(shell_word(real_reader) + " run --profile " + shell_word(name) + " -- true"),
            125);
        return output();
    };
    EXPECT_EQ(said(folder_.string()), "qaven-virtual-reader: Profile " + folder_.string() +
                                          " cannot be read: Is a directory.\n");
    EXPECT_EQ(said("./nobody"), "qaven-virtual-reader: Profile ./nobody cannot be read: "
                                "No such file or directory.\n");
}

TEST_F(Launcher, DoesNotPassWhenNobodyGotItsHelp) {
    for (const std::string sink : {" >/dev/full", " >&-"}) {
        EXPECT_EQ(shell(shell_word(echo_reader) + " --help" + sink), 1);
        EXPECT_EQ(output(), "qaven-virtual-reader: cannot write to standard output\n");
    }
}

TEST_F(Launcher, TakesNoNameForAnAddress) {
    EXPECT_EQ(shell(shell_word(echo_reader) + " usbip --listen localhost:0 </dev/null"), 2);
    EXPECT_NE(output().find("--listen needs a numeric IP address, such as 127.0.0.1 or [::1], "
                            "not 'localhost'\n"),
              std::string::npos);
}

TEST_F(Launcher, NamesTheAddressWhereItCannotListen) {
    EXPECT_EQ(shell(shell_word(echo_reader) + " usbip --listen 203.0.113.7:3240 </dev/null"), 125);
    EXPECT_NE(output().find("cannot listen at 203.0.113.7 port 3240"), std::string::npos);
}

// Wireshark's own dissector reads the capture; it learns the interfaces from the descriptors that
// the capture starts with.
class CaptureInWireshark : public Launcher {
  protected:
    using Table = std::vector<std::vector<std::string>>;

    // The chosen fields of all CCID messages.
    Table messages(const std::string& host_test, const std::string& fields) {
        const fs::path capture = folder_ / "capture.pcapng";
        EXPECT_EQ(run("--pcap " + shell_word(capture.string()),
                      shell_word(host_tests) + " --gtest_filter=" + host_test),
                  0)
            << output();
        const std::string errors = (folder_ / "errors").string();
        EXPECT_EQ(shell("tshark -r " + shell_word(capture.string()) + " -Y usbccid -T fields " +
                        fields + " 2>" + shell_word(errors)),
                  0)
            << read_file(errors);
        Table table;
        std::istringstream lines(output());
        for (std::string line; std::getline(lines, line);) {
            auto& row = table.emplace_back();
            std::istringstream cells(line);
            for (std::string cell; std::getline(cells, cell, '\t');) {
                row.push_back(cell);
            }
        }
        return table;
    }
};

TEST_F(CaptureInWireshark, TypesLengthsAndSequenceNumbersAreSeen) {
    const auto seen = messages(
        "Default.TheCardInSlotTwoIsPoweredAndAnswers",
        "-e usb.endpoint_address -e usbccid.bMessageType -e usbccid.dwLength -e usbccid.bSeq");
    const Table expected{
        {"0x04", "0x62", "0", "0"}, {"0x84", "0x80", "11", "0"}, // power on, answer to reset
        {"0x04", "0x65", "0", "1"}, {"0x84", "0x81", "0", "1"},  // slot status
        {"0x04", "0x6f", "5", "2"}, {"0x84", "0x80", "7", "2"},  // transfer block
    };
    EXPECT_EQ(seen, expected);
}

TEST_F(CaptureInWireshark, TheOtherSlotHasItsOwnEndpoints) {
    const auto seen =
        messages("Default.SlotOneIsEmpty", "-e usb.endpoint_address -e usbccid.bMessageType "
                                           "-e usbccid.bStatus.bmIccStatus");
    ASSERT_EQ(seen.size(), 2U);
    EXPECT_EQ(seen[0][0], "0x02");
    EXPECT_EQ(seen[1], (std::vector<std::string>{"0x82", "0x81", "2"}));
}

TEST_F(CaptureInWireshark, NothingInItIsMalformedUnlessTheHostCutsIt) {
    messages("Default.*-Default.AReadSmallerThanThePacketOverflows", "-e usbccid.bSeq");
    const fs::path capture = folder_ / "capture.pcapng";
    EXPECT_EQ(shell("tshark -r " + shell_word(capture.string()) + " -Y _ws.malformed 2>/dev/null"),
              0);
    EXPECT_EQ(output(), "");
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    const std::vector<std::string> arguments(argv, std::next(argv, argc));
    if (arguments.size() != 4) {
        std::fputs("usage: qaven-launcher-tests ECHO-READER VIRTUAL-READER HOST-TESTS\n", stderr);
        return EXIT_FAILURE;
    }
    echo_reader = arguments[1];
    real_reader = arguments[2];
    host_tests = arguments[3];
    return RUN_ALL_TESTS();
}
