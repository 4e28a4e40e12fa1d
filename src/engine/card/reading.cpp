// GET PROCESSING OPTIONS with the PDOL answered, and the walk over the AFL.
#include "engine/card/reading.h"

#include "common/tags.h"
#include "engine/card/commands.h"
#include "engine/data/application_data.h"
#include "engine/data/dol.h"
#include "engine/data/tlv_writer.h"
#include "qaven/qaven.h"
#include "support/operation.h"

#include <algorithm>

const unsigned char qmcx_appdatatag[12] = {0x8C, 0x5A, 0x5F, 0x34, 0x8D, 0x5F,
                                           0x20, 0x9F, 0x62, 0x9F, 0x61, 0x57};

namespace qaven::reading {

namespace {

using tlv::Bytes;

constexpr std::size_t kMaxPdolData = 253;

constexpr int kFormat2NotTaken = -1;

// Writes the command data: the PDOL's value string in its template.
int write_command_data(const tlv::HostBuffer& fci, const tlv::HostBuffer& terminal_data,
                       tlv::Writer& command) {
    std::array<unsigned char, kMaxPdolData> values{};
    std::size_t length = 0;
    std::array<unsigned char, 256> pdol{};
    if (const auto pdol_length = tlv::extract(kTag9F38Pdol, fci.bytes, pdol, fci.extent)) {
        const auto built = dol::build(terminal_data.bytes, std::span(pdol).first(*pdol_length),
                                      values, terminal_data.extent);
        if (built.result != 0) {
            return built.result;
        }
        length = built.length;
    }
    command.append(kTag83CommandTemplate, std::span(values).first(length));
    return 0;
}

void take_aip(Bytes response, std::size_t offset, Options& options) {
    std::ranges::copy(tlv::clipped(response, offset, options.aip.size()), options.aip.begin());
    options.aip_present = true;
}

int parse_response(Bytes response, Options& options) {
    if (const auto format1 = tlv::find(kTag80ResponseFormat1, response)) {
        const auto length = tlv::read_length(response, *format1 + kTag80ResponseFormat1.size());
        if (!length || length.value < options.aip.size()) {
            return QAVEN_EMPTY_DATA;
        }
        take_aip(response, length.end, options);
        const Bytes afl = tlv::clipped(response, length.end + options.aip.size(),
                                       length.value - options.aip.size());
        options.afl.assign(afl.begin(), afl.end());
        return 0;
    }
    const auto aip = tlv::find(kTag82Aip, response);
    if (!aip) {
        return QAVEN_EMPTY_DATA;
    }
    // Format 2 is not taken; an AIP too short to be one is handed out all the same.
    const auto length = tlv::read_length(response, *aip + kTag82Aip.size());
    if (length && length.value < options.aip.size()) {
        take_aip(response, length.end, options);
    }
    return kFormat2NotTaken;
}

// The AFL's first byte is the SFI shifted left by three, and that shifted value is what is
// compared: only SFI 1 gives its template's value, the records of all other files go whole.
constexpr unsigned char kLastValueOnlySfi = 10;

constexpr unsigned char kLowestSfi = 8;
constexpr unsigned char kHighestSfi = 240;

// What of a record enters the offline authentication data. The record's zeroed area goes on behind
// it, so a length that runs past the record gives zeros as far as that area goes.
Bytes authentication_part(Bytes padded_record, std::size_t record_length, bool value_only) {
    const auto at = tlv::find(kTag70RecordTemplate, padded_record.first(record_length));
    if (!at) {
        return {};
    }
    const std::size_t field = *at + kTag70RecordTemplate.size();
    const auto length = tlv::read_length(padded_record.first(record_length), field);
    if (!length) {
        return {};
    }
    if (!value_only) {
        return tlv::clipped(padded_record, *at, length.end + length.value - *at);
    }
    // Behind a length of the form 81 LL the copy starts one byte late.
    const std::size_t value = padded_record[field] == tlv::kOneByteLength ? field + 3 : length.end;
    return tlv::clipped(padded_record, value, length.value);
}

// A reader that fails command after command will not be back for this card's next record.
class FailuresInARow {
  public:
    // Counts a result; a refusal by the card is none of the transport's failures.
    void count(int result) {
        const bool transport = result < 0 && result != QAVEN_ILLEGAL_DATA;
        number_ = transport ? number_ + 1 : 0;
    }
    bool too_many() const { return number_ >= kMost; }

