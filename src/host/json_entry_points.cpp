// The JSON entry points and the driver lifecycle: JSON text in, one wrapper call or two, JSON text
// out.
#include "engine/card/session.h"
#include "engine/operation/card_info.h"
#include "host/err.h"
#include "host/lorim_pboc.h"
#include "host/report.h"
#include "support/boundary.h"
#include "support/bounded_text.h"
#include "support/diagnostics.h"
#include "support/gbk_text.h"
#include "support/operation.h"
#include "support/qmlog.h"

#include <cjson/cJSON.h>

#include <array>
#include <initializer_list>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace {

using qaven::HostText;
using qaven::report;
namespace diagnostics = qaven::diagnostics;
namespace gbk = qaven::gbk;
namespace session = qaven::session;
namespace trace = qaven::trace;
namespace wrappers = qaven::wrappers;

// What the wrappers log as the reader. The card operations choose the reader themselves.
constexpr const char* kReaderName = "KS  KS4417QX-R 0";
constexpr const char* kReaderNameOfArqcStep = "123";
constexpr const char* kReaderNameOfLog = "";

// The line that support staff look for between card information and answer.
constexpr const char* kCardInformationMark = "111";

constexpr const char* kTestInput =
    R"({"AIDList":"|A000000333010101|A888000333010101","TagList":"|A|B|C|D|E|G|H|I|J|K|L|M|N|O",)"
    R"("aryInput":"S006330201U006155840","isReadArqc":"true"})";

struct TreeDeleter {
    void operator()(cJSON* tree) const { cJSON_Delete(tree); }
};
using Tree = std::unique_ptr<cJSON, TreeDeleter>;

struct PrintedDeleter {
    void operator()(char* text) const { cJSON_free(text); }
};

struct Member {
    const char* key;
    const char* text;
};

// The formatted text of an object with these text members, all of them.
std::string printed_object(std::initializer_list<Member> members) {
    const Tree object(cJSON_CreateObject());
    for (const Member& member : members) {
        if (cJSON_AddStringToObject(object.get(), member.key, member.text) == nullptr) {
            throw std::bad_alloc();
        }
    }
    const std::unique_ptr<char, PrintedDeleter> printed(cJSON_Print(object.get()));
    if (!printed) {
        throw std::bad_alloc();
    }
    return printed.get();
}

// A fraction or a number beyond an int is no decision of a host.
bool is_whole_number(const cJSON* item) {
    return cJSON_IsNumber(item) != 0 && item->valuedouble == item->valueint;
}

// A host's input, read key by key. The first one that is not usable is remembered by name.
class Input {
  public:
    explicit Input(HostText json)
        : tree_(cJSON_Parse(json.c_str())), usable_(cJSON_IsObject(tree_.get()) != 0) {
        if (!usable_) {
            trace::line("the input is not a JSON object");
        }
    }

    HostText text(const char* key) {
        const cJSON* const item = member(key);
        return expect(cJSON_IsString(item) != 0, key) ? item->valuestring : nullptr;
    }

    int number(const char* key) {
        const cJSON* const item = member(key);
        return expect(is_whole_number(item), key) ? item->valueint : 0;
    }

    bool usable() const { return usable_; }

  private:
    const cJSON* member(const char* key) const { return cJSON_GetObjectItem(tree_.get(), key); }

    bool expect(bool well_formed, const char* key) {
        if (usable_ && !well_formed) {
            trace::line("the input's \"%s\" is missing or of the wrong type", key);
            usable_ = false;
        }
        return usable_;
    }

    Tree tree_;
    bool usable_;
};

// Where a host gets its answer.
class Answer {
  public:
    Answer(std::span<char> resmsg, std::span<char> errmsg) : resmsg_(resmsg), errmsg_(errmsg) {}

    bool has_buffers() const { return !resmsg_.empty() && !errmsg_.empty(); }

    int refuse() const {
        qaven::errors::describe(QAVEN_ILLEGAL_DATA, errmsg_);
        return QAVEN_ILLEGAL_DATA;
    }

    void fail(std::string_view text) const { qaven::BoundedText(errmsg_).append(text); }

    // Only what is whole is handed out: texts that an operation left empty because it had no memory
    // would read as a card's refusal.
    void write(std::string_view text) const {
        if (qaven::memory_shortages != shortages_before_) {
            throw std::bad_alloc();
        }
        qaven::BoundedText(resmsg_).append(text);
        trace::line("resmsg:%s\n", resmsg_.data());
    }

