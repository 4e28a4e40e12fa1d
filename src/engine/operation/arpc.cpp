// EXTERNAL AUTHENTICATE, the second GENERATE AC, the issuer script, and the TC list.
#include "engine/operation/arpc.h"

#include "common/tags.h"
#include "engine/card/commands.h"
#include "engine/card/script.h"
#include "engine/card/session.h"
#include "engine/data/application_data.h"
#include "engine/data/dol.h"
#include "engine/data/terminal_data.h"
#include "engine/data/tlv_writer.h"
#include "engine/data/transaction_data.h"
#include "engine/operation/cryptogram.h"
#include "engine/operation/issuer_decision.h"
#include "host/err.h"
#include "qaven/qaven.h"
#include "support/bounded_text.h"
#include "support/decimal.h"
#include "support/hex.h"
#include "support/host_text.h"
#include "support/operation.h"
#include "support/wiped.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace qaven::arpc {

namespace {

using tlv::Bytes;
using tlv::Extent;

// One zero byte always follows the converted transaction data.
constexpr std::size_t kConvertedBuffer = 4096;

constexpr std::size_t kMaxResponseDigits = 2046;
constexpr std::size_t kMaxCdolData = 255;
constexpr std::size_t kMaxTemplate = 1024;

// Template 72 is meant for after the second GENERATE AC and 71 for before it; both run after it,
// and only one of them.
constexpr std::array kScriptTemplates{kTag72IssuerScript2, kTag71IssuerScript1};

constexpr std::size_t kAuthenticationLength = 10;
constexpr std::size_t kArcOffset = 8;
using AuthenticationData = std::array<unsigned char, kAuthenticationLength>;

struct Parameters {
    HostText tx_data;
    HostText application_data;
    HostText issuer_response;
    HostText host_status;
    std::span<char> tc;
    std::span<char> script_result;
    std::span<char> error_text;
};

// The issuer's answer as the host passed it on.
class IssuerResponse {
  public:
    explicit IssuerResponse(std::string_view text) {
        if (text.size() <= kMaxResponseDigits && text.size() % 2 == 0) {
            bytes_ = hex::bytes_by<hex::else_lower_case>(text);
        }
    }

    bool empty() const { return bytes_.empty(); }

    // The first ten bytes of tag 91 and the length that the issuer gave it.
    std::optional<std::size_t> authentication_data(AuthenticationData& data) const {
        std::array<unsigned char, 256> value{};
        const auto length = tlv::extract(kTag91IssuerAuthenticationData, bytes_, value);
        if (length) {
            std::copy_n(value.begin(), data.size(), data.begin());
        }
        return length;
    }

    bool announces_script() const {
        return std::ranges::any_of(kScriptTemplates, [this](const auto& tag) {
            return tlv::find(tag, bytes_, Extent::kZeroTerminated).has_value();
        });
    }

    std::optional<std::array<unsigned char, 4>> script_identifier() const {
        std::array<unsigned char, 256> value{};
        if (!tlv::extract(kTag9F18IssuerScriptIdentifier, bytes_, value)) {
            return std::nullopt;
        }
        return std::array{value[0], value[1], value[2], value[3]};
    }

    // The template that runs.
    std::optional<WipedBytes> script() const {
        for (const auto& tag : kScriptTemplates) {
            WipedBytes value(kMaxTemplate);
            if (const auto length = tlv::extract(tag, bytes_, value)) {
                value.resize(*length);
                return value;
            }
        }
        return std::nullopt;
    }

  private:
    WipedBytes bytes_;
};

// Issuer script results in text form: tag DF31, length 05, result and position digits, script
// identifier. Empty without a script.
class ScriptResults {
  public:
    explicit ScriptResults(const IssuerResponse& response) {
        if (!response.announces_script()) {
            return;
        }
        const auto identifier = response.script_identifier();
        text_ = identifier ? "DF310500" : "DF31050000000000";
        for (const unsigned char byte : identifier.value_or(std::array<unsigned char, 4>{})) {
            if (identifier) {
                append_sign_extended(byte);
            }
        }
    }

