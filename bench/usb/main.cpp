// The library beside bare libusb and beside pcscd, turn by turn at the same reader.
//
// usage: qaven-usb-bench ROUNDS [--pcscd]      with the virtual reader on the bus, debit card in it
//
// Prints tables in markdown.
#include "bare_reader.h"
#include "card_work.h"
#include "measures.h"
#include "pcsc.h"
#include "tape.h"

#include "../../tests/temporary_folder.h"
#include "usb/ccid.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>

using namespace qaven::bench;

namespace {

constexpr int kVendor = 0x2F7A;
constexpr int kProduct = 0x4417;
constexpr int kSlot = 2;

constexpr int kCommandsInARound = 40;
constexpr int kCyclesInARound = 6;

// The card keeps its last ten transactions; from then on every log is of the same length.
constexpr int kTransactionsUntilTheLogIsFull = 10;

struct Command {
    const char* name;
    std::string bytes;
};

const std::vector<Command>& commands() {
    using namespace std::string_literals;
    static const std::vector<Command> all{
        {"GET CHALLENGE, 8 bytes", "\x00\x84\x00\x00\x08"s},
        {"READ RECORD, the longest", "\x00\xB2\x01\x14\x00"s},
    };
    return all;
}

constexpr std::string_view kSelect{"\x00\xA4\x04\x00\x08\xA0\x00\x00\x03\x33\x01\x01\x01", 13};

// With nothing in the nine bytes that this card wants to know of the terminal.
constexpr std::string_view kGetProcessingOptions{"\x80\xA8\x00\x00\x0B\x83\x09\0\0\0\0\0\0\0\0\0",
                                                 16};

struct Sides {
    Times ours;
    Times silent; // ours, without progress lines
    Times bare;
    Times pcscd;
};

// Times of so many calls together.
struct Counted {
    Times times;
    int count = 0;

    void add(const Part& part) {
        times.add(part.time);
        count = part.count;
    }
    [[nodiscard]] std::string text() const {
        return time_text(times.median()) + " (" + std::to_string(count) + ")";
    }
};

struct OperationTimes {
    Sides sides;
    Times without_trace;
    Times silent; // nor progress lines
    Counted transfers;
    Counted connection;
    Counted trace;
    Times rest;
    std::map<std::string, Counted> calls;
    int answers_of_other_length = 0;
};

struct Results {
    std::map<std::string, Sides> commands;
    Sides cycle;
    std::map<Operation, OperationTimes> operations;
    Sides transaction;
};

// Does both, in an order that changes from turn to turn.
template <typename Ours, typename Theirs>
void take_turns(int turn, const Ours& ours, const Theirs& theirs) {
    if (turn % 2 == 0) {
        ours();
        theirs();
    } else {
        theirs();
        ours();
    }
}

// Over the connection that the library holds.
void measure_commands(Results& results) {
    for (const auto& command : commands()) {
        Sides& sides = results.commands[command.name];
        const Tape tape = record([&] { exchange(command.bytes); });
        const auto silent = [&] {
            setenv("QAVEN_DIAGNOSTICS", "off", 1);
            sides.silent.add(time_of([&] { exchange(command.bytes); }));
            unsetenv("QAVEN_DIAGNOSTICS");
        };
        for (int i = 0; i < kCommandsInARound; ++i) {
            silent();
            take_turns(
                i, [&] { sides.ours.add(time_of([&] { exchange(command.bytes); })); },
                [&] { sides.bare.add(time_of([&] { replay(tape, librarys_handle()); })); });
        }
    }
}

void measure_cycles(Results& results) {
    const auto ours = [] {
        CCID reader{};
        std::array<unsigned char, CCID::kPacketSize> status{};
        reader.open(kVendor, kProduct, kSlot);
        reader.poweron();
        reader.GetSlotStatus(status.data());
        reader.poweroff();
        reader.close();
    };
    const auto bare = [] {
        BareReader reader;
        reader.power_on();
        reader.status();
        reader.power_off();
    };
    for (int i = 0; i < kCyclesInARound; ++i) {
        take_turns(
            i, [&] { results.cycle.ours.add(time_of(ours)); },
            [&] { results.cycle.bare.add(time_of(bare)); });
    }
}

class Operations {
  public:
    explicit Operations(Results& results) : results_(results) {
        for (int i = 0; i < kTransactionsUntilTheLogIsFull; ++i) {
            run_all([this](Operation operation) { counter_.run(operation); });
        }
        run_all([this](Operation operation) {
            tapes_[operation] = record([&] { counter_.run(operation); });
        });
    }

