// The library as the verbs call it: JSON in, JSON out, and the result code, also of the entry
// points that give it to their trace only.
#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>

namespace tool {

using EntryPoint = int (*)(const char* json, char* resmsg, char* errmsg, int reserved1,
                           int reserved2);

struct Answer {
    int code = 0;     // of the operation; 0 also when the trace that tells it cannot be written
    std::string json; // as the library wrote it; empty when it wrote none

    // A text of the answer, byte for byte; empty when there is none.
    std::string text(std::string_view key) const;
};

// Texts of the request may hold any bytes.
Answer ask_library(EntryPoint entry_point, const nlohmann::ordered_json& request);

// A text of an object that the library wrote.
std::string text_of(std::string_view json, std::string_view key);

// An object with one text, any bytes, in the manner of the library's answers.
std::string json_object(std::string_view key, std::string_view text);

// What a result code means, in a sentence without its end.
std::string explained(int code);

} // namespace tool
