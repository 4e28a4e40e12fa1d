// Feeds everything that reader and card can answer to whole sessions of a host: all exported
// operations in any order, from the JSON entry points down to single commands, with outputs of
// exactly their documented sizes.
// Input: the mode and the calls (one chunk), then what a Wire takes, in card mode or raw.
#include "engine/card/apdu.h"
#include "engine/operation/arpc.h"
#include "engine/operation/arqc.h"
#include "engine/operation/card_info.h"
#include "engine/operation/power_off.h"
#include "engine/operation/transaction_log.h"
#include "host/err.h"
#include "host/lorim_pboc.h"
#include "idcard/icc.h"
#include "qaven/qaven.h"
#include "support/demand.h"
#include "support/guarded.h"
#include "support/qmlog.h"
#include "support/wire.h"
#include "usb/ccid.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using qaven::fuzz::Bytes;
using qaven::fuzz::demand;
using qaven::fuzz::Guarded;
using qaven::fuzz::Input;
using qaven::fuzz::Wire;

// What the ARQC step left to the issuer's answer.
struct State {
    std::string application_data;
};

// --- a host's texts: the usual ones by their number, any other character by character ---

constexpr std::array<const char*, 8> kAidLists{
    "|A000000333010101|A000000333010102",
    "A000000333",
    "A000000333010101",
    "",
    "0",
    "A000000333|A000000333010101|",
    "A0000003330101010203040506070809",
    "|||",
};

constexpr std::array<const char*, 5> kTagLists{
    "|A|B|C|D|E|F|G|H|I|J|K|L|M|N|O", "A", "", "GHK", "ABCDEFGHIJKLMNOTZ",
};

constexpr std::array<const char*, 6> kTransactions{
    "P012000000001213Q012000000000000R0040156S00820190422T00203U006161355I00200V013MRCH CNT 0001 ",
    "S006330201U006155840",
    "",
    "P012000000001213Z00200",
    "V020TWENTY CHARACTERS OKT00233",
    "P999",
};

// Tag 91, then scripts: PUT DATA, APPLICATION BLOCK, one that is cut, none; a script without its
// identifier.
constexpr std::array<const char*, 7> kIssuerResponses{
    "910A11223344556677883030",
    "910A1122334455667788303072179F180412345678860E04DA9F790A00000002000011223344",
    "910A1122334455667788303071129F1804923456788609841E00000411223344",
    "910A11223344556677883531720F9F180412345678860804DA9F790A0000",
    "",
    "910811223344556677",
    "910A11223344556677883030720F860D84DA9F79080000000011223344",
};

constexpr std::array<const char*, 4> kOnOff{"true", "True", "false", ""};

template <std::size_t count>
std::string text_of(Input& script, const std::array<const char*, count>& usual) {
    const std::uint8_t choice = script.byte();
    if (choice < 0x80) {
        return usual[choice % count];
    }
    return Input::text(script.long_chunk()).data();
}

// A writable copy in a block of exactly its size.
class Argument {
  public:
    explicit Argument(std::string_view text) : characters_(text.begin(), text.end()) {
        characters_.push_back('\0');
        characters_.shrink_to_fit();
    }

    char* get() { return characters_.data(); }

  private:
    std::vector<char> characters_;
};

// An output that a careless host has not got now and then: one bit of the mask for each.
template <std::size_t size>
class Output {
  public:
    explicit Output(unsigned& mask) : missing_((mask & 1U) != 0) {
        mask >>= 1U;
        std::memset(room_.data(), 0, size);
    }
    Output(unsigned& mask, std::string_view text) : Output(mask) {
        std::ranges::copy(text.substr(0, size - 1), room_.data());
    }
    ~Output() { room_.must_be_text(); }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    char* get() { return missing_ ? nullptr : room_.data(); }
    const char* text() { return room_.data(); }

  private:
    Guarded<char, size> room_;
    bool missing_ = false;
};

// Mostly nothing is missing.
unsigned missing_outputs(Input& script) {
    const std::uint8_t byte = script.byte();
    return byte < 0x80 ? 0 : byte & 0x7FU;
}

// --- JSON ---

struct TreeDeleter {
    void operator()(cJSON* tree) const { cJSON_Delete(tree); }
};
using Tree = std::unique_ptr<cJSON, TreeDeleter>;

struct Member {
    const char* key;
    std::string text;
};

std::string printed(const cJSON* tree) {
    char* const text = cJSON_PrintUnformatted(tree);
    std::string copy(text != nullptr ? text : "");
    std::free(text);
    return copy;
}

