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
#include <stdexcept>
#include <thread>
#include <utility>

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
    struct Place {
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
        Place* place = nullptr;
        std::shared_ptr<UsbfsNode> node;
        std::map<UMockdevIoctlClient*, ClientId> ids;
    };
    // What tells that a client's file was closed.
    struct Farewell {
        Connection* connection = nullptr;
        UMockdevIoctlClient* client = nullptr;
    };

    static gboolean on_ioctl(UMockdevIoctlBase* handler, UMockdevIoctlClient* client,
                             gpointer data);
    static void on_connected(UMockdevIoctlBase* handler, UMockdevIoctlClient* client,
                             gpointer data);
    static void on_closed(gpointer data, GObject* client);

    void insert(Place& place);
    void insert_again(Place& place);
    void announce(const std::string& sysfs_path, const char* action);
    void pull(Place& place);
    void serve();
    std::optional<TimePoint> advance(TimePoint now, std::vector<ClientRef>& released);

    std::string root_;
    RootHub root_hub_;
    std::mutex mutex_;         // everything below, and the nodes
    std::mutex testbed_mutex_; // changes of the test bed and its handlers
    std::condition_variable changed_;
    bool ending_ = false;
    unsigned last_number_ = 1;
    std::list<Place> places_;
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
    std::string description = sysfs_description(controller_path, 1, root_hub_);
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
    Place* place = nullptr;
    {
        const std::lock_guard lock(mutex_);
        place = &places_.emplace_back();
        place->hub = this;
        place->device = &device;
        place->settings = settings;
        place->sysfs_path = port_path(places_.size());
    }
    insert(*place);
}

void MockedUsbfs::Hub::insert(Place& place) {
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
        place.node = std::make_shared<UsbfsNode>(*place.device, place.settings, number, path);
        place.settings.faults.clear(); // they happen once, not again after a replug
        connection = &connections_.emplace_back();
        connection->hub = this;
        connection->place = &place;
        connection->node = place.node;
    }
    g_signal_connect(handler.get(), "handle-ioctl", G_CALLBACK(&Hub::on_ioctl), connection);
    g_signal_connect(handler.get(), "client-connected", G_CALLBACK(&Hub::on_connected), connection);
    GError* error = nullptr;
    if (umockdev_testbed_attach_ioctl(testbed_.get(), node_name.c_str(), handler.get(), &error) ==
        FALSE) {
        fail("cannot attach to " + node_name, error);
    }
    const std::string description =
        sysfs_description(place.sysfs_path, place.node->number(), *place.device);
    const std::lock_guard lock(testbed_mutex_);
    handlers_.push_back(std::move(handler));
    if (umockdev_testbed_add_from_string(testbed_.get(), description.c_str(), &error) == FALSE) {
        fail("cannot add " + place.sysfs_path, error);
    }
    announce(place.sysfs_path, "add");
}

// For programs that are running already. Each event is a chance to meet one that is just ending,
// which umockdev does not survive; the device's own is what libusb and udev's users wait for.
void MockedUsbfs::Hub::announce(const std::string& sysfs_path, const char* action) {
    umockdev_testbed_uevent(testbed_.get(), ("/sys" + sysfs_path).c_str(), action);
}

// Called right when the device has left its port: the host must not find it in sysfs any more.
void MockedUsbfs::Hub::pull(Place& place) {
    {
        const std::lock_guard lock(testbed_mutex_);
        for (const auto& path : interface_paths(place.sysfs_path, *place.device)) {
            umockdev_testbed_remove_device(testbed_.get(), ("/sys" + path).c_str());
        }
        announce(place.sysfs_path, "remove");
        umockdev_testbed_remove_device(testbed_.get(), ("/sys" + place.sysfs_path).c_str());
    }
    if (place.settings.replug_after) {
        place.replug_at = Clock::now() + *place.settings.replug_after;
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
            hub.pull(*connection.place);
        }
        released = node.take_released();
        time_matters = node.wake() || connection.place->replug_at;
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
    auto farewell = std::make_unique<Farewell>();
    farewell->connection = &connection;
    farewell->client = client;
    g_object_weak_ref(G_OBJECT(client), &Hub::on_closed, farewell.release());
}

void MockedUsbfs::Hub::on_closed(gpointer data, GObject* /*client*/) {
    const std::unique_ptr<Farewell> farewell(static_cast<Farewell*>(data));
    Connection& connection = *farewell->connection;
    std::vector<ClientRef> released;
    const std::lock_guard lock(connection.hub->mutex_);
    const auto id = connection.ids.extract(farewell->client);
    connection.node->remove_client(id.mapped());
    released = connection.node->take_released();
}

void MockedUsbfs::Hub::insert_again(Place& place) {
    try {
        insert(place);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "the device does not come back: %s\n", error.what());
    }
}

// Moves what time moves: late answers and devices that come back.
void MockedUsbfs::Hub::serve() {
    std::unique_lock lock(mutex_);
    while (!ending_) {
        const TimePoint now = Clock::now();
        const auto due = std::find_if(places_.begin(), places_.end(), [now](const Place& place) {
            return place.replug_at && *place.replug_at <= now;
        });
        if (due != places_.end()) {
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
    for (auto& place : places_) {
        if (!place.node) {
            continue;
        }
        place.node->advance(now);
        std::ranges::move(place.node->take_released(), std::back_inserter(released));
        for (const auto& when : {place.node->wake(), place.replug_at}) {
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