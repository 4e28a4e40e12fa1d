// Reading a card: selection, GET PROCESSING OPTIONS, all records, and the two texts a host gets of
// them.
#pragma once

#include "engine/card/reading.h"
#include "engine/card/session.h"
#include "engine/data/tlv.h"
#include "support/export.h"
#include "support/wiped.h"

#include <optional>
#include <span>
#include <string_view>

// Appends the tag bytes of each of the count letters to tagsout (2 bytes for each letter); other
// characters add nothing. Returns the number of bytes written.
QAVEN_API int Qm_ConvertFlag(const char* letters, int count, unsigned char* tagsout);

// Reads the card. Only these of the fifteen texts are used:
//
// TagList   in: letters of the wanted fields
// AID       in: hex text; empty or beginning with 0 selects through the card's directory
// UserInfo  out, 2048 bytes: letter, three-digit length, value for each wanted field
// IcData    out, 4096 bytes: six decimal digits giving a byte count, then the application data in
//           hex: AID (4F), AIP (82), the records
// ErrMsg    out, 19 bytes: the GBK description of a failure
//
// 0; -1 no card in either slot; -23 the AID selects no single application; 0 with ErrMsg written
// when the card has no directory; else the failing step's code. The card is powered off and the
// reader closed after success.
QAVEN_API int ZEB_ICC_GetInfo(char* p0, char* p1, char* p2, char* p3, char* p4, char* p5, char* p6,
                              char* p7, char* p8, char* TagList, char* AID, char* UserInfo,
                              char* p12, char* IcData, char* ErrMsg);

namespace qaven::card_info {

struct Request {
    std::string_view tag_list;
    std::string_view aid;
};

// The host's buffers of ZEB_ICC_GetInfo.
struct Outputs {
    std::span<char> user_info;
    std::span<char> ic_data;
    std::span<char> err_msg;
};

// While one lives, every reading has to find the card that the first one found; a reading of
// another card number (5A) or track 2 (57) ends the connection and fails with QAVEN_NO_CARD: the
// card that was read is gone. One at a time.
class OneCard {
  public:
    OneCard();
    ~OneCard();
    OneCard(const OneCard&) = delete;
    OneCard& operator=(const OneCard&) = delete;

    // Whether these records are of that card. A reading may lack the record with the number, or the
    // one with track 2; track 2 has the number too. A reading with neither is taken for that card's
    // only if no record of either reading was lost on its way.
    bool has(const reading::ApplicationData& data);

  private:
    struct Identity {
        std::optional<WipedBytes> number; // 5A
        std::optional<WipedBytes> track2; // 57
        bool incomplete;

        bool operator==(const Identity& other) const;
        std::optional<WipedText> digits() const;
    };

    std::optional<Identity> first_;
};

// ZEB_ICC_GetInfo, with a say in what becomes of the connection after success.
int read_card(const Request& request, const Outputs& outputs, session::AtSuccess at_success);

} // namespace qaven::card_info
