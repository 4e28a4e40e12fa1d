// Waits for hosts, commands and signals at once.
#include "virtual/plug/usbip_command.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace qaven::virtual_plug {
namespace {

using virtual_usb::Clock;

// The bank-card reader's, where there is one.
constexpr const char* kFirstBusId = "1-1";

constexpr std::size_t kLongestLine = 4096;

constexpr int kWaitingHosts = 8;

void print_line(const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

std::system_error failure(const std::string& what) {
    return {errno, std::generic_category(), what};
}

Fd listen_at(const ListenAddress& address) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
    addrinfo* found = nullptr;
    const int error =
        getaddrinfo(address.host.c_str(), std::to_string(address.port).c_str(), &hints, &found);
    if (error == EAI_NONAME) {
        throw UsageError("--listen needs a numeric IP address, such as 127.0.0.1 or [::1], not '" +
                         address.host + "'");
    }
    if (error != 0) {
        throw std::runtime_error("cannot listen at " + address.host + ": " + gai_strerror(error));
    }
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, &freeaddrinfo);
    Fd listener(::socket(found->ai_family, found->ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    if (!listener || setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        bind(listener.get(), found->ai_addr, found->ai_addrlen) != 0 ||
        listen(listener.get(), kWaitingHosts) != 0) {
        throw failure("cannot listen at " + address.host + " port " + std::to_string(address.port));
    }
    return listener;
}

unsigned port_of(const Fd& listener) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (getsockname(listener.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        throw failure("getsockname");
    }
    return ntohs(address.ss_family == AF_INET6
                     ? reinterpret_cast<const sockaddr_in6&>(address).sin6_port
                     : reinterpret_cast<const sockaddr_in&>(address).sin_port);
}

void accept_host(UsbipServer& server, const Fd& listener) {
    Fd stream(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (stream) {
        // Replies are small and each one is waited for.
        const int on = 1;
        setsockopt(stream.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        server.accept(std::move(stream));
    }
}

// The signals that end the program, as something to read.
Fd termination() {
    sigset_t set{};
    sigemptyset(&set);
    for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
        sigaddset(&set, signal);
    }
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    std::signal(SIGPIPE, SIG_IGN); // whoever read our lines may go away
    Fd signals(signalfd(-1, &set, SFD_CLOEXEC));
    if (!signals) {
        throw failure("signalfd");
    }
    return signals;
}

// Standard input, line by line.
class Lines {
  public:
    // Reads what is there; returns the lines that are complete now.
    std::vector<std::string> read() {
        std::array<char, kLongestLine> bytes{};
        const auto count = ::read(STDIN_FILENO, bytes.data(), bytes.size());
        if (count <= 0) {
            open_ = count < 0 && (errno == EINTR || errno == EAGAIN);
            return {};
        }
        text_.append(bytes.data(), static_cast<std::size_t>(count));
        std::vector<std::string> lines;
        for (auto end = text_.find('\n'); end != std::string::npos; end = text_.find('\n')) {
            lines.push_back(text_.substr(0, end));
            text_.erase(0, end + 1);
        }
        if (text_.size() > kLongestLine) {
            text_.clear();
        }
        return lines;
    }

    // Without a user at standard input the readers stay where they are.
    [[nodiscard]] bool open() const { return open_; }

  private:
    std::string text_;
    bool open_ = true;
};

void wait(std::vector<pollfd>& events, std::optional<virtual_usb::TimePoint> until) {
    timespec timeout{};
    if (until) {
        const auto left = std::max(*until - Clock::now(), Clock::duration::zero());
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
        timeout.tv_sec = seconds.count();
        timeout.tv_nsec = std::chrono::nanoseconds(left - seconds).count();
    }
    if (ppoll(events.data(), events.size(), until ? &timeout : nullptr, nullptr) < 0) {
        for (auto& event : events) {
            event.revents = 0;
        }
    }
}

void loop(UsbipServer& server, ControlCommands& commands, const Fd& listener, const Fd& signals) {
    Lines lines;
    while (!commands.quitting()) {
        // A negative number is none to poll.
        std::vector<pollfd> events{
            {.fd = signals.get(), .events = POLLIN, .revents = 0},
            {.fd = lines.open() ? STDIN_FILENO : -1, .events = POLLIN, .revents = 0},
            {.fd = listener.get(), .events = POLLIN, .revents = 0}};
        server.add_to(events);
        wait(events, server.wake());
        if (events[0].revents != 0) {
            return;
        }
        if (events[1].revents != 0) {
            for (const auto& line : lines.read()) {
                std::ranges::for_each(commands.execute(line), print_line);
            }
        }
        if (events[2].revents != 0) {
            accept_host(server, listener);
        }
        server.serve(Clock::now());
    }
}

} // namespace

std::vector<std::string> ControlCommands::execute(std::string_view line) {
    std::istringstream text{std::string(line)};
    std::vector<std::string> words;
    for (std::string word; text >> word;) {
        words.push_back(word);
    }
    try {
        auto output = dispatch(words);
        output.emplace_back("ok");
        return output;
    } catch (const std::exception& error) {
        return {std::string("error: ") + error.what()};
    }
}

std::vector<std::string> ControlCommands::dispatch(const std::vector<std::string>& words) {
    const std::string verb = words.empty() ? "" : words[0];
    const std::string what = words.size() > 1 ? words[1] : "";
    const std::string bus_id = words.size() > 1 ? words[1] : kFirstBusId;
    if (words.size() <= 2 && verb == "plug") {
        server_.plug(bus_id);
    } else if (words.size() <= 2 && verb == "unplug") {
        server_.unplug(bus_id);
    } else if (words.size() == 2 && verb == "card" && (what == "in" || what == "out")) {
        move_card(what == "in");
    } else if (words.size() == 2 && verb == "fault") {
        server_.add_fault(kFirstBusId, virtual_usb::parse_fault(what));
    } else if (words.size() == 1 && verb == "status") {
        return server_.status();
    } else if (words.size() == 1 && verb == "quit") {
        quitting_ = true;
    } else {
        throw std::runtime_error(
            "unknown command; try plug [BUSID], unplug [BUSID], card in, card out, "
            "fault after=N:KIND, status or quit");
    }
    return {};
}

void ControlCommands::move_card(bool in) {
    if (devices_.card() == nullptr) {
        throw std::runtime_error("there is no card");
    }
    virtual_reader::Reader& reader = *devices_.reader();
    if (reader.card_present(slot_) == in) {
        throw std::runtime_error(in ? "the card is already in" : "the card is already out");
    }
    if (in) {
        reader.insert_card(slot_, *devices_.card());
    } else {
        reader.remove_card(slot_);
    }
}

int serve_usbip(const Options& options, const DeviceFactory& factory) {
    // Transfers are answered by waking up; the default slack of 50 microseconds would come on top.
    prctl(PR_SET_TIMERSLACK, 1);
    const Fd signals = termination();
    DeviceSet devices(options, factory);
    UsbipServer::Settings settings;
    if (options.attach) {
        settings.vhci.emplace();
    }
    settings.capture = devices.capture();
    settings.replug_after = options.replug_after;
    UsbipServer server(std::move(settings));
    if (devices.reader() != nullptr) {
        server.add(*devices.reader(), options.faults);
    }
    if (devices.second_reader() != nullptr) {
        server.add(*devices.second_reader());
    }
    if (devices.idcard_reader() != nullptr) {
        server.add(*devices.idcard_reader());
    }
    server.plug_all();

    Fd listener;
    if (!options.attach) {
        listener = listen_at(options.listen);
        print_line("listening at " + options.listen.host + " port " +
                   std::to_string(port_of(listener)));
    }
    std::ranges::for_each(server.status(), print_line);
    ControlCommands commands(server, devices, options.slot);
    loop(server, commands, listener, signals);
    devices.save();
    return EXIT_SUCCESS;
}

} // namespace qaven::virtual_plug
