// Feeds JSON texts to the entry points, with a reader on the wire and without one. Input: one chunk
// that says whether there is a reader and which calls a host makes (each an entry point and its
// text, as it stands or made of values for the keys), then what a Wire in card mode takes.
#include "qaven/qaven.h"

#include "support/demand.h"
#include "support/guarded.h"
#include "support/wire.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using qaven::fuzz::demand;
using qaven::fuzz::Guarded;
using qaven::fuzz::Input;
using qaven::fuzz::Wire;

constexpr unsigned kMostCalls = 4;
constexpr int kReserved = 10;
constexpr unsigned char kGuardByte = 0xEE;

struct EntryPoint {
    int (*call)(const char* json, char* resmsg, char* errmsg, int reserved1, int reserved2);
    bool shows_failure; // by its result, not by its answer alone
    std::array<const char*, 4> inputs;
    std::array<const char*, 3> outputs;
};

int run_test(const char* json, char* resmsg, char* errmsg, int reserved1, int reserved2) {
    std::string ignored(json);
    return Test(ignored.data(), resmsg, errmsg, reserved1, reserved2);
}

constexpr std::array kEntryPoints{
    EntryPoint{QAVEN_getICCardInfo,
               true,
               {"TagList", "AIDList", "aryInput", "isReadArqc"},
               {"IcInfo", "IcARQC"}},
    EntryPoint{QAVEN_genARQC, false, {"aryInput", "AIDList"}, {"LpAppData", "ARQC", "Field60"}},
    EntryPoint{QAVEN_ARPC_ExeICScript,
               false,
               {"Txdata", "LpAppData", "ARPC", "Status"},
               {"Scriptresult", "TC"}},
    EntryPoint{QAVEN_GetTxDetail, false, {"AIDList"}, {"TxDtailRet"}},
    EntryPoint{run_test, true, {}, {"IcInfo", "IcARQC"}},
};

struct TreeDeleter {
    void operator()(cJSON* tree) const { cJSON_Delete(tree); }
};
using Tree = std::unique_ptr<cJSON, TreeDeleter>;

// A text as a JSON value has it; its other bytes stand for themselves, whatever they are.
void append_quoted(std::string& json, std::span<const std::uint8_t> value) {
    json += '"';
    for (const std::uint8_t byte : value) {
        if (byte == '"' || byte == '\\') {
            json += '\\';
        }
        json += byte < ' ' ? ' ' : static_cast<char>(byte);
    }
    json += '"';
}

// Mostly the value that a host would send under this key.
void append_value(std::string& json, Input& calls) {
    constexpr std::array kOtherValues{"0", "-1", "1e99", "true", "null", "[]", "{}"};
    const unsigned form = calls.below(16);
    if (form < kOtherValues.size()) {
        json += kOtherValues[form];
    } else {
        append_quoted(json, calls.long_chunk());
    }
}

std::string object_text(const EntryPoint& entry_point, Input& calls) {
    std::string json = "{";
    for (const char* const key : entry_point.inputs) {
        if (key == nullptr || calls.below(32) == 31) {
            continue;
        }
        json += json.size() > 1 ? ",\"" : "\"";
        json += key;
        json += "\":";
        append_value(json, calls);
    }
    return json + '}';
}

void check_answer(const EntryPoint& entry_point, const char* resmsg) {
    const Tree answer(cJSON_Parse(resmsg));
    demand(cJSON_IsObject(answer.get()) != 0, "an answer is a JSON object");
    int members = 0;
    for (const char* const key : entry_point.outputs) {
        if (key != nullptr) {
            const cJSON* const member = cJSON_GetObjectItemCaseSensitive(answer.get(), key);
            demand(cJSON_IsString(member) != 0, "every key of an answer has a text");
            ++members;
        }
    }
    demand(cJSON_GetArraySize(answer.get()) == members, "an answer has its own keys alone");
}

void run(Input& calls) {
    const EntryPoint& entry_point = kEntryPoints[calls.below(kEntryPoints.size())];
    const bool as_it_stands = calls.below(2) == 0;
    std::vector<char> text;
    if (as_it_stands) {
        text = Input::text(calls.long_chunk());
    } else {
        const std::string json = object_text(entry_point, calls);
        text.assign(json.c_str(), json.c_str() + json.size() + 1);
    }
    Guarded<char, QAVEN_RESMSG_SIZE> resmsg;
    Guarded<char, QAVEN_ERRMSG_SIZE> errmsg;
    const int result = entry_point.call(text.data(), resmsg, errmsg, kReserved, kReserved);
    if (result == 0) {
        resmsg.must_be_text();
        check_answer(entry_point, resmsg);
        return;
    }
    demand(entry_point.shows_failure || result == QAVEN_ILLEGAL_DATA, "0 or unusable input");
    demand(static_cast<unsigned char>(*resmsg.data()) == kGuardByte, "no answer of a failure");
    errmsg.must_be_text();
    demand(*errmsg.data() != '\0', "a failure has a text");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    Input calls(input.long_chunk());
    const bool has_reader = calls.below(4) != 3;
    const auto devices =
        has_reader ? std::vector{qaven::test::ccid_reader()} : std::vector<qaven::fuzz::Device>{};
    Wire wire(input, Wire::Mode::kCard, devices);
    for (unsigned k = 0; k < kMostCalls && !calls.empty(); ++k) {
        wire.next_operation();
        run(calls);
    }
    wire.disconnect();
    return 0;
}
