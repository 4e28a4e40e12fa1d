// The texts of careless hosts.
#include "careless_host.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>
#include <utility>

namespace qaven::sweep {

namespace {

using namespace std::string_literals;

constexpr std::size_t ten_kilobytes = 10'240;
constexpr std::size_t megabyte = 1'048'576;

class Collection {
  public:
    void add(const std::string& kind, std::string text) { all_.push_back({kind, std::move(text)}); }

    void add_all(const std::string& kind, std::vector<std::string> texts) {
        for (std::string& text : texts) {
            add(kind, std::move(text));
        }
    }

    void add_null() { all_.push_back({"null pointer", std::nullopt}); }

    std::vector<Sent> take() { return std::move(all_); }

  private:
    std::vector<Sent> all_;
};

// The piece again and again, until the text is that long. Doubling, because the long texts are
// many.
std::string filled(std::string_view piece, std::size_t size) {
    std::string text(piece);
    text.reserve(2 * size);
    while (text.size() < size) {
        text.append(text);
    }
    text.resize(size);
    return text;
}

std::string repeated(std::string_view piece, std::size_t count) {
    return filled(piece, piece.size() * count);
}

// --- what can stand in any text's place ---

void add_any(Collection& sent, const std::string& good) {
    sent.add("empty", "");
    sent.add_all("printf directives", {"%s%s%s%s", "%n%n", "%99999d", "%1$*2$s" + good, "%"});
    sent.add_all("bytes from 80 on",
                 {filled("\xFF", 64), filled("\x80", 64), "\xC9\xCC\xBB\xA7", good + "\xFF"});
    sent.add_all("control bytes", {"\x01\x02\x03", "\r\n", "\t" + good, "\x1B[2J"});
    for (const std::string& piece : {"0"s, "F"s, "A"s, "|"s, "%s"s}) {
        sent.add("10 KB of " + piece, filled(piece, ten_kilobytes));
        sent.add("1 MB of " + piece, filled(piece, megabyte));
    }
}

// --- texts that are to be hexadecimal ---

void add_not_hexadecimal(Collection& sent, const std::string& good) {
    sent.add_all("odd-length hex", {good.substr(0, good.size() - 1), good + "0", "9"});
    sent.add_all("not hex", {"XYZZ", "GHIJKLMN", "    ", "A0 00 00 03 33 ", "-1+2", "0x910A"});
}

void add_lying_aids(Collection& sent) {
    sent.add_all("AID of no card", {"B000000999", "A0000009990101", "FF"});
    sent.add_all("AID too long", {repeated("A0", 17), "A000000333010101" + repeated("00", 9),
                                  repeated("A0", 255), repeated("A0", 256), repeated("A0", 257)});
    sent.add_all("begins with 0", {"0", "00A000000333", "0|A000000333010101"});
    sent.add_all("bars", {"|", "||||", "A000000333010101|", "|||A000000333010101"});
    sent.add("300 AIDs of no card", filled("B000000999|", std::size_t{300} * 11) + "B000000999");
    sent.add("300 AIDs, then the card's",
             filled("B000000999|", std::size_t{300} * 11) + "A000000333010101");
}

void add_lying_letters(Collection& sent) {
    sent.add_all("letters of no field", {"XYZ", "abcdef", "T", "123", "PQRS"});
    sent.add_all("letters twice", {"AA", "|A|A|B|B", filled("ABJ", 300)});
}

void add_lying_transaction(Collection& sent, const std::string& good) {
    sent.add_all("length past the end", {"P012", "V999AB", "S008201904", good + "V020AB"});
    sent.add_all("length of no number", {"PXYZ", "P   ", "S00X20190422", good + "V0x2AB"});
    sent.add_all("length below 0", {"P-12000000001213", "V-99AB", "S-08" + good});
    sent.add_all("length 0", {"P000Q000R000S000T000U000V000Z000", "V000", "S000" + good});
    sent.add_all("odd number of digits", {"P011" + filled("1", 11), "T0013", "S00720190422"});
    sent.add_all("not digits", {"P012ABCDEFGHIJKL", "S008        ", "U00616:135"});
    sent.add_all("value too long",
                 {"P998" + filled("9", 998), "V999" + filled("M", 999), "S999" + filled("2", 999),
                  "U256" + filled("1", 256), "T130" + filled("3", 130)});
    sent.add_all("cut", {good.substr(0, 1), good.substr(0, 3), good.substr(0, 4),
                         good.substr(0, 17), good.substr(0, 40)});
    sent.add_all("twice", {good + good, repeated("T00203", 1000)});
    sent.add("1,000 long records", repeated("V999" + filled("M", 999), 1000));
    sent.add_all("other letters", {"p012000000001213", "A003123",
                                   "\xFF"
                                   "003123"});
}

void add_lying_application_data(Collection& sent, const std::string& good) {
    constexpr std::size_t count_digits = 6;
    const std::string digits = good.substr(count_digits);
    sent.add_all("count too large", {"999999" + digits, "008001" + digits, "004096" + digits});
    sent.add_all("count too small", {"000000" + digits, "000001" + digits, "000010" + digits});
    sent.add_all("count below 0", {"-00001" + digits, "-99999" + digits});
    sent.add_all("count of no number", {"ABCDEF" + digits, "      " + digits, "0x0100" + digits});
    sent.add_all("no digits behind the count", {"000100", "00010", "0", "999999"});
    sent.add("digits without a count", digits);
    std::string large = "007000" + digits;
    large += repeated("5A0100", (7000 - digits.size() / 2) / 3);
    sent.add("7,000 bytes", large);
    sent.add("9,000 bytes", "009000" + digits + repeated("5A0100", 3000));
}

// Every digit pair that could be a length byte, with what lengths lie about.
void add_lying_response(Collection& sent, const std::string& good) {
    for (const char* const length : {"00", "01", "09", "7F", "80", "81", "82", "FF"}) {
        std::string lying = good;
        lying.replace(2, 2, length);
        sent.add("length of 91 "s + length, lying);
    }
    for (const std::string_view tag : {"72", "9F18", "86"}) {
        const std::size_t at = good.find(tag, 24);
        for (const char* const length : {"00", "7F", "80", "81", "82", "FF"}) {
            std::string lying = good;
            lying.replace(at + tag.size(), 2, length);
            sent.add("length of " + std::string(tag) + " wrong", lying);
        }
    }
    for (std::size_t size = 2; size < good.size(); size += 2) {
        sent.add(size < 24 ? "cut in 91" : "cut in 72", good.substr(0, size));
    }
    const std::string authentication = good.substr(0, 24);
    sent.add("without a script", authentication);
    sent.add("script alone", good.substr(24));
    sent.add_all("script of nothing", {authentication + "7200", authentication + "72028600",
                                       authentication + "7204860284FF"});
    sent.add_all("script of 400 empty commands",
                 {authentication + "728203" + "20" + repeated("8600", 400)});
    sent.add("1,023 bytes",
             authentication + "728203EF" + filled("9F180400000000", std::size_t{2} * 1007));
    sent.add("1,024 bytes",
             authentication + "728203F0" + filled("9F180400000000", std::size_t{2} * 1008));
    sent.add_all("authentication of another card",
                 {"910A" + filled("1122334455667788", 16) + "3030"});
}

void add_lying_status(Collection& sent) {
    sent.add_all("begins with no number", {"abc", " ", "x1"});
    sent.add_all("zero in other words", {"00", "+0", "-0", " 0", "0x1", "0abc"});
    sent.add_all("not zero", {"1", "-1", "99", "99999999999999999999", "-99999999999999999999"});
}

void add_lying(Collection& sent, Content content, const std::string& good) {
    switch (content) {
    case Content::letters:
        add_lying_letters(sent);
        break;
    case Content::aids:
    case Content::aid:
        add_not_hexadecimal(sent, content == Content::aid ? good : "A000000333010101");
        add_lying_aids(sent);
        break;
    case Content::transaction:
        add_lying_transaction(sent, good);
        break;
    case Content::flag:
        sent.add_all("other words", {"TRUE", "1", "yes", "true ", " True", "truE"});
        break;
    case Content::application_data:
        add_not_hexadecimal(sent, good);
        add_lying_application_data(sent, good);
        break;
    case Content::response:
        add_not_hexadecimal(sent, good);
        add_lying_response(sent, good);
        break;
    case Content::status:
        add_lying_status(sent);
        break;
    case Content::unread:
        break;
    }
}

// --- JSON ---

std::string member(const std::string& key, const std::string& value) {
    return quoted(key) + ":" + value;
}

std::string nested(std::string_view open, std::size_t depth, std::string_view close) {
    return repeated(open, depth) + repeated(close, depth);
}

void add_wrong_types(Collection& sent, const std::string& key, bool is_number) {
    if (is_number) {
        sent.add_all("text", {member(key, "\"0\""), member(key, "\"\"")});
    } else {
        sent.add_all("number", {member(key, "0"), member(key, "-1.5"), member(key, "1e99")});
    }
    sent.add_all("bool", {member(key, "true"), member(key, "false")});
    sent.add("null", member(key, "null"));
    sent.add_all("array", {member(key, "[]"), member(key, "[\"true\"]"), member(key, "[0]")});
    sent.add_all("object", {member(key, "{}"), member(key, R"({"a":"b"})")});
}

void add_nesting(Collection& sent, const std::string& key) {
    for (const std::size_t depth : {std::size_t{900}, std::size_t{10'000}, std::size_t{300'000}}) {
        const std::string kind = "nested " + std::to_string(depth) + " deep";
        sent.add(kind, member(key, nested("[", depth, "]")));
        sent.add(kind,
                 member(key, nested("{\"a\":", depth - 1, "") + "{}" + repeated("}", depth - 1)));
        sent.add(kind + ", not closed", member(key, nested("[", depth, "")));
    }
}

void add_duplicates(Collection& sent, const std::string& key, const std::string& good) {
    const std::string right = member(key, good);
    sent.add_all("twice, the right one first",
                 {right + "," + member(key, "\"\""), right + "," + member(key, "[]"),
                  right + "," + member(key, "\"B000000999\"")});
    sent.add_all("twice, the right one last, the first of a wrong type",
                 {member(key, "[]") + "," + right, member(key, "null") + "," + right});
}

void add_keys(Collection& sent, const std::string& key, const std::string& good) {
    sent.add("missing", "");
    std::string other_case = key;
    for (char& letter : other_case) {
        letter = static_cast<char>(static_cast<unsigned char>(letter) ^ 0x20U);
    }
    sent.add("key in other case", member(other_case, good));
    sent.add_all("key with more or less",
                 {member(key + "x", good), member(" " + key, good), member(key.substr(1), good)});
}

std::string quoted(const std::string& first, const std::string& second,
                   const std::string& third = {}) {
    std::string text = "\"";
    text.append(first).append(second).append(third).append("\"");
    return text;
}

// Escapes and bytes inside a JSON text, put in front of, into the middle of and behind the good
// one.
void add_inside_text(Collection& sent, const std::string& kind, const std::string& key,
                     const std::string& good, const std::vector<std::string>& pieces) {
    for (const std::string& piece : pieces) {
        sent.add(kind + " in front", member(key, quoted(piece, good)));
        sent.add(kind + " inside", member(key, quoted(good.substr(0, good.size() / 2), piece,
                                                      good.substr(good.size() / 2))));
        sent.add(kind + " behind", member(key, quoted(good, piece)));
    }
}

} // namespace

std::string quoted(const std::string& text) {
    const auto stands_as_it_is = [](char byte) {
        return byte != '"' && byte != '\\' && static_cast<unsigned char>(byte) >= 0x20U;
    };
    std::string json = "\"";
    for (auto rest = text.begin(); rest != text.end();) {
        const auto special = std::find_if_not(rest, text.end(), stands_as_it_is);
        json.append(rest, special);
        if (special == text.end()) {
            break;
        }
        std::array<char, 8> escape{'\\', *special};
        if (static_cast<unsigned char>(*special) < 0x20U) {
            std::snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned>(*special));
        }
        json += escape.data();
        rest = special + 1;
    }
    return json + "\"";
}

