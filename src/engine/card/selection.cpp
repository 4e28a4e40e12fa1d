// The directory walk and the selection by AID.
#include "engine/card/selection.h"

#include "common/tags.h"
#include "engine/data/tlv.h"
#include "qaven/qaven.h"
#include "support/hex.h"
#include "support/operation.h"

#include <algorithm>
#include <cstdlib>
#include <new>
#include <vector>

namespace qaven::selection {

namespace {

using tlv::Bytes;

constexpr unsigned char kAdfName = 0x4F;
constexpr unsigned char kDdfName = 0x9D;

constexpr unsigned char kByName = 0x04;
constexpr unsigned char kFirstOrOnly = 0x00;
constexpr unsigned char kNextOccurrence = 0x02;

constexpr int kFileInvalidated = 0x6283;

constexpr std::size_t kMaxFci = 256;

constexpr int kMaxRecords = 254;

// Directories may name directories. Real ones nest once or twice; a card whose directories name
// each other would be walked for ever.
constexpr int kMaxDepth = 8;
constexpr int kMaxDirectories = 255;

constexpr int kMaxNextOccurrences = 255;

void free_chain(alist* node) {
    while (node != nullptr) {
        alist* const next = node->next;
        std::free(node);
        node = next;
    }
}

void set_next(alist* node, alist* next) {
    free_chain(node->next);
    node->next = next;
}

// What an entry may reach past the point where it was found: its head and one value.
constexpr std::size_t kReadAhead = 4 + 255;

// The records of a directory, each with zeros behind it that the scan may run into.
struct Directory {
    std::vector<WipedBytes> records;
    std::size_t scan_length = 0;
};

class DirectoryWalk {
  public:
    int select_and_walk(Bytes name, alist* node, int depth) {
        if (depth > kMaxDepth || ++directories_ > kMaxDirectories) {
            return 0;
        }
        commands::Response fci;
        if (commands::select_file(kByName, kFirstOrOnly, name, fci) != 0) {
            return 0;
        }
        return walk(fci.data(), node, depth);
    }

    int walk(Bytes fci, alist* node, int depth) {
        const auto at = tlv::find(kTag88Sfi, fci);
        // The SFI of a directory is one byte; the tag's own object must say so.
        const Bytes sfi = at ? tlv::clipped(fci, *at + kTag88Sfi.size(), 2) : Bytes();
        if (sfi.size() != 2 || sfi[0] != 1) {
            return 0;
        }
        int count = 0;
        const Directory directory = read_directory(sfi[1]);
        for (const auto& record : directory.records) {
            scan(record, directory.scan_length, node, depth, count);
        }
        set_next(node, nullptr);
        return count;
    }

  private:
    static Directory read_directory(unsigned char sfi) {
        Directory directory;
        commands::Response response;
        for (int number = 1; number <= kMaxRecords; ++number) {
            if (commands::read_record(static_cast<unsigned char>(number), sfi, response) != 0) {
                break;
            }
            directory.records.emplace_back(response.data().begin(), response.data().end());
            // Directory records of one file are of one size, so the last one's length, in one byte,
            // serves for all.
            directory.scan_length = static_cast<unsigned char>(response.data().size());
        }
        for (auto& record : directory.records) {
            record.resize(std::max(record.size(), directory.scan_length) + kReadAhead);
        }
        return directory;
    }

    // Goes through one record's entries. node is the list node in use at this directory level; a
    // directory named on the way fills it too, but does not move it.
    void scan(Bytes record, std::size_t scan_length, alist*& node, int depth, int& count) {
        std::size_t from = 0;
        while (const auto found =
                   tlv::find(kTag61ApplicationTemplate,
                             tlv::clipped(record.first(scan_length), from, scan_length))) {
            const std::size_t entry = from + *found;
            const std::size_t object = entry + 2;
            const std::size_t entry_length = record[entry + 1];
            const std::size_t value_length = record[object + 1];
            from = object;
            if (entry_length == 0 || value_length == 0) {
                continue;
            }
            const Bytes value = record.subspan(object + 2, value_length);
            if (record[object] == kAdfName) {
                take_application(value, record.subspan(object), entry_length, node);
                ++count;
            } else if (record[object] == kDdfName) {
                count += select_and_walk(value, node, depth + 1);
                // The search goes on at the name's length byte, so what the name itself spells can
                // be read as entries again.
                from = object + 1;
            }
        }
    }

