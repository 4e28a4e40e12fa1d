// The card command set over the exchange.
#include "engine/card/commands.h"

#include "common/tags.h"
#include "engine/card/apdu.h"
#include "qaven/qaven.h"
#include "support/diagnostics.h"

#include <algorithm>

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
    std::array<unsigned char, apdu::kReplySize> reply{};
    const WipedAtEnd wiped(reply);
    int length = 0;
    const int result = Qm_Icc_EXApdu(command.bytes.data(), static_cast<int>(command.length),
                                     reply.data(), &length, wait);
    if (result != 0) {
        return result;
    }
    const auto data_length = static_cast<std::size_t>(length - 2);
    if (data_length > limit) {
        return QAVEN_ILLEGAL_DATA;
    }
    response.assign(std::span(reply).first(data_length));
    return 0;
}

int exchange_without_answer(const Command& command, int wait) {
    Response ignored;
    return exchange(command, wait, kShortResponse, ignored);
}

// Hands response data to a host's raw buffers.
template <typename Length>
int hand_out(int result, const Response& response, unsigned char* out, Length* out_len) {
    if (result == 0) {
        std::ranges::copy(response.data(), out);
        *out_len = static_cast<Length>(response.data().size());
    }
    return result;
}

std::span<const unsigned char> host_bytes(const unsigned char* data, std::size_t length) {
    return data != nullptr ? std::span(data, length) : std::span<const unsigned char>();
}

Tag data_object_tag(unsigned char which) {
    switch (static_cast<DataObject>(which)) {
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

int get_data_object(unsigned char which, Response& response) {
    const Tag object = data_object_tag(which);
    const auto tag = object.bytes();
    return exchange(command({0x80, 0xCA, tag[0], tag[1], 0x00}), kWaitRead, kShortResponse,
                    response);
}

} // namespace

void Response::assign(std::span<const unsigned char> data) {
    bytes_.fill(0);
    length_ = std::min(data.size(), bytes_.size());
    std::ranges::copy(data.first(length_), bytes_.begin());
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
    return get_data_object(static_cast<unsigned char>(which), response);
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

int qmcx_getrandom(int len, unsigned char* out) {
    commands::Response response;
    const int result = commands::exchange(
        commands::command({0x00, 0x84, 0x00, 0x00, static_cast<unsigned char>(len)}),
        commands::kWaitRead, commands::kShortResponse, response);
    if (result == 0 && len > 0) {
        const auto wanted = static_cast<std::size_t>(len);
        const auto received = std::min(wanted, response.data().size());
        std::fill_n(std::copy_n(response.data().begin(), received, out), wanted - received,
                    static_cast<unsigned char>(0));
    }
    return result;
}

int QM_read_binary(int sfi, int offset, int len, unsigned char* out, int* out_len) {
    const auto p1 = static_cast<unsigned char>((static_cast<unsigned int>(sfi) & 0x1FU) | 0x80U);
    commands::Command built =
        commands::command({0x00, 0xB0, p1, static_cast<unsigned char>(offset), 0x00});
    // The length is written behind the five bytes that are sent, so Le always goes out as 00 and
    // the card's 6Cxx supplies the real one.
    built.bytes[commands::kHeader] = static_cast<unsigned char>(len);
    commands::Response response;
    const int result =
        commands::exchange(built, commands::kWaitRead, commands::kBinaryResponse, response);
    return commands::hand_out(result, response, out, out_len);
}

int qmcx_SelectFile(unsigned char p1, unsigned char p2, unsigned char* data, unsigned char lc,
                    unsigned char* out, unsigned int* out_len) {
    commands::Response response;
    const int result = commands::select_file(p1, p2, commands::host_bytes(data, lc), response);
    return commands::hand_out(result, response, out, out_len);
}

int qmcx_ExternalAuth(unsigned char* data, unsigned char lc) {
    return commands::external_authenticate(commands::host_bytes(data, lc));
}

int qmcx_InternalAuth(unsigned char* data, unsigned char lc, unsigned char* out,
                      unsigned char* out_len) {
    const auto bytes = commands::host_bytes(data, lc);
    commands::Response response;
    const int result = commands::exchange(
        commands::command(commands::with_data(0x00, 0x88, 0x00, 0x00, bytes), bytes),
        commands::kWaitAuthentication, commands::kShortResponse, response);
    return commands::hand_out(result, response, out, out_len);
}

int qmcx_VerifyPin(unsigned char p2, unsigned char* data, unsigned char lc) {
    const auto bytes = commands::host_bytes(data, lc);
    commands::Command built =
        commands::command(commands::with_data(0x00, 0x20, 0x00, p2, bytes), bytes);
    // The PIN block's length is taken for the command's: the last five bytes are not sent.
    built.length = lc;
    return commands::exchange_without_answer(built, commands::kWaitVerify);
}

int qmcx_GetProcessOptions(unsigned char* data, unsigned char lc, unsigned char* out,
                           unsigned char* out_len) {
    commands::Response response;
    const int result = commands::get_processing_options(commands::host_bytes(data, lc), response);
    return commands::hand_out(result, response, out, out_len);
}

int qmcx_GetData(unsigned char which, unsigned char* out, unsigned char* out_len) {
    commands::Response response;
    const int result = commands::get_data_object(which, response);
    return commands::hand_out(result, response, out, out_len);
}

int qmcx_GenerateAC(unsigned char p1, unsigned char* data, unsigned char lc, unsigned char* out,
                    unsigned char* out_len) {
    commands::Response response;
    const int result = commands::generate_ac(p1, commands::host_bytes(data, lc), response);
    return commands::hand_out(result, response, out, out_len);
}

int qmcx_ReadRecord(unsigned char record, unsigned char sfi, unsigned char* out,
                    unsigned int* out_len) {
    commands::Response response;
    const int result = commands::read_record(record, sfi, response);
    return commands::hand_out(result, response, out, out_len);
}

int qm_closeicc() {
    return 0;
}

void Qm_CloseDevice() {}