std::vector<Sent> careless_texts(Content content, const std::string& good) {
    Collection sent;
    sent.add_null();
    add_any(sent, good);
    add_lying(sent, content, good);
    return sent.take();
}

std::vector<Sent> careless_members(const std::string& key, Content content,
                                   const std::string& good) {
    Collection sent;
    const bool is_number = content == Content::status;
    const std::string good_value = is_number ? good : quoted(good);
    add_keys(sent, key, good_value);
    add_wrong_types(sent, key, is_number);
    add_nesting(sent, key);
    add_duplicates(sent, key, good_value);
    if (is_number) {
        sent.add_all("not zero", {member(key, "1"), member(key, "-1"), member(key, "99")});
        sent.add_all("number beyond an int",
                     {member(key, "1e99"), member(key, "-1e99"), member(key, "4294967296")});
        sent.add_all("fraction of 1",
                     {member(key, "0.9"), member(key, "-0.9"), member(key, "1e-9")});
        sent.add_all("zero in other words",
                     {member(key, "-0"), member(key, "0e0"), member(key, "0.0")});
        sent.add_all("number of no form",
                     {member(key, "--1"), member(key, "0x0"), member(key, "NaN"), member(key, "")});
        sent.add("1 MB of digits", member(key, filled("1", megabyte)));
        return sent.take();
    }
    add_inside_text(sent, "\\u0000", key, good, {"\\u0000"});
    add_inside_text(sent, "half a surrogate pair", key, good, {"\\uD800", "\\uDC00"});
    add_inside_text(sent, "invalid UTF-8", key, good,
                    {"\xC3\x28", "\xFF", "\xE2\x82", "\xC0\x80", "\xF5\x80\x80\x80"});
    add_inside_text(sent, "escape of no form", key, good, {"\\x41", "\\u12", "\\"});
    Collection plain;
    add_any(plain, good);
    add_lying(plain, content, good);
    for (const Sent& text : plain.take()) {
        sent.add(text.kind, member(key, quoted(*text.text)));
    }
    return sent.take();
}

