// A host at pcscd: starts it, reads the card's directory so many times over, and ends it. A slow
// card's answers must not keep the CCID driver waiting until it gives up.
//
// usage: qaven-e2e-pcsc-host TIMES
#include "pcsc.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <span>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

const Bytes& select_directory() {
    static const Bytes command{0x00, 0xA4, 0x04, 0x00, 0x0E, '1', 'P', 'A', 'Y', '.',
                               'S',  'Y',  'S',  '.',  'D',  'D', 'F', '0', '1', 0x00};
    return command;
}

const Bytes& read_first_record() {
    static const Bytes command{0x00, 0xB2, 0x01, 0x0C, 0x00};
    return command;
}

bool succeeds(std::span<const std::uint8_t> response) {
    return response.size() > 2 && response[response.size() - 2] == 0x90 && response.back() == 0x00;
}

} // namespace

int main(int argc, char** argv) {
    const std::span<char* const> arguments(argv, static_cast<std::size_t>(argc));
    if (arguments.size() != 2) {
        std::fputs("usage: qaven-e2e-pcsc-host TIMES\n", stderr);
        return 2;
    }
    try {
        const qaven::bench::Pcscd service;
        qaven::bench::PcscHost host;
        host.connect();
        for (int left = std::stoi(arguments[1]); left > 0; --left) {
            for (const Bytes& command : {select_directory(), read_first_record()}) {
                if (!succeeds(host.transmit(command))) {
                    std::printf("the card refused, %d times before the end\n", left);
                    return EXIT_FAILURE;
                }
            }
        }
        host.disconnect();
    } catch (const std::exception& error) {
        std::printf("%s\n", error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