    // The failure text that the host's buffer holds from whatever call wrote it; never read past
    // the buffer's documented size, because the host may never have cleared it.
    void trace_error_text() const {
        trace::line("errmsg:%.*s\n", static_cast<int>(errmsg_.size()) - 1, errmsg_.data());
    }

  private:
    std::span<char> resmsg_;
    std::span<char> errmsg_;
    unsigned shortages_before_ = qaven::memory_shortages;
};

// Runs an entry point on buffers that exist.
template <typename Body>
int entry_point(char* resmsg, char* errmsg, Body&& body) {
    return qaven::operation::run(static_cast<int>(QAVEN_ILLEGAL_DATA), [&] {
        const Answer answer(qaven::host_buffer(resmsg, QAVEN_RESMSG_SIZE),
                            qaven::host_buffer(errmsg, QAVEN_ERRMSG_SIZE));
        if (!answer.has_buffers()) {
            return static_cast<int>(QAVEN_ILLEGAL_DATA);
        }
        try {
            return body(answer);
        } catch (const std::bad_alloc&) {
            return answer.refuse();
        }
    });
}

// One ARQC step and the text of its answer object. A card whose cryptogram does not reach the host
// is not kept waiting for the issuer.
class ArqcStep {
  public:
    int run(HostText reader_name, HostText transaction_data, HostText aid_list) {
        const int result = wrappers::generate_arqc(reader_name, transaction_data, aid_list,
                                                   {application_data_, arqc_, field60_});
        if (result == 0) {
            connection_.emplace();
        }
        return result;
    }

    // The host has the answer.
    void answered() {
        if (connection_) {
            connection_->keep();
        }
    }

    const char* application_data() const { return application_data_.data(); }
    const char* arqc() const { return arqc_.data(); }

    std::string printed() const {
        return printed_object({{"LpAppData", application_data_.data()},
                               {"ARQC", arqc_.data()},
                               {"Field60", field60_.data()}});
    }

  private:
    std::array<char, QAVEN_APPDATA_SIZE> application_data_{};
    std::array<char, QAVEN_ARQC_SIZE> arqc_{};
    std::array<char, QAVEN_FIELD60_SIZE> field60_{};
    std::optional<session::EndUnlessKept> connection_;
};

bool asks_for_arqc(std::string_view text) {
    return text == "true" || text == "True";
}

int read_card_information(HostText json, const Answer& answer) {
    Input input(json);
    const HostText tag_list = input.text("TagList");
    const HostText aid_list = input.text("AIDList");
    const HostText transaction_data = input.text("aryInput");
    const HostText read_arqc = input.text("isReadArqc");
    if (!input.usable()) {
        return answer.refuse();
    }
    report("------QAVEN_getICCardInfo------\n");
    report("TagList:%s\n", tag_list.c_str());
    report("AIDList:%s\n", aid_list.c_str());
    report("aryInput:%s\n", transaction_data.c_str());
    report("isReadArqc:%s\n", read_arqc.c_str());

    // The card information that a teller sees and the ARQC that pays are those of one card.
    const qaven::card_info::OneCard one_card;
    std::array<char, QAVEN_USERINFO_SIZE> card_information{};
    if (const int result =
            wrappers::read_card_information(kReaderName, tag_list, aid_list, card_information);
        result != 0) {
        report("%s", gbk::kGetCardInfoFailed);
        answer.fail(gbk::kGetCardInfoFailed);
        return result;
    }
    trace::line("valueRet:%s\n", card_information.data());
    trace::write(kCardInformationMark);

    std::string arqc_object;
    ArqcStep step;
    if (asks_for_arqc(read_arqc)) {
        report("-ReadArqc-");
        if (const int result = step.run(kReaderNameOfArqcStep, transaction_data, aid_list);
            result != 0) {
            diagnostics::line("%s", gbk::kGetArqcFailed);
            diagnostics::text("mret:%d\n", result);
            answer.fail(gbk::kGetArqcFailed);
            trace::write(gbk::kGetArqcFailedTrace);
            return result;
        }
        diagnostics::text("-LpAppData:%s\n", step.application_data());
        diagnostics::text("-ARQC:%s\n", step.arqc());
        arqc_object = step.printed();
    }

    answer.write(
        printed_object({{"IcInfo", card_information.data()}, {"IcARQC", arqc_object.c_str()}}));
    step.answered();
    answer.trace_error_text();
    trace::line("ret:%d\n", 0);
    return 0;
}

