// A trace log as people read it.
#pragma once

#include "tools/qaven/decode/outline.h"
#include "tools/qaven/decode/trace_reader.h"

#include <set>
#include <string>
#include <string_view>

namespace qaven::cli {

class TracePrinter {
  public:
    explicit TracePrinter(emv::Privacy& privacy) : privacy_(privacy) {}

    // The lines of one entry.
    std::string text(const TraceEntry& entry);

  private:
    using Explain = void (*)(std::string_view, Outline&);

    void line(std::string_view text, Outline& out);
    void labelled(const std::string& head, Explain explain, std::string_view value, Outline& out);
    void members(std::string_view json, Outline& out);
    void unknown(std::string_view text, Outline& out);
    static void dump(const TraceEntry& entry, Outline& out);

    // A long value is explained once in each call of the host; the library traces it several times.
    bool seen_before(std::string_view value);

    emv::Privacy& privacy_;
    std::set<std::string, std::less<>> seen_;
    bool begun_ = false;
};

} // namespace qaven::cli
