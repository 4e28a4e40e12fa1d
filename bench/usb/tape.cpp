// The functions in between. While nothing is recorded or timed, each is a jump to the real one.
#include "tape.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

namespace qaven::bench {
namespace {

Tape* recorded = nullptr;
Parts* timed = nullptr;
bool trace_refused = false;
libusb_device_handle* last_handle = nullptr;
std::FILE* trace_file = nullptr;
// NOLINTNEXTLINE(cert-err58-cpp): a point in time throws nothing
Clock::time_point trace_opened;

template <typename Function>
Function* real(Function* /*ours*/, const char* name) {
    auto* const found = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
    if (found == nullptr) {
        std::fprintf(stderr, "there is no %s\n", name);
        std::abort();
    }
    return found;
}

template <typename Function, typename... Arguments>
auto connecting(const char* name, Function* function, Arguments... arguments) {
    if (timed == nullptr) {
        return function(arguments...);
    }
    class Stopwatch {
      public:
        explicit Stopwatch(Part& part) : part_(part) {}
        Stopwatch(const Stopwatch&) = delete;
        Stopwatch& operator=(const Stopwatch&) = delete;
        Stopwatch(Stopwatch&&) = delete;
        Stopwatch& operator=(Stopwatch&&) = delete;
        ~Stopwatch() { part_.add(Clock::now() - start_); }

      private:
        Part& part_;
        Clock::time_point start_ = Clock::now();
    };
    const Stopwatch stopwatch(timed->connection[name]);
    return function(arguments...);
}

bool is_trace(const char* path) {
    return std::strcmp(path, "./Qm_ic.log") == 0;
}

} // namespace

Part Parts::whole_connection() const {
    Part whole;
    for (const auto& [name, part] : connection) {
        whole.time += part.time;
        whole.count += part.count;
    }
    return whole;
}

libusb_device_handle* librarys_handle() {
    return last_handle;
}

int replay(const Tape& tape, libusb_device_handle* handle) {
    int different = 0;
    std::vector<std::uint8_t> buffer;
    for (const auto& transfer : tape) {
        buffer = transfer.data;
        int moved = 0;
        const int result =
            libusb_bulk_transfer(handle, transfer.endpoint, buffer.data(),
                                 static_cast<int>(buffer.size()), &moved, transfer.timeout_ms);
        if (result != 0) {
            throw std::runtime_error(std::string("replay: ") + libusb_error_name(result));
        }
        different += static_cast<int>(moved != transfer.received);
    }
    return different;
}

void start_recording(Tape& tape) {
    recorded = &tape;
}

void start_timing(Parts& parts) {
    timed = &parts;
}

void stop() {
    recorded = nullptr;
    timed = nullptr;
}

WithoutTrace::WithoutTrace() {
    trace_refused = true;
}

WithoutTrace::~WithoutTrace() {
    trace_refused = false;
}

} // namespace qaven::bench

using namespace qaven::bench;

extern "C" {

int libusb_bulk_transfer(libusb_device_handle* handle, unsigned char endpoint, unsigned char* data,
                         int length, int* transferred, unsigned timeout_ms) {
    static auto* const next = real(&libusb_bulk_transfer, "libusb_bulk_transfer");
    if (recorded == nullptr && timed == nullptr) {
        return next(handle, endpoint, data, length, transferred, timeout_ms);
    }
    std::vector<std::uint8_t> before;
    if (recorded != nullptr) {
        before.assign(data, data + length);
    }
    const auto start = Clock::now();
    const int result = next(handle, endpoint, data, length, transferred, timeout_ms);
    const auto end = Clock::now();
    if (timed != nullptr) {
        timed->transfers.add(end - start);
    }
    if (recorded != nullptr && result == 0) {
        recorded->push_back({endpoint, std::move(before), timeout_ms, *transferred});
    }
    return result;
}

int libusb_init(libusb_context** context) {
    static auto* const next = real(&libusb_init, "libusb_init");
    return connecting("libusb_init", next, context);
}

void libusb_exit(libusb_context* context) {
    static auto* const next = real(&libusb_exit, "libusb_exit");
    connecting("libusb_exit", next, context);
}

ssize_t libusb_get_device_list(libusb_context* context, libusb_device*** list) {
    static auto* const next = real(&libusb_get_device_list, "libusb_get_device_list");
    return connecting("libusb_get_device_list", next, context, list);
}

void libusb_free_device_list(libusb_device** list, int unref) {
    static auto* const next = real(&libusb_free_device_list, "libusb_free_device_list");
    connecting("libusb_free_device_list", next, list, unref);
}

int libusb_get_config_descriptor(libusb_device* device, std::uint8_t index,
                                 libusb_config_descriptor** configuration) {
    static auto* const next = real(&libusb_get_config_descriptor, "libusb_get_config_descriptor");
    return connecting("libusb_get_config_descriptor", next, device, index, configuration);
}

libusb_device_handle* libusb_open_device_with_vid_pid(libusb_context* context, std::uint16_t vendor,
                                                      std::uint16_t product) {
    static auto* const next =
        real(&libusb_open_device_with_vid_pid, "libusb_open_device_with_vid_pid");
    last_handle = connecting("libusb_open_device_with_vid_pid", next, context, vendor, product);
    return last_handle;
}

void libusb_close(libusb_device_handle* handle) {
    static auto* const next = real(&libusb_close, "libusb_close");
    connecting("libusb_close", next, handle);
}

int libusb_kernel_driver_active(libusb_device_handle* handle, int interface) {
    static auto* const next = real(&libusb_kernel_driver_active, "libusb_kernel_driver_active");
    return connecting("libusb_kernel_driver_active", next, handle, interface);
}

int libusb_claim_interface(libusb_device_handle* handle, int interface) {
    static auto* const next = real(&libusb_claim_interface, "libusb_claim_interface");
    return connecting("libusb_claim_interface", next, handle, interface);
}

int libusb_release_interface(libusb_device_handle* handle, int interface) {
    static auto* const next = real(&libusb_release_interface, "libusb_release_interface");
    return connecting("libusb_release_interface", next, handle, interface);
}

std::FILE* fopen(const char* path, const char* mode) {
    static auto* const next = real(&fopen, "fopen");
    if ((timed == nullptr && !trace_refused) || !is_trace(path)) {
        return next(path, mode);
    }
    if (trace_refused) {
        return nullptr;
    }
    trace_opened = Clock::now();
    trace_file = next(path, mode);
    return trace_file;
}

int fclose(std::FILE* file) {
    static auto* const next = real(&fclose, "fclose");
    const bool ends_a_line = timed != nullptr && file == trace_file;
    const int result = next(file);
    if (ends_a_line) {
        trace_file = nullptr; // the next file may have its address
        timed->trace.add(Clock::now() - trace_opened);
    }
    return result;
}

} // extern "C"
