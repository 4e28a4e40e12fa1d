// A stopped clock: while one lives, time() gives its moment and local time is UTC.
#pragma once

#include <ctime>
#include <optional>
#include <string>

namespace qaven::test {

class FixedClock {
  public:
    FixedClock(int year, int month, int day, int hour, int minute, int second);
    ~FixedClock();
    FixedClock(const FixedClock&) = delete;
    FixedClock& operator=(const FixedClock&) = delete;

    // Where local time is, as in the environment variable TZ: "CST-8" is Beijing. Nobody is told
    // of the change but by the variable.
    static void set_zone(const char* zone);

  private:
    std::optional<std::string> zone_before_;
};

} // namespace qaven::test
