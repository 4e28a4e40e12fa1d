// Stands in for the C library's time() in the whole test program.
#include "fixed_clock.h"

#include <cstdlib>

namespace {

std::optional<std::time_t> stopped_at;

} // namespace

extern "C" std::time_t time(std::time_t* result) noexcept {
    std::time_t now = 0;
    if (stopped_at) {
        now = *stopped_at;
    } else {
        std::timespec clock{};
        clock_gettime(CLOCK_REALTIME, &clock);
        now = clock.tv_sec;
    }
    if (result != nullptr) {
        *result = now;
    }
    return now;
}

namespace qaven::test {

FixedClock::FixedClock(int year, int month, int day, int hour, int minute, int second) {
    if (const char* zone = std::getenv("TZ")) {
        zone_before_ = zone;
    }
    set_zone("UTC0");
    std::tm moment{};
    moment.tm_year = year - 1900;
    moment.tm_mon = month - 1;
    moment.tm_mday = day;
    moment.tm_hour = hour;
    moment.tm_min = minute;
    moment.tm_sec = second;
    stopped_at = timegm(&moment);
}

FixedClock::~FixedClock() {
    stopped_at.reset();
    if (zone_before_) {
        setenv("TZ", zone_before_->c_str(), 1);
    } else {
        unsetenv("TZ");
    }
    tzset();
}

void FixedClock::set_zone(const char* zone) {
    setenv("TZ", zone, 1);
}

} // namespace qaven::test