    // entry begins with the AID's object and goes on to the end of the record; the priority
    // indicator is looked for within the entry's own length.
    static void take_application(Bytes aid, Bytes entry, std::size_t entry_length, alist*& node) {
        std::ranges::fill(node->aid, static_cast<unsigned char>(0));
        const Bytes taken = aid.first(std::min(aid.size(), kMaxAid));
        std::ranges::copy(taken, node->aid);
        node->aidlen = static_cast<unsigned char>(taken.size());

        const auto at = tlv::find(kTag87PriorityIndicator, entry.first(entry_length));
        // Behind a length there is a value, if only of the zeros that follow every record.
        const Bytes priority =
            at ? tlv::clipped(entry, *at + kTag87PriorityIndicator.size(), entry.size()) : Bytes();
        const auto length = tlv::read_length(priority, 0);
        if (!length || length.value == 0) {
            // Only entries with a priority indicator are kept as separate nodes: the next entry is
            // written over this one.
            node->priority = 0;
            return;
        }
        node->priority = priority[length.end];
        auto* const next = static_cast<alist*>(std::calloc(1, sizeof(alist)));
        if (next == nullptr) {
            throw std::bad_alloc();
        }
        set_next(node, next);
        node = next;
    }

    int directories_ = 0;
};

// Copies a response into the node as its FCI.
void store_fci(Bytes response, flist* node) {
    // A length of 0 may be 256: the copy has room for that, and zeros behind a shorter response.
    auto* const copy = static_cast<unsigned char*>(std::calloc(1, kMaxFci));
    if (copy == nullptr) {
        throw std::bad_alloc();
    }
    std::ranges::copy(tlv::clipped(response, 0, kMaxFci), copy);
    node->fci = copy;
    node->fcilen = static_cast<unsigned char>(response.size());
}

flist* append_node(flist* node) {
    auto* const next = static_cast<flist*>(std::calloc(1, sizeof(flist)));
    if (next == nullptr) {
        throw std::bad_alloc();
    }
    node->next = next;
    return next;
}

int collect_next_occurrences(const SelectByName& select, Bytes aid, flist* list) {
    flist* node = list;
    int count = 0;
    for (int repetition = 0; repetition < kMaxNextOccurrences; ++repetition) {
        commands::Response response;
        const int result = select(kNextOccurrence, aid, response);
        if (result != 0 && result != kFileInvalidated) {
            break;
        }
        if (result == 0) {
            store_fci(response.data(), node);
            node = append_node(node);
            ++count;
        }
    }
    return count;
}

} // namespace

bool through_directory(std::string_view aid_text) {
    return aid_text.empty() || aid_text.front() == '0';
}

std::vector<unsigned char> aid_from_text(std::string_view aid_text) {
    const std::size_t count = static_cast<unsigned char>(aid_text.size() / 2);
    const auto aid = hex::bytes_by<hex::low_bits>(aid_text.substr(0, 2 * count));
    return {aid.begin(), aid.end()};
}

Candidates::~Candidates() {
    free_chain(head_.next);
}

std::span<const unsigned char> Candidates::aid() const {
    return std::span(head_.aid).first(std::min<std::size_t>(head_.aidlen, kMaxAid));
}

void Candidates::set_aid(std::span<const unsigned char> aid) {
    const auto taken = aid.first(std::min(aid.size(), kMaxAid));
    std::ranges::copy(taken, head_.aid);
    head_.aidlen = static_cast<unsigned char>(taken.size());
}

std::span<const unsigned char> Selected::fci() const {
    if (head_.fci == nullptr) {
        return {};
    }
    return {head_.fci, head_.fcilen != 0 ? head_.fcilen : kMaxFci};
}

Selected::~Selected() {
    std::free(head_.fci);
    for (flist* node = head_.next; node != nullptr;) {
        flist* const next = node->next;
        std::free(node->fci);
        std::free(node);
        node = next;
    }
}

int select_by_aid(const SelectByName& select, int partial, std::span<const unsigned char> aid,
                  flist* list) {
    list->next = nullptr;
    commands::Response response;
    const int first = select(kFirstOrOnly, aid, response);
    if (first != 0 && first != kFileInvalidated) {
        return 0;
    }
    const auto at = tlv::find(kTag84DfName, response.data());
    const auto name =
        at ? tlv::read_length(response.data(), *at + kTag84DfName.size()) : tlv::Length{};
    if (name.value == 0 || aid.size() > name.value) {
        return 0;
    }
    if (aid.size() == name.value) {
        if (first == kFileInvalidated ||
            !std::ranges::equal(aid, tlv::clipped(response.data(), name.end, name.value))) {
            return 0;
        }
        store_fci(response.data(), list);
        return 1;
    }
    if (partial != 1) {
        return 0;
    }
    if (first == kFileInvalidated) {
        return collect_next_occurrences(select, aid, list);
    }
    // One match is enough: the card is not asked for further applications under this prefix.
    store_fci(response.data(), list);
    append_node(list);
    return 1;
}

namespace {

int select_by_name(unsigned char p2, Bytes name, commands::Response& response) {
    return commands::select_file(kByName, p2, name, response);
}

std::vector<unsigned char> copy_of(Bytes bytes) {
    return {bytes.begin(), bytes.end()};
}

Choice choose_through_directory() {
    Candidates candidates;
    const int count =
        DirectoryWalk().select_and_walk(kPaymentSystemEnvironment, candidates.head(), 1);
    if (count < 1) {
        return {count, 0, {}, {}};
    }
    commands::Response fci;
    const int result = final_select(candidates.aid(), fci);
    return {count, result, copy_of(candidates.aid()), copy_of(fci.data())};
}

Choice choose_by_aid(std::string_view aid_text) {
    Candidates candidates;
    candidates.set_aid(aid_from_text(aid_text));
    const auto aid = copy_of(candidates.aid());
    Selected selected;
    const int count = select_by_aid(select_by_name, 1, aid, selected.head());
    return {count, 0, aid, copy_of(selected.fci())};
}

} // namespace

Choice choose(std::string_view aid_text) {
    return through_directory(aid_text) ? choose_through_directory() : choose_by_aid(aid_text);
}

int final_select(std::span<const unsigned char> aid, commands::Response& fci) {
    return commands::select_file(kByName, kFirstOrOnly, aid, fci);
}

} // namespace qaven::selection

