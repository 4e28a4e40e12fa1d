// The entries of a trace log: what one call of the library wrote, put together again.
#include "tools/qaven/decode/trace_reader.h"

#include "tools/emv/hex.h"
#include "tools/qaven/decode/records.h"

#include <algorithm>

namespace qaven::cli {

using namespace emv;

namespace {

// The text behind it can begin with any two bytes, line feeds among them: ten entries are a 0A.
constexpr std::string_view kLogLabel = "TxDtailRet:";
constexpr std::size_t kLogHead = 6;

constexpr std::string_view kTitledDump = "(HEX): ";
constexpr std::string_view kPlainDump = "HEX: ";

// Whatever is written, nobody writes lines of this length.
constexpr std::size_t kLongestLine = 1U << 20U;

bool is_blank_line(std::string_view text) {
    return trimmed(text).empty();
}

// A row of a dump: a blank, then pairs of digits with blanks between.
bool is_dump_row(std::string_view text) {
    return text.starts_with(' ') && (is_blank_line(text) || looks_like_hex(text));
}

} // namespace

void TraceReader::feed(std::string_view piece) {
    buffer_ += piece;
    paused_ = false;
}

void TraceReader::restart() {
    buffer_.clear();
    paused_ = false;
}

std::optional<TraceReader::Line> TraceReader::line_at(std::size_t at) const {
    const std::string_view rest = std::string_view(buffer_).substr(at);
    const std::size_t end = rest.substr(0, kLongestLine).find('\n');
    if (end == std::string_view::npos) {
        if (rest.empty() || (!finished_ && rest.size() < kLongestLine)) {
            return std::nullopt;
        }
        const std::string_view text = rest.substr(0, kLongestLine);
        return Line{text, text.size()};
    }
    const bool as_written = end > 0 && rest[end - 1] == '\r';
    return Line{rest.substr(0, as_written ? end - 1 : end), end + 1, as_written};
}

std::optional<TraceEntry> TraceReader::next() {
    while (true) {
        const std::string_view rest(buffer_);
        if (rest.starts_with(kLogLabel)) {
            return take_log(rest);
        }
        const auto line = line_at(0);
        if (!line) {
            return std::nullopt;
        }
        if (line->text.find(":{") != std::string_view::npos && line->text.ends_with('{') &&
            !line->ended_as_written) {
            return take_object(*line);
        }
        if (const std::size_t mark = line->text.find(kTitledDump);
            mark != std::string_view::npos &&
            (looks_like_hex(line->text.substr(mark + kTitledDump.size())) ||
             is_blank_line(line->text.substr(mark + kTitledDump.size())))) {
            return take_dump(*line, mark);
        }
        if (line->text.starts_with(kPlainDump) &&
            looks_like_hex(line->text.substr(kPlainDump.size()))) {
            TraceEntry entry{TraceEntry::Kind::kDump, "",
                             from_hex(line->text.substr(kPlainDump.size())).bytes};
            drop(line->size);
            return entry;
        }
        const std::string text(line->text);
        drop(line->size);
        if (!is_blank_line(text)) {
            return TraceEntry{TraceEntry::Kind::kLine, text, {}};
        }
    }
}

std::optional<TraceEntry> TraceReader::take_log(std::string_view rest) {
    const std::string_view text = rest.substr(kLogLabel.size());
    if (text.size() < kLogHead && !finished_ && text.find("\r\n") == std::string_view::npos) {
        return std::nullopt;
    }
    const std::size_t head = kLogLabel.size() + (has_log_counts(text) ? 2 : 0);
    const auto line = line_at(head);
    if (!line) {
        if (finished_) {
            drop(buffer_.size());
        }
        return std::nullopt;
    }
    TraceEntry entry{
        TraceEntry::Kind::kLine, std::string(rest.substr(0, head)) + std::string(line->text), {}};
    drop(head + line->size);
    return entry;
}

std::optional<TraceEntry> TraceReader::take_object(const Line& first) {
    std::string text(first.text);
    std::size_t at = first.size;
    while (const auto line = line_at(at)) {
        const bool closes = line->text == "}";
        if (!closes && !line->text.starts_with('\t')) {
            drop(at);
            return TraceEntry{TraceEntry::Kind::kLine, text, {}};
        }
        text += '\n';
        text += line->text;
        at += line->size;
        // The library cuts a long line, which then ends as every entry does.
        if (closes || line->ended_as_written) {
            drop(at);
            return TraceEntry{TraceEntry::Kind::kLine, text, {}};
        }
    }
    if (!finished_) {
        return std::nullopt;
    }
    drop(at);
    return TraceEntry{TraceEntry::Kind::kLine, text, {}};
}

std::optional<TraceEntry> TraceReader::take_dump(const Line& first, std::size_t mark) {
    TraceEntry entry{TraceEntry::Kind::kDump, std::string(first.text.substr(0, mark)), {}};
    std::string digits(first.text.substr(mark + kTitledDump.size()));
    std::size_t at = first.size;
    while (true) {
        const auto line = line_at(at);
        if (!line && !finished_ && (!paused_ || at < buffer_.size())) {
            return std::nullopt;
        }
        if (!line || !is_dump_row(line->text)) {
            entry.bytes = from_hex(digits).bytes;
            drop(at);
            return entry;
        }
        digits += line->text;
        at += line->size;
    }
}

} // namespace qaven::cli
