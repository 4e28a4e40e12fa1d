// The sentences.
#include "tools/qaven/diagnosis.h"

#include "tools/emv/hex.h"
#include "tools/qaven/cli/terminal.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace qaven::cli {

using namespace emv;

namespace {

std::string octal(unsigned mode) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%04o", mode);
    return text.data();
}

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : ", ") + word;
    }
    return text;
}

std::string slot_name(std::size_t at) {
    return "slot " + std::to_string(kCardInterfaces.at(at));
}

Finding judge_slot(const std::string& name, const Slot& slot) {
    switch (slot.state) {
    case SlotState::kEmpty:
        return {Verdict::kNote, name + " is empty"};
    case SlotState::kSilent:
        return {Verdict::kProblem, name + ": the reader does not answer",
                "unplug the reader, plug it in again, and try another port if it stays silent",
                kFailed};
    case SlotState::kOutOfStep:
        return {Verdict::kProblem, name + " is out of step: its answers belong to earlier commands",
                "unplug the reader and plug it in again", kFailed};
    case SlotState::kCard:
        break;
    }
    if (slot.atr.empty()) {
        return {Verdict::kProblem, name + " holds a card that does not answer to reset",
                "turn the card round, chip first and upwards; clean its contacts; try another card",
                kFailed};
    }
    return {Verdict::kOk, name + " holds a card, which answers " + hex(slot.atr)};
}

Finding judge_leftover(const std::string& name, Leftover leftover) {
    return {Verdict::kNote, name + " was out of step: it still had an answer to a command of an " +
                                "earlier program. That is put right" +
                                (leftover == Leftover::kReset ? ", by a reset of the reader" : "")};
}

// Names of other users' programs are theirs to choose.
std::string advice_against(const std::vector<std::string>& programs) {
    if (programs.empty()) {
        return "end it; pcscd and other host programs come into question. As root,\n"
               "'qaven doctor' sees the processes of all users";
    }
    const bool started_on_demand = std::ranges::any_of(
        programs, [](const std::string& program) { return program.starts_with("pcscd "); });
    return "end " + printable(joined(programs)) +
           (started_on_demand
                ? ";\nsystemd starts pcscd again for the next program that asks for it:\n"
                  "systemctl stop pcscd.socket pcscd.service"
                : "");
}

Finding judge_interface(const ReaderKind& kind, const Interface& interface,
                        const std::vector<std::string>& programs) {
    const std::string name =
        "interface " + std::to_string(interface.number) + " of the " + kind.name;
    switch (interface.holder) {
    case Holder::kDriver:
        return {Verdict::kNote,
                name + " has a driver of the kernel; the library takes it from the driver"};
    case Holder::kProgram:
        return {Verdict::kProblem, name + " is held by another program", advice_against(programs),
                kNoReader};
    case Holder::kNobody:
    case Holder::kUnknown:
        break;
    }
    return {Verdict::kProblem, name + " cannot be had: " + libusb_strerror(interface.error),
            "unplug the reader and plug it in again", kNoReader};
}

} // namespace

Finding judge_library(const std::string& version, int libusb_error) {
    if (libusb_error != 0) {
        return {Verdict::kProblem,
                "libusb " + version + " cannot start: " + libusb_strerror(libusb_error),
                "most often there is no USB bus here: hand /dev/bus/usb to the container, or the\n"
                "reader to the virtual machine",
                kNoReader};
    }
    return {Verdict::kOk, "libusb " + version};
}

Finding judge_presence(const ReaderKind& kind, const std::vector<Reader>& readers) {
    const std::string name = std::string(kind.name) + " (" + kind.identifiers + ")";
    if (readers.size() > 1) {
        return {Verdict::kNote, std::to_string(readers.size()) + " readers of one kind, " + name +
                                    "; the first is used, at " + readers.front().node()};
    }
    if (readers.size() == 1) {
        return {Verdict::kOk, name + " at " + readers.front().node()};
    }
    if (&kind == &kIdentityCardReader) {
        return {Verdict::kNote, "no " + name + " on the bus; only 'qaven idcard' needs one"};
    }
    return {Verdict::kProblem, "no " + name + " on the bus",
            "plug it in, or try another cable and port; 'lsusb -d 2f7a:' lists what the kernel\n"
            "sees. Without a reader: qaven-virtual-reader run -- qaven doctor",
            kNoReader};
}

Finding judge_access(const ReaderKind& kind, const Reader& reader, const Permissions& permissions) {
    const std::string name(kind.name);
    if (reader.access == Access::kOpen) {
        return {Verdict::kOk, "this user may open the " + name};
    }
    if (reader.access == Access::kFailed) {
        return {Verdict::kProblem,
                "the " + name + " cannot be opened: " + libusb_strerror(reader.error),
                "unplug the reader and plug it in again", kNoReader};
    }
    Finding finding{Verdict::kProblem, "this user may not open the " + name, {}, kNoReader};
    if (permissions.mode != 0) {
        finding.sentence += ": " + permissions.node + " belongs to " + permissions.owner + ":" +
                            permissions.group + ", mode " + octal(permissions.mode);
    }
    constexpr unsigned group_may_write = 0020;
    if (!permissions.rule) {
        finding.advice = "install the udev rule 70-qaven.rules and plug the reader in again";
    } else if ((permissions.mode & group_may_write) != 0 && !permissions.in_group &&
               permissions.group != "root") {
        finding.advice = "join the group " + permissions.group +
                         ", or work at the machine itself:\n" +
                         "the udev rule admits the user who is logged in there";
    } else {
        finding.advice =
            "the udev rule admits the user who is logged in at the machine, not one who\n"
            "came over the network; plug the reader in again if the rule is newer";
    }
    return finding;
}

std::vector<Finding> judge_interfaces(const ReaderKind& kind, const Reader& reader,
                                      const std::vector<std::string>& programs) {
    std::vector<Finding> findings;
    for (const Interface& interface : reader.interfaces) {
        if (interface.holder != Holder::kNobody) {
            findings.push_back(judge_interface(kind, interface, programs));
        }
    }
    if (findings.empty() && !reader.interfaces.empty()) {
        findings.push_back({Verdict::kOk, std::string("nobody else has the ") + kind.name});
    }
    return findings;
}

std::vector<Finding> judge_slots(const std::vector<Slot>& slots) {
    std::vector<Finding> findings;
    for (std::size_t i = 0; i < slots.size(); ++i) {
        if (slots[i].leftover != Leftover::kNone && slots[i].state != SlotState::kOutOfStep) {
            findings.push_back(judge_leftover(slot_name(i), slots[i].leftover));
        }
        findings.push_back(judge_slot(slot_name(i), slots[i]));
    }
    const bool empty = std::ranges::all_of(
        slots, [](const Slot& slot) { return slot.state == SlotState::kEmpty; });
    if (empty) {
        findings.push_back({Verdict::kProblem, "no card in the reader",
                            "put one in, chip first and upwards, until it stops", kNoCard});
    }
    return findings;
}

} // namespace qaven::cli
