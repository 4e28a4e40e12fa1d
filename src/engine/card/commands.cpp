// The card command set over the exchange.
#include "engine/card/commands.h"

#include "common/tags.h"
#include "engine/card/apdu.h"
#include "qaven/qaven.h"
#include "support/diagnostics.h"
#include "support/operation.h"

#include <algorithm>
#include <utility>

namespace qaven::commands {

namespace {

constexpr std::size_t kHeader = 5;
constexpr std::size_t kMaxData = 255;

using Staging = std::array<unsigned char, kHeader + kMaxData>;

// How much response data a command takes; longer is no answer to that command.
constexpr std::size_t kShortResponse = 256;
constexpr std::size_t kBinaryResponse = 512;
constexpr std::size_t kRecordResponse = 1022;

// Waiting hints of the commands.
constexpr int kWaitRead = 3;
constexpr int kWaitRecord = 5;
constexpr int kWaitOptions = 6;
constexpr int kWaitCryptogram = 10;
constexpr int kWaitAuthentication = 12;
constexpr int kWaitVerify = 5;

// Of VERIFY the data is a PIN block.
struct Command {
    ~Command() { const WipedAtEnd wiped(bytes); }

    Staging bytes{};
    std::size_t length = kHeader;
};

struct Header {
    unsigned char cla;
    unsigned char ins;
    unsigned char p1;
    unsigned char p2;
    unsigned char p3;
};

Command command(const Header& header, std::span<const unsigned char> data = {}) {
    Command built;
    built.bytes[0] = header.cla;
    built.bytes[1] = header.ins;
    built.bytes[2] = header.p1;
    built.bytes[3] = header.p2;
    built.bytes[4] = header.p3;
    const auto taken = data.first(std::min(data.size(), kMaxData));
    std::ranges::copy(taken, std::span(built.bytes).subspan(kHeader, taken.size()).begin());
    built.length = kHeader + taken.size();
    return built;
}

Header with_data(unsigned char cla, unsigned char ins, unsigned char p1, unsigned char p2,
                 std::span<const unsigned char> data) {
    return {cla, ins, p1, p2, static_cast<unsigned char>(data.size())};
}

int exchange(Command command, int wait, std::size_t limit, Response& response) {
    Reply reply{response.place()};
    int result = apdu::exchange({command.bytes, command.length, wait}, reply);
    const std::size_t data_length = result == 0 ? reply.length - 2 : 0;
    if (data_length > limit) {
        result = QAVEN_ILLEGAL_DATA;
    }
    response.keep(result == 0 ? data_length : 0);
    return result;
}

int exchange_without_answer(const Command& command, int wait) {
    Response ignored;
    return exchange(command, wait, kShortResponse, ignored);
}

std::span<const unsigned char> host_bytes(const unsigned char* data, std::size_t length) {
    return data != nullptr ? std::span(data, length) : std::span<const unsigned char>();
}

Tag data_object_tag(DataObject which) {
    switch (which) {
    case DataObject::kLastOnlineAtc:
        return kTag9F13LastOnlineAtc;
    case DataObject::kPinTryCounter:
        return kTag9F17PinTryCounter;
    case DataObject::kLogFormat:
        return kTag9F4FLogFormat;
    case DataObject::kCashBalance:
        return kTag9F79CashBalance;
    case DataObject::kCashBalanceLimit:
        return kTag9F77CashBalanceLimit;
    case DataObject::kCashTransactionLimit:
        return kTag9F78CashTransactionLimit;
    case DataObject::kLoadLogFormat:
        return kTagDF4FLoadLogFormat;
    }
    // Every other selector asks for the application transaction counter.
    return kTag9F36Atc;
}

// No operation sends these four.

int get_challenge(std::uint8_t length, Response& response) {
    return exchange(command({0x00, 0x84, 0x00, 0x00, length}), kWaitRead, kShortResponse, response);
}

int read_binary(int sfi, int offset, int length, Response& response) {
    const auto p1 = static_cast<std::uint8_t>((static_cast<unsigned int>(sfi) & 0x1FU) | 0x80U);
    Command built = command({0x00, 0xB0, p1, static_cast<std::uint8_t>(offset), 0x00});
    // The length is written behind the five bytes that are sent, so Le always goes out as 00 and
    // the card's 6Cxx supplies the real one.
    built.bytes[kHeader] = static_cast<std::uint8_t>(length);
    return exchange(built, kWaitRead, kBinaryResponse, response);
}

int internal_authenticate(std::span<const std::uint8_t> data, Response& response) {
    return exchange(command(with_data(0x00, 0x88, 0x00, 0x00, data), data), kWaitAuthentication,
                    kShortResponse, response);
}

int verify(std::uint8_t p2, std::span<const std::uint8_t> pin_block, std::uint8_t length) {
    Command built = command(with_data(0x00, 0x20, 0x00, p2, pin_block), pin_block);
    // The PIN block's length is taken for the command's: the last five bytes are not sent.
    built.length = length;
    return exchange_without_answer(built, kWaitVerify);
}

} // namespace

void Response::assign(std::span<const unsigned char> data) {
    const auto taken = data.first(std::min(data.size(), bytes_.size()));
    std::ranges::copy(taken, bytes_.begin());
    keep(taken.size());
}

void Response::keep(std::size_t length) {
    length_ = length;
    std::fill(bytes_.begin() + static_cast<std::ptrdiff_t>(length), bytes_.end(),
              static_cast<unsigned char>(0));
}

int select_file(unsigned char p1, unsigned char p2, std::span<const unsigned char> name,
                Response& response) {
    return exchange(command(with_data(0x00, 0xA4, p1, p2, name), name), kWaitRead, kShortResponse,
                    response);
}

int external_authenticate(std::span<const unsigned char> data) {
    return exchange_without_answer(command(with_data(0x00, 0x82, 0x00, 0x00, data), data),
                                   kWaitAuthentication);
}

int get_processing_options(std::span<const unsigned char> data, Response& response) {
    return exchange(command(with_data(0x80, 0xA8, 0x00, 0x00, data), data), kWaitOptions,
                    kShortResponse, response);
}

int get_data(DataObject which, Response& response) {
    const Tag object = data_object_tag(which);
    const auto tag = object.bytes();
    return exchange(command({0x80, 0xCA, tag[0], tag[1], 0x00}), kWaitRead, kShortResponse,
                    response);
}

int generate_ac(unsigned char p1, std::span<const unsigned char> cdol_data, Response& response) {
    diagnostics::line("i come");
    const int result = exchange(command(with_data(0x80, 0xAE, p1, 0x00, cdol_data), cdol_data),
                                kWaitCryptogram, kShortResponse, response);
    diagnostics::line("i comeback");
    return result;
}

int read_record(unsigned char record, unsigned char sfi, Response& response) {
    const auto p2 = static_cast<unsigned char>((sfi * 8) | 4);
    return exchange(command({0x00, 0xB2, record, p2, 0x00}), kWaitRecord, kRecordResponse,
                    response);
}

} // namespace qaven::commands

