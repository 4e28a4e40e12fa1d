// A strict view of one JSON object.
#include "virtual/card/json.h"

#include <cmath>
#include <iostream>
#include <stdexcept>

namespace qaven::virtual_card {

namespace {

Bytes hex_value(const JsonObject& owner, std::string_view name, const cJSON* item) {
    const char* text = cJSON_GetStringValue(item);
    const auto bytes = text != nullptr ? from_hex(text) : std::nullopt;
    if (!bytes) {
        owner.complain(name, "has to be hexadecimal text");
    }
    return *bytes;
}

} // namespace

JsonObject::JsonObject(const cJSON* object, std::string place)
    : object_(object), place_(std::move(place)) {
    if (cJSON_IsObject(object_) == 0) {
        throw std::runtime_error(place_ + " has to be a JSON object.");
    }
}

bool JsonObject::has(const char* name) const {
    return cJSON_GetObjectItemCaseSensitive(object_, name) != nullptr;
}

const char* JsonObject::renamed(const char* name, const char* earlier) const {
    if (!has(earlier)) {
        return name;
    }
    if (has(name)) {
        complain(earlier,
                 "is the earlier name of \"" + std::string(name) + "\", which is there too");
    }
    std::cerr << "note: " << place_ << ": \"" << earlier << "\" is now called \"" << name
              << "\".\n";
    return earlier;
}

const cJSON* JsonObject::find(const char* name) {
    read_.insert(name);
    return cJSON_GetObjectItemCaseSensitive(object_, name);
}

const cJSON* JsonObject::require(const char* name) {
    const cJSON* item = find(name);
    if (item == nullptr) {
        complain(name, "is missing");
    }
    return item;
}

std::string JsonObject::text(const char* name) {
    const char* value = cJSON_GetStringValue(require(name));
    if (value == nullptr) {
        complain(name, "has to be text");
    }
    return value;
}

std::string JsonObject::text_or(const char* name, std::string otherwise) {
    return find(name) == nullptr ? std::move(otherwise) : text(name);
}

std::uint32_t JsonObject::number(const char* name, std::uint32_t largest) {
    const cJSON* item = require(name);
    const double value = cJSON_IsNumber(item) != 0 ? item->valuedouble : -1.0;
    if (!(value >= 0.0) || value > static_cast<double>(largest) || std::floor(value) != value) {
        complain(name, "has to be a whole number from 0 to " + std::to_string(largest));
    }
    return static_cast<std::uint32_t>(value);
}

std::uint32_t JsonObject::number_or(const char* name, std::uint32_t largest,
                                    std::uint32_t otherwise) {
    return find(name) == nullptr ? otherwise : number(name, largest);
}

bool JsonObject::flag_or(const char* name, bool otherwise) {
    const cJSON* item = find(name);
    if (item == nullptr) {
        return otherwise;
    }
    if (cJSON_IsBool(item) == 0) {
        complain(name, "has to be true or false");
    }
    return cJSON_IsTrue(item) != 0;
}

Bytes JsonObject::hex(const char* name) {
    return hex_value(*this, name, require(name));
}

Bytes JsonObject::hex_of_size(const char* name, std::size_t size) {
    Bytes bytes = hex(name);
    if (bytes.size() != size) {
        complain(name, "has to be " + std::to_string(size) + " bytes long");
    }
    return bytes;
}

Bytes JsonObject::hex_or(const char* name, Bytes otherwise) {
    return find(name) == nullptr ? std::move(otherwise) : hex(name);
}

JsonObject JsonObject::object(const char* name) {
    return {require(name), place_ + ", " + name};
}

const cJSON* JsonObject::list(const char* name) {
    const cJSON* item = find(name);
    if (item != nullptr && cJSON_IsArray(item) == 0) {
        complain(name, "has to be a list");
    }
    return item;
}

std::vector<JsonObject> JsonObject::objects(const char* name) {
    std::vector<JsonObject> found;
    const cJSON* items = list(name);
    const cJSON* item = nullptr;
    cJSON_ArrayForEach(item, items) {
        found.emplace_back(item, place_ + ", " + name + " " + std::to_string(found.size() + 1));
    }
    return found;
}

std::vector<Bytes> JsonObject::hex_list(const char* name) {
    std::vector<Bytes> found;
    const cJSON* items = list(name);
    const cJSON* item = nullptr;
    cJSON_ArrayForEach(item, items) {
        found.push_back(hex_value(*this, name, item));
    }
    return found;
}

std::vector<std::vector<JsonObject>> JsonObject::object_lists(const char* name) {
    std::vector<std::vector<JsonObject>> found;
    const cJSON* items = list(name);
    const cJSON* item = nullptr;
    cJSON_ArrayForEach(item, items) {
        if (cJSON_IsArray(item) == 0) {
            complain(name, "has to be a list of lists");
        }
        const std::string row = place_ + ", " + name + " " + std::to_string(found.size() + 1);
        std::vector<JsonObject> inner;
        const cJSON* entry = nullptr;
        cJSON_ArrayForEach(entry, item) {
            inner.emplace_back(entry, row + ", entry " + std::to_string(inner.size() + 1));
        }
        found.push_back(std::move(inner));
    }
    return found;
}

void JsonObject::finish() const {
    const cJSON* item = nullptr;
    cJSON_ArrayForEach(item, object_) {
        if (!read_.contains(item->string)) {
            complain(item->string, "is an unknown entry");
        }
    }
}

void JsonObject::complain(std::string_view name, std::string_view what) const {
    throw std::runtime_error(place_ + ": \"" + std::string(name) + "\" " + std::string(what) + ".");
}

} // namespace qaven::virtual_card
