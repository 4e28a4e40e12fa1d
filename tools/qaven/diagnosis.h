// What the doctor makes of what it sees: a finding is a sentence, and what to do about it.
#pragma once

#include "tools/qaven/bus.h"
#include "tools/qaven/cli/exit_status.h"
#include "tools/qaven/slots.h"

#include <optional>
#include <string>
#include <vector>

namespace qaven::cli {

enum class Verdict {
    kOk,
    kNote,    // worth knowing, in nobody's way
    kProblem, // has to be seen to
};

struct Finding {
    Verdict verdict;
    std::string sentence;
    std::string advice = {};   // what to do; may be empty
    ExitStatus status = kFine; // the command's, when it is a problem
};

// What stands between a user and a device node.
struct Permissions {
    std::string node;
    std::string owner;
    std::string group;
    unsigned mode = 0;     // the permission bits; 0 when the node cannot be looked at
    bool rule = false;     // the udev rule of this package is installed
    bool in_group = false; // the user belongs to the node's group
};

Finding judge_library(const std::string& version, int libusb_error);
Finding judge_presence(const ReaderKind& kind, const std::vector<Reader>& readers);
Finding judge_access(const ReaderKind& kind, const Reader& reader, const Permissions& permissions);

// Who has the interfaces of a reader; one finding when nobody has any. Programs: those seen to hold
// its node, "name (process 123)".
std::vector<Finding> judge_interfaces(const ReaderKind& kind, const Reader& reader,
                                      const std::vector<std::string>& programs);

// The slots in the order in which the library looks into them.
std::vector<Finding> judge_slots(const std::vector<Slot>& slots);

} // namespace qaven::cli