int generate_arqc(HostText json, const Answer& answer) {
    Input input(json);
    const HostText transaction_data = input.text("aryInput");
    const HostText aid_list = input.text("AIDList");
    if (!input.usable()) {
        return answer.refuse();
    }
    report("------QAVEN_genARQC------\n");
    // The transaction data has always been traced under the tag list's label.
    report("TagList:%s\n", transaction_data.c_str());
    report("AIDList:%s\n", aid_list.c_str());

    ArqcStep step;
    const int result = step.run(kReaderName, transaction_data, aid_list);
    answer.write(step.printed());
    step.answered();
    trace::line("ret:%d\n", result);
    return 0;
}

int run_issuer_answer(HostText json, const Answer& answer) {
    Input input(json);
    const HostText transaction_data = input.text("Txdata");
    const HostText application_data = input.text("LpAppData");
    const HostText response = input.text("ARPC");
    const int status = input.number("Status");
    if (!input.usable()) {
        return answer.refuse();
    }
    // Printed and traced lines carry different labels here.
    diagnostics::line("------QAVEN_ARPC_ExeICScript------");
    diagnostics::text("Txdata:%s\n", transaction_data.c_str());
    diagnostics::text("LpAppData:%s\n", application_data.c_str());
    diagnostics::text("ARPC:%s\n", response.c_str());
    diagnostics::text("Status:%d\n", status);
    trace::write("------QAVEN_ARPC_ExeICScript------");
    trace::line("Txdata_string:%s\n", transaction_data.c_str());
    trace::line("LpAppData_string:%s\n", application_data.c_str());
    trace::line("ARPC_string:%s\n", response.c_str());
    trace::line("status:%d\n", status);

    std::array<char, QAVEN_SCRIPT_RESULT_SIZE> script_result{};
    std::array<char, QAVEN_TC_SIZE> tc{};
    const int result = wrappers::run_issuer_answer(
        {transaction_data, application_data, response, status}, script_result, tc);
    answer.write(printed_object({{"Scriptresult", script_result.data()}, {"TC", tc.data()}}));
    trace::line("ret:%d\n", result);
    return 0;
}

int read_transaction_log(HostText json, const Answer& answer) {
    Input input(json);
    const HostText aid_list = input.text("AIDList");
    if (!input.usable()) {
        return answer.refuse();
    }
    report("------QAVEN_GetTxDetail------\n");
    report("AIDList:%s\n", aid_list.c_str());

    std::array<char, QAVEN_TXDETAIL_SIZE> detail{};
    const int result = wrappers::read_transaction_log(kReaderNameOfLog, aid_list, detail);
    answer.write(printed_object({{"TxDtailRet", detail.data()}}));
    trace::line("ret:%d\n", result);
    return 0;
}

} // namespace

int initDriver(void) {
    return 0;
}

int deinit(void) {
    return 0;
}

void setPortAttr(void* /*port*/, int /*attribute1*/, int /*attribute2*/, int /*attribute3*/) {}

int QAVEN_getICCardInfo(const char* json, char* resmsg, char* errmsg, int /*reserved1*/,
                        int /*reserved2*/) {
    return entry_point(resmsg, errmsg, [json](const Answer& answer) {
        return read_card_information(json, answer);
    });
}

int QAVEN_genARQC(const char* json, char* resmsg, char* errmsg, int /*reserved1*/,
                  int /*reserved2*/) {
    return entry_point(resmsg, errmsg,
                       [json](const Answer& answer) { return generate_arqc(json, answer); });
}

int QAVEN_ARPC_ExeICScript(const char* json, char* resmsg, char* errmsg, int /*reserved1*/,
                           int /*reserved2*/) {
    return entry_point(resmsg, errmsg,
                       [json](const Answer& answer) { return run_issuer_answer(json, answer); });
}

int QAVEN_GetTxDetail(const char* json, char* resmsg, char* errmsg, int /*reserved1*/,
                      int /*reserved2*/) {
    return entry_point(resmsg, errmsg,
                       [json](const Answer& answer) { return read_transaction_log(json, answer); });
}

int Test(void* /*ignored*/, char* resmsg, char* errmsg, int reserved1, int reserved2) {
    return QAVEN_getICCardInfo(kTestInput, resmsg, errmsg, reserved1, reserved2);
}
