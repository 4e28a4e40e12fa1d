// qaven doctor: looks at everything between this program and a card, from the bottom up.
#include "tools/qaven/cli/options.h"
#include "tools/qaven/cli/terminal.h"
#include "tools/qaven/cli/verbs.h"
#include "tools/qaven/diagnosis.h"
#include "tools/qaven/processes.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>

namespace qaven::cli {

namespace {

namespace fs = std::filesystem;

Syntax syntax() {
    return {"doctor",
            "",
            "Looks at everything between this program and a card: libusb, the readers on the bus,\n"
            "whether this user may open them, who else holds them, the slots and the card. Each\n"
            "line is OK, a note or a problem, and says what to do about a problem.",
            {},
            "exit status: 0 no problem, 3 no bank-card reader that could be used, 4 no card,\n"
            "1 anything else, for example a card that does not answer"};
}

constexpr std::array kRuleFolders{"/etc/udev/rules.d", "/run/udev/rules.d",
                                  "/usr/local/lib/udev/rules.d", "/usr/lib/udev/rules.d",
                                  "/lib/udev/rules.d"};

bool rule_installed() {
    return std::ranges::any_of(kRuleFolders, [](const char* folder) {
        std::error_code ignored;
        return fs::exists(fs::path(folder) / "70-qaven.rules", ignored);
    });
}

bool in_group(gid_t group) {
    std::array<gid_t, 1024> groups{};
    const int count = getgroups(static_cast<int>(groups.size()), groups.data());
    const auto end = groups.begin() + std::max(count, 0);
    return getegid() == group || std::find(groups.begin(), end, group) != end;
}

Permissions permissions_of(const std::string& node) {
    Permissions permissions;
    permissions.node = node;
    permissions.rule = rule_installed();
    struct stat status {};
    if (stat(node.c_str(), &status) != 0) {
        return permissions;
    }
    const passwd* const owner = getpwuid(status.st_uid);
    const group* const group = getgrgid(status.st_gid);
    permissions.owner = owner != nullptr ? owner->pw_name : std::to_string(status.st_uid);
    permissions.group = group != nullptr ? group->gr_name : std::to_string(status.st_gid);
    permissions.mode = status.st_mode & 07777U;
    permissions.in_group = in_group(status.st_gid);
    return permissions;
}

// Prints each finding and keeps the status of the first problem.
class Report {
  public:
    void add(const Finding& finding) {
        switch (finding.verdict) {
        case Verdict::kOk:
            print_line(Colour::kGreen, "OK", finding);
            break;
        case Verdict::kNote:
            print_line(Colour::kYellow, "note", finding);
            break;
        case Verdict::kProblem:
            print_line(Colour::kRed, "problem", finding);
            status_ = status_ == kFine ? finding.status : status_;
            break;
        }
    }

    ExitStatus status() const { return status_; }

  private:
    static void print_line(Colour colour, std::string_view word, const Finding& finding) {
        constexpr std::size_t width = 9;
        const std::string margin(width, ' ');
        const std::string padding(width - word.size(), ' ');
        std::printf("%s%s%s\n", coloured(colour, word).c_str(), padding.c_str(),
                    finding.sentence.c_str());
        if (finding.advice.empty()) {
            return;
        }
        std::string advice = margin + "-> ";
        for (const char character : finding.advice) {
            advice += character;
            advice += character == '\n' ? margin + "   " : "";
        }
        std::puts(advice.c_str());
    }

    ExitStatus status_ = kFine;
};

// True when the library can work with the first reader of this kind.
bool examine_reader(const Bus& bus, const ReaderKind& kind, Report& report) {
    const std::vector<Reader> readers = bus.readers(kind);
    report.add(judge_presence(kind, readers));
    if (readers.empty()) {
        return false;
    }
    const Reader& reader = readers.front();
    report.add(judge_access(kind, reader, permissions_of(reader.node())));
    bool usable = reader.access == Access::kOpen;
    for (const Finding& finding : judge_interfaces(kind, reader, programs_at(reader.node()))) {
        report.add(finding);
        usable = usable && finding.verdict != Verdict::kProblem;
    }
    return usable;
}

std::string version_of_libusb() {
    const libusb_version* const version = libusb_get_version();
    return std::to_string(version->major) + "." + std::to_string(version->minor) + "." +
           std::to_string(version->micro);
}

void examine(Report& report) {
    bool usable = false;
    {
        const Bus bus;
        const Finding library = judge_library(version_of_libusb(), bus.error());
        report.add(library);
        if (library.verdict == Verdict::kProblem) {
            return;
        }
        usable = examine_reader(bus, kCardReader, report);
        examine_reader(bus, kIdentityCardReader, report);
    }
    if (!usable) {
        return;
    }
    std::vector<Slot> slots;
    for (const int interface : kCardReader.interfaces) {
        slots.push_back(query_slot(interface, SlotQuery::kAtr));
    }
    for (const Finding& finding : judge_slots(slots)) {
        report.add(finding);
    }
}

} // namespace

int doctor_command(Arguments arguments) {
    if (!read_options(syntax(), arguments)) {
        return kFine;
    }
    Report report;
    examine(report);
    return report.status();
}

} // namespace qaven::cli
