// The test bed: devices come to it and leave it, and each one's ioctls go to its node.
#include "virtual/plug/mocked_usbfs.h"

#include "virtual/plug/host_memory.h"
#include "virtual/plug/sysfs.h"
#include "virtual/plug/usbfs_node.h"

#include <sys/stat.h>

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <iterator>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace qaven::virtual_plug {
namespace {

using virtual_usb::Clock;
using virtual_usb::TimePoint;

[[noreturn]] void fail(const std::string& what, GError* error) {
    std::string text = what;
    if (error != nullptr) {
        text += ": ";
        text += error->message;
        g_error_free(error);
    }
    throw std::runtime_error(text);
}

} // namespace

// The test bed with everything that is or was plugged into it.
class MockedUsbfs::Hub {
  public:
    Hub();
    Hub(const Hub&) = delete;
    Hub& operator=(const Hub&) = delete;
    Hub(Hub&&) = delete;
    Hub& operator=(Hub&&) = delete;
    ~Hub();

    void plug(virtual_usb::Device& device, const PlugSettings& settings);

  private:
    // A port of the hub, and the device that belongs there.
    struct PortSlot {
        Hub* hub = nullptr;
        virtual_usb::Device* device = nullptr;
        PlugSettings settings;
        std::string sysfs_path;
        std::shared_ptr<UsbfsNode> node;
        std::optional<TimePoint> replug_at;
    };
    // What a handler of one node is connected with.
    struct Connection {
        Hub* hub = nullptr;
        PortSlot* slot = nullptr;
        std::shared_ptr<UsbfsNode> node;
        std::map<UMockdevIoctlClient*, ClientId> ids;
    };
    // The argument of the callback for a client that closed its file.
    struct DisconnectContext {
        Connection* connection = nullptr;
        UMockdevIoctlClient* client = nullptr;
    };

    static gboolean on_ioctl(UMockdevIoctlBase* handler, UMockdevIoctlClient* client,
                             gpointer data);
    static void on_connected(UMockdevIoctlBase* handler, UMockdevIoctlClient* client,
                             gpointer data);
    static void on_closed(gpointer data, GObject* client);

    void insert(PortSlot& slot);
    void insert_again(PortSlot& slot);
    void announce(const std::string& sysfs_path, const char* action);
    void pull(PortSlot& slot);
    void serve();
    std::optional<TimePoint> advance(TimePoint now, std::vector<ClientRef>& released);

    std::string root_;
    RootHub root_hub_;
    std::mutex mutex_;         // everything below, and the nodes
    std::mutex testbed_mutex_; // changes of the test bed and its handlers
    std::condition_variable changed_;
    bool ending_ = false;
    unsigned last_number_ = 1;
    std::list<PortSlot> slots_;
    std::list<Connection> connections_;
    Ref<UMockdevTestbed> testbed_; // falls before the connections that its clients refer to
    std::vector<Ref<UMockdevIoctlBase>> handlers_;
    std::thread service_;
};

MockedUsbfs::Hub::Hub() : testbed_(Ref<UMockdevTestbed>::adopt(umockdev_testbed_new())) {
    gchar* const root = umockdev_testbed_get_root_dir(testbed_.get());
    root_ = root;
    g_free(root);
    GError* error = nullptr;
    std::string description = sysfs_description(kControllerPath, 1, root_hub_);
    description.insert(description.find('\n') + 1, "N: bus/usb/001/001\n");
    if (umockdev_testbed_add_from_string(testbed_.get(), description.c_str(), &error) == FALSE) {
        fail("cannot add the root hub", error);
    }
    service_ = std::thread([this] { serve(); });
}

MockedUsbfs::Hub::~Hub() {
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    changed_.notify_all();
    service_.join();
}

void MockedUsbfs::Hub::plug(virtual_usb::Device& device, const PlugSettings& settings) {
    PortSlot* slot = nullptr;
    {
        const std::lock_guard lock(mutex_);
        slot = &slots_.emplace_back();
        slot->hub = this;
        slot->device = &device;
        slot->settings = settings;
        slot->sysfs_path = port_path(slots_.size());
    }
    insert(*slot);
}

void MockedUsbfs::Hub::insert(PortSlot& slot) {
    Connection* connection = nullptr;
    std::string node_name;
    auto handler = Ref<UMockdevIoctlBase>::adopt(umockdev_ioctl_base_new());
    {
        const std::lock_guard lock(mutex_);
        const unsigned number = ++last_number_;
        node_name = device_node(number);
        const std::string path = root_ + node_name;
        g_mkdir_with_parents(path.substr(0, path.rfind('/')).c_str(),
                             S_IRWXU | S_IRGRP | S_IXGRP | S_IROTH | S_IXOTH);
        slot.node = std::make_shared<UsbfsNode>(*slot.device, slot.settings, number, path);
        slot.settings.faults.clear(); // they happen once, not again after a replug
        connection = &connections_.emplace_back();
        connection->hub = this;
        connection->slot = &slot;
        connection->node = slot.node;
    }
    g_signal_connect(handler.get(), "handle-ioctl", G_CALLBACK(&Hub::on_ioctl), connection);
    g_signal_connect(handler.get(), "client-connected", G_CALLBACK(&Hub::on_connected), connection);
    GError* error = nullptr;
    if (umockdev_testbed_attach_ioctl(testbed_.get(), node_name.c_str(), handler.get(), &error) ==
        FALSE) {
        fail("cannot attach to " + node_name, error);
    }
    const std::string description =
        sysfs_description(slot.sysfs_path, slot.node->number(), *slot.device);
    const std::lock_guard lock(testbed_mutex_);
    handlers_.push_back(std::move(handler));
    if (umockdev_testbed_add_from_string(testbed_.get(), description.c_str(), &error) == FALSE) {
        fail("cannot add " + slot.sysfs_path, error);
    }
    announce(slot.sysfs_path, "add");
}

// For programs that are running already. Each event is a chance to meet one that is just ending,
// which umockdev does not survive; the device's own is what libusb and udev's users wait for.
void MockedUsbfs::Hub::announce(const std::string& sysfs_path, const char* action) {
    umockdev_testbed_uevent(testbed_.get(), ("/sys" + sysfs_path).c_str(), action);
}

// Called right when the device has left its port: the host must not find it in sysfs any more.
void MockedUsbfs::Hub::pull(PortSlot& slot) {
    {
        const std::lock_guard lock(testbed_mutex_);
        for (const auto& path : interface_paths(slot.sysfs_path, *slot.device)) {
            umockdev_testbed_remove_device(testbed_.get(), ("/sys" + path).c_str());
        }
        announce(slot.sysfs_path, "remove");
        umockdev_testbed_remove_device(testbed_.get(), ("/sys" + slot.sysfs_path).c_str());
    }
    if (slot.settings.replug_after) {
        slot.replug_at = Clock::now() + *slot.settings.replug_after;
    }
}

gboolean MockedUsbfs::Hub::on_ioctl(UMockdevIoctlBase* /*handler*/, UMockdevIoctlClient* client,
                                    gpointer data) {
    auto& connection = *static_cast<Connection*>(data);
    Hub& hub = *connection.hub;
    std::vector<ClientRef> released;
    bool time_matters = false;
    {
        const std::lock_guard lock(hub.mutex_);
        UsbfsNode& node = *connection.node;
        const bool was_plugged = node.plugged();
        node.handle(connection.ids[client], client);
        if (was_plugged && !node.plugged()) {
            hub.pull(*connection.slot);
        }
        released = node.take_released();
        time_matters = node.wake() || connection.slot->replug_at;
    }
    if (time_matters) {
        hub.changed_.notify_all();
    }
    return TRUE;
}

void MockedUsbfs::Hub::on_connected(UMockdevIoctlBase* /*handler*/, UMockdevIoctlClient* client,
                                    gpointer data) {
    auto& connection = *static_cast<Connection*>(data);
    {
        const std::lock_guard lock(connection.hub->mutex_);
        connection.ids[client] = connection.node->add_client();
    }
    auto context = std::make_unique<DisconnectContext>();
    context->connection = &connection;
    context->client = client;
    g_object_weak_ref(G_OBJECT(client), &Hub::on_closed, context.release());
}

void MockedUsbfs::Hub::on_closed(gpointer data, GObject* /*client*/) {
    const std::unique_ptr<DisconnectContext> context(static_cast<DisconnectContext*>(data));
    Connection& connection = *context->connection;
    std::vector<ClientRef> released;
    const std::lock_guard lock(connection.hub->mutex_);
    const auto id = connection.ids.extract(context->client);
    connection.node->remove_client(id.mapped());
    released = connection.node->take_released();
}

void MockedUsbfs::Hub::insert_again(PortSlot& slot) {
    try {
        insert(slot);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "cannot plug the device in again: %s\n", error.what());
    }
}