namespace commands = qaven::commands;
namespace selection = qaven::selection;

int qmcx_PseAppSelect(unsigned char* name, unsigned char namelen, alist* list) {
    list->next = nullptr;
    return qaven::operation::locked(0, [&] {
        selection::DirectoryWalk walk;
        return walk.select_and_walk(std::span(name, namelen), list, 1);
    });
}

int qmcx_checkADF(unsigned char* fci, unsigned char fcilen, alist* list) {
    list->next = nullptr;
    return qaven::operation::locked(0, [&] {
        selection::DirectoryWalk walk;
        return walk.walk(std::span(fci, fcilen), list, 1);
    });
}

int qmcx_AidAppSelect(int partial, unsigned char* aid, unsigned char aidlen, flist* list) {
    return qaven::operation::locked(0, [&] {
        return selection::select_by_aid(selection::select_by_name, partial, std::span(aid, aidlen),
                                        list);
    });
}

int qmcx_FinalAppSelect(unsigned char* aid, unsigned char aidlen, unsigned char* fciout,
                        unsigned char* fcilenout) {
    return qaven::operation::locked(static_cast<int>(QAVEN_ILLEGAL_DATA), [&] {
        commands::Response fci;
        const int result = selection::final_select(std::span(aid, aidlen), fci);
        if (result == 0) {
            std::ranges::copy(fci.data(), fciout);
            *fcilenout = static_cast<unsigned char>(fci.data().size());
        }
        return result;
    });
}