Tree object(std::initializer_list<Member> members) {
    Tree tree(cJSON_CreateObject());
    for (const Member& member : members) {
        cJSON_AddStringToObject(tree.get(), member.key, member.text.c_str());
    }
    return tree;
}

using EntryPoint = int (*)(const char*, char*, char*, int, int);
constexpr std::array<EntryPoint, 4> kEntryPoints{QAVEN_getICCardInfo, QAVEN_genARQC,
                                                 QAVEN_ARPC_ExeICScript, QAVEN_GetTxDetail};

void remember_application_data(const cJSON* answer, State& state) {
    const char* const text = cJSON_GetStringValue(cJSON_GetObjectItem(answer, "LpAppData"));
    if (text != nullptr && *text != '\0') {
        state.application_data = text;
    }
    // Card information carries the ARQC step's answer as a text.
    const char* const inner = cJSON_GetStringValue(cJSON_GetObjectItem(answer, "IcARQC"));
    if (inner != nullptr && *inner != '\0') {
        const Tree tree(cJSON_Parse(inner));
        demand(tree != nullptr, "the inner answer is JSON");
        remember_application_data(tree.get(), state);
    }
}

void call(EntryPoint entry_point, const std::string& json, Input& script, State& state) {
    unsigned mask = missing_outputs(script);
    Argument text(json);
    const bool no_text = (mask & 0x40U) != 0;
    Output<QAVEN_RESMSG_SIZE> resmsg(mask);
    Output<QAVEN_ERRMSG_SIZE> errmsg(mask);
    const int result =
        entry_point(no_text ? nullptr : text.get(), resmsg.get(), errmsg.get(), 10, 10);
    if (result != 0) {
        demand(*resmsg.text() == '\0', "no answer on failure");
        return;
    }
    const Tree answer(cJSON_Parse(resmsg.text()));
    demand(cJSON_IsObject(answer.get()) != 0, "the answer is a JSON object");
    remember_application_data(answer.get(), state);
}

void card_information(Input& script, State& state) {
    const Tree json = object({{"TagList", text_of(script, kTagLists)},
                              {"AIDList", text_of(script, kAidLists)},
                              {"aryInput", text_of(script, kTransactions)},
                              {"isReadArqc", text_of(script, kOnOff)}});
    call(QAVEN_getICCardInfo, printed(json.get()), script, state);
}

void arqc(Input& script, State& state) {
    const Tree json = object(
        {{"aryInput", text_of(script, kTransactions)}, {"AIDList", text_of(script, kAidLists)}});
    call(QAVEN_genARQC, printed(json.get()), script, state);
}

// Application data with an AID and both CDOLs, and no more.
constexpr const char* kBareApplicationData = "0000224F08A0000003330101018C039F37048D058A029F3704";

std::string application_data(Input& script, const State& state) {
    switch (script.below(4)) {
    case 2:
        return kBareApplicationData;
    case 3:
        return Input::text(script.long_chunk()).data();
    default:
        return state.application_data;
    }
}

void issuer_answer(Input& script, State& state) {
    const Tree json = object({{"Txdata", text_of(script, kTransactions)},
                              {"LpAppData", application_data(script, state)},
                              {"ARPC", text_of(script, kIssuerResponses)}});
    cJSON_AddNumberToObject(json.get(), "Status", script.below(3));
    call(QAVEN_ARPC_ExeICScript, printed(json.get()), script, state);
}

void transaction_log(Input& script, State& state) {
    const Tree json = object({{"AIDList", text_of(script, kAidLists)}});
    call(QAVEN_GetTxDetail, printed(json.get()), script, state);
}

void any_json(Input& script, State& state) {
    const EntryPoint entry_point = kEntryPoints[script.below(kEntryPoints.size())];
    const std::string json = Input::text(script.long_chunk()).data();
    call(entry_point, json, script, state);
}

// --- the string-parameter wrappers ---

void wrapped_card_information(Input& script) {
    Argument tags(text_of(script, kTagLists));
    Argument aids(text_of(script, kAidLists));
    unsigned mask = missing_outputs(script);
    Output<QAVEN_USERINFO_SIZE> information(mask);
    getICCardInfo("reader", tags.get(), aids.get(), information.get());
}

