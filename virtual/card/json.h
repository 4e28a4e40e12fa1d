// A strict view of one JSON object: every entry has to be of the expected kind, and an entry that
// nobody asks for is an error, so that a misspelt name in a profile does not pass in silence.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <cjson/cJSON.h>

#include "virtual/card/bytes.h"

namespace qaven::virtual_card {

struct JsonDeleter {
    void operator()(cJSON* tree) const { cJSON_Delete(tree); }
};
using JsonTree = std::unique_ptr<cJSON, JsonDeleter>;

class JsonObject {
  public:
    // `place` names the object in error sentences. Throws std::runtime_error when it is no object.
    JsonObject(const cJSON* object, std::string place);

    bool has(const char* name) const;

    // The name under which the object has this entry: `name`, or the one that it had in earlier
    // profiles, with a note on standard error. An object with both is refused.
    const char* renamed(const char* name, const char* earlier) const;

    std::string text(const char* name);
    std::string text_or(const char* name, std::string otherwise);
    std::uint32_t number(const char* name, std::uint32_t largest);
    std::uint32_t number_or(const char* name, std::uint32_t largest, std::uint32_t otherwise);
    bool flag_or(const char* name, bool otherwise);
    Bytes hex(const char* name);
    Bytes hex_of_size(const char* name, std::size_t size);
    Bytes hex_or(const char* name, Bytes otherwise);
    JsonObject object(const char* name);
    // A missing list is an empty one.
    std::vector<JsonObject> objects(const char* name);
    std::vector<Bytes> hex_list(const char* name);
    // A list of lists of objects.
    std::vector<std::vector<JsonObject>> object_lists(const char* name);

    // Throws when the object has an entry that was not read.
    void finish() const;

    [[noreturn]] void complain(std::string_view name, std::string_view what) const;

  private:
    const cJSON* find(const char* name);
    const cJSON* require(const char* name);
    const cJSON* list(const char* name);

    const cJSON* object_;
    std::string place_;
    std::set<std::string> read_;
};

} // namespace qaven::virtual_card
