// Walking, completing and converting the transaction data string.
#include "engine/data/transaction_data.h"

#include "support/decimal.h"
#include "support/hex.h"
#include "support/host_text.h"
#include "support/local_time.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>

namespace qaven::transaction_data {

namespace {

constexpr std::size_t kLengthDigits = 3;
constexpr std::size_t kRecordHead = 1 + kLengthDigits;
constexpr std::size_t kHoldingArea = 128;

constexpr std::size_t kMaxNumber = 31;

int number(std::string_view digits) {
    std::array<char, kMaxNumber + 1> text{};
    std::ranges::copy(digits.substr(0, kMaxNumber), text.begin());
    return decimal(text.data());
}

struct Record {
    std::size_t offset; // of the letter in the text
    char letter;
    std::string_view value; // cut where the text ends
};

// Goes through the records of a text.
class RecordReader {
  public:
    explicit RecordReader(std::string_view text) : text_(text) {}

    std::optional<Record> next() {
        if (text_.size() - at_ < kRecordHead) {
            return std::nullopt;
        }
        const std::string_view record = text_.substr(at_);
        const int declared = number(record.substr(1, kLengthDigits));
        const auto value =
            record.substr(kRecordHead, static_cast<std::size_t>(std::max(declared, 0)));
        const Record found{at_, record[0], value};
        at_ += kRecordHead + value.size();
        return found;
    }

  private:
    std::string_view text_;
    std::size_t at_ = 0;
};

std::optional<Record> find_record(std::string_view text, char letter) {
    RecordReader reader(text);
    while (auto record = reader.next()) {
        if (record->letter == letter) {
            return record;
        }
    }
    return std::nullopt;
}

// The latest value of one letter, zeros behind it.
class HoldingArea {
  public:
    void take(std::string_view value) {
        bytes_.fill('\0');
        std::ranges::copy(value.substr(0, kHoldingArea - 1), bytes_.begin());
        seen_ = true;
    }

    bool seen() const { return seen_; }

    std::string_view characters(std::size_t from, std::size_t count) const {
        return std::string_view(bytes_.data(), bytes_.size()).substr(from, count);
    }

  private:
    std::array<char, kHoldingArea> bytes_{};
    bool seen_ = false;
};

// Appends records to a host's buffer. What is written is limited by the records' own sizes.
class RecordWriter {
  public:
    explicit RecordWriter(std::span<char> out) : out_(out) {}

    void append(std::string_view text) {
        std::ranges::copy(text, out_.subspan(size_).begin());
        size_ += text.size();
    }

    void append_record(char letter, std::string_view value) {
        std::array<char, kRecordHead + 1> head{};
        // A value's length has three digits at most; a longer one cannot be declared.
        std::snprintf(head.data(), head.size(), "%c%03d", letter,
                      static_cast<int>(value.size() % 1000));
        head[0] = letter;
        append({head.data(), kRecordHead});
        append(value);
    }

    void go_to(std::size_t position) { size_ = position; }
    std::size_t size() const { return size_; }

