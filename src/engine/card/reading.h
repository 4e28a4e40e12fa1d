// GET PROCESSING OPTIONS, and the records that the card's AFL names.
#pragma once

#include "engine/data/tlv.h"
#include "support/export.h"
#include "support/wiped.h"

#include <array>
#include <cstddef>
#include <vector>

// The tags that an application must hold; consulted by no operation.
QAVEN_API extern const unsigned char qmcx_appdatatag[12];

// Initiates the transaction: answers the PDOL of the FCI (fcilen bytes, 0 for a zero-terminated
// one, such as one of 256 bytes) from the terminal data store (termdatalen bytes, 0 likewise). aip:
// 2 bytes, *aiplen 2 on success, else 0; afl: 254 bytes, *afllen what the response holds of it. 0;
// -204 or -205 when the PDOL cannot be answered; the result of the command; -205 for a response
// without options; -1 for a response of format 2, which is not taken, though one whose AIP object
// has less than 2 bytes gives aip the 2 bytes behind its length, and *aiplen 2.
QAVEN_API int qmcx_GetProcOptions(unsigned char* fci, unsigned char fcilen, unsigned char* termdata,
                                  int termdatalen, unsigned char* aip, unsigned char* aiplen,
                                  unsigned char* afl, unsigned char* afllen);

// Reads every record that afl (afllen bytes) names; a record that cannot be read is skipped.
// appdata: 8000 bytes, the records one after the other; sdadata: 256 bytes, the data for offline
// authentication. taglist is not consulted. Always 0.
QAVEN_API int qmcx_GetAppData(unsigned char* afl, unsigned char afllen, unsigned char* taglist,
                              unsigned char taglistlen, unsigned char* appdata, int* appdatalen,
                              unsigned char* sdadata, int* sdadatalen);

namespace qaven::reading {

// Application interchange profile and application file locator.
struct Options {
    std::array<unsigned char, 2> aip{};
    bool aip_present = false;
    std::vector<unsigned char> afl;
};

// qmcx_GetProcOptions for the engine's own callers.
int get_processing_options(const tlv::HostBuffer& fci, const tlv::HostBuffer& terminal_data,
                           Options& options);

constexpr std::size_t kMaxAuthenticationData = 256;

// What the AFL's records hold.
class ApplicationData {
  public:
    tlv::Bytes bytes() const { return bytes_; }
    tlv::Bytes authentication_data() const { return authentication_; }

    // Each record whole, in reading order.
    std::vector<tlv::Bytes> records() const;

    // A record was lost on its way: what the card says is not all here.
    bool incomplete() const { return incomplete_; }
    void note_lost_record() { incomplete_ = true; }

    // A record that would pass the limit is not taken, nor any after it.
    void append(tlv::Bytes record);
    void append_authentication_data(tlv::Bytes data);

  private:
    WipedBytes bytes_;
    std::vector<std::size_t> record_ends_;
    WipedBytes authentication_;
    bool full_ = false;
    bool incomplete_ = false;
};

// Reads every record that the AFL names.
ApplicationData read_records(tlv::Bytes afl);

} // namespace qaven::reading