    // The card information step, after which the library holds the connection.
    void begin() {
        counter_.step(Operation::card_information,
                      [this] { counter_.run(Operation::card_information); });
    }

    void finish() {
        counter_.step(Operation::issuers_answer,
                      [this] { counter_.run(Operation::issuers_answer); });
    }

    void measure(int round) {
        take_turns(
            round, [this] { measure_ours(); }, [this] { measure_bare(); });
        {
            const WithoutTrace no_file;
            run_all([this](Operation operation) {
                of(operation).without_trace.add(time_of([&] { counter_.run(operation); }));
            });
            setenv("QAVEN_DIAGNOSTICS", "off", 1);
            run_all([this](Operation operation) {
                of(operation).silent.add(time_of([&] { counter_.run(operation); }));
            });
            unsetenv("QAVEN_DIAGNOSTICS");
        }
        run_all([this](Operation operation) { measure_parts(operation); });
    }

  private:
    OperationTimes& of(Operation operation) { return results_.operations[operation]; }

    template <typename Run>
    void run_all(const Run& run) {
        for (const auto operation : operations) {
            counter_.step(operation, [&] { run(operation); });
        }
    }

    void measure_ours() {
        Microseconds whole{};
        run_all([&](Operation operation) {
            const auto time = time_of([&] { counter_.run(operation); });
            of(operation).sides.ours.add(time);
            whole += time;
        });
        results_.transaction.ours.add(whole);
    }

    void measure_bare() {
        const BareReader reader;
        Microseconds whole{};
        for (const auto operation : operations) {
            int different = 0;
            const auto time =
                time_of([&] { different = replay(tapes_[operation], reader.handle()); });
            of(operation).sides.bare.add(time);
            of(operation).answers_of_other_length += different;
            whole += time;
        }
        results_.transaction.bare.add(whole);
    }

    void measure_parts(Operation operation) {
        Parts parts;
        const auto whole = time_of([&] { parts = parts_of([&] { counter_.run(operation); }); });
        OperationTimes& times = of(operation);
        const Part connection = parts.whole_connection();
        times.transfers.add(parts.transfers);
        times.connection.add(connection);
        times.trace.add(parts.trace);
        times.rest.add(whole - parts.transfers.time - connection.time - parts.trace.time);
        for (const auto& [name, part] : parts.connection) {
            times.calls[name].add(part);
        }
    }