void wrapped_arqc(Input& script, State& state) {
    Argument transaction(text_of(script, kTransactions));
    Argument aids(text_of(script, kAidLists));
    const bool handed_in = script.below(2) == 1;
    const std::string text = handed_in ? application_data(script, state) : "";
    unsigned mask = missing_outputs(script);
    Output<QAVEN_APPDATA_SIZE> data(mask, text);
    Output<QAVEN_ARQC_SIZE> field55(mask);
    Output<QAVEN_FIELD60_SIZE> field60(mask);
    const int result =
        genARQC("reader", transaction.get(), aids.get(), data.get(), field55.get(), field60.get());
    if (result == 0) {
        state.application_data = data.text();
    }
}

void wrapped_issuer_answer(Input& script, const State& state) {
    Argument transaction(text_of(script, kTransactions));
    Argument data(application_data(script, state));
    Argument response(text_of(script, kIssuerResponses));
    const int status = script.small_number();
    unsigned mask = missing_outputs(script);
    Output<QAVEN_SCRIPT_RESULT_SIZE> script_result(mask);
    Output<QAVEN_TC_SIZE> tc(mask);
    ARPC_ExeICScript(transaction.get(), data.get(), response.get(), status, script_result.get(),
                     tc.get());
}

void wrapped_log(Input& script) {
    Argument aids(text_of(script, kAidLists));
    unsigned mask = missing_outputs(script);
    Output<QAVEN_TXDETAIL_SIZE> detail(mask);
    GetTxDetail("reader", aids.get(), detail.get());
}

// --- the card operations ---

void read_card(Input& script) {
    Argument tags(text_of(script, kTagLists));
    Argument aid(text_of(script, kAidLists));
    Argument filler("");
    char cell = '\0';
    unsigned mask = missing_outputs(script);
    Output<QAVEN_USERINFO_SIZE> user_info(mask);
    Output<QAVEN_APPDATA_SIZE> data(mask);
    Output<QAVEN_ERRMSG_SIZE> error_text(mask);
    ZEB_ICC_GetInfo(filler.get(), filler.get(), filler.get(), filler.get(), filler.get(),
                    filler.get(), filler.get(), filler.get(), filler.get(), tags.get(), aid.get(),
                    user_info.get(), &cell, data.get(), error_text.get());
}

void generate_arqc(Input& script, State& state) {
    Argument transaction(text_of(script, kTransactions));
    Argument aids(text_of(script, kAidLists));
    const bool handed_in = script.below(2) == 1;
    const std::string text = handed_in ? application_data(script, state) : "";
    Argument filler("");
    char cell = '\0';
    unsigned mask = missing_outputs(script);
    Output<QAVEN_APPDATA_SIZE> data(mask, text);
    Output<4> length(mask);
    Output<QAVEN_ARQC_SIZE> field55(mask);
    Output<QAVEN_FIELD60_SIZE> field60(mask);
    Output<QAVEN_ERRMSG_SIZE> error_text(mask);
    const int result = ZEB_ICC_GenARQC(
        filler.get(), filler.get(), filler.get(), filler.get(), filler.get(), filler.get(),
        filler.get(), filler.get(), filler.get(), transaction.get(), aids.get(), data.get(),
        length.get(), field55.get(), field60.get(), &cell, error_text.get());
    if (result == 0) {
        state.application_data = data.text();
    }
}

void execute_issuer_answer(Input& script, const State& state) {
    constexpr std::array<const char*, 4> kStatusTexts{"0", "1", "", "-1"};
    Argument transaction(text_of(script, kTransactions));
    Argument data(application_data(script, state));
    Argument response(text_of(script, kIssuerResponses));
    Argument status(text_of(script, kStatusTexts));
    Argument filler("");
    unsigned mask = missing_outputs(script);
    Output<QAVEN_TC_SIZE> tc(mask);
    Output<QAVEN_SCRIPT_RESULT_SIZE> script_result(mask);
    Output<QAVEN_ERRMSG_SIZE> error_text(mask);
    ZEB_ICC_ARPC_ExeICScript(filler.get(), filler.get(), filler.get(), filler.get(), filler.get(),
                             filler.get(), filler.get(), filler.get(), filler.get(),
                             transaction.get(), data.get(), filler.get(), response.get(),
                             status.get(), tc.get(), script_result.get(), error_text.get());
}

void read_log(Input& script) {
    Argument aid(text_of(script, kAidLists));
    Argument filler("");
    char cell = '\0';
    unsigned mask = missing_outputs(script);
    Output<QAVEN_TXDETAIL_SIZE> detail(mask);
    Output<QAVEN_ERRMSG_SIZE> error_text(mask);
    ZEB_ICC_GetTxDetail(filler.get(), filler.get(), filler.get(), filler.get(), filler.get(),
                        filler.get(), filler.get(), filler.get(), filler.get(), aid.get(),
                        detail.get(), &cell, error_text.get());
}

