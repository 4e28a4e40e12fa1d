// The few calls of the PC/SC interface that a card program needs.
#include "pcsc.h"

#include "measures.h"

#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <thread>

namespace qaven::bench {
namespace {

using namespace std::chrono_literals;

// As PC/SC has them on Linux.
using Long = long;
using Dword = unsigned long;

constexpr Dword scope_system = 2;
constexpr Dword share_exclusive = 1;
constexpr Dword protocol_t0 = 1;
constexpr Dword unpower_card = 2;
constexpr std::size_t longest_response = 258;
constexpr std::size_t longest_text = 1024;

struct ProtocolHeader {
    Dword protocol = protocol_t0;
    Dword length = sizeof(ProtocolHeader);
};

constexpr auto patience = 20s;

void* client_library() {
    static void* const library = dlopen("libpcsclite.so.1", RTLD_NOW);
    if (library == nullptr) {
        throw std::runtime_error(dlerror());
    }
    return library;
}

void* client_function(const char* name) {
    void* const function = dlsym(client_library(), name);
    if (function == nullptr) {
        throw std::runtime_error(dlerror());
    }
    return function;
}

template <typename... Parameters>
class Call {
  public:
    explicit Call(const char* name)
        : function_(reinterpret_cast<Long (*)(Parameters...)>(client_function(name))), name_(name) {
    }

    Long result(Parameters... arguments) const { return function_(arguments...); }

    void operator()(Parameters... arguments) const {
        if (const Long failure = function_(arguments...); failure != 0) {
            throw std::runtime_error(name_ + " failed with " + std::to_string(failure));
        }
    }

  private:
    Long (*function_)(Parameters...);
    std::string name_;
};

struct Calls {
    Call<Dword, const void*, const void*, Long*> establish_context{"SCardEstablishContext"};
    Call<Long> release_context{"SCardReleaseContext"};
    Call<Long, const char*, char*, Dword*> list_readers{"SCardListReaders"};
    Call<Long, const char*, Dword, Dword, Long*, Dword*> connect{"SCardConnect"};
    Call<Long, char*, Dword*, Dword*, Dword*, unsigned char*, Dword*> status{"SCardStatus"};
    Call<Long, Dword> disconnect{"SCardDisconnect"};
    Call<Long, const ProtocolHeader*, const unsigned char*, Dword, ProtocolHeader*, unsigned char*,
         Dword*>
        transmit{"SCardTransmit"};
};

const Calls& calls() {
    static const Calls all;
    return all;
}

template <typename Condition>
void wait_for(const char* what, const Condition& condition) {
    const auto until = Clock::now() + patience;
    while (!condition()) {
        if (Clock::now() > until) {
            throw std::runtime_error(std::string("pcscd: ") + what);
        }
        std::this_thread::sleep_for(20ms);
    }
}

} // namespace

Pcscd::Pcscd() : process_(fork()) {
    if (process_ == 0) {
        execlp("pcscd", "pcscd", "--foreground", static_cast<char*>(nullptr));
        _exit(EXIT_FAILURE);
    }
}

Pcscd::~Pcscd() {
    kill(process_, SIGTERM);
    waitpid(process_, nullptr, 0);
}

PcscHost::PcscHost() : response_(longest_response) {
    wait_for("there is no service", [this] {
        return calls().establish_context.result(scope_system, nullptr, nullptr, &context_) == 0;
    });
    wait_for("there is no reader with a card", [this] {
        const auto all = readers();
        const auto found = std::ranges::find_if(
            all, [this](const std::string& reader) { return try_to_connect(reader) == 0; });
        if (found == all.end()) {
            return false;
        }
        reader_ = *found;
        disconnect();
        return true;
    });
}

PcscHost::~PcscHost() {
    calls().release_context.result(context_);
}

std::vector<std::string> PcscHost::readers() const {
    std::array<char, longest_text> text{};
    Dword size = text.size();
    std::vector<std::string> names;
    if (calls().list_readers.result(context_, nullptr, text.data(), &size) == 0) {
        // One behind the other, each with its zero; an empty one ends them.
        for (std::size_t at = 0; text.at(at) != '\0'; at += names.back().size() + 1) {
            names.emplace_back(&text.at(at));
        }
    }
    return names;
}

long PcscHost::try_to_connect(const std::string& reader) {
    Dword protocol = 0;
    return calls().connect.result(context_, reader.c_str(), share_exclusive, protocol_t0, &card_,
                                  &protocol);
}

void PcscHost::connect() {
    if (const long failure = try_to_connect(reader_); failure != 0) {
        throw std::runtime_error("SCardConnect failed with " + std::to_string(failure));
    }
}

void PcscHost::status() const {
    std::array<char, longest_text> name{};
    std::array<unsigned char, longest_text> answer_to_reset{};
    Dword name_size = name.size();
    Dword answer_size = answer_to_reset.size();
    Dword state = 0;
    Dword protocol = 0;
    calls().status(card_, name.data(), &name_size, &state, &protocol, answer_to_reset.data(),
                   &answer_size);
}

void PcscHost::disconnect() const {
    calls().disconnect(card_, unpower_card);
}

std::span<const std::uint8_t> PcscHost::transmit(std::span<const std::uint8_t> command) {
    static const ProtocolHeader header;
    Dword size = response_.size();
    calls().transmit(card_, &header, command.data(), command.size(), nullptr, response_.data(),
                     &size);
    return std::span(response_).first(size);
}

} // namespace qaven::bench
