// One device in one port as usbfs shows it: claims, transfers and their collection, ioctl by ioctl.
#pragma once

#include "virtual/plug/host_memory.h"
#include "virtual/plug/interface_claims.h"
#include "virtual/plug/plug_settings.h"
#include "virtual/plug/writable_fifo.h"
#include "virtual/usb/capture.h"
#include "virtual/usb/port.h"

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace qaven::virtual_plug {

// Not thread-safe: the owner serialises calls.
class UsbfsNode {
  public:
    // Makes the node at `path` and enumerates the device.
    UsbfsNode(virtual_usb::Device& device, const PlugSettings& settings, unsigned number,
              const std::string& path);

    // A host program opens the node, and closes it.
    ClientId add_client();
    void remove_client(ClientId id);

    // Answers one ioctl, or keeps the client until there is an answer.
    void handle(ClientId id, UMockdevIoctlClient* client);

    void advance(virtual_usb::TimePoint now);
    // When advance() should be called although no host program has come.
    [[nodiscard]] std::optional<virtual_usb::TimePoint> wake() const;
    [[nodiscard]] bool plugged() const { return port_.plugged(); }
    [[nodiscard]] unsigned number() const { return number_; }

    // Clients whose references fall when nothing is locked any more.
    std::vector<ClientRef> take_released() { return std::exchange(released_, {}); }

  private:
    // A transfer that a host program has submitted: where it lies in that program's memory.
    struct Submission {
        ClientId client = 0;
        gulong address = 0;
        DataRef urb;
        DataRef buffer;
    };
    // A host program's open file.
    struct Client {
        std::deque<std::pair<Submission, virtual_usb::Completion>> done;
        ClientRef waiting_reap; // a blocking REAPURB that found nothing yet
    };
    // A claim of an interface that another client holds, or has just given up by closing its file:
    // word of that takes a moment to come here.
    struct WaitingClaim {
        ClientId client = 0;
        std::uint8_t interface = 0;
        ClientRef waiting;
        virtual_usb::TimePoint deadline;
    };

    // What the ioctl returns, negative for an errno value; nothing while the client has to wait.
    std::optional<long> answer(ClientId id, UMockdevIoctlClient* client, UMockdevIoctlData* arg,
                               std::uint32_t request);
    std::optional<long> claim(ClientId id, UMockdevIoctlClient* client, UMockdevIoctlData* arg);
    std::optional<long> reap_or_wait(ClientId id, UMockdevIoctlClient* client,
                                     UMockdevIoctlData* arg, bool may_wait);
    long perform(ClientId id, UMockdevIoctlData* arg, std::uint32_t request);
    long perform_on_number(ClientId id, unsigned number, std::uint32_t request);
    long set_interface(ClientId id, UMockdevIoctlData* arg);
    long submit(ClientId id, UMockdevIoctlData* arg);
    long discard(ClientId id, gulong address);
    static bool reap(Client& client, UMockdevIoctlData* arg);
    static long capabilities(UMockdevIoctlData* arg);
    long driver_name(UMockdevIoctlData* arg);
    long driver_ioctl(UMockdevIoctlData* arg);
    long disconnect_and_claim(ClientId id, UMockdevIoctlData* arg);
    void deliver_completions();
    void retry_claims();
    void complete(ClientRef client, long result);

    WritableFifo fifo_;
    std::unique_ptr<virtual_usb::Capture> capture_;
    virtual_usb::Port port_;
    unsigned number_;
    InterfaceClaims claims_;
    ClientId last_client_;
    std::map<ClientId, Client> clients_;
    std::uint64_t last_urb_ = 0;
    std::map<std::uint64_t, Submission> submissions_; // by the port's URB number
    std::vector<WaitingClaim> waiting_claims_;
    std::vector<ClientRef> released_;
};

} // namespace qaven::virtual_plug