    Results& results_;
    Counter counter_;
    std::map<Operation, Tape> tapes_;
};

void measure_pcscd(Results& results) {
    const Pcscd service;
    PcscHost host;
    for (int i = 0; i < kCyclesInARound; ++i) {
        results.cycle.pcscd.add(time_of([&] {
            host.connect();
            host.status();
            host.disconnect();
        }));
    }
    const auto transmit = [&host](const std::string& command) {
        const auto answer =
            host.transmit({reinterpret_cast<const std::uint8_t*>(command.data()), command.size()});
        if (answer.size() < 2 || answer[answer.size() - 2] != 0x90) {
            throw std::runtime_error("pcscd: a command was not answered by 9000");
        }
    };
    host.connect();
    transmit(std::string(kSelect));
    transmit(std::string(kGetProcessingOptions));
    for (const auto& command : commands()) {
        for (int i = 0; i < kCommandsInARound; ++i) {
            results.commands[command.name].pcscd.add(time_of([&] { transmit(command.bytes); }));
        }
    }
    host.disconnect();
}

Results measure(int rounds, bool with_pcscd) {
    Results results;
    Operations operations(results);
    for (int round = 0; round < rounds; ++round) {
        operations.begin();
        measure_commands(results);
        operations.finish();
        measure_cycles(results);
        operations.measure(round);
        if (with_pcscd) {
            measure_pcscd(results);
        }
    }
    return results;
}

std::string compared(const std::string& name, const Sides& sides) {
    std::vector<std::string> cells{name, sides.ours.text(), sides.bare.text(),
                                   paired_ratio_text(sides.ours, sides.bare)};
    if (!sides.pcscd.empty()) {
        cells.push_back(sides.pcscd.text());
        cells.push_back(ratio_text(sides.ours, sides.pcscd));
    }
    return row(cells);
}

std::string compared_head(const char* what, const char* bare, const char* pcscd) {
    std::vector<std::string> cells{what, "qaven", bare, "ratio"};
    if (pcscd != nullptr) {
        cells.insert(cells.end(), {pcscd, "ratio"});
    }
    return head(cells);
}

std::string report(const Results& results, bool with_pcscd) {
    std::string text =
        compared_head("Command", "bare libusb", with_pcscd ? "`SCardTransmit`" : nullptr);
    for (const auto& [name, sides] : results.commands) {
        text += compared(name, sides);
    }
    text += '\n' + head({"Command, without progress lines", "qaven", "ratio to bare libusb"});
    for (const auto& [name, sides] : results.commands) {
        text += row({name, sides.silent.text(), paired_ratio_text(sides.silent, sides.bare)});
    }
    text += '\n' + compared_head("Operation", "its transfers by bare libusb", nullptr);
    int different = 0;
    for (const auto& [operation, times] : results.operations) {
        text += compared(name_of(operation), times.sides);
        different += times.answers_of_other_length;
    }
    text += compared("whole transaction", results.transaction);
    text += '\n' + head({"Operation", "transfers", "connection calls", "trace lines", "all else"});
    for (const auto& [operation, times] : results.operations) {
        text += row({name_of(operation), times.transfers.text(), times.connection.text(),
                     times.trace.text(), time_text(times.rest.median())});
    }
    text += '\n' + head({"Connection calls", "of `QAVEN_getICCardInfo` with ARQC"});
    for (const auto& [name, times] : results.operations.at(Operation::card_information).calls) {
        text += row({'`' + name + '`', times.text()});
    }
    text += '\n' + head({"Operation", "as it is", "without trace file", "nor progress lines"});
    for (const auto& [operation, times] : results.operations) {
        text += row({name_of(operation), times.sides.ours.text(), times.without_trace.text(),
                     times.silent.text()});
    }
    text += '\n' + compared_head("Connection", "bare libusb",
                                 with_pcscd ? "`SCardConnect` to `SCardDisconnect`" : nullptr);
    text += compared("open, power on, status, power off, close", results.cycle);
    text += "\nAnswers to replayed commands that had another length: " + std::to_string(different) +
            "\n";
    return text;
}

} // namespace

int main(int argc, char** argv) try {
    const auto words = std::span(argv, static_cast<std::size_t>(argc)).subspan(1);
    const std::vector<std::string> arguments(words.begin(), words.end());
    const bool with_pcscd = arguments.size() == 2 && arguments[1] == "--pcscd";
    const int rounds =
        arguments.empty() ? 0 : static_cast<int>(std::strtol(arguments[0].c_str(), nullptr, 10));
    if (rounds < 1 || (arguments.size() != 1 && !with_pcscd)) {
        std::cerr << "usage: qaven-usb-bench ROUNDS [--pcscd]\n";
        return 2;
    }
    // The library's progress lines are made and go nowhere, as at most hosts.
    std::FILE* const said = fdopen(dup(STDOUT_FILENO), "w");
    if (said == nullptr || std::freopen("/dev/null", "w", stdout) == nullptr) {
        throw std::runtime_error("cannot turn standard output away");
    }
    std::string text;
    {
        const qaven::test::WorkingFolder folder;
        text = report(measure(rounds, with_pcscd), with_pcscd);
    }
    std::fputs(text.c_str(), said);
    std::fclose(said);
    return EXIT_SUCCESS;
} catch (const std::exception& error) {
    std::cerr << "qaven-usb-bench: " << error.what() << '\n';
    return EXIT_FAILURE;
}
