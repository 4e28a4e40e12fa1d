// Attaching by sysfs alone, without the usbip tool.
#include "virtual/plug/vhci.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>

namespace qaven::virtual_plug {
namespace {

// A port into which nothing is plugged. A port that a device has just left takes a moment to come
// back to this state.
constexpr std::string_view kStateFree = "004";

// The ports of the module's USB 2 hub; those of its USB 3 hub ("ss") take no full-speed device.
constexpr std::string_view kHubUsb2 = "hs";

} // namespace

std::optional<unsigned> free_port(std::string_view status) {
    std::istringstream lines{std::string(status)};
    for (std::string line; std::getline(lines, line);) {
        std::istringstream columns(line);
        std::string hub;
        std::string state;
        unsigned port = 0;
        if (columns >> hub >> port >> state && hub == kHubUsb2 && state == kStateFree) {
            return port;
        }
    }
    return std::nullopt;
}

Vhci::Attachment Vhci::attach(std::uint32_t device, virtual_usb::Speed speed) const {
    std::ifstream status(folder_ / "status");
    if (!status) {
        throw std::runtime_error("there is no " + folder_.string() +
                                 " on this machine: load the kernel module vhci-hcd");
    }
    const std::string text{std::istreambuf_iterator<char>(status), {}};
    const auto port = free_port(text);
    if (!port) {
        throw std::runtime_error("vhci-hcd has no free port");
    }
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        throw std::runtime_error(std::string("socketpair: ") + std::strerror(errno));
    }
    Attachment attachment{.port = *port, .stream = Fd(ends[0])};
    const Fd kernels_end(ends[1]); // the kernel keeps a reference of its own
    const std::string order = std::to_string(*port) + ' ' + std::to_string(kernels_end.get()) +
                              ' ' + std::to_string(device) + ' ' +
                              std::to_string(static_cast<unsigned>(speed));
    const std::filesystem::path file = folder_ / "attach";
    const Fd attach_file(::open(file.c_str(), O_WRONLY | O_CLOEXEC));
    if (!attach_file || ::write(attach_file.get(), order.data(), order.size()) < 0) {
        throw std::runtime_error("cannot attach through " + file.string() + ": " +
                                 std::strerror(errno));
    }
    return attachment;
}

} // namespace qaven::virtual_plug
