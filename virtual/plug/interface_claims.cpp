// The rules by which usbfs grants interfaces.
#include "virtual/plug/interface_claims.h"

#include <algorithm>
#include <cerrno>

namespace qaven::virtual_plug {

void InterfaceClaims::add_interface(std::uint8_t interface) {
    interfaces_.try_emplace(interface);
}

void InterfaceClaims::bind(std::uint8_t interface, const std::string& driver) {
    Holder& holder = interfaces_[interface];
    holder.own_driver = driver;
    holder.driver_bound = true;
}

int InterfaceClaims::claim(ClientId client, std::uint8_t interface) {
    const auto found = interfaces_.find(interface);
    if (found == interfaces_.end()) {
        return -ENOENT;
    }
    Holder& holder = found->second;
    if (holder.client == client) {
        return 0;
    }
    if (holder.driver_bound || holder.client) {
        return -EBUSY;
    }
    holder.client = client;
    return 0;
}

int InterfaceClaims::release(ClientId client, std::uint8_t interface) {
    const auto found = interfaces_.find(interface);
    if (found == interfaces_.end()) {
        return -ENOENT;
    }
    if (found->second.client != client) {
        return -EINVAL;
    }
    found->second.client.reset();
    return 0;
}

int InterfaceClaims::disconnect_driver(std::uint8_t interface) {
    const auto found = interfaces_.find(interface);
    if (found == interfaces_.end()) {
        return -EINVAL;
    }
    Holder& holder = found->second;
    if (!holder.driver_bound && !holder.client) {
        return -ENODATA;
    }
    holder.driver_bound = false;
    holder.client.reset();
    return 0;
}

int InterfaceClaims::connect_driver(std::uint8_t interface) {
    const auto found = interfaces_.find(interface);
    if (found == interfaces_.end()) {
        return -EINVAL;
    }
    Holder& holder = found->second;
    if (holder.driver_bound || holder.client) {
        return -EBUSY;
    }
    holder.driver_bound = !holder.own_driver.empty();
    return holder.driver_bound ? 1 : 0;
}

std::optional<std::string> InterfaceClaims::driver(std::uint8_t interface) const {
    const auto found = interfaces_.find(interface);
    if (found == interfaces_.end()) {
        return std::nullopt;
    }
    if (found->second.driver_bound) {
        return found->second.own_driver;
    }
    if (found->second.client) {
        return "usbfs";
    }
    return std::nullopt;
}

std::optional<ClientId> InterfaceClaims::holder(std::uint8_t interface) const {
    const auto found = interfaces_.find(interface);
    return found == interfaces_.end() ? std::nullopt : found->second.client;
}

bool InterfaceClaims::any_claimed() const {
    return std::any_of(interfaces_.begin(), interfaces_.end(), [](const auto& entry) {
        return entry.second.client || entry.second.driver_bound;
    });
}

void InterfaceClaims::forget(ClientId client) {
    for (auto& [number, holder] : interfaces_) {
        if (holder.client == client) {
            holder.client.reset();
        }
    }
}

} // namespace qaven::virtual_plug
