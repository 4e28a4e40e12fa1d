// Everything that a careless host can hand in, at every entry point, wrapper and card operation:
// how the call ends, what it leaves in the host's buffers, and whether a good transaction works
// afterwards. Prints the table of outcomes and compares it with expected/host.txt.
//
//     qaven-host-sweep [--all] [--write]  --all: every case, and expected/host-all.txt
//                                         --write makes the table the expected one
//     qaven-host-sweep FUNCTION           every case of one function, compared with nothing
//
// Every output buffer has exactly its documented size between guard zones. The issuer's answer is
// tried on a card that waits for it; where that fails, the right answer is tried on the same card
// ("then").
#include "careless_host.h"
#include "command_line.h"
#include "desk.h"
#include "operations.h"
#include "table.h"

#include "engine/pboccash.h"
#include "fuzz/support/guarded.h"
#include "host/err.h"
#include "host/lorim_pboc.h"
#include "qaven/qaven.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

// The card operations themselves, not the stand-ins that the linker puts in front of the host
// layer.
#define QAVEN_TEXTS_9 char*, char*, char*, char*, char*, char*, char*, char*, char*
int get_info(QAVEN_TEXTS_9, char* tag_list, char* aid, char* user_info, char*, char* ic_data,
             char* error_text) __asm__("__real__Z15ZEB_ICC_GetInfoPcS_S_S_S_S_S_S_S_S_S_S_S_S_S_");
int generate_arqc(
    QAVEN_TEXTS_9, char* tx_data, char* aids, char* application_data, char* arqc_length, char* arqc,
    char* field60, char*,
    char* error_text) __asm__("__real__Z15ZEB_ICC_GenARQCPcS_S_S_S_S_S_S_S_S_S_S_S_S_S_S_S_");
int answer_issuer(QAVEN_TEXTS_9, char* tx_data, char* application_data, char*, char* response,
                  char* status, char* tc, char* script_result,
                  char* error_text) __asm__("__real__Z24ZEB_ICC_ARPC_ExeICScriptPcS_S_S_S_S_S_S_S_"
                                            "S_S_S_S_S_S_S_S_");
int read_log(QAVEN_TEXTS_9, char* aid, char* detail, char*,
             char* error_text) __asm__("__real__Z19ZEB_ICC_GetTxDetailPcS_S_S_S_S_S_S_S_S_S_S_S_");