void read_load_log(Input& script) {
    Argument aid(text_of(script, kAidLists));
    const int index = script.small_number();
    unsigned mask = missing_outputs(script);
    Output<QAVEN_TXDETAIL_SIZE> log(mask);
    ReadAmtLog(aid.get(), index, log.get());
}

// --- single steps ---

void single_command(Input& script) {
    Bytes command = Input::exact(script.chunk());
    const auto length = static_cast<int>(command.size());
    command.resize(std::max<std::size_t>(command.size(), 5));
    Guarded<unsigned char, CCID::kReplyBufferSize> response;
    int response_length = 0;
    Qm_Icc_EXApdu(command.data(), length, response.data(), &response_length, 3);
}

void lifecycle(Input& script) {
    demand(initDriver() == 0 && deinit() == 0, "always 0");
    setPortAttr(nullptr, 1, 2, 3);
    Argument number(text_of(script, kOnOff));
    demand(ZEB_ICC_PowerOff(number.get(), number.get(), number.get(), number.get(), number.get(),
                            number.get(), number.get(), number.get(), number.get(),
                            number.get()) == 0,
           "always 0");
}

void tag_letters(Input& script) {
    const std::string letters = text_of(script, kTagLists);
    Bytes tags(2 * letters.size());
    const int written =
        Qm_ConvertFlag(letters.data(), static_cast<int>(letters.size()), tags.data());
    demand(written >= 0 && static_cast<std::size_t>(written) <= tags.size(), "two bytes a letter");
}

void trace_lines(Input& script) {
    auto title = Input::text(script.chunk());
    Bytes bytes = Input::exact(script.chunk());
    const auto size = static_cast<int>(bytes.size());
    WriteKsLogPlain(title.data());
    WriteKsTitleLog(title.data(), title.data());
    WriteKsLogHex(bytes.data(), size);
    WriteKsTitleLogHex(title.data(), bytes.data(), size);
}

void error_codes(Input& script) {
    const int code = static_cast<int>(script.byte()) - 255;
    Guarded<char, QAVEN_ERRMSG_SIZE> text;
    Qm_GetLastErrDesc(code, text.data());
    text.must_be_text();
    transErr(code);
}

// The identity-card reader beside the other one: both start and end the same libusb.
void identity_card() {
    static Guarded<unsigned char, qaven::idcard::kSamvDataCapacity> out;
    unsigned long length = 0;
    usb_device_open();
    samv_cmd(0x20, 0x01, out.data(), &length);
}

void run(Input& script, State& state) {
    switch (script.below(21)) {
    case 0:
        card_information(script, state);
        break;
    case 1:
        arqc(script, state);
        break;
    case 2:
        issuer_answer(script, state);
        break;
    case 3:
        transaction_log(script, state);
        break;
    case 4:
        any_json(script, state);
        break;
    case 5:
        call(
            [](const char* json, char* resmsg, char* errmsg, int first, int second) {
                // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): it only reads
                return Test(const_cast<char*>(json), resmsg, errmsg, first, second);
            },
            "", script, state);
        break;
    case 6:
        wrapped_card_information(script);
        break;
    case 7:
        wrapped_arqc(script, state);
        break;
    case 8:
        wrapped_issuer_answer(script, state);
        break;
    case 9:
        wrapped_log(script);
        break;
    case 10:
        read_card(script);
        break;
    case 11:
        generate_arqc(script, state);
        break;
    case 12:
        execute_issuer_answer(script, state);
        break;
    case 13:
        read_log(script);
        break;
    case 14:
        read_load_log(script);
        break;
    case 15:
        single_command(script);
        break;
    case 16:
        lifecycle(script);
        break;
    case 17:
        identity_card();
        break;
    case 18:
        tag_letters(script);
        break;
    case 19:
        trace_lines(script);
        break;
    default:
        error_codes(script);
        break;
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // An operation costs more than a byte of the input; what is behind these is not called.
    constexpr int kMostCalls = 12;
    Input input(data, size);
    Input script(input.long_chunk());
    const auto mode = script.below(4) == 3 ? Wire::Mode::kRaw : Wire::Mode::kCard;
    Wire wire(input, mode);
    State state;
    for (int calls = 0; calls < kMostCalls && !script.empty(); ++calls) {
        wire.next_operation();
        run(script, state);
    }
    wire.disconnect();
    return 0;
}
