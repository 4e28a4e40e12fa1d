// Feeds a card's responses - data, status words and the follow-ups they ask for - and a reader's
// errors to the exchange and to every card command, in the order that the input says.
// Input: the commands (one chunk), then what a Wire in card mode takes.
#include "engine/card/apdu.h"
#include "engine/card/commands.h"
#include "qaven/qaven.h"
#include "support/demand.h"
#include "support/guarded.h"
#include "support/wire.h"
#include "usb/ccid.h"

#include <algorithm>
#include <array>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using qaven::fuzz::Bytes;
using qaven::fuzz::demand;
using qaven::fuzz::Guarded;
using qaven::fuzz::Input;
using qaven::fuzz::Wire;

constexpr std::size_t kShortestCommand = 5;
constexpr int kWait = 3;
constexpr int kUntouched = -1;

using Response = Guarded<unsigned char, CCID::kReplyBufferSize>;
using ShortResponse = Guarded<unsigned char, 256>;

// Command data in a block of its size; no data is sometimes no block either.
class CommandData {
  public:
    explicit CommandData(Input& script) : bytes_(Input::exact(script.chunk())) {}

    unsigned char* get() { return bytes_.empty() ? nullptr : bytes_.data(); }
    [[nodiscard]] unsigned char size() const { return static_cast<unsigned char>(bytes_.size()); }

  private:
    Bytes bytes_;
};

// What an exchange can give: 0, a code of the transfer, or a status word that is neither 9000 nor
// asks for nothing.
void check_result(int result) {
    demand(result <= 0xFFFF && result != 0x9000, "a result is 0, a code or a status word");
}

void exchange(Input& script) {
    Bytes command = Input::exact(script.long_chunk());
    const auto length = static_cast<int>(command.size());
    command.resize(std::max(command.size(), kShortestCommand));
    Response response;
    int response_length = kUntouched;
    const int result =
        Qm_Icc_EXApdu(command.data(), length, response.data(), &response_length, kWait);
    check_result(result);
    demand(result == 0 ? response_length >= 2 && response_length <= CCID::kReplyBufferSize
                       : response_length == kUntouched,
           "a length only for a response");
}

void get_random(Input& script) {
    const int length = script.byte();
    Bytes out(static_cast<std::size_t>(length));
    check_result(qmcx_getrandom(length, out.data()));
}

void read_binary(Input& script) {
    const int sfi = script.byte();
    const int offset = script.byte();
    const int wanted = script.byte();
    Guarded<unsigned char, 512> out;
    int length = kUntouched;
    const int result = QM_read_binary(sfi, offset, wanted, out.data(), &length);
    check_result(result);
    demand(result == 0 ? length >= 0 && length <= 512 : length == kUntouched, "512 bytes");
}

void select_file(Input& script) {
    const unsigned char p1 = script.byte();
    const unsigned char p2 = script.byte();
    CommandData name(script);
    ShortResponse out;
    unsigned int length = 0;
    check_result(qmcx_SelectFile(p1, p2, name.get(), name.size(), out.data(), &length));
    demand(length <= 256, "256 bytes");
}

void read_record(Input& script) {
    const unsigned char record = script.byte();
    const unsigned char sfi = script.byte();
    Guarded<unsigned char, 1022> out;
    unsigned int length = 0;
    check_result(qmcx_ReadRecord(record, sfi, out.data(), &length));
    demand(length <= 1022, "1022 bytes");
}

// The commands that answer with up to 256 bytes and count them in one.
void short_command(unsigned which, Input& script) {
    ShortResponse out;
    unsigned char length = 0;
    const unsigned char parameter = script.byte();
    CommandData data(script);
    switch (which) {
    case 0:
        check_result(qmcx_InternalAuth(data.get(), data.size(), out.data(), &length));
        break;
    case 1:
        check_result(qmcx_GetProcessOptions(data.get(), data.size(), out.data(), &length));
        break;
    case 2:
        check_result(qmcx_GetData(parameter, out.data(), &length));
        break;
    case 3:
        check_result(qmcx_GenerateAC(parameter, data.get(), data.size(), out.data(), &length));
        break;
    case 4:
        check_result(qmcx_ExternalAuth(data.get(), data.size()));
        break;
    default:
        check_result(qmcx_VerifyPin(parameter, data.get(), data.size()));
        break;
    }
}

constexpr unsigned kShortCommands = 6;

void run(unsigned operation, Input& script) {
    switch (operation) {
    case 0:
        exchange(script);
        break;
    case 1:
        get_random(script);
        break;
    case 2:
        read_binary(script);
        break;
    case 3:
        select_file(script);
        break;
    case 4:
        read_record(script);
        break;
    default:
        short_command(operation - 5, script);
        break;
    }
}

constexpr unsigned kOperations = 5 + kShortCommands;

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    Input script(input.long_chunk());
    Wire wire(input, Wire::Mode::kCard);
    wire.connect();
    while (!script.empty()) {
        wire.next_operation();
        run(script.below(kOperations), script);
    }
    wire.disconnect();
    return 0;
}
