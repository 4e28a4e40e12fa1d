// What went over the bus in one whole transaction, in the words of Wireshark's own CCID dissector.
// One run makes the transaction under the launcher's capture, the next one reads it.
#include "at_the_counter.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <sstream>

using namespace qaven::test;

namespace {

// Nothing but the transaction: no counter that tidies up behind it.
class CapturedTransaction : public testing::Test {};

TEST_F(CapturedTransaction, IsMade) {
    const IssuerDesk issuer;
    const auto arqc = read_and_generate().arqc;
    Reply reply;
    reply.script = {"put-data=9F79:000000020000"};
    EXPECT_TRUE(issuer.tc(hand_over(arqc, issuer.answer(arqc.field55, reply)).tc).verified);
}

// One packet with data, as tshark shows it.
struct Packet {
    bool from_host = false;
    int size = 0;
    int type = 0;
    int length = 0; // dwLength
    int sequence = 0;
    std::string data; // what the message carries, in hex
};

// A CCID message: its first packet, and the sizes of all its packets.
struct Message {
    Packet head;
    std::vector<int> sizes;
};

std::vector<std::string> split(const std::string& line, char separator) {
    std::vector<std::string> fields;
    std::istringstream stream(line);
    for (std::string field; std::getline(stream, field, separator);) {
        fields.push_back(field);
    }
    return fields;
}

std::vector<Packet> bulk_packets(const std::string& file) {
    const std::string command =
        "tshark -n -r '" + file +
        "' -Y 'usb.transfer_type == 3 && usb.data_len > 0' -T fields -E separator=/t"
        " -e usb.src -e usb.data_len -e usbccid.bMessageType -e usbccid.dwLength -e usbccid.bSeq"
        " -e data.data 2>/dev/null";
    // NOLINTNEXTLINE(cert-env33-c): the command line is written here, only the file's name is not
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(popen(command.c_str(), "r"),
                                                               &pclose);
    std::vector<Packet> packets;
    std::array<char, 512> line{};
    while (pipe && std::fgets(line.data(), line.size(), pipe.get()) != nullptr) {
        std::string text = line.data();
        text.pop_back();
        auto fields = split(text, '\t');
        fields.resize(6);
        const auto number = [&fields](std::size_t at, int base) {
            return fields[at].empty() ? -1 : std::stoi(fields[at], nullptr, base);
        };
        packets.push_back({fields[0] == "host", number(1, 10), number(2, 16), number(3, 10),
                           number(4, 10), fields[5]});
    }
    return packets;
}

// A packet that follows a full one in the same direction goes on with its message.
std::vector<Message> messages_of(const std::vector<Packet>& packets) {
    std::vector<Message> messages;
    for (const Packet& packet : packets) {
        const bool goes_on = !messages.empty() &&
                             messages.back().head.from_host == packet.from_host &&
                             messages.back().sizes.back() == 64;
        if (goes_on) {
            messages.back().sizes.push_back(packet.size);
        } else {
            messages.push_back({packet, {packet.size}});
        }
    }
    return messages;
}

constexpr int kPowerOn = 0x62;
constexpr int kPowerOff = 0x63;
constexpr int kSlotStatus = 0x65;
constexpr int kTransferBlock = 0x6F;
constexpr int kDataBlock = 0x80;
constexpr int kSlotStatusAnswer = 0x81;

// A command of the host's: message type, instruction ("" for none), packet sizes.
struct Expected {
    int type;
    std::string instruction;
    std::vector<int> sizes;
};

Expected power_on() {
    return {kPowerOn, "", {10}};
}
Expected slot_status() {
    return {kSlotStatus, "", {10}};
}
Expected power_off() {
    return {kPowerOff, "", {10}};
}
Expected apdu(const char* instruction, int size) {
    return {kTransferBlock, instruction, {10 + size}};
}

const std::vector<Expected> kReading{
    power_on(),     slot_status(),                               // is there a card?
    apdu("a4", 10),                                              // SELECT A000000333
    apdu("a8", 16),                                              // GET PROCESSING OPTIONS
    apdu("b2", 5),  apdu("b2", 5), apdu("b2", 5), apdu("b2", 5), // READ RECORD, eight of them
    apdu("b2", 5),  apdu("b2", 5), apdu("b2", 5), apdu("b2", 5), //
    apdu("ca", 5),  apdu("ca", 5), apdu("ca", 5),                // GET DATA: electronic cash
    power_off(),
};

const std::vector<Expected> kTransactionProper{
    power_on(),
    slot_status(),
    apdu("a4", 19), // SELECT the directory
    apdu("b2", 5),
    apdu("b2", 5),  // its record, and the refusal of a second
    apdu("a4", 13), // SELECT A000000333010101
    apdu("a8", 16), // GET PROCESSING OPTIONS
    apdu("b2", 5),
    apdu("b2", 5),
    apdu("b2", 5),
    apdu("b2", 5), // READ RECORD, eight of them
    apdu("b2", 5),
    apdu("b2", 5),
    apdu("b2", 5),
    apdu("b2", 5), //
    // GENERATE AC with 52 bytes for CDOL1. The second packet is as long as the command, though
    // three bytes would do.
    {kTransferBlock, "ae", {64, 57}},
    apdu("ca", 5),  // GET DATA: last online ATC
    apdu("82", 15), // EXTERNAL AUTHENTICATE
    apdu("ae", 39), // GENERATE AC with 34 bytes for CDOL2
    apdu("da", 15), // the script's PUT DATA
    apdu("ca", 5),  // GET DATA: last online ATC
    power_off(),
};

// The second byte of a command, "" for messages that carry none.
std::string instruction_of(const Packet& packet) {
    return packet.data.size() < 4 ? std::string() : packet.data.substr(2, 2);
}

class Capture : public testing::Test {
  protected:
    void SetUp() override {
        const char* const file = std::getenv("QAVEN_CAPTURE");
        ASSERT_NE(file, nullptr);
        messages_ = messages_of(bulk_packets(file));
        ASSERT_FALSE(messages_.empty());
    }

