// The issuer's script: every command with a genuine and with a wrong MAC, and what stays of it.
#include <gtest/gtest.h>

#include "../temporary_folder.h"
#include "counter_terminal.h"
#include "virtual/card/card_factory.h"

namespace qaven::card_test {
namespace {

using virtual_issuer::Answer;
using virtual_issuer::Field55;
using virtual_issuer::parse_script_command;

class Scripts : public testing::Test {
  protected:
    // Asks for the first cryptogram and gives the issuer's answer with these commands.
    Bytes answer_with(const std::vector<std::string>& commands, bool genuine = true,
                      std::string_view aid = debit_aid) {
        terminal.begin(aid);
        return answer_to(terminal.first_cryptogram(), commands, genuine);
    }
    Bytes answer_to(const Reply& cryptogram, const std::vector<std::string>& commands,
                    bool genuine = true) {
        Answer answer;
        answer.genuine_script_macs = genuine;
        for (const std::string& command : commands) {
            answer.script.push_back(parse_script_command(command));
        }
        return issuer_of("debit").answer(Field55::parse(terminal.field55(cryptogram)), answer);
    }
    // A whole approved transaction; the script runs at its end. Gives the script's status words.
    std::string run(const std::vector<std::string>& commands, bool genuine = true) {
        const Bytes answer = answer_with(commands, genuine);
        EXPECT_EQ(terminal.authenticate(answer), "9000");
        EXPECT_EQ(terminal.second_cryptogram().status, "9000");
        return terminal.run_script(answer);
    }

