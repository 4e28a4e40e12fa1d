// CCID messages to slot 0 of the reader: card power, slot status, one command APDU and its
// response. Status words are not looked at here.
#pragma once

#include "qaven/qaven.h"
#include "support/export.h"
#include "usb/myusb.h"
#include "usb/reply.h"

#include <cstdint>
#include <span>

// One reader connection with CCID framing. Calling order: open, poweron, any number of exchanges,
// poweroff, close.
class CCID : public Myusb {
  public:
    // Bytes of one packet, and of the header that every message begins with.
    static constexpr int kPacketSize = 64;
    static constexpr int kHeaderSize = 10; // type, dwLength (4), slot, bSeq, three of its own

    // What the reply buffer of interact_apdu must hold.
    static constexpr int kReplyBufferSize = qaven::Reply::kCapacity;

    // A reply that is larger than its buffer, or a command that cannot be framed.
    static constexpr int kIllegalData = QAVEN_ILLEGAL_DATA;

    // Index of bStatus in a reply message, and its value when the slot holds no card.
    static constexpr int kStatusByte = 7;
    static constexpr unsigned char kNoCardPresent = 2; // bmICCStatus, the rest of the byte being 0

    // Places in a message's header, and the types of replies (CCID 1.1, 6.2).
    static constexpr int kTypeByte = 0;
    static constexpr int kSequenceByte = 6;            // bSeq
    static constexpr unsigned char kDataBlock = 0x80;  // RDR_to_PC_DataBlock
    static constexpr unsigned char kSlotStatus = 0x81; // RDR_to_PC_SlotStatus

    // Starts a connection; one that is still held is ended first, because an interface can be
    // claimed only once. Always 0: a reader that is not there shows in the transfers that follow.
    QAVEN_API int open(int vid, int pid, int interface);

    // The same on the interface chosen before.
    QAVEN_API int open(int vid, int pid);

    // Myusb::setInterface.
    QAVEN_API int setInterface(int interface);

    // Powers the card: sends one command and reads one packet of up to 64 bytes into atr. The
    // result is that of sending (0, a negative libusb code, or kNoHandle); a missing reply leaves
    // atr as it was.
    QAVEN_API int poweron();

    // Takes the card's power; buffer and result as of poweron.
    QAVEN_API int poweroff();

    // Asks for the slot's state: status (64 bytes) receives the reply, its byte kStatusByte says
    // whether there is a card. The result as of poweron; a missing reply leaves status as it was.
    QAVEN_API int GetSlotStatus(unsigned char* status);

    // Sends the question for the slot's state and reads nothing; the result of sending.
    int send_slot_status_request();

    // Myusb::close: the reader is free again.
    QAVEN_API void close();

    // Sends one command APDU of len bytes (0..kMaxApdu; dwLength is len modulo 256) and collects
    // the response. resp:
    // kReplyBufferSize bytes; *resp_len: the reply's dwLength. Each reply packet is awaited for
    // timeout_ms. 0, a negative libusb code, or kIllegalData.
    QAVEN_API int interact_apdu(unsigned char* apdu, int len, unsigned char* resp, int* resp_len,
                                int timeout_ms);

    // GetSlotStatus for the library's own callers.
    int ask_slot_status(std::span<std::uint8_t, kPacketSize> status);

    // interact_apdu for the library's own callers: the reply's data and dwLength are in reply.
    int exchange(std::span<const std::uint8_t> apdu, qaven::Reply& reply, int timeout_ms);

    // Sends one APDU of len bytes (0..kMaxApdu) as one transfer. A libusb result.
    QAVEN_API int write(unsigned char* data, int len);

    // Receives one reply message. buf: 256 bytes; *len: low byte of the reply's dwLength.
    QAVEN_API int read(unsigned char* buf, int* len); // 0 or -1
    QAVEN_API int readTimeout(unsigned char* buf, int* len,
                              int timeout_ms); // 0 or a negative libusb code

    // The longest command APDU there is: header, extended Lc, 65,535 bytes, extended Le.
    static constexpr int kMaxApdu = 65544;

    unsigned char atr[256]; // last reply to poweron or poweroff; ATR bytes from offset 10
    int seq;                // its low byte is the next bSeq

    // The data length that a message's header announces.
    static std::uint32_t announced_length(std::span<const std::uint8_t, kHeaderSize> header);

  private:
    enum class Message : std::uint8_t {
        kPowerOn = 0x62,
        kPowerOff = 0x63,
        kGetSlotStatus = 0x65,
        kTransferBlock = 0x6F,
    };

    int open_device();
    void put_header(Message type, std::size_t apdu_length, std::span<std::uint8_t> message);
    int send(Message type);
    int command(Message type, std::span<std::uint8_t, kPacketSize> reply);
    std::uint64_t note_header(std::span<const std::uint8_t, kHeaderSize> header);
    std::uint64_t note_packet(std::uint64_t awaited);
    int send_apdu(std::span<const std::uint8_t> apdu);
    int receive_response(qaven::Reply& reply, int timeout_ms);
    int receive_rest(std::span<std::uint8_t> message, int* len, unsigned int timeout_ms);
    bool drop_continuation(int timeout_ms);
};
