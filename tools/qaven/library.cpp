// Calls of the card operations, and the place of their trace.
#include "tools/qaven/library.h"

#include "engine/operation/transaction_log.h"
#include "host/lorim_pboc.h"
#include "qaven/qaven.h"
#include "tools/emv/hex.h"
#include "tools/emv/latin1.h"
#include "tools/emv/result_codes.h"
#include "tools/qaven/cli/exit_status.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qaven::cli {

using namespace emv;

namespace {

constexpr const char* kTraceFile = "Qm_ic.log";
constexpr const char* kReaderName = "qaven"; // is traced, nothing else
constexpr int kAllRecords = -1;
constexpr int kFolder = O_PATH | O_DIRECTORY | O_CLOEXEC;

// A text that the library fills.
class Output {
  public:
    explicit Output(std::size_t size) : text_(size, '\0') {}

    char* data() { return text_.data(); }
    std::string text() const { return text_.substr(0, text_.find('\0')); }

  private:
    std::string text_;
};

std::string json_text(std::string_view bytes) {
    return utf8_to_latin1(nlohmann::json(latin1_to_utf8(bytes)).dump());
}

// A folder that has been removed is nobody's to write into, and nothing has to be tidied up.
int removed_folder() {
    std::error_code error;
    std::string name = (std::filesystem::temp_directory_path(error) / "qaven-XXXXXX").string();
    if (error || mkdtemp(name.data()) == nullptr) {
        return -1;
    }
    const int folder = open(name.c_str(), kFolder);
    rmdir(name.c_str());
    return folder;
}

// Where nothing can be created.
int place_without_trace() {
    const int folder = removed_folder();
    const int place = folder < 0 ? open("/proc", kFolder) : folder;
    if (place < 0) {
        throw Failure(kFailed, "no folder can be made where temporary files go, and without one "
                               "the library would write card numbers into this one; --trace "
                               "names another");
    }
    return place;
}

// A folder in which the library can append to its trace: the file is there, a regular one that
// nobody else may read if it is new.
int place_with_trace(const std::string& name) {
    const int folder = open(name.c_str(), kFolder);
    const int file = folder < 0 ? -1
                                : openat(folder, kTraceFile,
                                         O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC,
                                         S_IRUSR | S_IWUSR);
    int error = file < 0 ? errno : 0;
    struct stat status {};
    if (file >= 0 && (fstat(file, &status) != 0 || !S_ISREG(status.st_mode))) {
        error = EINVAL;
    }
    if (file >= 0) {
        close(file);
    }
    if (error != 0) {
        if (folder >= 0) {
            close(folder);
        }
        throw Failure(kFailed, "no trace can be written in '" + name +
                                   "': " + std::generic_category().message(error));
    }
    return folder;
}

// The library writes its trace into the working directory, so that is the place meanwhile.
class Stay {
  public:
    explicit Stay(const TracePlace& place) : before_(open(".", kFolder)) {
        if (fchdir(place.descriptor()) != 0) {
            if (before_ >= 0) {
                close(before_);
            }
            throw Failure(kFailed, "the folder of the trace cannot be entered");
        }
    }
    ~Stay() {
        // A directory that cannot be gone back to was of no use before either.
        if (before_ >= 0) {
            static_cast<void>(fchdir(before_) == 0);
            close(before_);
        }
    }
    Stay(const Stay&) = delete;
    Stay& operator=(const Stay&) = delete;

  private:
    int before_;
};

} // namespace

std::string Answer::text(std::string_view key) const {
    const auto found = std::ranges::find(texts, key, &decltype(texts)::value_type::first);
    return found == texts.end() ? std::string() : found->second;
}

std::string Answer::json() const {
    std::string json;
    for (const auto& [key, text] : texts) {
        json += (json.empty() ? "{\n\t" : ",\n\t") + json_text(key) + ":\t" + json_text(text);
    }
    return json + "\n}";
}

TracePlace::TracePlace(const Options& options) {
    const auto folder = options.value(kTrace.name);
    descriptor_ = folder ? place_with_trace(*folder) : place_without_trace();
}

TracePlace::~TracePlace() {
    close(descriptor_);
}

Answer Library::card_information(const std::string& letters, const std::string& aids) const {
    const Stay stay(place_);
    Output information(QAVEN_USERINFO_SIZE);
    const int code = getICCardInfo(kReaderName, letters.c_str(), aids.c_str(), information.data());
    return {code, {{"IcInfo", information.text()}, {"IcARQC", ""}}};
}

Answer Library::arqc(const std::string& transaction_data, const std::string& aids) const {
    const Stay stay(place_);
    Output application_data(QAVEN_APPDATA_SIZE);
    Output arqc(QAVEN_ARQC_SIZE);
    Output field60(QAVEN_FIELD60_SIZE);
    const int code = genARQC(kReaderName, transaction_data.c_str(), aids.c_str(),
                             application_data.data(), arqc.data(), field60.data());
    return {code,
            {{"LpAppData", application_data.text()},
             {"ARQC", arqc.text()},
             {"Field60", field60.text()}}};
}

Answer Library::issuer_answer(const std::string& transaction_data,
                              const std::string& application_data, const std::string& response,
                              bool approved) const {
    const Stay stay(place_);
    Output script_result(QAVEN_SCRIPT_RESULT_SIZE);
    Output tc(QAVEN_TC_SIZE);
    const int code =
        ARPC_ExeICScript(transaction_data.c_str(), application_data.c_str(), response.c_str(),
                         approved ? 0 : 1, script_result.data(), tc.data());
    return {code, {{"Scriptresult", script_result.text()}, {"TC", tc.text()}}};
}

Answer Library::transaction_log(const std::string& aid) const {
    const Stay stay(place_);
    Output log(QAVEN_TXDETAIL_SIZE);
    const int code = GetTxDetail(kReaderName, aid.c_str(), log.data());
    return {code, {{"TxDtailRet", log.text()}}};
}

Answer Library::load_log(const std::string& aid) const {
    const Stay stay(place_);
    Output log(QAVEN_TXDETAIL_SIZE);
    const int code = ReadAmtLog(aid.c_str(), kAllRecords, log.data());
    return {code, {{"LoadLog", log.text()}}};
}

std::string explained(int code) {
    if (code == kAuthenticationRefused) {
        return "issuer authentication failed (6300)";
    }
    return result_words(code) + (code > 0 ? " (" + hex(static_cast<unsigned>(code), 4) + ')'
                                          : " (result " + std::to_string(code) + ')');
}

} // namespace qaven::cli
