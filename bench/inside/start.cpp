// A host that loads the library, reads the card with an ARQC and ends: what it took. Prints one
// line: milliseconds of dlopen, milliseconds from dlopen to the answer, peak kilobytes of the
// process before dlopen and at the end.
//
// usage: qaven-bench-start LIBRARY     under the virtual reader's launcher
#include "qaven/qaven.h"

#include <dlfcn.h>
#include <sys/resource.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace {

using Clock = std::chrono::steady_clock;

long peak_kilobytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-union-access): the C library's declaration of it
    return usage.ru_maxrss;
}

double milliseconds_since(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

constexpr const char* kRequest =
    R"({"TagList":"|A|B|E|J","AIDList":"|A000000333010101",)"
    R"("aryInput":"P012000000001213Q012000000000000R0040156S00820190422T00203U006161355",)"
    R"("isReadArqc":"true"})";

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: qaven-bench-start LIBRARY\n", stderr);
        return 2;
    }
    setenv("QAVEN_DIAGNOSTICS", "off", 1);
    const long before = peak_kilobytes();
    const auto start = Clock::now();
    void* const library = dlopen(argv[1], RTLD_NOW);
    const double loaded = milliseconds_since(start);
    if (library == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        return EXIT_FAILURE;
    }
    const auto get_card_info =
        reinterpret_cast<decltype(&QAVEN_getICCardInfo)>(dlsym(library, "QAVEN_getICCardInfo"));
    static std::array<char, QAVEN_RESMSG_SIZE> resmsg;
    static std::array<char, QAVEN_ERRMSG_SIZE> errmsg;
    const int result = get_card_info(kRequest, resmsg.data(), errmsg.data(), 0, 0);
    const double answered = milliseconds_since(start);
    if (result != QAVEN_OK) {
        std::fprintf(stderr, "the card could not be read: %d\n", result);
        return EXIT_FAILURE;
    }
    std::printf("%.3f %.3f %ld %ld\n", loaded, answered, before, peak_kilobytes());
    return EXIT_SUCCESS;
}