namespace commands = qaven::commands;
using commands::host_bytes;
using commands::Response;

namespace {

// A command that a host sends by itself, and the response in its raw buffers.
template <typename Length, typename Command>
int exchange_for_host(unsigned char* out, Length* out_len, Command&& command) {
    return qaven::operation::locked(static_cast<int>(QAVEN_ILLEGAL_DATA), [&] {
        Response response;
        const int result = command(response);
        if (result == 0) {
            std::ranges::copy(response.data(), out);
            *out_len = static_cast<Length>(response.data().size());
        }
        return result;
    });
}

// The same for a command whose result says all.
template <typename Command>
int exchange_for_host(Command&& command) {
    return qaven::operation::locked(static_cast<int>(QAVEN_ILLEGAL_DATA),
                                    std::forward<Command>(command));
}

} // namespace

int qmcx_getrandom(int len, unsigned char* out) {
    return exchange_for_host([&] {
        Response response;
        const int result = commands::get_challenge(static_cast<std::uint8_t>(len), response);
        if (result == 0 && len > 0) {
            const auto wanted = static_cast<std::size_t>(len);
            const auto received = std::min(wanted, response.data().size());
            std::fill_n(std::copy_n(response.data().begin(), received, out), wanted - received,
                        static_cast<unsigned char>(0));
        }
        return result;
    });
}

int QM_read_binary(int sfi, int offset, int len, unsigned char* out, int* out_len) {
    return exchange_for_host(out, out_len, [&](Response& response) {
        return commands::read_binary(sfi, offset, len, response);
    });
}

int qmcx_SelectFile(unsigned char p1, unsigned char p2, unsigned char* data, unsigned char lc,
                    unsigned char* out, unsigned int* out_len) {
    return exchange_for_host(out, out_len, [&](Response& response) {
        return commands::select_file(p1, p2, host_bytes(data, lc), response);
    });
}

int qmcx_ExternalAuth(unsigned char* data, unsigned char lc) {
    return exchange_for_host([&] { return commands::external_authenticate(host_bytes(data, lc)); });
}

int qmcx_InternalAuth(unsigned char* data, unsigned char lc, unsigned char* out,
                      unsigned char* out_len) {
    return exchange_for_host(out, out_len, [&](Response& response) {
        return commands::internal_authenticate(host_bytes(data, lc), response);
    });
}

int qmcx_VerifyPin(unsigned char p2, unsigned char* data, unsigned char lc) {
    return exchange_for_host([&] { return commands::verify(p2, host_bytes(data, lc), lc); });
}

int qmcx_GetProcessOptions(unsigned char* data, unsigned char lc, unsigned char* out,
                           unsigned char* out_len) {
    return exchange_for_host(out, out_len, [&](Response& response) {
        return commands::get_processing_options(host_bytes(data, lc), response);
    });
}

int qmcx_GetData(unsigned char which, unsigned char* out, unsigned char* out_len) {
    return exchange_for_host(out, out_len, [&](Response& response) {
        return commands::get_data(static_cast<commands::DataObject>(which), response);
    });
}

int qmcx_GenerateAC(unsigned char p1, unsigned char* data, unsigned char lc, unsigned char* out,
                    unsigned char* out_len) {
    return exchange_for_host(out, out_len, [&](Response& response) {
        return commands::generate_ac(p1, host_bytes(data, lc), response);
    });
}

int qmcx_ReadRecord(unsigned char record, unsigned char sfi, unsigned char* out,
                    unsigned int* out_len) {
    return exchange_for_host(out, out_len, [&](Response& response) {
        return commands::read_record(record, sfi, response);
    });
}

int qm_closeicc() {
    return 0;
}

void Qm_CloseDevice() {}
