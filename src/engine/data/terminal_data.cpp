// Packing the terminal data store, and the globals that the cryptogram steps read back.
#include "engine/data/terminal_data.h"

#include "common/tags.h"
#include "engine/data/tlv_writer.h"
#include "support/gbk_text.h"
#include "support/local_time.h"
#include "support/operation.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <optional>

unsigned char YYMMDD[5];
unsigned char HHMMSS[5];
unsigned char gRnd[9];

namespace qaven::terminal_data {

namespace {

using tlv::Bytes;

constexpr std::size_t kScratchSize = 128;
constexpr std::size_t kMerchantLength = 20;

// The scratch that a letter's value is copied into. It is cleared before the merchant name and the
// algorithm indicator only: a value shorter than its object is followed by what the letter before
// it left there.
class Scratch {
  public:
    explicit Scratch(Bytes converted) : converted_(converted) {}

    // The value's length, or nothing when the letter is not there.
    std::optional<std::size_t> look_up(char letter) {
        const std::array tag{static_cast<unsigned char>(letter)};
        return tlv::extract(tag, converted_, bytes_, tlv::Extent::kZeroTerminated);
    }

    void clear() { bytes_.fill(0); }

    Bytes first(std::size_t count) const { return Bytes(bytes_).first(count); }
    Bytes from(std::size_t offset, std::size_t count) const {
        return Bytes(bytes_).subspan(offset, count);
    }

  private:
    Bytes converted_;
    std::array<unsigned char, kScratchSize> bytes_{};
};

// The store, and room for what a merchant name longer than its object leaves behind it.
using StoreArea = std::array<unsigned char, kStoreSize + kScratchSize - kMerchantLength>;

constexpr std::size_t kDateLength = 3;
constexpr std::size_t kTimeLength = 3;
constexpr std::size_t kRandomLength = 4;
constexpr std::size_t kLongDateLength = 4; // YYYYMMDD; its century byte is skipped
constexpr std::size_t kBehindMerchant = 5; // the last object and the zero byte

constexpr std::array<unsigned char, 4> kQualifiers{0xF4, 0x00, 0x00, 0x00};
constexpr std::array<unsigned char, 1> kVlpSupported{0x01};
constexpr std::array<unsigned char, 6> kVlpLimit{0x00, 0x00, 0x01, 0x00, 0x00, 0x00};
constexpr std::array<unsigned char, 1> kDefaultTypeValue{kDefaultType};
constexpr std::array<unsigned char, 1> kSmAlgorithm{0x01};

Bytes value_or(Scratch& scratch, char letter, Bytes otherwise) {
    return scratch.look_up(letter) ? scratch.first(otherwise.size()) : otherwise;
}

void set_date(Scratch& scratch) {
    std::ranges::fill(YYMMDD, static_cast<std::uint8_t>(0));
    if (const auto length = scratch.look_up('S')) {
        const std::size_t from = *length == kLongDateLength ? 1 : 0;
        std::ranges::copy(scratch.from(from, kDateLength), YYMMDD);
        return;
    }
    std::ranges::copy(local_time::date(), YYMMDD);
}

void set_time(Scratch& scratch) {
    if (scratch.look_up('U')) {
        std::ranges::copy(scratch.first(kTimeLength), HHMMSS);
        return;
    }
    const auto now = local_time::date_and_time();
    std::ranges::copy(std::span(now).last<kTimeLength>(), HHMMSS);
}

// The number is as unpredictable as the second it is drawn in: the generator is seeded anew each
// time.
void set_random() {
    std::srand(static_cast<unsigned int>(std::time(nullptr)));
    for (unsigned char& byte : std::span(gRnd).first<kRandomLength>()) {
        byte = static_cast<unsigned char>(std::rand() % 256);
    }
}

// 9F4E, zero-filled to its length. A longer name is copied whole, and the objects behind it are
// written over its excess. Gives how many bytes are too many.
std::size_t append_merchant(Scratch& scratch, tlv::Writer& writer) {
    scratch.clear();
    const auto length = scratch.look_up('V');
    if (!length) {
        std::array<std::uint8_t, kMerchantLength> name{};
        std::ranges::copy(std::string_view(gbk::kExampleMerchantName), name.begin());
        writer.append(kTag9F4EMerchantName, name);
        return 0;
    }
    writer.append(kTag9F4EMerchantName, scratch.first(kMerchantLength));
    return std::max(*length, kMerchantLength) - kMerchantLength;
}

struct Packed {
    StoreArea area{};
    std::size_t reach; // bytes of the area that were written
};

Packed pack_area(Bytes converted) {
    Packed packed{};
    Scratch scratch(converted);
    tlv::Writer writer(packed.area);
    writer.append(kTag9F02AmountAuthorised, value_or(scratch, 'P', kNoAmount));
    writer.append(kTag9F03AmountOther, value_or(scratch, 'Q', kNoAmount));
    writer.append(kTag9F1ATerminalCountryCode, kCountryCode);
    writer.append(kTag95Tvr, kTvr);
    writer.append(kTag5F2ACurrencyCode, value_or(scratch, 'R', kCurrencyCode));
    writer.append(kTag9CTransactionType, value_or(scratch, 'T', kDefaultTypeValue));
    set_date(scratch);
    writer.append(kTag9ATransactionDate, transaction_date());
    set_time(scratch);
    writer.append(kTag9F21TransactionTime, Bytes(HHMMSS).first(kTimeLength));
    set_random();
    writer.append(kTag9F37UnpredictableNumber, unpredictable_number());
    writer.append(kTag9F66TerminalTransactionQualifiers, kQualifiers);
    writer.append(kTag9F7AVlpSupport, kVlpSupported);
    writer.append(kTag9F7BVlpLimit, kVlpLimit);
    const std::size_t excess = append_merchant(scratch, writer);
    const auto behind_merchant = std::span(packed.area).subspan(writer.written().size());
    std::ranges::copy(scratch.from(kMerchantLength, excess), behind_merchant.begin());
    scratch.clear();
    writer.append(kTagDF69SmAlgorithm, value_or(scratch, 'Z', kSmAlgorithm));
    packed.area[writer.written().size()] = 0; // ends the list
    packed.reach = std::max(kStoreSize, kStoreSize - kBehindMerchant + excess);
    return packed;
}

} // namespace

Store pack(tlv::Bytes converted) {
    Store store{};
    std::ranges::copy(Bytes(pack_area(converted).area).first(kStoreSize), store.begin());
    return store;
}

Bytes transaction_date() {
    return Bytes(YYMMDD).first(kDateLength);
}

Bytes unpredictable_number() {
    return Bytes(gRnd).first(kRandomLength);
}

bool letter_value(char letter, tlv::Bytes converted, std::span<unsigned char> out) {
    const std::array tag{static_cast<unsigned char>(letter)};
    std::array<unsigned char, 256> value{};
    if (!tlv::extract(tag, converted, value, tlv::Extent::kZeroTerminated)) {
        return false;
    }
    std::ranges::copy(Bytes(value).first(std::min(out.size(), value.size())), out.begin());
    return true;
}

} // namespace qaven::terminal_data

int Qm_PackGpoData(unsigned char* store, const unsigned char* txConverted) {
    namespace tlv = qaven::tlv;
    // The date, the time and the random number that it leaves are the process's.
    const qaven::operation::Lock lock;
    const auto packed = qaven::terminal_data::pack_area(tlv::Bytes(txConverted, tlv::kUnknownSize));
    std::ranges::copy(tlv::Bytes(packed.area).first(packed.reach), store);
    return static_cast<int>(qaven::terminal_data::kStoreSize);
}
