// A reader with a card that follows a script: these commands in this order, these responses.
//
//     FakeUsb usb;
//     ScriptedCard card(usb);                        // plugs the reader, card in slot interface 2
//     card.expect("00A40400 07 A0000003330101", "6F 10 ... 9000");
//     card.expect("80AE8000 04 ????????", "6985");   // ?? stands for any byte
//     ASSERT_EQ(card.connect(), 0);                  // opens the reader, powers the card
//     ... the library's calls ...
//
// The card is strict. A command that the script does not have next is a violation, as is one to a
// card without power, a wrong CCID header, a bSeq out of turn, and a scripted command that was
// never sent; violations fail the test when the ScriptedCard goes (or in verify). After the first
// one every command is answered 6F00. GET RESPONSE and resends after 6Cxx are commands like any
// other and are scripted too.
//
// What reaches the card is what the library puts on the wire: a command of more than 54 bytes whose
// last bytes are never sent is matched as far as it was.
//
// Power on, power off and slot status need no script: they are answered as a reader answers them,
// in any number, and show in events().
#pragma once

#include "tests/support/fake_usb.h"
#include "tests/support/hex.h"

#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qaven::test {

// --- CCID messages, written down independently of the library ---

// The OUT packets of one command APDU as the library frames it.
std::vector<Bytes> command_packets(std::span<const std::uint8_t> apdu, int seq);

// A reply message: type (80 data block, 81 slot status), bSeq, bStatus, data.
Bytes reply_message(std::uint8_t type, int seq, std::uint8_t status,
                    std::span<const std::uint8_t> data);

// A message in packets of 64 bytes; a multiple of 64 is ended by a zero-length packet.
std::vector<Bytes> in_packets(std::span<const std::uint8_t> message);

// --- the card ---

class ScriptedCard {
  public:
    static constexpr int kMainSlot = 2; // interface numbers of the reader's two slots
    static constexpr int kOtherSlot = 1;
    static constexpr int kNoSlot = -1;

    // Plugs a reader with the card in the slot of that interface (kNoSlot: no card at all).
    explicit ScriptedCard(FakeUsb& usb, int slot = kMainSlot);
    ~ScriptedCard();
    ScriptedCard(const ScriptedCard&) = delete;
    ScriptedCard& operator=(const ScriptedCard&) = delete;

    // The next command and its response (data and status word).
    ScriptedCard& expect(std::string_view command, std::string_view response);

    // The next command is never answered: the library's read times out.
    ScriptedCard& expect_silence(std::string_view command);

    // The read of the reply to the next command fails with the libusb code.
    ScriptedCard& expect_failure(std::string_view command, int code);

    // The next command is answered with these packets, header included, as they stand.
    ScriptedCard& expect_packets(std::string_view command, std::vector<Bytes> packets);

    // Opens the reader and powers the card as the library's card operations do; how that was done
    // is not kept in events() and the bus's log. Gives the library's result: 0, or -1 when no slot
    // holds a card.
    int connect();

    // Powers the card off and closes the reader, if it was opened.
    void disconnect();

    // Fails the test with every violation so far and with every command not sent yet; both are
    // forgotten then.
    void verify();

    // The same as texts, without failing anything.
    std::vector<std::string> take_violations();

    // What happened, in order: "claim 2", "power on", "power off", "slot status", "close", and
    // every command in hexadecimal.
    const std::vector<std::string>& events() const { return events_; }

    // Only the commands.
    std::vector<std::string> commands() const;

    void clear_events() { events_.clear(); }

    bool powered() const { return powered_; }

    // The answer to reset.
    Bytes atr = bytes("3B 65 00 00 20 63 CB 68 00");

  private:
    using Pattern = std::vector<std::optional<std::uint8_t>>;

    struct Exchange {
        std::string text; // the command as the test wrote it
        Pattern command;
        std::vector<Bytes> packets; // of the reply
        std::optional<Bytes> response;
        int failure = 0;
    };

    void take_packet(std::span<const std::uint8_t> packet);
    void take_control(std::span<const std::uint8_t> message);
    void take_command();
    std::size_t command_length(std::uint8_t low_byte) const;
    void reply(std::uint8_t type, std::span<const std::uint8_t> data);
    void answer(const Exchange& exchange);
    bool next_is(std::span<const std::uint8_t> apdu) const;
    void violation(std::string what);

    FakeUsb& usb_;
    int slot_;
    int interface_ = kNoSlot;
    bool powered_ = false;
    bool off_script_ = false;
    int next_seq_ = 0;
    int seq_ = 0; // of the message being answered
    std::vector<Bytes> incoming_;
    std::size_t incoming_length_ = 0;
    std::deque<Exchange> script_;
    std::vector<std::string> events_;
    std::vector<std::string> violations_;
};

} // namespace qaven::test
