// Card operations called as a host calls them: every text and buffer stands in memory of exactly
// its documented size, so that the address sanitizer sees a byte too many.
#pragma once

#include "qaven/qaven.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qaven::test {

// What output buffers hold before a call.
inline constexpr std::string_view kOld = "old";

// A host's text (its size and a terminator) or buffer (a given size).
class HostText {
  public:
    explicit HostText(std::string_view text);
    HostText(std::size_t size, std::string_view text);

    char* get() { return bytes_.data(); }

    // The characters before the terminator; a buffer without one fails the test.
    std::string text() const;

    // The leading bytes, zeros included.
    std::string first(std::size_t count) const;

    void set(std::string_view text);

  private:
    std::vector<char> bytes_;
};

// A transaction as a host describes it; the trailing blank lies outside every record.
inline constexpr std::string_view kTxData =
    "P012000000001213Q012000000000000R0040156S00820190422T00203U006161355I00200V013LURO CNT 0328 ";

struct GetInfoCall {
    std::string tag_list;
    std::string aid = "A000000333";
    HostText user_info{QAVEN_USERINFO_SIZE, kOld};
    HostText ic_data{QAVEN_APPDATA_SIZE, kOld};
    HostText error_text{QAVEN_ERRMSG_SIZE, kOld};

    int run();
};

struct GenArqcCall {
    std::string tx_data{kTxData};
    std::string aid_list = "A000000333";
    std::string selection_mode = "3";
    HostText application_data{QAVEN_APPDATA_SIZE, ""};
    HostText arqc_length{4, kOld};
    HostText arqc{QAVEN_ARQC_SIZE, kOld};
    HostText field60{QAVEN_FIELD60_SIZE, kOld};
    HostText error_text{QAVEN_ERRMSG_SIZE, kOld};
    char cell = '?';

    int run();
};

struct IssuerAnswerCall {
    std::string tx_data{kTxData};
    std::string application_data;
    std::string response;
    std::string host_status = "0";
    HostText tc{QAVEN_TC_SIZE, kOld};
    HostText script_result{QAVEN_SCRIPT_RESULT_SIZE, kOld};
    HostText error_text{QAVEN_ERRMSG_SIZE, kOld};

    int run();
};

struct TxDetailCall {
    std::string aid = "A000000333";
    HostText detail{QAVEN_TXDETAIL_SIZE, ""};
    HostText error_text{QAVEN_ERRMSG_SIZE, kOld};

    int run();
};

struct AmtLogCall {
    std::string aid = "A000000333010101";
    int record_index = -1;
    HostText log{QAVEN_TXDETAIL_SIZE, kOld};

    int run();
};

// A host's buffers at a JSON entry point.
struct JsonCall {
    using EntryPoint = int (*)(const char* json, char* resmsg, char* errmsg, int reserved1,
                               int reserved2);

    HostText resmsg{QAVEN_RESMSG_SIZE, kOld};
    HostText errmsg{QAVEN_ERRMSG_SIZE, kOld};

    int run(EntryPoint entry_point, std::string_view json);
};

// Readable text to the bytes that hosts and counters get.
std::string gbk(std::string_view utf8);

// Printed text without the lines of the reader link and the command set.
std::string without_link_lines(std::string_view printed);

} // namespace qaven::test
