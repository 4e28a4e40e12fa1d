// GENERATE AC for an ARQC, and the field-55 list.
#include "engine/operation/arqc.h"

#include "common/tags.h"
#include "engine/card/commands.h"
#include "engine/card/reading.h"
#include "engine/card/selection.h"
#include "engine/card/session.h"
#include "engine/data/application_data.h"
#include "engine/data/dol.h"
#include "engine/data/terminal_data.h"
#include "engine/data/tlv_writer.h"
#include "engine/data/transaction_data.h"
#include "engine/operation/aid_list.h"
#include "engine/operation/card_info.h"
#include "engine/operation/cryptogram.h"
#include "host/err.h"
#include "qaven/qaven.h"
#include "support/bounded_text.h"
#include "support/gbk_text.h"
#include "support/hex.h"
#include "support/host_text.h"
#include "support/operation.h"
#include "support/qmlog.h"

#include <array>
#include <cstdio>
#include <span>
#include <string_view>
#include <vector>

namespace qaven::arqc {

namespace {

using tlv::Bytes;

// One zero byte always follows the converted transaction data.
constexpr std::size_t kConvertedBuffer = 1025;

constexpr std::size_t kMaxCdolData = 255;
constexpr std::size_t kLengthTextSize = 4;

struct Parameters {
    HostText tx_data;
    HostText aid_list;
    HostText application_data; // in the buffer that is also written
    std::span<char> application_data_out;
    std::span<char> arqc_length;
    std::span<char> arqc;
    std::span<char> field60;
    std::span<char> error_text;
};

// Trace lines that format a number where a reader would expect the data carry its length.
unsigned int number_for(Bytes data) {
    return static_cast<unsigned int>(data.size());
}

int read_card(const Parameters& parameters) {
    return for_each_aid(parameters.aid_list, [&](std::string_view aid) {
        std::array<char, QAVEN_USERINFO_SIZE> user_info{};
        std::array<char, QAVEN_ERRMSG_SIZE> error_text{};
        return card_info::read_card({"", aid},
                                    {user_info, parameters.application_data_out, error_text},
                                    session::AtSuccess::kKeep);
    });
}

// Brings a card that was read in an earlier connection back to where GENERATE AC is due.
int restore_application(Bytes application_data, Bytes store) {
    const auto aid = cryptogram::card_object(kTag4FAid, application_data);
    if (!aid) {
        return QAVEN_NO_TAG;
    }
    commands::Response fci;
    if (const int result = selection::final_select(*aid, fci); result != 0) {
        return result;
    }
    reading::Options options;
    return reading::get_processing_options({fci.data()}, {store}, options);
}

int build_cdol1_data(Bytes application_data, Bytes store, std::vector<unsigned char>& cdol1_data) {
    const auto cdol1 = cryptogram::card_object(kTag8CCdol1, application_data);
    if (!cdol1) {
        trace::line("ireturn:%d\n", QAVEN_NO_TAG);
        return QAVEN_NO_TAG;
    }
    trace::line("CDOL1:%u\n", number_for(*cdol1));
    trace::line("CDOL1len:%d\n", static_cast<int>(cdol1->size()));

    cdol1_data.resize(kMaxCdolData);
    const auto built = dol::build(store, *cdol1, cdol1_data);
    if (built.result != 0) {
        trace::line("ireturn:%d\n", built.result);
        return built.result;
    }
    cdol1_data.resize(built.length);
    trace::line("DOL:%u\n", number_for(cdol1_data));
    trace::line("DOLlen:%d\n", static_cast<int>(cdol1_data.size()));
    return 0;
}

int generate(const Parameters& parameters, Bytes cdol1_data, cryptogram::Answer& answer) {
    commands::Response response;
    const int result = commands::generate_ac(static_cast<unsigned char>(cryptogram::Ask::kArqc),
                                             cdol1_data, response);
    trace::line("qmcx_GenerateAC ireturn:%d\n", result);
    if (result != 0) {
        return result;
    }
    const auto kind = cryptogram::kind_of(response);
    if (kind != cryptogram::Kind::kArqc) {
        trace::line(gbk::kNotAnArqcFormat, static_cast<unsigned int>(kind));
        // A host knows one code for a card that did not give the cryptogram it was asked for.
        return QAVEN_NO_TC;
    }
    const auto parsed = cryptogram::parse(response);
    if (!parsed) {
        errors::describe(QAVEN_NO_TAG, parameters.error_text);
        trace::line("ErrMsg:%s\n", HostText(parameters.error_text.data()).c_str());
        return QAVEN_NO_TAG;
    }
    answer = *parsed;
    return 0;
}

void write_field60(std::uint8_t sequence_number, std::span<char> out) {
    if (!out.empty()) {
        std::snprintf(out.data(), out.size(), "\x60\x03%03x", sequence_number);
    }
}

void write_field55(tlv::Writer& list, const cryptogram::Answer& answer, Bytes application_data,
                   Bytes converted, std::span<char> field60) {
    if (!answer.iad.empty()) {
        trace::write(gbk::kIssuerApplicationData);
    }
    cryptogram::append_answer(list, answer);
    if (!cryptogram::append_last_online_atc(list)) {
        list.append(kTag9F13LastOnlineAtc, {0x00, 0x00});
        trace::write(gbk::kTerminalVerificationResults);
    }
    list.append(kTag9ATransactionDate, terminal_data::transaction_date());
    if (!cryptogram::append_type(list, converted)) {
        trace::write(gbk::kTransactionType);
    }
    if (!cryptogram::append_amount(list, kTag9F02AmountAuthorised, 'P', converted)) {
        trace::write(gbk::kAuthorisedAmount);
    }
    // The currency is the terminal's, whatever the host's text says.
    list.append(kTag5F2ACurrencyCode, terminal_data::kCurrencyCode);
    cryptogram::append_card_object(list, kTag5APan, application_data);
    if (const auto sequence_number =
            cryptogram::card_object(kTag5F34PanSequenceNumber, application_data)) {
        list.append(kTag5F34PanSequenceNumber, *sequence_number);
        write_field60(sequence_number->empty() ? 0 : sequence_number->front(), field60);
    }
    if (!cryptogram::append_aip(list, application_data)) {
        list.append(kTag82Aip, {0x7C, 0x00});
    }
    list.append(kTag9F1ATerminalCountryCode, terminal_data::kCountryCode);
    cryptogram::append_amount(list, kTag9F03AmountOther, 'Q', converted);
    list.append(kTag9F33TerminalCapabilities, terminal_data::kCapabilities);
    const bool product =
        cryptogram::append_card_object(list, kTag9F63CardProduct, application_data);
    trace::line(gbk::kCardProductFormat, product ? 0 : static_cast<int>(QAVEN_NO_TAG));
}

// Everything behind the reading step.
int generate_arqc(const Parameters& parameters, bool found_live) {
    std::array<char, transaction_data::kCompletedBuffer> completed{};
    transaction_data::complete(parameters.tx_data, completed,
                               transaction_data::DateFrom::kBehindCentury);
    trace::write("\r\n --- GetTransData---\r\n");
    trace::line(gbk::kCompletedTxDataFormat, completed.data());

    // The card gets the host's own text; the completed one is for the log.
    std::array<unsigned char, kConvertedBuffer> converted{};
    transaction_data::convert(parameters.tx_data, std::span(converted).first(kConvertedBuffer - 1));
    const auto store = terminal_data::pack(converted);

    const auto application_data = application_data::parse(parameters.application_data);
    if (!found_live) {
        if (const int result = restore_application(application_data, store); result != 0) {
            return result;
        }
    }
    trace::write(gbk::kDataBeforeCdol1Title);
    trace::line("appdatalen:%d\n", static_cast<int>(application_data.size()));
    trace::line("appdata:%u\n", number_for(application_data));

    std::vector<unsigned char> cdol1_data;
    if (const int result = build_cdol1_data(application_data, store, cdol1_data); result != 0) {
        return result;
    }
    cryptogram::Answer answer{};
    if (const int result = generate(parameters, cdol1_data, answer); result != 0) {
        return result;
    }

    std::array<std::uint8_t, cryptogram::kMaxList> place{};
    const WipedAtEnd wiped(place);
    tlv::Writer list(place);
    write_field55(list, answer, application_data, converted, parameters.field60);
    if (session::misled()) {
        return QAVEN_TIMEOUT;
    }
    const auto size = static_cast<int>(list.written().size());
    std::array<char, kLengthTextSize> length{};
    std::snprintf(length.data(), length.size(), "%03d", size);
    BoundedText(parameters.arqc_length).append(length.data());
    const WipedText text = hex::text(list.written());
    BoundedText(parameters.arqc).append(text);
    Qm_CloseDevice();
    trace::line(gbk::kArqcLengthFormat, size);
    trace::line("icARQClen:icARQClen=%d\n", static_cast<int>(text.size()));
    trace::line(gbk::kArqcDataFormat, text.c_str());
    return 0;
}

int run_once(const Parameters& parameters, bool handed_in) {
    const bool found_live = !handed_in || session::ready();
    const int reading = !handed_in   ? read_card(parameters)
                        : found_live ? 0
                                     : session::open_with_card();
    if (reading != 0) {
        return reading;
    }

    session::EndUnlessKept connection;
    const int result = generate_arqc(parameters, found_live);
    if (result == 0) {
        connection.keep();
    } else {
        qm_closeicc();
        Qm_CloseDevice();
    }
    return result;
}

int run(const Parameters& parameters) {
    trace::write("\r\n --- GenARQC---\r\n");
    trace::line(gbk::kQueryDataFormat, parameters.application_data.c_str());
    trace::line(gbk::kTxDataFormat, parameters.tx_data.c_str());
    const bool handed_in = !parameters.application_data.empty();
    return session::from_opening([&] { return run_once(parameters, handed_in); });
}

} // namespace

} // namespace qaven::arqc