// Moves what time moves: late answers and devices that come back.
void MockedUsbfs::Hub::serve() {
    std::unique_lock lock(mutex_);
    while (!ending_) {
        const TimePoint now = Clock::now();
        const auto due = std::find_if(slots_.begin(), slots_.end(), [now](const PortSlot& slot) {
            return slot.replug_at && *slot.replug_at <= now;
        });
        if (due != slots_.end()) {
            due->replug_at.reset();
            lock.unlock();
            insert_again(*due);
            lock.lock();
            continue;
        }
        std::vector<ClientRef> released;
        const auto next = advance(now, released);
        if (!released.empty()) {
            lock.unlock();
            released.clear();
            lock.lock();
        } else if (next) {
            changed_.wait_until(lock, *next);
        } else {
            changed_.wait(lock);
        }
    }
}

// Returns when it should be done again.
std::optional<TimePoint> MockedUsbfs::Hub::advance(TimePoint now,
                                                   std::vector<ClientRef>& released) {
    std::optional<TimePoint> next;
    for (auto& slot : slots_) {
        if (!slot.node) {
            continue;
        }
        slot.node->advance(now);
        std::ranges::move(slot.node->take_released(), std::back_inserter(released));
        for (const auto& when : {slot.node->wake(), slot.replug_at}) {
            if (when && (!next || *when < *next)) {
                next = when;
            }
        }
    }
    return next;
}

MockedUsbfs::MockedUsbfs() : hub_(std::make_unique<Hub>()) {}
MockedUsbfs::~MockedUsbfs() = default;

void MockedUsbfs::plug(virtual_usb::Device& device, const PlugSettings& settings) {
    hub_->plug(device, settings);
}

} // namespace qaven::virtual_plug
