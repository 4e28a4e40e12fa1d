// The two log formats are two field tables, walked by one function.
#include "engine/operation/transaction_log.h"

#include "common/tags.h"
#include "engine/card/commands.h"
#include "engine/card/reading.h"
#include "engine/card/selection.h"
#include "engine/card/session.h"
#include "engine/data/terminal_data.h"
#include "engine/data/tlv.h"
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
#include <string_view>

namespace qaven::transaction_log {

namespace {

using commands::DataObject;
using tlv::Bytes;

enum class Form { kHex, kText };

// One field of a log record: what names it in a card's log format, and where the format puts it.
struct Field {
    char letter;
    Tag tag;
    Form form = Form::kHex;
    unsigned char offset = 0;
    unsigned char length = 0;
};

constexpr std::array kTransactionFields{
    Field{'P', kTag9F02AmountAuthorised},
    Field{'Q', kTag9F03AmountOther},
    Field{'R', kTag5F2ACurrencyCode},
    Field{'S', kTag9ATransactionDate},
    Field{'T', kTag9CTransactionType},
    Field{'U', kTag9F21TransactionTime},
    Field{'V', kTag9F1ATerminalCountryCode},
    Field{'W', kTag9F4EMerchantName, Form::kText},
    Field{'X', kTag9F36Atc},
};

constexpr std::array kLoadFields{
    Field{'S', kTag9ATransactionDate},
    Field{'T', kTag9F21TransactionTime},
    Field{'U', kTag9F1ATerminalCountryCode},
    Field{'V', kTag9F4EMerchantName, Form::kText},
    Field{'W', kTag9F36Atc},
};

// What a load log puts where a merchant name is shorter than its field.
enum class AfterNul {
    kGoesOn, // every zero byte becomes a blank
    kBlank,  // so does everything behind the first one
};

// Tag and length of the log format object itself.
constexpr std::size_t kFormatHead = 3;

// Puts the fields of the table where the card's log format has them.
template <std::size_t N>
std::array<Field, N> laid_out(std::array<Field, N> fields, Bytes format) {
    Bytes rest = tlv::clipped(format, kFormatHead, format.size());
    std::size_t offset = 0;
    while (rest.size() >= 2 && rest[0] != tlv::kEndOfList && rest[0] != tlv::kPadding) {
        const std::size_t tag_size = tlv::log_tag_size(rest[0]);
        if (tag_size >= rest.size()) {
            break;
        }
        const std::uint8_t length = rest[tag_size];
        const auto field = std::ranges::find_if(fields, [&](const Field& candidate) {
            return std::ranges::equal(candidate.tag.bytes(), rest.first(tag_size));
        });
        if (field != fields.end()) {
            field->offset = static_cast<unsigned char>(offset);
            field->length = length;
        }
        offset += length;
        rest = rest.subspan(tag_size + 1);
    }
    return fields;
}

WipedText merchant_text(Bytes value, AfterNul after_nul) {
    WipedText text(value.begin(), value.end());
    if (after_nul == AfterNul::kBlank) {
        const auto end = std::ranges::find(text, '\0');
        std::fill(end, text.end(), '\0');
    }
    std::ranges::replace(text, '\0', ' ');
    return text;
}

// A log record, zeros behind it where a format asks for more than the card gave.
WipedText record_text(std::span<const Field> fields, Bytes padded_record, AfterNul after_nul) {
    WipedText text;
    for (const Field& field : fields) {
        const Bytes value = padded_record.subspan(field.offset, field.length);
        const WipedText shown =
            field.form == Form::kText ? merchant_text(value, after_nul) : hex::text(value);
        text += field.letter;
        text += three_digits(shown.size());
        text += shown;
    }
    return text;
}

// Where a card keeps a log: the file and its number of records.
struct LogEntry {
    unsigned char sfi;
    int records;
};

constexpr LogEntry kUsualTransactionLog{11, 10};
constexpr LogEntry kUsualLoadLog{12, 10};

// The log entry in the selection's FCI, or where such logs usually are; nothing when the FCI's
// entry is too short to say.
std::optional<LogEntry> log_entry(Bytes tag, Bytes fci, const LogEntry& usual) {
    std::array<unsigned char, 256> value{};
    const auto length = tlv::extract(tag, fci, value);
    if (!length) {
        return usual;
    }
    if (*length < 2) {
        return std::nullopt;
    }
    return LogEntry{value[0], value[1]};
}

// The output's two leading count bytes.
constexpr std::size_t kCountBytes = 2;

// What a reading of the transaction log comes to. It is the host's when the reader has been left.
struct TransactionLog {
    WipedText text; // as it stands in the host's buffer, which is zeroed: no terminator of its own
    bool described = false; // the result is put into words
};

void put_no_log(TransactionLog& log) {
    log.text.assign({'0', '\0'});
}

int fail_selection(int result, TransactionLog& log) {
    put_no_log(log);
    log.described = true;
    qm_closeicc();
    Qm_CloseDevice();
    return result;
}

void read_transaction_records(const LogEntry& entry, std::span<const Field> fields,
                              TransactionLog& log) {
    std::size_t last_size = 0;
    int count = 0;
    commands::Response record;
    log.text.assign(kCountBytes, '\0');
    for (int number = 1; number <= entry.records; ++number) {
        if (commands::read_record(static_cast<unsigned char>(number), entry.sfi, record) != 0) {
            break;
        }
        const WipedText fresh = record_text(fields, record.padded(), AfterNul::kGoesOn);
        if (log.text.size() + fresh.size() >= QAVEN_TXDETAIL_SIZE) {
            break;
        }
        log.text += fresh;
        last_size = fresh.size();
        ++count;
    }
    log.text[0] = static_cast<char>(static_cast<std::uint8_t>(count));
    log.text[1] = static_cast<char>(static_cast<std::uint8_t>(last_size));
}

int read_transactions(std::string_view aid_text, TransactionLog& log) {
    const session::Visit connection;
    if (connection.result() != 0) {
        return fail_selection(connection.result(), log);
    }
    const auto choice = selection::choose(aid_text);
    if (!choice.selected()) {
        return fail_selection(choice.result != 0 ? choice.result : choice.count, log);
    }

    commands::Response format;
    if (commands::get_data(DataObject::kLogFormat, format) != 0) {
        put_no_log(log);
        Qm_CloseDevice();
        return 0;
    }
    const auto fields = laid_out(kTransactionFields, format.data());
    const auto entry = log_entry(kTag9F4DLogEntry, choice.fci, kUsualTransactionLog);
    if (!entry) {
        put_no_log(log);
        return 0;
    }
    read_transaction_records(*entry, fields, log);
    Qm_CloseDevice();
    return 0;
}

int read_transactions(HostText aid_text, std::span<char> out, std::span<char> error_text) {
    TransactionLog log;
    const int result = session::from_opening([&] {
        log = {};
        return read_transactions(aid_text, log);
    });
    if (!out.empty()) {
        std::ranges::copy(log.text, out.begin());
    }
    if (log.described) {
        errors::describe(result, error_text);
    }
    return result;
}

// The load log's fixed fields, which stand before the ones that the card's format describes.
struct FixedField {
    std::string_view head;
    std::size_t offset;
    std::size_t length;
};

constexpr std::array kLoadPrefix{
    FixedField{"P004", 0, 2},
    FixedField{"Q012", 2, 6},
    FixedField{"R012", 8, 6},
};
constexpr std::size_t kLoadPrefixSize = 14;

constexpr int kFirstRefusedIndex = 11;

int records_wanted(int record_index, const LogEntry& entry) {
    if (record_index < 0) {
        return entry.records;
    }
    return std::max(record_index, 1);
}

WipedText load_record_text(std::span<const Field> fields, Bytes padded_record) {
    WipedText text;
    for (const FixedField& field : kLoadPrefix) {
        text += field.head;
        text += hex::text(padded_record.subspan(field.offset, field.length));
    }
    return text + record_text(fields, padded_record.subspan(kLoadPrefixSize), AfterNul::kBlank);
}

void read_load_records(const LogEntry& entry, int wanted, std::span<const Field> fields,
                       BoundedText& text) {
    commands::Response record;
    for (int number = 1; number <= wanted; ++number) {
        if (commands::read_record(static_cast<unsigned char>(number), entry.sfi, record) != 0 ||
            !text.append(load_record_text(fields, record.padded()))) {
            return;
        }
    }
}

int read_loads(HostText aid_text, int record_index, std::span<char> out) {
    BoundedText text(out);
    const session::Visit connection;
    if (connection.result() != 0) {
        return connection.result();
    }
    commands::Response fci;
    const auto aid = selection::aid_from_text(aid_text);
    if (const int result = selection::final_select(aid, fci); result != 0) {
        return result;
    }
    // The log can be read whatever the card makes of the options.
    const auto store = terminal_data::pack({});
    reading::Options options;
    reading::get_processing_options({fci.data()}, {store}, options);

    commands::Response format;
    if (commands::get_data(DataObject::kLoadLogFormat, format) != 0) {
        return QAVEN_NO_LOAD_LOG;
    }
    const auto fields = laid_out(kLoadFields, format.data());
    const auto entry = log_entry(kTagDF4DLoadLogEntry, fci.data(), kUsualLoadLog);
    if (!entry || record_index >= kFirstRefusedIndex) {
        return QAVEN_NO_LOAD_LOG;
    }
    read_load_records(*entry, records_wanted(record_index, *entry), fields, text);
    return 0;
}

} // namespace

} // namespace qaven::transaction_log

namespace transaction_log = qaven::transaction_log;
using qaven::host_buffer;

int ZEB_ICC_GetTxDetail(char* /*p1*/, char* /*p2*/, char* /*p3*/, char* /*p4*/, char* /*p5*/,
                        char* /*p6*/, char* /*p7*/, char* /*p8*/, char* /*p9*/, char* AID,
                        char* TxDetail, char* /*p12*/, char* ErrMsg) {
    return qaven::operation::run(static_cast<int>(QAVEN_ILLEGAL_DATA), [&] {
        return transaction_log::read_transactions(AID, host_buffer(TxDetail, QAVEN_TXDETAIL_SIZE),
                                                  host_buffer(ErrMsg, QAVEN_ERRMSG_SIZE));
    });
}

int ReadAmtLog(const char* aid, int recordIndex, char* out) {
    const int result = qaven::operation::run(static_cast<int>(QAVEN_ILLEGAL_DATA), [&] {
        return qaven::session::from_opening([&] {
            return transaction_log::read_loads(aid, recordIndex,
                                               host_buffer(out, QAVEN_TXDETAIL_SIZE));
        });
    });
    qm_closeicc();
    Qm_CloseDevice();
    return result;
}