std::vector<Sent> careless_documents(const std::string& good) {
    Collection sent;
    sent.add_null();
    sent.add_all("empty or blank", {"", " ", "\r\n\t", filled(" ", megabyte)});
    sent.add_all("no JSON", {"hello", "<xml/>", "\xFF\xFE", "%s%n", "{", "}", "{\"", "{\"TagList\"",
                             "\xEF\xBB\xBF", filled("A", megabyte), filled("{", megabyte),
                             filled("\"", megabyte)});
    sent.add_all("JSON, but no object",
                 {"[]", "\"text\"", "0", "null", "true", "[" + good + "]", quoted(good)});
    sent.add("empty object", "{}");
    sent.add_all("single quotes, comments, bare keys",
                 {"{'AIDList':''}", "/* */" + good, "// " + good, "{AIDList:\"\"}"});
    sent.add_all("cut", {good.substr(0, good.size() - 1), good.substr(0, good.size() / 2),
                         good.substr(0, 2)});
    sent.add_all("comma behind the last member", {good.substr(0, good.size() - 1) + ",}"});
    sent.add("byte order mark in front", "\xEF\xBB\xBF" + good);
    sent.add_all("more behind the object", {good + "}", good + good, good + " rubbish"});
    sent.add_all("1 MB of blanks around", {filled(" ", megabyte) + good + filled("\n", megabyte)});
    for (const std::size_t depth : {std::size_t{10'000}, std::size_t{300'000}}) {
        sent.add_all("nested " + std::to_string(depth) + " deep",
                     {nested("[", depth, "]"), nested("{\"a\":", depth, ""),
                      nested("[{\"a\":", depth, "}]")});
    }
    // Members that no entry point reads.
    const std::string opened = good.substr(0, good.size() - 1);
    sent.add("100,000 other members", opened + repeated(",\"other\":0", 100'000) + "}");
    sent.add("1 MB in another member", opened + R"(,"other":")" + filled("A", megabyte) + "\"}");
    sent.add("another member nested 900 deep",
             opened + ",\"other\":" + nested("[", 900, "]") + "}");
    return sent.take();
}

} // namespace qaven::sweep
