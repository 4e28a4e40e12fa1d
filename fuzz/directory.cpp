// Feeds FCIs and directory records to the selection of an application: the walk through the
// card's directories, the selection by AID and the final selection.
// Input: the steps (one chunk), then what a Wire in card mode takes.
#include "engine/card/selection.h"
#include "support/demand.h"
#include "support/guarded.h"
#include "support/wire.h"

#include <array>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using qaven::fuzz::Bytes;
using qaven::fuzz::demand;
using qaven::fuzz::Guarded;
using qaven::fuzz::Input;
using qaven::fuzz::Wire;
namespace selection = qaven::selection;

unsigned char size_of(const Bytes& bytes) {
    return static_cast<unsigned char>(bytes.size());
}

void check(const selection::Candidates& candidates, const alist* head, int count) {
    demand(count >= 0, "a count");
    int nodes = 0;
    for (const alist* node = head; node != nullptr; node = node->next) {
        demand(node->aidlen <= selection::kMaxAid, "an AID has 16 bytes at most");
        ++nodes;
    }
    demand(nodes <= count + 1, "no more nodes than entries, and the one to be filled next");
    demand(candidates.aid().size() <= selection::kMaxAid, "an AID has 16 bytes at most");
}

void walk_by_name(Input& script) {
    auto environment = selection::kPaymentSystemEnvironment;
    Bytes name = Input::exact(script.chunk());
    if (name.empty()) {
        name.assign(environment.begin(), environment.end());
    }
    selection::Candidates candidates;
    const int count = qmcx_PseAppSelect(name.data(), size_of(name), candidates.head());
    check(candidates, candidates.head(), count);
}

void walk_from_fci(Input& script) {
    Bytes fci = Input::exact(script.chunk());
    selection::Candidates candidates;
    check(candidates, candidates.head(),
          qmcx_checkADF(fci.data(), size_of(fci), candidates.head()));
}

void check_copies(const flist* head, int count) {
    int copies = 0;
    for (const flist* node = head; node != nullptr; node = node->next) {
        copies += node->fci != nullptr ? 1 : 0;
    }
    demand(copies == count, "one FCI for each application");
}

void by_aid(Input& script) {
    const int partial = static_cast<int>(script.below(3));
    Bytes aid = Input::exact(script.chunk());
    selection::Selected selected;
    const int count = qmcx_AidAppSelect(partial, aid.data(), size_of(aid), selected.head());
    check_copies(selected.head(), count);
}

// The selection by AID over answers that the exchange would have followed up: a card that calls its
// first match invalidated is asked for the next ones.
void by_aid_from_script(Input& script) {
    const int partial = static_cast<int>(script.below(3));
    const Bytes aid = Input::exact(script.chunk());
    const auto select = [&script](unsigned char /*p2*/, std::span<const unsigned char> /*name*/,
                                  qaven::commands::Response& response) {
        constexpr std::array kResults{0, 0x6283, 0x6A82, -7};
        if (script.empty()) {
            return kResults.back();
        }
        const int result = kResults[script.below(kResults.size())];
        response.assign(script.chunk());
        return result;
    };
    selection::Selected selected;
    check_copies(selected.head(), selection::select_by_aid(select, partial, aid, selected.head()));
}

void finally(Input& script) {
    Bytes aid = Input::exact(script.chunk());
    Guarded<unsigned char, 256> fci;
    unsigned char length = 0;
    qmcx_FinalAppSelect(aid.data(), size_of(aid), fci.data(), &length);
}

void choose(Input& script) {
    const auto text = Input::text(script.chunk());
    const auto choice = selection::choose(text.data());
    demand(choice.aid.size() <= selection::kMaxAid, "an AID has 16 bytes at most");
    demand(choice.fci.size() <= 256, "an FCI is a short response");
}

void run(Input& script) {
    switch (script.below(6)) {
    case 0:
        walk_by_name(script);
        break;
    case 1:
        walk_from_fci(script);
        break;
    case 2:
        by_aid(script);
        break;
    case 3:
        finally(script);
        break;
    case 5:
        by_aid_from_script(script);
        break;
    default:
        choose(script);
        break;
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    Input script(input.long_chunk());
    Wire wire(input, Wire::Mode::kCard);
    wire.connect();
    while (!script.empty()) {
        wire.next_operation();
        run(script);
    }
    wire.disconnect();
    return 0;
}
