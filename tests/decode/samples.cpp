// Values as cards, issuers and the library gave them.
#include "samples.h"

#include "tools/emv/hex.h"
#include "tools/qaven/decode/decode.h"
#include "tools/qaven/decode/trace_printer.h"
#include "tools/qaven/decode/trace_reader.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace qaven::cli::test {

using namespace emv;

namespace {

namespace fs = std::filesystem;

std::string content_of(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("no sample " + path.string());
    }
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace

void PrintTo(const Sample& sample, std::ostream* out) {
    *out << sample.name;
}

std::vector<Sample> samples() {
    constexpr std::string_view kForced = ".as-";
    std::vector<Sample> result;
    for (const auto& entry : fs::directory_iterator(QAVEN_DECODE_SAMPLES)) {
        if (entry.path().extension() != ".txt") {
            continue;
        }
        const std::string name = entry.path().stem().string();
        const std::size_t forced = name.find(kForced);
        result.push_back({name.substr(0, forced), content_of(entry.path()),
                          forced == std::string::npos ? "" : name.substr(forced + kForced.size())});
    }
    std::ranges::sort(result, {}, &Sample::name);
    return result;
}

std::string sample_file(const std::string& name) {
    return content_of(fs::path(QAVEN_DECODE_SAMPLES) / name);
}

std::string decoded(const std::string& text, const std::string& form, bool show_pan) {
    Privacy privacy(show_pan);
    Outline out(privacy);
    decode(cleaned_input(text), form.empty() ? nullptr : form_named(form), out);
    return out.text();
}

std::string traced(const std::string& log, bool show_pan) {
    Privacy privacy(show_pan);
    TracePrinter printer(privacy);
    TraceReader reader;
    reader.feed(log);
    reader.finish();
    std::string text;
    while (const auto entry = reader.next()) {
        text += printer.text(*entry);
    }
    return text;
}

bool shows(const std::string& text, const std::string& number, std::size_t too_many) {
    std::string joined = upper(text);
    std::erase_if(joined, [](char c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; });
    for (std::size_t at = 0; at + too_many <= number.size(); ++at) {
        const std::string digits = number.substr(at, too_many);
        if (joined.find(digits) != std::string::npos ||
            joined.find(hex(bytes_of(digits))) != std::string::npos) {
            return true;
        }
    }
    return false;
}

} // namespace qaven::cli::test