    Card card{profile("debit")};
    CounterTerminal terminal{card};
};

TEST_F(Scripts, ApplicationBlockShowsAtTheNextSelection) {
    EXPECT_EQ(run({"application-block"}), "9000");
    EXPECT_EQ(terminal.select(debit_aid).status, "6283");
}

TEST_F(Scripts, ApplicationBlockInMidTransactionTurnsTheTcIntoAnAac) {
    const Bytes answer = answer_with({"application-block"});
    EXPECT_EQ(terminal.authenticate(answer), "9000");
    EXPECT_EQ(terminal.run_script(answer), "9000");
    EXPECT_EQ(terminal.second_cryptogram("40").data.substr(4, 2), "00");
}

// A blocked application still gives its AAC, and that is what the MAC of the unblocking covers.
TEST_F(Scripts, ApplicationUnblockBringsABlockedApplicationBack) {
    EXPECT_EQ(run({"application-block"}), "9000");
    terminal.begin(debit_aid);
    const Reply aac = terminal.first_cryptogram();
    EXPECT_EQ(terminal.run_script(answer_to(aac, {"application-unblock"})), "9000");
    EXPECT_EQ(terminal.select(debit_aid).status, "9000");
}

TEST_F(Scripts, CardBlockEndsTheSessionAndEverySelection) {
    EXPECT_EQ(run({"card-block"}), "9000");
    EXPECT_EQ(terminal.send("80CA9F3600"), refused("6985"));
    EXPECT_EQ(terminal.select(debit_aid), refused("6A81"));
    card.power_off();
    card.power_on();
    EXPECT_EQ(terminal.select("315041592E5359532E4444463031"), refused("6A81"));
}

TEST_F(Scripts, PinUnblockRestoresTheTriesOfTheSamePin) {
    terminal.select(debit_aid);
    for (int attempt = 0; attempt < 3; ++attempt) {
        terminal.send("0020008008 26111111FFFFFFFF");
    }
    EXPECT_EQ(run({"pin-unblock"}), "9000");
    EXPECT_EQ(terminal.send("80CA9F1700"), accepted("9F170103"));
    EXPECT_EQ(terminal.send("0020008008 26123456FFFFFFFF"), accepted());
}

TEST_F(Scripts, PinChangeReplacesThePin) {
    EXPECT_EQ(run({"pin-change=9876"}), "9000");
    EXPECT_EQ(terminal.send("0020008008 26123456FFFFFFFF"), refused("63C2"));
    EXPECT_EQ(terminal.send("0020008008 249876FFFFFFFFFF"), accepted());
}

TEST_F(Scripts, PutDataSetsTheElectronicCashObjects) {
    EXPECT_EQ(run({"put-data=9F77:000000200000", "put-data=9F78:000000060000",
                   "put-data=9F79:000000150000"}),
              "9000 9000 9000");
    EXPECT_EQ(terminal.send("80CA9F7700"), accepted("9F7706000000200000"));
    EXPECT_EQ(terminal.send("80CA9F7800"), accepted("9F7806000000060000"));
    EXPECT_EQ(terminal.send("80CA9F7900"), accepted("9F7906000000150000"));
}

TEST_F(Scripts, PutDataOfTheBalanceIsLoggedAsALoad) {
    EXPECT_EQ(run({"put-data=9F79:000000050000"}), "9000");
    EXPECT_EQ(terminal.send("00B2016400"),
              accepted("9F79 000000010000 000000050000 250422 161355 0156"
                       "4C55524F20434E54202020202020202020202020 0003"));
    EXPECT_EQ(terminal.send("00B2026400").data.substr(0, 28), "9F79000000000000000000010000");
}

TEST_F(Scripts, PutDataOfALimitIsNoLoad) {
    EXPECT_EQ(run({"put-data=9F78:000000060000"}), "9000");
    EXPECT_EQ(terminal.send("00B2026400"), refused("6A83"));
}

TEST_F(Scripts, PutDataRefusesOtherObjectsLengthsAndValues) {
    EXPECT_EQ(run({"put-data=9F36:0001"}), "6A88");
    EXPECT_EQ(run({"put-data=9F79:0000000500"}), "6700");
    EXPECT_EQ(run({"put-data=9F79:00000005000A"}), "6A80") << "no decimal digits";
    EXPECT_EQ(run({"put-data=9F79:000000100001"}), "6A80") << "more than the balance limit";
    EXPECT_EQ(terminal.send("80CA9F7900"), accepted("9F7906000000010000"));
}

TEST_F(Scripts, UpdateRecordReplacesTheRecord) {
    EXPECT_EQ(run({"update-record=2:2:70089F620101DF200142"}), "9000");
    EXPECT_EQ(terminal.send("00B2021400"), accepted("7008 9F620101 DF200142"));
}

TEST_F(Scripts, UpdateRecordRefusesWhatDoesNotFitTheFile) {
    EXPECT_EQ(run({"update-record=2:3:7000"}), "6A83");
    EXPECT_EQ(run({"update-record=9:1:7000"}), "6A82");
    EXPECT_EQ(run({"update-record=11:1:7000"}), "6981") << "a log cannot be written by hand";
    EXPECT_EQ(run({"update-record=2:2:7001"}), "6A80") << "a template that is cut short";
    EXPECT_EQ(run({"update-record=2:2:770101"}), "6A80") << "no record template";
    EXPECT_EQ(run({"update-record=2:1:70048C029F02"}), "6A80") << "a CDOL that cannot be read";
}

TEST_F(Scripts, WrongMacIsRefusedForEveryCommandAndChangesNothing) {
    EXPECT_EQ(run({"application-block", "application-unblock", "card-block", "pin-unblock",
                   "pin-change=9876", "put-data=9F79:000000050000", "update-record=2:2:7000"},
                  false),
              "6988 6988 6988 6988 6988 6988 6988");
    EXPECT_EQ(terminal.send("80CA9F7900"), accepted("9F7906000000010000"));
    EXPECT_EQ(terminal.send("0020008008 26123456FFFFFFFF"), accepted());
    EXPECT_EQ(terminal.select(debit_aid).status, "9000");
}

TEST_F(Scripts, CommandsOfAnEarlierTransactionAreNotAccepted) {
    const Bytes old = answer_with({"put-data=9F79:000000050000"});
    terminal.begin(debit_aid);
    terminal.first_cryptogram();
    EXPECT_EQ(terminal.run_script(old), "6988");
}

TEST_F(Scripts, CommandsBeforeTheFirstCryptogramAreRefused) {
    const Bytes early = answer_with({"put-data=9F79:000000050000"});
    terminal.begin(debit_aid);
    EXPECT_EQ(terminal.run_script(early), "6985");
}

TEST_F(Scripts, CommandsTooShortForAMacAreRefused) {
    answer_with({});
    EXPECT_EQ(terminal.send("841E000003 010203"), refused("6700"));
}

TEST_F(Scripts, ParametersAndDataThatTheCommandDoesNotHaveAreRefused) {
    terminal.begin(debit_aid);
    const Reply cryptogram = terminal.first_cryptogram();
    const auto send_secured = [&](std::array<std::uint8_t, 4> header, std::string_view data) {
        Answer answer;
        virtual_issuer::ScriptCommand command;
        command.header = header;
        command.data = hex(data);
        answer.script.push_back(command);
        return terminal.run_script(
            issuer_of("debit").answer(Field55::parse(terminal.field55(cryptogram)), answer));
    };
    EXPECT_EQ(send_secured({0x84, 0x1E, 0x01, 0x00}, ""), "6A86");
    EXPECT_EQ(send_secured({0x84, 0x1E, 0x00, 0x00}, "00"), "6700");
    EXPECT_EQ(send_secured({0x84, 0x18, 0x00, 0x01}, ""), "6A86");
    EXPECT_EQ(send_secured({0x84, 0x16, 0x00, 0x00}, "00"), "6700");
    EXPECT_EQ(send_secured({0x84, 0x24, 0x00, 0x01}, ""), "6A86") << "needs the current PIN";
    EXPECT_EQ(send_secured({0x84, 0x24, 0x00, 0x00}, "00"), "6700");
    EXPECT_EQ(send_secured({0x84, 0x24, 0x00, 0x02}, "26123456FFFFFFFF"), "6A80")
        << "not enciphered";
    EXPECT_EQ(send_secured({0x04, 0xDC, 0x02, 0x15}, "7000"), "6A86");
}

TEST_F(Scripts, CountAndFailureShowInTheNextTransactionAndNoLonger) {
    EXPECT_EQ(run({"put-data=9F78:000000060000", "put-data=9F36:0001"}), "9000 6A88");
    terminal.begin(debit_aid);
    const Reply next = terminal.first_cryptogram();
    EXPECT_EQ(next.data.substr(26), "070101"
                                    "03A00028"
                                    "01");
    terminal.authenticate(answer_to(next, {"application-unblock"}));
    terminal.second_cryptogram();
    terminal.begin(debit_aid);
    EXPECT_EQ(terminal.first_cryptogram().data.substr(26), "070101"
                                                           "03A00000"
                                                           "01");
}

TEST_F(Scripts, EffectsOutliveThePowerAndTheCardObject) {
    EXPECT_EQ(run({"put-data=9F79:000000050000", "pin-change=9876", "update-record=2:2:7000",
                   "application-block"}),
              "9000 9000 9000 9000");
    const test::TemporaryFolder folder;
    const auto file = folder.path() / "saved.json";
    virtual_card::save_card(card, file);

    const auto restored = virtual_card::make_card(file);
    CounterTerminal at_restored(*restored);
    EXPECT_EQ(at_restored.select(debit_aid).status, "6283");
    EXPECT_EQ(at_restored.send("80CA9F7900"), accepted("9F7906000000050000"));
    EXPECT_EQ(at_restored.send("80CA9F3600"), accepted("9F36020003"));
    EXPECT_EQ(at_restored.send("80CA9F1300"), accepted("9F13020003"));
    EXPECT_EQ(at_restored.send("00B2015C00"), terminal.send("00B2015C00")) << "transaction log";
    EXPECT_EQ(at_restored.send("00B2016400"), terminal.send("00B2016400")) << "load log";
    EXPECT_EQ(at_restored.send("0020008008 249876FFFFFFFFFF"), accepted());
    at_restored.begin(debit_aid);
    EXPECT_EQ(at_restored.send("00B2021400"), accepted("7000"));
    EXPECT_EQ(at_restored.first_cryptogram().data.substr(26), "070101"
                                                              "03800040"
                                                              "01")
        << "an AAC, four script commands before";
}

} // namespace
} // namespace qaven::card_test
