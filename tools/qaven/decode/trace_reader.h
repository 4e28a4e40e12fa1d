// The entries of a trace log: what one call of the library wrote, put together again.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qaven::cli {

struct TraceEntry {
    enum class Kind { kLine, kDump };
    Kind kind;
    // A line's text, or a dump's title. The lines of a JSON text are one entry.
    std::string text;
    std::vector<unsigned char> bytes; // of a dump
};

// Takes the log in pieces of any size. Lines may end as the library ends them, in carriage return
// and line feed, or in a line feed alone, as tools leave them. Empty lines are no entries.
class TraceReader {
  public:
    void feed(std::string_view piece);

    // No entry yet, if more may belong to what has come so far.
    std::optional<TraceEntry> next();

    // Nothing has come for a while: a dump whose last row is there is whole.
    void pause() { paused_ = true; }

    // Nothing more comes: what is there is whole.
    void finish() { finished_ = true; }

    // The log was begun anew: half an entry of the old one goes with nothing.
    void restart();

  private:
    struct Line {
        std::string_view text;
        std::size_t size; // its end included
        bool ended_as_written = false;
    };

    std::optional<Line> line_at(std::size_t at) const;
    std::optional<TraceEntry> take_log(std::string_view rest);
    std::optional<TraceEntry> take_object(const Line& first);
    std::optional<TraceEntry> take_dump(const Line& first, std::size_t mark);
    void drop(std::size_t size) { buffer_.erase(0, size); }

    std::string buffer_;
    bool paused_ = false;
    bool finished_ = false;
};

} // namespace qaven::cli