using qaven::host_buffer;

int ZEB_ICC_GenARQC(char* /*p1*/, char* /*p2*/, char* /*ReaderNameStr*/, char* /*p4*/, char* /*p5*/,
                    char* /*p6*/, char* /*p7*/, char* /*p8*/, char* /*p9*/, char* TxData,
                    char* AIDList, char* lpicappdata, char* ARQCLen, char* ARQC, char* Field60,
                    char* /*p16*/, char* ErrMsg) {
    const auto error_text = host_buffer(ErrMsg, QAVEN_ERRMSG_SIZE);
    const int result = qaven::operation::run(static_cast<int>(QAVEN_ILLEGAL_DATA), [&] {
        return qaven::arqc::run(
            {.tx_data = TxData,
             .aid_list = AIDList,
             .application_data = lpicappdata,
             .application_data_out = host_buffer(lpicappdata, QAVEN_APPDATA_SIZE),
             .arqc_length = host_buffer(ARQCLen, qaven::arqc::kLengthTextSize),
             .arqc = host_buffer(ARQC, QAVEN_ARQC_SIZE),
             .field60 = host_buffer(Field60, QAVEN_FIELD60_SIZE),
             .error_text = error_text});
    });
    if (result != 0) {
        qaven::errors::describe(result, error_text);
    }
    return result;
}
