// A host that is killed in the middle of a transaction: at its Nth bulk transfer, while it waits
// for the reader. A slow card makes it wait.
//
// usage: qaven-mortal-host N      ends by SIGKILL; with 0 when the transaction has fewer transfers
#include "host.h"
#include "issuer_desk.h"

#include <dlfcn.h>
#include <libusb.h>

#include <charconv>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <span>
#include <string_view>

namespace {

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): counted inside the library
unsigned transfers_left = 0;

// Time enough for the kernel to have the transfer, and less than the card takes to answer.
constexpr long kNanosecondsToLive = 1'500'000;

void die_soon() {
    timer_t timer{};
    sigevent kill{};
    kill.sigev_notify = SIGEV_SIGNAL;
    kill.sigev_signo = SIGKILL;
    itimerspec soon{};
    soon.it_value.tv_nsec = kNanosecondsToLive;
    if (timer_create(CLOCK_MONOTONIC, &kill, &timer) != 0 ||
        timer_settime(timer, 0, &soon, nullptr) != 0) {
        std::abort();
    }
}

} // namespace

// The library's transfers come by here.
extern "C" int LIBUSB_CALL libusb_bulk_transfer(libusb_device_handle* dev_handle,
                                                unsigned char endpoint, unsigned char* data,
                                                int length, int* actual_length,
                                                unsigned int timeout) {
    using Transfer = decltype(&libusb_bulk_transfer);
    static const auto transfer =
        reinterpret_cast<Transfer>(dlsym(RTLD_NEXT, "libusb_bulk_transfer"));
    if (transfers_left > 0 && --transfers_left == 0) {
        die_soon();
    }
    return transfer(dev_handle, endpoint, data, length, actual_length, timeout);
}

int main(int argc, char** argv) {
    using namespace qaven::test;
    const std::span<char* const> arguments(argv, static_cast<std::size_t>(argc));
    const std::string_view number = arguments.size() == 2 ? arguments[1] : "";
    const auto [end, error] =
        std::from_chars(number.data(), number.data() + number.size(), transfers_left);
    if (number.empty() || error != std::errc{} || end != number.data() + number.size()) {
        std::cerr << "usage: qaven-mortal-host N\n";
        return 2;
    }
    const IssuerDesk issuer;
    const auto arqc = read_and_generate().arqc;
    if (!issuer.arqc(arqc.field55).verified) {
        std::cerr << "no ARQC\n";
        return EXIT_FAILURE;
    }
    if (!issuer.tc(hand_over(arqc, issuer.answer(arqc.field55)).tc).verified) {
        std::cerr << "no TC\n";
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