namespace qaven::sweep {

namespace {

using namespace std::string_literals;

constexpr int ignored = 10;

// A sample is one case in so many.
constexpr std::size_t sampled = 3;

// Stands for output buffers that are there.
constexpr const char* buffers_given = "";

// A reader with thousands of AIDs to try takes its time; each attempt keeps its own time-outs.
constexpr Demands::Limits limits{std::chrono::seconds{600}, 100'000};

// --- buffers ---

template <typename Buffer>
bool is_untouched(const Buffer& buffer) {
    constexpr char fill = '\xEE';
    return std::ranges::all_of(buffer, [](char byte) { return byte == fill; });
}

// A host's output buffer.
template <std::size_t size>
class Out {
  public:
    char* get() { return room_.data(); }

    void zero() { std::memset(room_.data(), 0, size); }

    // Nothing when the call left it alone.
    std::optional<std::string> text() {
        if (is_untouched(std::string_view(room_.data(), size))) {
            return std::nullopt;
        }
        room_.must_be_text();
        return std::string(room_.data());
    }

    // With its binary bytes: all but the zeros at the end.
    std::string content() {
        std::string all(room_.data(), size);
        all.erase(all.find_last_not_of('\0') + 1);
        return all;
    }

  private:
    fuzz::Guarded<char, size> room_;
};

// The buffer, or the null pointer of a host that wants no answer.
template <std::size_t size>
char* given(Out<size>& out, const std::optional<std::string>& buffers) {
    return buffers ? out.get() : nullptr;
}

int number_in(const std::string& text) {
    return static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
}

// An input text in a block of its size.
class In {
  public:
    explicit In(const std::optional<std::string>& text) : given_(text.has_value()) {
        if (text) {
            bytes_ = in_its_block(*text);
        }
    }

    char* get() { return given_ ? bytes_.data() : nullptr; }

  private:
    bool given_;
    std::vector<char> bytes_;
};

// --- outcomes ---

struct Outcome {
    int code = 0;
    std::string text;
    // Of the card operation inside, where the host sees another code or none.
    std::string inside;
    // By name; nothing for a buffer or member that was not written.
    std::map<std::string, std::optional<std::string>> answer;
};

// The inputs of a function; behind them what stands for its output buffers.
using Texts = std::vector<std::optional<std::string>>;

struct Field {
    std::string name;
    Content content;
    std::string good;
};

struct Function {
    std::string name;
    std::vector<Field> fields;
    // Works on a card that waits for the issuer's answer.
    bool answers_issuer;
    // The texts are members of one JSON text, which is the function's only input.
    bool takes_json;
    std::function<Outcome(const Texts& texts)> call;
};

std::string inside_of(const std::vector<Operation>& operations, int result) {
    if (operations.empty() || operations.back().code == result) {
        return {};
    }
    return operations.back().name + " " + std::to_string(operations.back().code);
}

// The text that came with the code, wherever a host or its log finds it.
std::string text_of(const std::vector<Operation>& operations) {
    return operations.empty() ? std::string() : operations.back().text;
}

std::string error_text(Out<QAVEN_ERRMSG_SIZE>& buffer) {
    return from_gbk(buffer.text().value_or(""));
}

// --- the functions ---

struct TreeDeleter {
    void operator()(cJSON* tree) const { cJSON_Delete(tree); }
};

void read_members(const std::string& json, Outcome& outcome) {
    const std::unique_ptr<cJSON, TreeDeleter> tree(cJSON_Parse(json.c_str()));
    const cJSON* member = nullptr;
    cJSON_ArrayForEach(member, tree.get()) {
        outcome.answer[member->string] = member->valuestring;
    }
}

using EntryPoint = int (*)(const char*, char*, char*, int, int);

Outcome call_json(EntryPoint entry_point, const Texts& texts) {
    In input(texts[0]);
    const std::string without = texts[1].value_or("");
    const bool has_resmsg = without != "resmsg" && without != "either";
    const bool has_errmsg = without != "errmsg" && without != "either";
    Out<QAVEN_RESMSG_SIZE> resmsg;
    Out<QAVEN_ERRMSG_SIZE> errmsg;
    take_operations();
    Outcome outcome;
    outcome.code = entry_point(input.get(), has_resmsg ? resmsg.get() : nullptr,
                               has_errmsg ? errmsg.get() : nullptr, ignored, ignored);
    const auto operations = take_operations();
    outcome.inside = inside_of(operations, outcome.code);
    const auto written = errmsg.text();
    outcome.text = written ? from_gbk(*written) : text_of(operations);
    if (const auto answer = resmsg.text()) {
        read_members(*answer, outcome);
    }
    return outcome;
}

Outcome call_get_info_wrapper(const Texts& texts) {
    In reader(texts[0]);
    In letters(texts[1]);
    In aids(texts[2]);
    Out<QAVEN_USERINFO_SIZE> info;
    take_operations();
    Outcome outcome;
    outcome.code =
        getICCardInfo(reader.get(), letters.get(), aids.get(), given(info, texts.back()));
    const auto operations = take_operations();
    outcome.inside = inside_of(operations, outcome.code);
    outcome.text = text_of(operations);
    outcome.answer["icInfo"] = info.text();
    return outcome;
}

Outcome call_arqc_wrapper(const Texts& texts) {
    In reader(texts[0]);
    In transaction(texts[1]);
    In aids(texts[2]);
    Out<QAVEN_APPDATA_SIZE> application_data;
    Out<QAVEN_ARQC_SIZE> arqc;
    Out<QAVEN_FIELD60_SIZE> field60;
    application_data.zero();
    arqc.zero();
    field60.zero();
    take_operations();
    Outcome outcome;
    outcome.code =
        genARQC(reader.get(), transaction.get(), aids.get(), given(application_data, texts.back()),
                given(arqc, texts.back()), given(field60, texts.back()));
    const auto operations = take_operations();
    outcome.inside = inside_of(operations, outcome.code);
    outcome.text = text_of(operations);
    outcome.answer["lpic"] = application_data.text();
    outcome.answer["arqc"] = arqc.text();
    outcome.answer["field60"] = field60.text();
    return outcome;
}

Outcome call_answer_wrapper(const Texts& texts) {
    In transaction(texts[0]);
    In application_data(texts[1]);
    In response(texts[2]);
    Out<QAVEN_SCRIPT_RESULT_SIZE> script_result;
    Out<QAVEN_TC_SIZE> tc;
    script_result.zero();
    tc.zero();
    take_operations();
    Outcome outcome;
    const int status = number_in(texts[3].value_or(""));
    outcome.code =
        ARPC_ExeICScript(transaction.get(), application_data.get(), response.get(), status,
                         given(script_result, texts.back()), given(tc, texts.back()));
    const auto operations = take_operations();
    outcome.inside = inside_of(operations, outcome.code);
    outcome.text = text_of(operations);
    outcome.answer["scriptResult"] = script_result.text();
    outcome.answer["tc"] = tc.text();
    return outcome;
}

Outcome call_log_wrapper(const Texts& texts) {
    In reader(texts[0]);
    In aid(texts[1]);
    Out<QAVEN_TXDETAIL_SIZE> detail;
    detail.zero();
    take_operations();
    Outcome outcome;
    outcome.code = GetTxDetail(reader.get(), aid.get(), given(detail, texts.back()));
    const auto operations = take_operations();
    outcome.inside = inside_of(operations, outcome.code);
    outcome.text = text_of(operations);
    outcome.answer["txDetail"] = detail.content();
    return outcome;
}

Outcome call_get_info(const Texts& texts) {
    In unread(texts[0]);
    In letters(texts[1]);
    In aid(texts[2]);
    Out<QAVEN_USERINFO_SIZE> info;
    Out<QAVEN_APPDATA_SIZE> data;
    Out<QAVEN_ERRMSG_SIZE> error;
    char* const p = unread.get();
    Outcome outcome;
    outcome.code =
        get_info(p, p, p, p, p, p, p, p, p, letters.get(), aid.get(), given(info, texts.back()), p,
                 given(data, texts.back()), given(error, texts.back()));
    outcome.text = error_text(error);
    outcome.answer["UserInfo"] = info.text();
    outcome.answer["IcData"] = data.text();
    return outcome;
}

Outcome call_arqc(const Texts& texts) {
    In unread(texts[0]);
    In transaction(texts[1]);
    In aids(texts[2]);
    Out<QAVEN_ARQC_SIZE> arqc;
    Out<4> arqc_length;
    Out<QAVEN_FIELD60_SIZE> field60;
    Out<QAVEN_ERRMSG_SIZE> error;
    // In and out: a host's text may be longer than what the library writes.
    std::vector<char> application_data;
    if (texts[3]) {
        application_data = in_its_block(*texts[3]);
        application_data.resize(std::max<std::size_t>(application_data.size(), QAVEN_APPDATA_SIZE));
    }
    char* const p = unread.get();
    Outcome outcome;
    outcome.code = generate_arqc(p, p, p, p, p, p, p, p, p, transaction.get(), aids.get(),
                                 texts[3] ? application_data.data() : nullptr,
                                 given(arqc_length, texts.back()), given(arqc, texts.back()),
                                 given(field60, texts.back()), p, given(error, texts.back()));
    outcome.text = error_text(error);
    outcome.answer["ARQCLen"] = arqc_length.text();
    outcome.answer["ARQC"] = arqc.text();
    outcome.answer["Field60"] = field60.text();
    return outcome;
}

Outcome call_answer(const Texts& texts) {
    In unread(texts[0]);
    In transaction(texts[1]);
    In application_data(texts[2]);
    In response(texts[3]);
    In status(texts[4]);
    Out<QAVEN_TC_SIZE> tc;
    Out<QAVEN_SCRIPT_RESULT_SIZE> script_result;
    Out<QAVEN_ERRMSG_SIZE> error;
    char* const p = unread.get();
    Outcome outcome;
    outcome.code =
        answer_issuer(p, p, p, p, p, p, p, p, p, transaction.get(), application_data.get(), p,
                      response.get(), status.get(), given(tc, texts.back()),
                      given(script_result, texts.back()), given(error, texts.back()));
    outcome.text = error_text(error);
    outcome.answer["TC"] = tc.text();
    outcome.answer["ScriptResult"] = script_result.text();
    return outcome;
}

Outcome call_log(const Texts& texts) {
    In unread(texts[0]);
    In aid(texts[1]);
    Out<QAVEN_TXDETAIL_SIZE> detail;
    Out<QAVEN_ERRMSG_SIZE> error;
    detail.zero();
    char* const p = unread.get();
    Outcome outcome;
    outcome.code = read_log(p, p, p, p, p, p, p, p, p, aid.get(), given(detail, texts.back()), p,
                            given(error, texts.back()));
    outcome.text = error_text(error);
    outcome.answer["TxDetail"] = detail.content();
    return outcome;
}

Outcome call_load_log(const Texts& texts) {
    In aid(texts[0]);
    Out<QAVEN_TXDETAIL_SIZE> log;
    Outcome outcome;
    const int index = texts[1] ? number_in(*texts[1]) : 0;
    outcome.code = ReadAmtLog(aid.get(), index, given(log, texts.back()));
    outcome.answer["out"] = log.text();
    return outcome;
}

// The host's good texts. Application data and response are those of a card fresh from its profile,
// whose first ARQC is always the same.
struct Good {
    Request request;
    std::string application_data;
    std::string response;
};

std::vector<Function> all_functions(const Good& good) {
    const Field letters{"TagList", Content::letters, good.request.letters};
    const Field aids{"AIDList", Content::aids, good.request.aids};
    const Field aid{"AID", Content::aid, good.request.log_aid};
    const Field transaction{"aryInput", Content::transaction, good.request.transaction};
    const Field flag{"isReadArqc", Content::flag, "true"};
    const Field reader{"readerName", Content::unread, "KS  KS4417QX-R 0"};
    const Field unread{"(unread)", Content::unread, ""};
    const auto renamed = [](Field field, const char* name) {
        field.name = name;
        return field;
    };
    const Field tx_data = renamed(transaction, "Txdata");
    const Field application_data{"LpAppData", Content::application_data, good.application_data};
    const Field response{"ARPC", Content::response, good.response};
    const Field status{"Status", Content::status, "0"};
    Field handed_in = renamed(application_data, "lpicappdata");
    const auto json = [](EntryPoint entry_point) {
        return [entry_point](const Texts& texts) { return call_json(entry_point, texts); };
    };
    return {
        {"QAVEN_getICCardInfo",
         {letters, aids, transaction, flag},
         false,
         true,
         json(QAVEN_getICCardInfo)},
        {"QAVEN_genARQC", {transaction, aids}, false, true, json(QAVEN_genARQC)},
        {"QAVEN_ARPC_ExeICScript",
         {tx_data, application_data, response, status},
         true,
         true,
         json(QAVEN_ARPC_ExeICScript)},
        {"QAVEN_GetTxDetail", {renamed(aid, "AIDList")}, false, true, json(QAVEN_GetTxDetail)},
        {"getICCardInfo", {reader, letters, aids}, false, false, call_get_info_wrapper},
        {"genARQC", {reader, transaction, aids}, false, false, call_arqc_wrapper},
        {"ARPC_ExeICScript",
         {tx_data, application_data, response, renamed(status, "status")},
         true,
         false,
         call_answer_wrapper},
        {"GetTxDetail", {reader, renamed(aid, "aidList")}, false, false, call_log_wrapper},
        {"ZEB_ICC_GetInfo", {unread, letters, aid}, false, false, call_get_info},
        {"ZEB_ICC_GenARQC", {unread, transaction, aids, handed_in}, false, false, call_arqc},
        {"ZEB_ICC_ARPC_ExeICScript",
         {unread, tx_data, application_data, response, status},
         true,
         false,
         call_answer},
        {"ZEB_ICC_GetTxDetail", {unread, aid}, false, false, call_log},
        {"ReadAmtLog", {aid, renamed(status, "recordIndex")}, false, false, call_load_log},
    };
}

// --- the sweep ---

std::string object_of(const std::vector<std::string>& members) {
    std::string json = "{";
    for (const std::string& member : members) {
        if (!member.empty()) {
            json += (json.size() > 1 ? "," : "") + member;
        }
    }
    return json + "}";
}

// What a call left behind, against what a good one leaves.
std::string left(const Outcome& outcome, const Outcome& good) {
    if (outcome.answer.empty()) {
        return "nothing";
    }
    std::string words;
    const auto say = [&](const std::string& name, const char* what) {
        words += (words.empty() ? "" : ", ") + name + " " + what;
    };
    for (const auto& [name, value] : outcome.answer) {
        const auto usual = good.answer.find(name);
        if (!value) {
            say(name, "untouched");
        } else if (value->empty()) {
            say(name, "empty");
        } else if (usual == good.answer.end() || usual->second != value) {
            say(name, *value == "0" ? "\"0\"" : *value == "000000" ? "\"000000\"" : "other");
        }
    }
    return words.empty() ? "as ever" : words;
}

class Sweep {
  public:
    Sweep(const Good& good, Table& table, bool thorough)
        : good_(good), table_(table), thorough_(thorough), demands_("host", limits) {}

    void run(const Function& function) {
        table_.section(function.name);
        const Outcome good = good_outcome(function);
        if (good.code != 0) {
            demands_.complain(function.name, "a good call fails");
        }
        if (function.takes_json) {
            for (const Sent& document : careless_documents(good_document(function))) {
                run_case(function, good, "(whole text)", document.kind,
                         {document.text, buffers_given});
            }
            for (const char* const missing : {"resmsg", "errmsg", "either"}) {
                run_case(function, good, "(buffers)", "without "s + missing,
                         {good_document(function), missing});
            }
        } else {
            Texts texts = good_inputs(function);
            texts.back() = std::nullopt;
            run_case(function, good, "(buffers)", "null pointers", texts);
        }
        for (std::size_t n = 0; n < function.fields.size(); ++n) {
            const Field& field = function.fields[n];
            if (function.takes_json) {
                for (const Sent& sent : careless_members(field.name, field.content, field.good)) {
                    auto members = good_members(function);
                    members[n] = *sent.text;
                    run_case(function, good, field.name, sent.kind,
                             {object_of(members), buffers_given});
                }
            } else {
                for (const Sent& sent : careless_texts(field.content, field.good)) {
                    Texts texts = good_inputs(function);
                    texts[n] = sent.text;
                    run_case(function, good, field.name, sent.kind, texts);
                }
            }
        }
        write_rows();
    }

    [[nodiscard]] std::size_t cases() const { return cases_; }
    [[nodiscard]] std::size_t complaints() const { return demands_.complaints(); }

  private:
    static std::vector<std::string> good_members(const Function& function) {
        std::vector<std::string> members;
        for (const Field& field : function.fields) {
            const bool is_number = field.content == Content::status;
            members.push_back(quoted(field.name) + ":" +
                              (is_number ? field.good : quoted(field.good)));
        }
        return members;
    }

    static std::string good_document(const Function& function) {
        return object_of(good_members(function));
    }

    static Texts good_inputs(const Function& function) {
        if (function.takes_json) {
            return {good_document(function), buffers_given};
        }
        Texts texts;
        for (const Field& field : function.fields) {
            texts.emplace_back(field.good);
        }
        texts.emplace_back(buffers_given);
        return texts;
    }

    Outcome good_outcome(const Function& function) {
        Desk desk(set_up_, issuer_);
        desk.bus().plug();
        bring_to(function, desk);
        return function.call(good_inputs(function));
    }

    // The issuer's answer comes to a card that has given its ARQC.
    void bring_to(const Function& function, Desk& desk) {
        if (!function.answers_issuer) {
            return;
        }
        const Call call =
            call_information(desk.bus(), json_object({{"TagList", good_.request.letters},
                                                      {"AIDList", good_.request.aids},
                                                      {"aryInput", good_.request.transaction},
                                                      {"isReadArqc", "true"}}));
        if (call.member("LpAppData") != good_.application_data) {
            demands_.complain(function.name, "another card than before");
        }
    }

    void run_case(const Function& function, const Outcome& good, const std::string& what,
                  const std::string& kind, const Texts& texts) {
        if (!thorough_ && ++met_ % sampled != 0) {
            return;
        }
        const std::string name = function.name + " " + what + " " + kind;
        ++cases_;
        Desk desk(set_up_, issuer_);
        desk.bus().plug();
        bring_to(function, desk);
        const Bus::Spent before = desk.bus().spent();
        const Outcome outcome = function.call(texts);
        const Bus::Spent after = desk.bus().spent();
        if (after.time - before.time > after.allowed - before.allowed ||
            after.time - before.time > limits.call_time ||
            after.transfers - before.transfers > limits.call_transfers) {
            demands_.complain(name, "took " + seconds(after.time - before.time));
        }
        if (function.takes_json && what != "(buffers)" && outcome.code != 0 &&
            outcome.text.empty()) {
            demands_.complain(name, "a code without a text");
        }

        std::string then;
        if (function.answers_issuer && (outcome.code != 0 || !outcome.inside.empty())) {
            const Outcome again = function.call(good_inputs(function));
            const int code = again.code;
            then = again.answer == good.answer ? "right answer works"
                   : again.inside.empty()      ? std::to_string(code)
                                               : again.inside;
        }

        const Transaction next = desk.transaction();
        if (!next.complete) {
            demands_.complain(name, "the next transaction ends with " + ended(next));
        }
        demands_.check_at_end(name, desk.bus());
        note({what, std::to_string(outcome.code), outcome.inside, outcome.text, left(outcome, good),
              then},
             kind);
    }

    // What was sent in place of what, and how that ended.
    struct Row {
        std::array<std::string, 6> outcome; // with the field in front
        std::vector<std::pair<std::string, std::size_t>> kinds;
        std::size_t cases = 0;
    };

    void note(const std::array<std::string, 6>& outcome, const std::string& kind) {
        auto row = std::ranges::find(rows_, outcome, &Row::outcome);
        if (row == rows_.end()) {
            rows_.push_back({outcome, {}, 0});
            row = rows_.end() - 1;
        }
        ++row->cases;
        auto counted =
            std::ranges::find(row->kinds, kind, &std::pair<std::string, std::size_t>::first);
        if (counted == row->kinds.end()) {
            row->kinds.emplace_back(kind, 0);
            counted = row->kinds.end() - 1;
        }
        ++counted->second;
    }

    // In the order in which the outcomes came first; the cases of a field come one after another.
    void write_rows() {
        for (const Row& row : rows_) {
            std::vector<std::string> cells(row.outcome.begin(), row.outcome.end());
            cells.push_back(std::to_string(row.cases));
            for (const std::string& line : lines_of(row.kinds)) {
                cells.push_back(line);
                table_.row(cells);
                cells.assign(row.outcome.size() + 1, "");
            }
        }
        rows_.clear();
    }

    static std::vector<std::string>
    lines_of(const std::vector<std::pair<std::string, std::size_t>>& kinds) {
        constexpr std::size_t line_length = 90;
        std::vector<std::string> lines{""};
        for (const auto& [kind, count] : kinds) {
            const std::string entry = kind + (count > 1 ? " (" + std::to_string(count) + ")" : "");
            if (!lines.back().empty() && lines.back().size() + entry.size() > line_length) {
                lines.emplace_back();
            }
            lines.back() += (lines.back().empty() ? "" : "; ") + entry;
        }
        return lines;
    }

    const Good& good_;
    SetUp set_up_{.name = "debit", .profile = "debit"};
    test::IssuerDesk issuer_;
    Table& table_;
    bool thorough_;
    std::size_t met_ = 0;
    Demands demands_;
    std::size_t cases_ = 0;
    std::vector<Row> rows_; // of one function
};

Good good_texts_of_first_transaction() {
    Good good;
    const test::IssuerDesk issuer;
    Desk desk({.name = "debit", .profile = "debit"}, issuer);
    desk.bus().plug();
    const Transaction transaction = desk.transaction();
    const Call& information = transaction.calls.front();
    good.application_data = information.member("LpAppData");
    good.response = issuer.answer(information.member("ARQC"),
                                  {.response_code = "00", .script = good.request.script});
    return good;
}

Table new_table() {
    return Table({"in place of", "result", "inside", "text", "leaves", "then", "cases", "sent"});
}

int run(const Good& good, bool thorough, bool write) {
    Table table = new_table();
    Sweep sweep(good, table, thorough);
    for (const Function& function : all_functions(good)) {
        sweep.run(function);
    }
    table.section(std::to_string(sweep.cases()) + " cases");
    const std::string text = table.text();
    std::cout << text;
    const bool as_expected = check_expected("host", text, thorough, write);
    return sweep.complaints() == 0 && as_expected ? EXIT_SUCCESS : EXIT_FAILURE;
}

int run_one(const Good& good, const std::string& name) {
    for (const Function& function : all_functions(good)) {
        if (function.name == name) {
            Table table = new_table();
            Sweep sweep(good, table, true);
            sweep.run(function);
            std::cout << table.text();
            return sweep.complaints() == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
        }
    }
    std::cerr << "no function is called " << name << '\n';
    return EXIT_FAILURE;
}

} // namespace

} // namespace qaven::sweep

int main(int argc, char** argv) {
    return qaven::sweep::run_program(argc, argv, [](const qaven::sweep::CommandLine& line) {
        const auto good = qaven::sweep::good_texts_of_first_transaction();
        if (!line.words.empty()) {
            return qaven::sweep::run_one(good, line.words.front());
        }
        return qaven::sweep::run(good, line.thorough, line.write);
    });
}