  private:
    static constexpr int kMost = 3;
    int number_ = 0;
};

void read_entry(std::span<const unsigned char, 4> entry, ApplicationData& data,
                FailuresInARow& failures) {
    const unsigned char shifted_sfi = entry[0];
    if (shifted_sfi < kLowestSfi || shifted_sfi > kHighestSfi) {
        return;
    }
    int authenticated = 0;
    commands::Response record;
    for (int number = entry[1]; number <= entry[2] && !failures.too_many(); ++number) {
        const auto sfi = static_cast<unsigned char>(shifted_sfi >> 3U);
        const int result = commands::read_record(static_cast<unsigned char>(number), sfi, record);
        failures.count(result);
        if (result < 0) {
            data.note_lost_record();
        }
        if (result != 0) {
            continue;
        }
        data.append(record.data());
        if (authenticated < entry[3]) {
            ++authenticated;
            data.append_authentication_data(authentication_part(
                record.padded(), record.data().size(), shifted_sfi <= kLastValueOnlySfi));
        }
    }
}

} // namespace

int get_processing_options(const tlv::HostBuffer& fci, const tlv::HostBuffer& terminal_data,
                           Options& options) {
    options = Options{};
    std::array<std::uint8_t, 2 + kMaxPdolData> place{};
    tlv::Writer command(place);
    if (const int failure = write_command_data(fci, terminal_data, command); failure != 0) {
        return failure;
    }
    commands::Response response;
    if (const int failure = commands::get_processing_options(command.written(), response);
        failure != 0) {
        return failure;
    }
    return parse_response(response.data(), options);
}

std::vector<tlv::Bytes> ApplicationData::records() const {
    std::vector<Bytes> records;
    std::size_t start = 0;
    for (const std::size_t end : record_ends_) {
        records.push_back(Bytes(bytes_).subspan(start, end - start));
        start = end;
    }
    return records;
}

void ApplicationData::append(tlv::Bytes record) {
    full_ = full_ || record.size() > application_data::kMaxSize - bytes_.size();
    if (full_) {
        return;
    }
    bytes_.insert(bytes_.end(), record.begin(), record.end());
    record_ends_.push_back(bytes_.size());
}

void ApplicationData::append_authentication_data(tlv::Bytes data) {
    const Bytes taken =
        data.first(std::min(data.size(), kMaxAuthenticationData - authentication_.size()));
    authentication_.insert(authentication_.end(), taken.begin(), taken.end());
}

ApplicationData read_records(tlv::Bytes afl) {
    ApplicationData data;
    FailuresInARow failures;
    for (std::size_t at = 0; at + 4 <= afl.size(); at += 4) {
        read_entry(afl.subspan(at).first<4>(), data, failures);
    }
    return data;
}

} // namespace qaven::reading

namespace reading = qaven::reading;

int qmcx_GetProcOptions(unsigned char* fci, unsigned char fcilen, unsigned char* termdata,
                        int termdatalen, unsigned char* aip, unsigned char* aiplen,
                        unsigned char* afl, unsigned char* afllen) {
    *aiplen = 0;
    return qaven::operation::locked(static_cast<int>(QAVEN_EMPTY_DATA), [&] {
        reading::Options options;
        const int result = reading::get_processing_options(
            qaven::tlv::host_buffer(fci, fcilen), qaven::tlv::host_buffer(termdata, termdatalen),
            options);
        if (options.aip_present) {
            std::ranges::copy(options.aip, aip);
            *aiplen = static_cast<unsigned char>(options.aip.size());
        }
        if (result == 0) {
            std::ranges::copy(options.afl, afl);
            *afllen = static_cast<unsigned char>(options.afl.size());
        }
        return result;
    });
}

int qmcx_GetAppData(unsigned char* afl, unsigned char afllen, unsigned char* /*taglist*/,
                    unsigned char /*taglistlen*/, unsigned char* appdata, int* appdatalen,
                    unsigned char* sdadata, int* sdadatalen) {
    *appdatalen = 0;
    *sdadatalen = 0;
    return qaven::operation::locked(0, [&] {
        const auto data = reading::read_records(qaven::tlv::Bytes(afl, afllen));
        std::ranges::copy(data.bytes(), appdata);
        *appdatalen = static_cast<int>(data.bytes().size());
        std::ranges::copy(data.authentication_data(), sdadata);
        *sdadatalen = static_cast<int>(data.authentication_data().size());
        return 0;
    });
}