    std::vector<Message> messages_;
};

TEST_F(Capture, ShowsTheCommandsOfATransactionInTheirOrder) {
    std::vector<Expected> expected = kReading;
    expected.insert(expected.end(), kTransactionProper.begin(), kTransactionProper.end());
    std::size_t at = 0;
    for (const Message& message : messages_) {
        if (!message.head.from_host) {
            continue;
        }
        ASSERT_LT(at, expected.size());
        EXPECT_EQ(message.head.type, expected[at].type) << at;
        EXPECT_EQ(instruction_of(message.head), expected[at].instruction) << at;
        EXPECT_EQ(message.sizes, expected[at].sizes) << at;
        ++at;
    }
    EXPECT_EQ(at, expected.size());
}

TEST_F(Capture, ShowsTheLengthOfTheDataInEveryMessage) {
    for (const Message& message : messages_) {
        const bool long_command = message.head.from_host && message.sizes.size() > 1;
        int size = 0;
        for (const int packet : message.sizes) {
            size += packet;
        }
        EXPECT_EQ(message.head.length, long_command ? message.sizes.back() : size - 10);
    }
}

TEST_F(Capture, ShowsSequenceNumbersFromZeroInEachConnectionAndTheirReturn) {
    int due = 0;
    std::optional<Packet> command;
    for (const Message& message : messages_) {
        if (message.head.from_host) {
            EXPECT_FALSE(command) << "two commands in a row";
            due = message.head.type == kPowerOn ? 0 : due + 1;
            EXPECT_EQ(message.head.sequence, due);
            command = message.head;
            continue;
        }
        ASSERT_TRUE(command) << "an answer to nothing";
        const bool carries_data = command->type == kPowerOn || command->type == kTransferBlock;
        EXPECT_EQ(message.head.type, carries_data ? kDataBlock : kSlotStatusAnswer);
        EXPECT_EQ(message.head.sequence, command->sequence);
        command.reset();
    }
    EXPECT_FALSE(command) << "the last command was not answered";
}

} // namespace
