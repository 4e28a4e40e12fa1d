// The host's calls and what came of them.
#include "transaction.h"

#include "../temporary_folder.h"
#include "engine/card/session.h"
#include "fixed_clock.h"
#include "fuzz/support/guarded.h"
#include "operations.h"
#include "qaven/qaven.h"

#include <cjson/cJSON.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <utility>

namespace qaven::sweep {

namespace {

using EntryPoint = int (*)(const char*, char*, char*, int, int);

constexpr int kIgnored = 10;

struct TreeDeleter {
    void operator()(cJSON* tree) const { cJSON_Delete(tree); }
};
using Tree = std::unique_ptr<cJSON, TreeDeleter>;

void read_members(const char* json, std::map<std::string, std::string>& members) {
    const Tree tree(cJSON_Parse(json));
    const cJSON* member = nullptr;
    cJSON_ArrayForEach(member, tree.get()) {
        if (cJSON_IsString(member) != 0) {
            members[member->string] = member->valuestring;
        }
    }
}

Call make_call(const Bus& bus, const char* name, EntryPoint entry_point, const std::string& json) {
    fuzz::Guarded<char, QAVEN_RESMSG_SIZE> resmsg;
    fuzz::Guarded<char, QAVEN_ERRMSG_SIZE> errmsg;
    *resmsg.data() = '\0';
    *errmsg.data() = '\0';
    const std::vector<char> input = in_its_block(json);

    Call call;
    call.name = name;
    const Bus::Spent before = bus.spent();
    call.first_transfer = before.transfers;
    take_operations();
    call.result = entry_point(input.data(), resmsg, errmsg, kIgnored, kIgnored);
    const Bus::Spent after = bus.spent();
    call.operations = take_operations();
    call.spent = {.time = after.time - before.time,
                  .allowed = after.allowed - before.allowed,
                  .transfers = after.transfers - before.transfers};
    resmsg.must_be_text();
    errmsg.must_be_text();
    call.errmsg = from_gbk(errmsg.data());
    read_members(resmsg.data(), call.answer);
    if (const auto inner = call.answer.find("IcARQC"); inner != call.answer.end()) {
        const std::string text = inner->second;
        read_members(text.c_str(), call.answer);
    }
    return call;
}

const Operation* deciding(const Call& call) {
    return call.operations.empty() ? nullptr : &call.operations.back();
}

} // namespace

int Call::code() const {
    const Operation* const operation = deciding(*this);
    return operation != nullptr && operation->code != 0 ? operation->code : result;
}

std::string Call::text() const {
    const Operation* const operation = deciding(*this);
    if (operation != nullptr && !operation->text.empty()) {
        return operation->text;
    }
    return errmsg;
}

std::string Call::operation() const {
    const Operation* const operation = deciding(*this);
    return operation != nullptr ? operation->name : std::string();
}

std::string Call::member(const std::string& key) const {
    const auto found = answer.find(key);
    return found != answer.end() ? found->second : std::string();
}

std::string json_object(const std::vector<std::pair<std::string, std::string>>& members) {
    const Tree object(cJSON_CreateObject());
    for (const auto& [key, value] : members) {
        cJSON_AddStringToObject(object.get(), key.c_str(), value.c_str());
    }
    char* const printed = cJSON_PrintUnformatted(object.get());
    std::string text(printed);
    cJSON_free(printed);
    return text;
}

Call call_information(const Bus& bus, const std::string& json) {
    Call call = make_call(bus, "information", QAVEN_getICCardInfo, json);
    call.succeeded = call.result == 0;
    return call;
}

Call call_arqc(const Bus& bus, const std::string& json) {
    Call call = make_call(bus, "arqc", QAVEN_genARQC, json);
    call.succeeded = call.code() == 0 && !call.member("ARQC").empty();
    return call;
}

Call call_arpc(const Bus& bus, const std::string& json) {
    Call call = make_call(bus, "arpc", QAVEN_ARPC_ExeICScript, json);
    call.succeeded = call.code() == 0 && !call.member("TC").empty();
    return call;
}

Call call_log(const Bus& bus, const std::string& json) {
    Call call = make_call(bus, "log", QAVEN_GetTxDetail, json);
    call.succeeded = call.code() == 0 && call.member("TxDtailRet").size() > 2;
    return call;
}

Transaction make_transaction(Bus& bus, const test::IssuerDesk& issuer, const Request& request) {
    Transaction transaction;
    const auto stopped = [&](Call call) {
        transaction.calls.push_back(std::move(call));
        return !transaction.calls.back().succeeded;
    };
    initDriver();
    if (stopped(call_information(bus, json_object({{"TagList", request.letters},
                                                   {"AIDList", request.aids},
                                                   {"aryInput", request.transaction},
                                                   {"isReadArqc", "true"}})))) {
        deinit();
        return transaction;
    }
    const std::string field55 = transaction.last().member("ARQC");
    const std::string application_data = transaction.last().member("LpAppData");

    bool believed = false;
    std::string answer;
    try {
        believed = issuer.arqc(field55).verified;
        // A cryptogram that is not the card's is declined by an issuer that can still answer.
        test::Reply reply{.response_code = believed ? "00" : "05", .script = {}};
        if (believed) {
            reply.script = request.script;
        }
        answer = issuer.answer(field55, reply);
    } catch (const std::runtime_error&) {
        // Card data that no issuer can read: nothing comes back.
        transaction.issuer_refused = true;
        deinit();
        return transaction;
    }
    transaction.issuer_refused = !believed;

    // The status is a number, so it is put in by hand.
    std::string json = json_object(
        {{"Txdata", request.transaction}, {"LpAppData", application_data}, {"ARPC", answer}});
    json.back() = ',';
    json += R"("Status":0})";
    if (stopped(call_arpc(bus, json))) {
        deinit();
        return transaction;
    }
    try {
        believed = believed && issuer.tc(transaction.last().member("TC")).verified;
    } catch (const std::runtime_error&) {
        believed = false;
    }

    if (stopped(call_log(bus, json_object({{"AIDList", request.log_aid}})))) {
        deinit();
        return transaction;
    }
    deinit();
    transaction.complete = believed;
    return transaction;
}

void end_process_connection() {
    session::end();
}

struct QuietHost::Parts {
    test::WorkingFolder folder;
    test::FixedClock clock{2019, 4, 22, 16, 13, 55};
};

QuietHost::QuietHost() : parts_(std::make_unique<Parts>()) {
    setenv("QAVEN_DIAGNOSTICS", "off", 1);
    // A folder in the log's place: its lines are formatted and then go nowhere.
    std::filesystem::create_directory("Qm_ic.log");
}

QuietHost::~QuietHost() = default;

} // namespace qaven::sweep
