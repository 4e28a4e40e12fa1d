// The system's clock in the local time zone.
#include "support/local_time.h"

#include "support/hex.h"

#include <algorithm>
#include <ctime>
#include <string_view>

namespace qaven::local_time {

namespace {

template <std::size_t N>
std::array<std::uint8_t, N> packed(const Text& text) {
    std::array<std::uint8_t, N> bytes{};
    std::ranges::copy(hex::bytes(std::string_view(text.data(), 2 * N)), bytes.begin());
    return bytes;
}

} // namespace

Text text(const char* format) {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    // localtime_r alone would miss a change of the time zone.
    tzset();
    localtime_r(&now, &local);
    Text text{};
    if (std::strftime(text.data(), text.size(), format, &local) == 0) {
        text.fill('\0');
    }
    return text;
}

std::array<std::uint8_t, 3> date() {
    return packed<3>(text("%y%m%d"));
}

std::array<std::uint8_t, 7> date_and_time() {
    return packed<7>(text("%Y%m%d%H%M%S"));
}

} // namespace qaven::local_time
