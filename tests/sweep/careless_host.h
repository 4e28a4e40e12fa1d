// What careless hosts send: texts that are no such texts, counts that lie, JSON that is none.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace qaven::sweep {

// One thing sent. Several of a kind make one row of the table.
struct Sent {
    std::string kind;
    std::optional<std::string> text; // none: a null pointer
};

// What a text is meant to be.
enum class Content {
    letters,          // of the wanted fields
    aids,             // separated by bars
    aid,              // one
    transaction,      // transaction data string
    flag,             // "true" or not
    application_data, // a count and hexadecimal digits
    response,         // of the issuer, hexadecimal
    status,           // a number, in decimal
    unread,           // anything: the function does not use it
};

// In place of the good text.
std::vector<Sent> careless_texts(Content content, const std::string& good);

// In place of the member `key` of a JSON object, whose good value is a text or (a status) a number:
// what stands between the commas, or "" for nothing.
std::vector<Sent> careless_members(const std::string& key, Content content,
                                   const std::string& good);

// In place of the whole good JSON text.
std::vector<Sent> careless_documents(const std::string& good);

// A text as a JSON value; bytes that JSON has no escape for stand as they are.
std::string quoted(const std::string& text);

} // namespace qaven::sweep
