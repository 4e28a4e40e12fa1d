// Raw bytes between the library and one USB reader: finding it, claiming one interface, moving
// bytes over that interface's bulk endpoints. Knows nothing of CCID framing. Every step prints a
// progress line.
#pragma once

#include "qaven/qaven.h"
#include "support/export.h"

#include <libusb.h>

#include <chrono>
#include <cstdint>
#include <span>

// One reader connection. Calling order: init, setInterface, open, any number of transfers, close.
// The fields are public: the object is plain data that lives as long as the library.
class Myusb {
  public:
    // Interfaces and endpoints of a reader that are recorded; what goes beyond them is not.
    static constexpr int kMaxInterfaces = 10;
    static constexpr int kMaxEndpoints = 5; // of one interface

    // Time-out of write and read, in milliseconds.
    static constexpr unsigned int kTransferTimeoutMs = 10000;

    // Results of a transfer while no device handle is held; nothing is handed to libusb then.
    static constexpr int kNoHandle = QAVEN_BAD_HANDLE;
    static constexpr int kReadFailed = -1; // of read, which tells no libusb code

    // Looks for the reader: starts libusb on the default context and records the endpoints of every
    // attached device with these identifiers. The last one enumerated wins; rows of an earlier
    // enumeration stay until overwritten.
    QAVEN_API void init(int vid, int pid);

    // Records the endpoints of one enumerated device if its identifiers match.
    QAVEN_API void printdev(libusb_device* dev);

    // Chooses the interface (0..9) and its two bulk endpoints: of the first two endpoints listed
    // the smaller address is OUT, the larger IN. Outside 0..9 both become 0. Always 0.
    QAVEN_API int setInterface(int n);

    // Opens the reader, detaches a kernel driver that holds the interface, claims the interface.
    // 0, or -1 when the reader is not there or the claim is refused (the handle then stays open).
    QAVEN_API int open();

    // Releases the interface, closes the handle, ends libusb. No handle is held afterwards.
    QAVEN_API void close();

    // Sends len bytes of buf. 0, a negative libusb code, or kNoHandle.
    QAVEN_API int write(unsigned char* buf, int len);

    // Receives up to len bytes into buf. 0, or kReadFailed on any failure.
    QAVEN_API int read(unsigned char* buf, int len);

    // Receives up to len bytes into buf within timeout_ms. 0, a negative libusb code, or kNoHandle.
    QAVEN_API int readTimeout(unsigned char* buf, int len, int timeout_ms);

    libusb_device_handle* handle;                      // open device, null when none is held
    int transferred;                                   // byte count of the last bulk transfer
    libusb_context* ctx;                               // always the default context
    int endpoint_table[kMaxInterfaces][kMaxEndpoints]; // bEndpointAddress, 0 where none was found
    int interface_number;                              // chosen by setInterface
    int vendor_id;                                     // that init looked for
    int product_id;                                    // that init looked for
    int ep_out;                                        // endpoint address for writes
    int ep_in;                                         // endpoint address for reads

    bool library_started;   // init started libusb and close has not ended it yet
    bool interface_claimed; // open got the interface and close has not given it back yet

    // write for the library's own callers.
    int send(std::span<std::uint8_t> bytes);

    // read for the library's own callers.
    int receive(std::span<std::uint8_t> place);

    // readTimeout for the library's own callers.
    int receive(std::span<std::uint8_t> place, int timeout_ms);

    // Resets the device, as pulling and plugging it would; it must be opened again. True when
    // libusb did so.
    bool reset() const;

  private:
    // Releases the interface and closes the handle, if one is held; true when the release
    // succeeded.
    bool give_back();

    int transfer_until(std::chrono::steady_clock::time_point until, int endpoint,
                       std::span<std::uint8_t> bytes, unsigned int timeout_ms);

  protected:
    // One bulk transfer on the held handle; 0, a negative libusb code (that of a time-out when the
    // deadline has passed), or kNoHandle.
    int transfer(int endpoint, std::span<std::uint8_t> bytes, unsigned int timeout_ms);
};