    void note(const script::Outcome& outcome) {
        if (text_.empty()) {
            return;
        }
        if (outcome.result == 0) {
            text_[kResultDigit] = '2';
            return;
        }
        text_[kResultDigit] = '1';
        text_[kPositionDigit] = "0123456789ABCDEF"[std::clamp(outcome.count, 0, 15)];
    }

    const std::string& text() const { return text_; }

  private:
    static constexpr std::size_t kResultDigit = 6;
    static constexpr std::size_t kPositionDigit = 7;

    // Hosts know identifier bytes from 80 on as eight digits: the byte is widened with its sign.
    void append_sign_extended(unsigned char byte) {
        std::array<char, 16> digits{};
        const unsigned int widened = byte < 0x80U ? byte : 0xFFFFFF00U | byte;
        std::snprintf(digits.data(), digits.size(), "%02X", widened);
        text_ += digits.data();
    }

    std::string text_;
};

void write_outputs(const Parameters& parameters, std::string_view script_result,
                   std::string_view tc) {
    BoundedText(parameters.script_result).append(script_result);
    BoundedText(parameters.tc).append(tc);
}

using Converted = std::array<unsigned char, kConvertedBuffer>;

// Unlike the ARQC step this one converts the completed text.
Converted convert_completed(HostText tx_data) {
    std::array<char, transaction_data::kCompletedBuffer> completed{};
    transaction_data::complete(tx_data, completed, transaction_data::DateFrom::kFirstCharacter);
    Converted converted{};
    transaction_data::convert(completed.data(), std::span(converted).first(kConvertedBuffer - 1));
    return converted;
}

// The value string for CDOL2: the terminal data store with the issuer's authorisation response code
// in front of it.
dol::Built build_cdol2_data(const AuthenticationData& data, Bytes converted, Bytes cdol2,
                            std::span<std::uint8_t> out) {
    std::array<std::uint8_t, 4 + terminal_data::kStoreSize> place{};
    tlv::Writer store(place);
    store.append(kTag8AArc, Bytes(data).subspan(kArcOffset));
    store.append_objects(terminal_data::pack(converted));
    return dol::build(store.written(), cdol2, out);
}

int fail(int result, const Parameters& parameters) {
    errors::describe(result, parameters.error_text);
    return result;
}

// Calls both close hooks on every way out.
class CloseHooks {
  public:
    CloseHooks() = default;
    ~CloseHooks() {
        qm_closeicc();
        Qm_CloseDevice();
    }
    CloseHooks(const CloseHooks&) = delete;
    CloseHooks& operator=(const CloseHooks&) = delete;
};

void write_tc_list(tlv::Writer& list, const cryptogram::Answer& answer, Bytes application_data,
                   Bytes converted) {
    cryptogram::append_answer(list, answer);
    cryptogram::append_last_online_atc(list);
    list.append(kTag9ATransactionDate, terminal_data::transaction_date());
    cryptogram::append_type(list, converted);
    cryptogram::append_amount(list, kTag9F02AmountAuthorised, 'P', converted);
    list.append(kTag5F2ACurrencyCode, terminal_data::kCurrencyCode);
    cryptogram::append_card_object(list, kTag5APan, application_data);
    cryptogram::append_card_object(list, kTag5F34PanSequenceNumber, application_data);
    cryptogram::append_aip(list, application_data);
    list.append(kTag9F1ATerminalCountryCode, terminal_data::kCountryCode);
    cryptogram::append_amount(list, kTag9F03AmountOther, 'Q', converted);
    list.append(kTag9F33TerminalCapabilities, terminal_data::kCapabilities);
}

// From the second GENERATE AC on: the connection ends here whatever comes of it.
int complete_transaction(const Parameters& parameters, const IssuerResponse& response,
                         const Decision& decision, Bytes cdol2_data, Bytes application_data,
                         Bytes converted) {
    const session::EndUnlessKept connection;
    const CloseHooks hooks;
    ScriptResults script_results(response);

    commands::Response raw;
    const int result =
        commands::generate_ac(static_cast<unsigned char>(decision.ask), cdol2_data, raw);
    const auto kind = cryptogram::kind_of(raw);
    const bool aac = result == 0 && kind == cryptogram::Kind::kAac;

    write_outputs(parameters, decision.on_aac == OnAac::kDeclined ? "" : script_results.text(), "");
    if (decision.on_aac == OnAac::kDeclined) {
        return aac ? 0 : fail(result, parameters);
    }
    if (result != 0) {
        return fail(result, parameters);
    }
    if (aac && decision.on_aac == OnAac::kReportCommand) {
        return fail(result, parameters);
    }
    if (aac && decision.on_aac == OnAac::kAccepted) {
        return 0;
    }
    if (kind != cryptogram::Kind::kTc) {
        return fail(QAVEN_NO_TC, parameters);
    }
    const auto answer = cryptogram::parse(raw);
    if (!answer) {
        return fail(QAVEN_NO_TAG_80, parameters);
    }

    if (const auto script = response.script()) {
        script_results.note(script::execute(*script));
    }
    std::array<std::uint8_t, cryptogram::kMaxList> place{};
    const WipedAtEnd wiped(place);
    tlv::Writer list(place);
    write_tc_list(list, *answer, application_data, converted);
    write_outputs(parameters, script_results.text(), hex::text(list.written()));
    return 0;
}

int run(const Parameters& parameters) {
    int host_status = decimal(parameters.host_status);
    const auto application_data = application_data::parse(parameters.application_data);
    const Converted converted = convert_completed(parameters.tx_data);

    std::array<unsigned char, 256> cdol2{};
    const auto cdol2_length = tlv::extract(kTag8DCdol2, application_data, cdol2);
    if (!cdol2_length) {
        return fail(QAVEN_NO_CDOL2, parameters);
    }

    const IssuerResponse response(parameters.issuer_response);
    AuthenticationData authentication{};
    const auto authentication_length = response.authentication_data(authentication);
    if (!authentication_length) {
        authentication.fill('0');
        host_status = 1;
    }

    std::array<unsigned char, kMaxCdolData> cdol2_data{};
    const auto built =
        build_cdol2_data(authentication, converted, Bytes(cdol2).first(*cdol2_length), cdol2_data);
    if (built.result != 0) {
        return fail(built.result, parameters);
    }
    if (response.empty()) {
        return fail(QAVEN_EMPTY_DATA, parameters);
    }
    BoundedText(parameters.script_result).append(ScriptResults(response).text());
    if (authentication_length.value_or(0) < kAuthenticationLength) {
        return fail(QAVEN_NO_TAG_91, parameters);
    }
    if (const int refused = commands::external_authenticate(authentication); refused != 0) {
        return refused;
    }

    const Decision decision =
        decide(host_status, {reinterpret_cast<const char*>(authentication.data()) + kArcOffset,
                             kAuthenticationLength - kArcOffset});
    return complete_transaction(parameters, response, decision,
                                Bytes(cdol2_data).first(built.length), application_data, converted);
}

} // namespace

} // namespace qaven::arpc

using qaven::host_buffer;

int ZEB_ICC_ARPC_ExeICScript(char* /*p1*/, char* /*p2*/, char* /*p3*/, char* /*p4*/, char* /*p5*/,
                             char* /*p6*/, char* /*p7*/, char* /*p8*/, char* /*p9*/, char* TxData,
                             char* lpicappdata, char* /*p12*/, char* ARPC, char* HostStatus,
                             char* TC, char* ScriptResult, char* ErrMsg) {
    return qaven::operation::run(static_cast<int>(QAVEN_ILLEGAL_DATA), [&] {
        return qaven::arpc::run(
            {.tx_data = TxData,
             .application_data = lpicappdata,
             .issuer_response = ARPC,
             .host_status = HostStatus,
             .tc = host_buffer(TC, QAVEN_TC_SIZE),
             .script_result = host_buffer(ScriptResult, QAVEN_SCRIPT_RESULT_SIZE),
             .error_text = host_buffer(ErrMsg, QAVEN_ERRMSG_SIZE)});
    });
}
