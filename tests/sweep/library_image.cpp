// Copied by way of /proc, past the sanitizers' guard zones between the objects.
#include "library_image.h"

#include <fcntl.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <string_view>

namespace qaven::sweep {

namespace {

struct Range {
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
};

// The writable pages of libqaven.so, without those that only the loader writes to.
int find_ranges(dl_phdr_info* file, std::size_t /*size*/, void* found) {
    auto& ranges = *static_cast<std::vector<Range>*>(found);
    if (std::string_view(file->dlpi_name).find("/libqaven.so") == std::string_view::npos) {
        return 0;
    }
    std::uintptr_t written_by_loader = 0;
    for (int i = 0; i < file->dlpi_phnum; ++i) {
        const auto& segment = file->dlpi_phdr[i];
        if (segment.p_type == PT_GNU_RELRO) {
            written_by_loader = file->dlpi_addr + segment.p_vaddr + segment.p_memsz;
        }
    }
    for (int i = 0; i < file->dlpi_phnum; ++i) {
        const auto& segment = file->dlpi_phdr[i];
        if (segment.p_type == PT_LOAD && (segment.p_flags & PF_W) != 0) {
            const std::uintptr_t begin = file->dlpi_addr + segment.p_vaddr;
            const std::uintptr_t end = begin + segment.p_memsz;
            ranges.push_back({std::clamp(written_by_loader, begin, end), end});
        }
    }
    return 1;
}

class OwnMemory {
  public:
    OwnMemory() : fd_(open("/proc/self/mem", O_RDWR | O_CLOEXEC)) {
        if (fd_ < 0) {
            throw std::runtime_error("/proc/self/mem cannot be opened");
        }
    }
    ~OwnMemory() { close(fd_); }
    OwnMemory(const OwnMemory&) = delete;
    OwnMemory& operator=(const OwnMemory&) = delete;
    OwnMemory(OwnMemory&&) = delete;
    OwnMemory& operator=(OwnMemory&&) = delete;

    void read(std::uintptr_t address, std::vector<std::uint8_t>& bytes) const {
        check(pread(fd_, bytes.data(), bytes.size(), static_cast<off_t>(address)), bytes);
    }
    void write(std::uintptr_t address, const std::vector<std::uint8_t>& bytes) const {
        check(pwrite(fd_, bytes.data(), bytes.size(), static_cast<off_t>(address)), bytes);
    }

  private:
    static void check(ssize_t moved, const std::vector<std::uint8_t>& bytes) {
        if (moved != static_cast<ssize_t>(bytes.size())) {
            throw std::runtime_error("the library's memory cannot be copied");
        }
    }

    int fd_;
};

} // namespace

LibraryImage::LibraryImage() {
    std::vector<Range> ranges;
    dl_iterate_phdr(find_ranges, &ranges);
    if (ranges.empty()) {
        throw std::runtime_error("libqaven.so is not loaded");
    }
    const OwnMemory memory;
    for (const Range& range : ranges) {
        Region& region = regions_.emplace_back();
        region.address = range.begin;
        region.bytes.resize(range.end - range.begin);
        memory.read(region.address, region.bytes);
    }
}

void LibraryImage::start_process() const {
    const OwnMemory memory;
    for (const Region& region : regions_) {
        memory.write(region.address, region.bytes);
    }
}

} // namespace qaven::sweep