  private:
    std::span<char> out_;
    std::size_t size_ = 0;
};

constexpr std::size_t kDateLength = 6;
constexpr std::size_t kTimeLength = 6;
constexpr std::size_t kMerchantLength = 20;
constexpr const char* kTimeFormat = "%H%M%S";

// The amounts reach the card by the host's own text, so the completed one carries zeros.
constexpr std::string_view kFixedStart = "P012000000000000Q012000000000000R0040156";
constexpr std::string_view kNoDate = "000000";
constexpr std::string_view kFixedType = "T00233";
constexpr std::string_view kNoMerchant = "00000000000000000000";

// How an odd trailing digit is converted.
enum class OddDigit {
    kLeavesByte, // its byte is counted but not written
    kDropped,    // together with its byte
};

std::size_t convert_records(std::string_view text, std::span<unsigned char> out,
                            OddDigit odd_digit) {
    std::size_t written = 0;
    RecordReader reader(text);
    while (const auto record = reader.next()) {
        const bool raw = record->letter == 'V';
        const std::size_t characters = record->value.size();
        const std::size_t pairs = characters / 2;
        const std::size_t packed =
            odd_digit == OddDigit::kLeavesByte ? pairs + characters % 2 : pairs;
        const std::size_t length = raw ? characters : packed;
        if (out.size() - written < 2 + length) {
            break;
        }
        out[written] = static_cast<unsigned char>(record->letter);
        out[written + 1] = static_cast<unsigned char>(length);
        const auto value = out.subspan(written + 2, length);
        if (raw) {
            std::ranges::copy(record->value, value.begin());
        } else {
            for (std::size_t k = 0; k < pairs; ++k) {
                value[k] = hex::byte_of<hex::else_upper_case>(
                    static_cast<std::uint8_t>(record->value[2 * k]),
                    static_cast<std::uint8_t>(record->value[2 * k + 1]));
            }
        }
        written += 2 + length;
    }
    return written;
}

int convert_host_text(unsigned char* out, const unsigned char* in, OddDigit odd_digit) {
    const std::string_view text = HostText(in);
    // A record's four leading characters become two bytes and its value never grows, so the text's
    // own size bounds what is written.
    return static_cast<int>(convert_records(text, std::span(out, text.size()), odd_digit));
}

// Width of a record in the normalised form.
std::size_t normalised_width(char letter, std::size_t found_length, std::size_t previous) {
    switch (letter) {
    case 'P':
    case 'Q':
        return 12;
    case 'R':
        return 4;
    case 'S':
        return 8;
    case 'T':
        return 2;
    case 'U':
        return 6;
    case 'V':
        return found_length;
    default:
        return previous;
    }
}

// Puts the value at the end of a field of zeros; what does not fit loses its leading characters.
void append_normalised(RecordWriter& writer, char letter, std::string_view value,
                       std::size_t width) {
    std::array<char, 1000> field{};
    const auto characters = std::span(field).first(std::min(width, field.size() - 1));
    std::ranges::fill(characters, '0');
    const std::size_t kept = std::min(value.size(), characters.size());
    std::ranges::copy(value.substr(value.size() - kept), characters.last(kept).begin());
    writer.append_record(letter, {characters.data(), characters.size()});
}

// The zero behind the letters is normalised too, as a letter of its own.
constexpr std::array kNormalisedLetters{'P', 'Q', 'R', 'S', 'T', 'U', 'V', '\0'};
constexpr std::size_t kTypeResetPosition = 2;
constexpr std::string_view kDefaultType = "33";

// A merchant name of 999 characters makes the last two records as long.
constexpr std::size_t kNormalisedBuffer = 2200;

void normalise(std::string_view text, std::span<char> out) {
    RecordWriter writer(out);
    std::size_t width = 0;
    for (const char letter : kNormalisedLetters) {
        const auto record = find_record(text, letter);
        const auto value = record ? record->value : std::string_view();
        width = normalised_width(letter, value.size(), width);
        if (letter == 'T' && !record) {
            // A missing type takes the writing position back to the start of the text.
            writer.go_to(kTypeResetPosition);
            writer.append(kDefaultType);
            writer.go_to(kTypeResetPosition);
            width = 0;
        }
        append_normalised(writer, letter, value, width);
    }
    out[writer.size()] = '\0';
}

} // namespace

void complete(std::string_view text, std::span<char> out, DateFrom date_from) {
    HoldingArea date;
    HoldingArea time;
    HoldingArea merchant;
    RecordReader reader(text);
    while (const auto record = reader.next()) {
        switch (record->letter) {
        case 'S':
            date.take(record->value);
            break;
        case 'U':
            time.take(record->value);
            break;
        case 'V':
            merchant.take(record->value);
            break;
        default:
            break;
        }
    }

    RecordWriter writer(out);
    writer.append(kFixedStart);
    writer.append_record(
        'S',
        date.seen() ? date.characters(static_cast<std::size_t>(date_from), kDateLength) : kNoDate);
    writer.append(kFixedType);
    if (time.seen()) {
        writer.append_record('U', time.characters(0, kTimeLength));
    } else {
        writer.append_record('U', {local_time::text(kTimeFormat).data(), kTimeLength});
    }
    writer.append_record('V',
                         merchant.seen() ? merchant.characters(0, kMerchantLength) : kNoMerchant);
    if (!merchant.seen()) {
        // The terminator stands one byte behind the record's end, and only here: callers hand in a
        // zeroed buffer.
        out[writer.size() + 1] = 0;
    }
}

std::size_t convert(std::string_view text, std::span<unsigned char> out) {
    return convert_records(text, out, OddDigit::kLeavesByte);
}

} // namespace qaven::transaction_data

namespace transaction_data = qaven::transaction_data;
using qaven::HostText;

namespace {

int complete_for_host(const unsigned char* in, unsigned char* out,
                      transaction_data::DateFrom date_from) {
    const std::span completed(reinterpret_cast<char*>(out), transaction_data::kCompletedBuffer);
    transaction_data::complete(HostText(in), completed, date_from);
    return 0;
}

} // namespace

void GetTime(unsigned char* out) {
    const auto now = qaven::local_time::text(transaction_data::kTimeFormat);
    std::copy_n(now.begin(), 8, out);
}

int getLen(const char* p, int n) {
    const auto count = static_cast<std::size_t>(std::max(n, 0));
    return transaction_data::number({p, std::min(count, transaction_data::kMaxNumber)});
}

const char* getTag(const char* data, int dataLen, char letter, int* valueLen) {
    if (data == nullptr || dataLen <= 0) {
        return nullptr;
    }
    const auto record =
        transaction_data::find_record({data, static_cast<std::size_t>(dataLen)}, letter);
    if (!record) {
        return nullptr;
    }
    if (valueLen != nullptr) {
        *valueLen = static_cast<int>(record->value.size());
    }
    return data + record->offset;
}

int parseTxData(const char* in, char* out) {
    transaction_data::normalise(HostText(in), std::span(out, transaction_data::kNormalisedBuffer));
    return 0;
}

int GetTransData(unsigned char* in, unsigned char* out) {
    return complete_for_host(in, out, transaction_data::DateFrom::kBehindCentury);
}

int ARPCGetTransData(unsigned char* in, unsigned char* out) {
    return complete_for_host(in, out, transaction_data::DateFrom::kFirstCharacter);
}

int Qm_ConvertTxData2BCD(unsigned char* out, unsigned char* in) {
    return transaction_data::convert_host_text(out, in, transaction_data::OddDigit::kLeavesByte);
}

int oldQm_ConvertTxData2BCD(unsigned char* out, unsigned char* in) {
    return transaction_data::convert_host_text(out, in, transaction_data::OddDigit::kDropped);
}
