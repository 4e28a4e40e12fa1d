// Choosing one payment application: through the card's directory (PSE) or by a host's AID.
//
// Further list nodes and FCI copies are allocated with malloc and belong to the caller afterwards:
// free each fci, and each node but the head, with free.
#pragma once

#include "engine/card/commands.h"
#include "support/export.h"

#include <array>
#include <cstddef>
#include <functional>
#include <span>
#include <string_view>
#include <vector>

// One candidate application of the directory. The head node is the caller's, its aidlen 0.
struct alist {
    unsigned char aid[16];  // tag 4F, left-aligned
    unsigned char aidlen;   // valid bytes in aid
    unsigned char priority; // application priority indicator (tag 87), or 0
    alist* next;            // null at the end
};

// One application selected by AID. The head node is the caller's.
struct flist {
    unsigned char* fci;   // heap copy of the SELECT response
    unsigned char fcilen; // its length
    flist* next;          // null at the end
};

// Selects the directory by its DDF name (namelen bytes) and collects its applications into list.
// Returns the number of application entries seen; 0 when nothing could be selected. The head ends
// up with the first entry that carries a priority indicator, else with the last entry.
QAVEN_API int qmcx_PseAppSelect(unsigned char* name, unsigned char namelen, alist* list);

// The same walk from a directory's FCI (fcilen bytes) that the caller already holds.
QAVEN_API int qmcx_checkADF(unsigned char* fci, unsigned char fcilen, alist* list);

// Selects by AID (aidlen bytes); partial 1 lets the AID be a prefix of the card's DF name. Returns
// the number of applications stored in list, 0 for none.
QAVEN_API int qmcx_AidAppSelect(int partial, unsigned char* aid, unsigned char aidlen, flist* list);

// Final SELECT of the chosen AID. fciout: 256 bytes; *fcilenout: low byte of the length. 0, or the
// result of qmcx_SelectFile.
QAVEN_API int qmcx_FinalAppSelect(unsigned char* aid, unsigned char aidlen, unsigned char* fciout,
                                  unsigned char* fcilenout);

namespace qaven::selection {

inline constexpr std::array<unsigned char, 14> kPaymentSystemEnvironment{
    '1', 'P', 'A', 'Y', '.', 'S', 'Y', 'S', '.', 'D', 'D', 'F', '0', '1'};

constexpr std::size_t kMaxAid = 16;

// A host's AID text: empty, or beginning with 0, asks for selection through the directory.
bool through_directory(std::string_view aid_text);

// The bytes of a host's AID text; the count of half its characters is kept in one byte.
std::vector<unsigned char> aid_from_text(std::string_view aid_text);

// The head of a directory list; frees the further nodes.
class Candidates {
  public:
    Candidates() = default;
    ~Candidates();
    Candidates(const Candidates&) = delete;
    Candidates& operator=(const Candidates&) = delete;

    alist* head() { return &head_; }
    std::span<const unsigned char> aid() const;

    // A host's AID; what is longer than an AID can be is cut.
    void set_aid(std::span<const unsigned char> aid);

  private:
    alist head_{};
};

// The head of a list of selected applications; frees further nodes and FCI copies.
class Selected {
  public:
    Selected() = default;
    ~Selected();
    Selected(const Selected&) = delete;
    Selected& operator=(const Selected&) = delete;

    flist* head() { return &head_; }
    // The head's FCI. One whose length does not fit its byte is there as a whole.
    std::span<const unsigned char> fci() const;

  private:
    flist head_{};
};

// An application chosen by a host's AID text.
struct Choice {
    int count;  // applications that the directory or the AID gave
    int result; // 0, or the final selection's failure
    std::vector<unsigned char> aid;
    std::vector<unsigned char> fci;

    bool selected() const { return count >= 1 && result == 0; }
};

// Through the directory: the head candidate, finally selected. By AID: the first application that
// the AID, or a DF name that begins with it, selects.
Choice choose(std::string_view aid_text);

// SELECT by name with the given P2; a result as qmcx_SelectFile's and what it handed back.
using SelectByName = std::function<int(unsigned char p2, std::span<const unsigned char> name,
                                       commands::Response& response)>;

// qmcx_AidAppSelect over any way to send SELECT.
int select_by_aid(const SelectByName& select, int partial, std::span<const unsigned char> aid,
                  flist* list);

// qmcx_FinalAppSelect for the engine's own callers.
int final_select(std::span<const unsigned char> aid, commands::Response& fci);

} // namespace qaven::selection
