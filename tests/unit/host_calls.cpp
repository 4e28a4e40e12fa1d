// The positional calls of the card operations.
#include "host_calls.h"

#include "engine/operation/arpc.h"
#include "engine/operation/arqc.h"
#include "engine/operation/card_info.h"
#include "engine/operation/transaction_log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <iconv.h>
#include <sstream>
#include <stdexcept>

namespace qaven::test {

namespace {

// The fixed texts of the positions that carry nothing.
struct Reserved {
    HostText empty{""};
    HostText reader{"reader"};
    HostText slot{"3"};
    char cell = '\0';
};

constexpr std::array<std::string_view, 16> kLinkLines{
    "iccep0 = ",
    "iccep1 = ",
    "Device Opened",
    "Kernel Driver ",
    "Released Interface!",
    "Cannot Released Interface!",
    "Device Closed!",
    "write Successful!",
    "write error!",
    "read Successful!",
    "read error!",
    "read-ret = ",
    "readtimeout-ret = ",
    "i come",
    "failed to get device descriptor",
    "i comeback",
};

} // namespace

HostText::HostText(std::string_view text) : bytes_(text.begin(), text.end()) {
    bytes_.push_back('\0');
    bytes_.shrink_to_fit();
}

HostText::HostText(std::size_t size, std::string_view text) : bytes_(size) {
    set(text);
}

std::string HostText::text() const {
    const auto end = std::ranges::find(bytes_, '\0');
    if (end == bytes_.end()) {
        ADD_FAILURE() << "the text has no end";
    }
    return {bytes_.begin(), end};
}

std::string HostText::first(std::size_t count) const {
    return {bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(count)};
}

void HostText::set(std::string_view text) {
    std::ranges::fill(bytes_, '\0');
    std::ranges::copy(text, bytes_.begin());
}

int GetInfoCall::run() {
    Reserved fill;
    HostText tags(tag_list);
    HostText aid_text(aid);
    return ZEB_ICC_GetInfo(fill.empty.get(), fill.empty.get(), fill.reader.get(), fill.empty.get(),
                           fill.empty.get(), fill.empty.get(), fill.empty.get(), fill.empty.get(),
                           fill.slot.get(), tags.get(), aid_text.get(), user_info.get(), &fill.cell,
                           ic_data.get(), error_text.get());
}

int GenArqcCall::run() {
    Reserved fill;
    HostText data(tx_data);
    HostText aids(aid_list);
    HostText mode(selection_mode);
    return ZEB_ICC_GenARQC(fill.empty.get(), fill.empty.get(), fill.reader.get(), fill.empty.get(),
                           fill.empty.get(), fill.empty.get(), fill.empty.get(), fill.empty.get(),
                           mode.get(), data.get(), aids.get(), application_data.get(),
                           arqc_length.get(), arqc.get(), field60.get(), &cell, error_text.get());
}

int IssuerAnswerCall::run() {
    Reserved fill;
    HostText data(tx_data);
    HostText card_data(application_data);
    HostText length(std::to_string(response.size()));
    HostText answer(response);
    HostText status(host_status);
    return ZEB_ICC_ARPC_ExeICScript(fill.empty.get(), fill.empty.get(), fill.empty.get(),
                                    fill.empty.get(), fill.empty.get(), fill.empty.get(),
                                    fill.empty.get(), fill.empty.get(), fill.slot.get(), data.get(),
                                    card_data.get(), length.get(), answer.get(), status.get(),
                                    tc.get(), script_result.get(), error_text.get());
}

int TxDetailCall::run() {
    Reserved fill;
    HostText aid_text(aid);
    return ZEB_ICC_GetTxDetail(fill.empty.get(), fill.empty.get(), fill.reader.get(),
                               fill.empty.get(), fill.empty.get(), fill.empty.get(),
                               fill.empty.get(), fill.empty.get(), fill.slot.get(), aid_text.get(),
                               detail.get(), &fill.cell, error_text.get());
}

int AmtLogCall::run() {
    HostText aid_text(aid);
    return ReadAmtLog(aid_text.get(), record_index, log.get());
}

int JsonCall::run(EntryPoint entry_point, std::string_view json) {
    HostText input(json);
    return entry_point(input.get(), resmsg.get(), errmsg.get(), 10, 10);
}

std::string gbk(std::string_view utf8) {
    iconv_t conversion = iconv_open("GBK", "UTF-8");
    if (conversion == reinterpret_cast<iconv_t>(-1)) {
        throw std::runtime_error("no conversion from UTF-8 to GBK");
    }
    std::string text(utf8);
    std::string converted(text.size(), '\0');
    char* in = text.data();
    char* out = converted.data();
    std::size_t in_left = text.size();
    std::size_t out_left = converted.size();
    const std::size_t result = iconv(conversion, &in, &in_left, &out, &out_left);
    iconv_close(conversion);
    if (result == static_cast<std::size_t>(-1)) {
        throw std::runtime_error("no GBK text: " + text);
    }
    converted.resize(converted.size() - out_left);
    return converted;
}

std::string without_link_lines(std::string_view printed) {
    std::istringstream lines{std::string(printed)};
    std::string kept;
    std::string line;
    while (std::getline(lines, line)) {
        const bool of_link = std::ranges::any_of(
            kLinkLines, [&line](std::string_view start) { return line.starts_with(start); });
        if (!of_link) {
            kept += line + '\n';
        }
    }
    return kept;
}

} // namespace qaven::test
