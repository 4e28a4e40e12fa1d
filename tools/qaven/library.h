// The library as the verbs call it: an operation's result code and its texts.
#pragma once

#include "tools/qaven/cli/options.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qaven::cli {

inline constexpr Option kTrace{"--trace", "FOLDER",
                               "have the library write its trace, Qm_ic.log, in this folder;\n"
                               "it holds card numbers in full (no trace)"};

struct Answer {
    int code = 0; // of the operation

    // Under the keys of the library's own JSON answers, byte for byte.
    std::vector<std::pair<std::string_view, std::string>> texts;

    // Empty when there is no such text.
    std::string text(std::string_view key) const;

    // As the library's JSON entry points print it.
    std::string json() const;
};

// Where the library's trace goes, which otherwise lands in the working directory.
class TracePlace {
  public:
    // As --trace says; no trace is written without it. Throws a Failure.
    explicit TracePlace(const Options& options);
    ~TracePlace();
    TracePlace(const TracePlace&) = delete;
    TracePlace& operator=(const TracePlace&) = delete;

    int descriptor() const { return descriptor_; }

  private:
    int descriptor_ = -1;
};

// The operations that the card in the reader takes part in. Their results come from the card
// operations themselves: of the JSON entry points only one tells its result.
class Library {
  public:
    explicit Library(const Options& options) : place_(options) {}

    Answer card_information(const std::string& letters, const std::string& aids) const;
    Answer arqc(const std::string& transaction_data, const std::string& aids) const;
    Answer issuer_answer(const std::string& transaction_data, const std::string& application_data,
                         const std::string& response, bool approved) const;
    Answer transaction_log(const std::string& aid) const;
    Answer load_log(const std::string& aid) const;

  private:
    TracePlace place_;
};

// The status word of a card that refuses EXTERNAL AUTHENTICATE: nothing can be completed then, the
// card has not been asked for its second cryptogram.
inline constexpr int kAuthenticationRefused = 0x6300;

// What a result code means, in a sentence without its end.
std::string explained(int code);

} // namespace qaven::cli
