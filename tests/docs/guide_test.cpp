// The host guide is true: what it shows as an example is what the library answers to the debit
// card, call after call in the guide's order, and its table of codes has the library's own texts.
//
// Examples are fenced blocks of the guide:
//
//   ```json request FUNCTION    a call with this JSON text
//   ```json answer              its resmsg; the result is 0
//   ```json answer KEY          the JSON text in that value of the answer before
//   ```text failure CODE        its result and errmsg; resmsg stays empty
//
// A value that ends in "…" is cut: in an answer it shows the value's beginning, in a request it
// stands for the whole value that an earlier answer had under this key.
#include "../temporary_folder.h"
#include "fixed_clock.h"

#include "host/err.h"
#include "qaven/qaven.h"

#include <gtest/gtest.h>
#include <iconv.h>
#include <nlohmann/json.hpp>

#include <array>
#include <cctype>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using namespace qaven::test;

namespace {

using nlohmann::json;
using EntryPoint = int (*)(const char*, char*, char*, int, int);

constexpr std::string_view kCut = "…";

const std::map<std::string, EntryPoint>& entry_points() {
    static const std::map<std::string, EntryPoint> all{
        {"QAVEN_getICCardInfo", QAVEN_getICCardInfo},
        {"QAVEN_genARQC", QAVEN_genARQC},
        {"QAVEN_ARPC_ExeICScript", QAVEN_ARPC_ExeICScript},
        {"QAVEN_GetTxDetail", QAVEN_GetTxDetail},
    };
    return all;
}

std::string content(const std::string& file) {
    std::ifstream stream(file);
    if (!stream) {
        throw std::runtime_error("cannot read " + file);
    }
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

std::vector<std::string> lines_of(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::string converted(std::string_view text, const char* to_code, const char* from_code) {
    iconv_t conversion = iconv_open(to_code, from_code);
    if (conversion == reinterpret_cast<iconv_t>(-1)) {
        throw std::runtime_error(std::string("no conversion from ") + from_code);
    }
    std::string in(text);
    std::string out(3 * in.size(), '\0');
    char* from = in.data();
    char* to = out.data();
    std::size_t from_left = in.size();
    std::size_t to_left = out.size();
    iconv(conversion, &from, &from_left, &to, &to_left);
    iconv_close(conversion);
    EXPECT_EQ(from_left, 0U) << "no " << from_code << " text";
    out.resize(out.size() - to_left);
    return out;
}

std::string utf8(std::string_view gbk) {
    return converted(gbk, "UTF-8", "GBK");
}

std::string trimmed(const std::string& text) {
    constexpr const char* kBlanks = " \t\n";
    const auto first = text.find_first_not_of(kBlanks);
    return first == std::string::npos
               ? ""
               : text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// A fenced block with more than one word behind its fence.
struct Block {
    std::size_t line = 0;
    std::string kind; // request, answer, failure
    std::string name; // function, key, code
    std::string text;
};

// What follows the beginning of a text, if it begins so.
std::optional<std::string> after(const std::string& text, std::string_view beginning) {
    return text.starts_with(beginning) ? std::optional(text.substr(beginning.size()))
                                       : std::nullopt;
}

std::optional<Block> block_that_begins(const std::string& line, std::size_t number) {
    for (const std::string fence : {"```json ", "```text "}) {
        for (const char* kind : {"request", "answer", "failure"}) {
            if (const auto name = after(line, fence + kind)) {
                return Block{number, kind, trimmed(*name), ""};
            }
        }
    }
    return std::nullopt;
}

std::vector<Block> blocks_of(const std::string& guide) {
    std::vector<Block> blocks;
    bool inside = false;
    std::size_t number = 0;
    for (const std::string& line : lines_of(guide)) {
        ++number;
        if (inside && line == "```") {
            inside = false;
        } else if (inside) {
            blocks.back().text += line + '\n';
        } else if (auto block = block_that_begins(line, number)) {
            blocks.push_back(std::move(*block));
            inside = true;
        }
    }
    return blocks;
}

// A host that does what the guide shows.
// NOLINTNEXTLINE(bugprone-exception-escape): an empty JSON value takes no memory
class Reader {
  public:
    void take(const Block& block) {
        if (block.kind == "request") {
            call(block);
        } else if (block.kind == "failure") {
            EXPECT_EQ(result_, std::stoi(block.name));
            EXPECT_EQ(trimmed(utf8(errmsg_.data())), trimmed(block.text));
            EXPECT_EQ(resmsg_, "");
        } else if (block.name.empty()) {
            EXPECT_EQ(result_, QAVEN_OK);
            answer_ = json::parse(resmsg_);
            expect_shown(json::parse(block.text));
        } else {
            answer_ = json::parse(answer_.at(block.name).get<std::string>());
            expect_shown(json::parse(block.text));
        }
    }

  private:
    void call(const Block& block) {
        json request = json::parse(block.text);
        for (auto& [key, value] : request.items()) {
            if (value.is_string() && value.get<std::string>().ends_with(kCut)) {
                EXPECT_TRUE(seen_.at(key).starts_with(beginning(value)));
                value = seen_.at(key);
            }
        }
        std::string resmsg(QAVEN_RESMSG_SIZE, '\0');
        errmsg_.fill('\0');
        result_ = entry_points().at(block.name)(request.dump().c_str(), resmsg.data(),
                                                errmsg_.data(), 0, 0);
        resmsg_.assign(resmsg, 0, resmsg.find('\0'));
    }

    static std::string beginning(const std::string& value) {
        return value.substr(0, value.size() - kCut.size());
    }

    // The answer has the shown keys and no others, and the shown values.
    void expect_shown(const json& shown) {
        EXPECT_EQ(answer_.size(), shown.size()) << answer_;
        for (const auto& [key, value] : shown.items()) {
            const std::string expected = value;
            const std::string actual = answer_.at(key);
            seen_[key] = actual;
            EXPECT_EQ(expected.ends_with(kCut)
                          ? actual.substr(0, expected.size() - kCut.size()) + std::string(kCut)
                          : actual,
                      expected)
                << "the whole value of " << key << " is\n"
                << json(actual);
        }
    }

    int result_ = 0;
    std::string resmsg_;
    std::array<char, QAVEN_ERRMSG_SIZE> errmsg_{};
    json answer_;
    std::map<std::string, std::string> seen_;
};

TEST(HostGuide, ShowsCallsThatTheLibraryAnswersSo) {
    const FixedClock clock(2019, 4, 22, 16, 13, 55);
    const auto blocks = blocks_of(content(QAVEN_HOST_GUIDE));
    Reader reader;
    std::set<std::string> called;
    for (const Block& block : blocks) {
        SCOPED_TRACE("host-guide.md:" + std::to_string(block.line));
        reader.take(block);
        if (block.kind == "request") {
            called.insert(block.name);
        }
    }
    EXPECT_EQ(called.size(), entry_points().size());
}

// The name on this card is Chinese, and one of its bytes is that of a backslash.
TEST(CardWithAChineseName, IsReadAsTheGuideSays) {
    std::string resmsg(QAVEN_RESMSG_SIZE, '\0');
    std::array<char, QAVEN_ERRMSG_SIZE> errmsg{};
    ASSERT_EQ(QAVEN_getICCardInfo(R"({"TagList":"BJ","AIDList":"","aryInput":"","isReadArqc":""})",
                                  resmsg.data(), errmsg.data(), 0, 0),
              QAVEN_OK);
    EXPECT_FALSE(json::accept(resmsg.c_str())) << "UTF-8 is a reading of this answer";
    EXPECT_FALSE(json::accept(utf8(resmsg.c_str()))) << "GBK before JSON is a reading of it";

    const json answer = json::parse(converted(resmsg.c_str(), "UTF-8", "ISO-8859-1"));
    const std::string bytes =
        converted(answer.at("IcInfo").get<std::string>(), "ISO-8859-1", "UTF-8");
    ASSERT_EQ(bytes.substr(0, 4), "B006");
    EXPECT_EQ(utf8(bytes.substr(4, 6)), "张乗丽");
    EXPECT_EQ(bytes.substr(10), "J003001");
}

// The number that a text is from its first character to its last.
std::optional<int> number_in(const std::string& text) {
    std::istringstream stream(text);
    int number = 0;
    return stream >> number && stream.eof() ? std::optional(number) : std::nullopt;
}

// Code and text of each row of the guide's table of codes.
std::map<int, std::string> rows_of_code_table() {
    std::map<int, std::string> rows;
    for (const std::string& line : lines_of(content(QAVEN_HOST_GUIDE))) {
        std::istringstream cells(line);
        std::string empty;
        std::string code;
        std::string text;
        std::getline(cells, empty, '|');
        std::getline(cells, code, '|');
        if (!std::getline(cells, text, '|') || cells.eof() || !empty.empty()) {
            continue;
        }
        // Other tables pad their first column.
        const auto number = number_in(trimmed(code));
        if (number && code == " " + std::to_string(*number) + " ") {
            EXPECT_TRUE(rows.emplace(*number, trimmed(text)).second) << line;
        }
    }
    return rows;
}

// The names of the header in a text, each with what follows it.
std::vector<std::pair<std::string, std::string>> names_in(const std::string& text) {
    constexpr std::string_view kPrefix = "QAVEN_";
    std::vector<std::pair<std::string, std::string>> names;
    for (auto at = text.find(kPrefix); at != std::string::npos; at = text.find(kPrefix, at)) {
        std::size_t end = at;
        while (end < text.size() &&
               (text[end] == '_' || std::isalnum(static_cast<unsigned char>(text[end])) != 0)) {
            ++end;
        }
        names.emplace_back(text.substr(at, end - at), text.substr(end, text.find('\n', end) - end));
        at = end;
    }
    return names;
}

TEST(HostGuide, GivesEveryCodeTheLibrarysOwnText) {
    auto rows = rows_of_code_table();
    for (const err_entry* entry = err_code_decsript; entry->code != 0; ++entry) {
        const std::string text = trimmed(utf8(entry->text));
        const auto row = rows.find(entry->code);
        if (row != rows.end()) {
            EXPECT_EQ(row->second, text) << entry->code;
            rows.erase(row);
        } else {
            EXPECT_EQ(text, "") << entry->code << " is not in the table";
        }
    }
    for (const auto& [code, text] : rows) {
        EXPECT_EQ(text, "") << code << " has no text in the library";
    }
}

TEST(HostGuide, TellsOfEveryResultThatTheHeaderNames) {
    const auto rows = rows_of_code_table();
    std::size_t constants = 0;
    for (const auto& [name, rest] : names_in(content(QAVEN_HEADER))) {
        const auto value = after(rest, " = ");
        if (!value) {
            continue;
        }
        const auto number = number_in(value->substr(0, value->find_first_of(", ")));
        ASSERT_TRUE(number) << name << rest;
        ++constants;
        EXPECT_TRUE(rows.contains(*number)) << name;
    }
    EXPECT_GT(constants, 10U);
}

TEST(HostGuide, NamesNothingThatTheHeaderLacks) {
    const std::string header = content(QAVEN_HEADER);
    const std::string guide = content(QAVEN_HOST_GUIDE);
    for (const auto& [name, rest] : names_in(guide)) {
        if (name != "QAVEN_DIAGNOSTICS") {
            EXPECT_NE(header.find(name), std::string::npos) << name;
        }
    }
}

} // namespace

// NOLINTNEXTLINE(bugprone-exception-escape): what ends the run there is a failure of the run
int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    const WorkingFolder folder;
    setenv("QAVEN_DIAGNOSTICS", "off", 1);

    const int result = RUN_ALL_TESTS();
    if (testing::UnitTest::GetInstance()->test_to_run_count() == 0) {
        std::cerr << "no test has this name\n";
        return EXIT_FAILURE;
    }
    return result;
}
