// The library's own memory in this process, so that a new process can be had without one:
// everything that the library keeps between calls stands in the writable pages of its file.
#pragma once

#include <cstdint>
#include <vector>

namespace qaven::sweep {

class LibraryImage {
  public:
    // As the loader left it: to be made before the library's first call.
    LibraryImage();

    // The library as a process that starts now finds it. What it held on the heap is lost, as it is
    // when a process dies.
    void start_process() const;

  private:
    struct Region {
        std::uintptr_t address = 0;
        std::vector<std::uint8_t> bytes;
    };
    std::vector<Region> regions_;
};

} // namespace qaven::sweep
