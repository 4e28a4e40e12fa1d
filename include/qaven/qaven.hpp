// qaven.hpp: qaven.h for hosts in C++17 and later. It hides buffers and JSON text; a host passes
// and gets std::string. Link with -lqaven (pkg-config qaven).
//
//     qaven::Library library;
//     const qaven::CardAnswer card = library.read_card({"|A|B", "|A000000333010101"});
//     if (card.code != QAVEN_OK) {
//         std::cerr << card.failure << '\n';
//     }
//     for (const auto& [letter, value] : card.fields) {
//         std::cout << qaven::field_name(letter) << ": " << value << '\n';
//     }
//
// What qaven.h says applies here too: one call at a time, and only read_card reports failure by its
// code. The other answers have empty values then, and a host has to check them. Failure texts and
// values of the card are UTF-8 here; a transaction data string is passed to the card unchanged.
#ifndef QAVEN_QAVEN_HPP
#define QAVEN_QAVEN_HPP

#include <qaven/qaven.h>

#include <iconv.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <iterator>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qaven {

// The result of a call, and the failure text, which is empty if there was none.
struct Outcome {
    int code = QAVEN_OK;
    std::string failure;
};

// The fields of a card, or of an entry of its log, by their letters; values without padding.
using Fields = std::map<char, std::string>;

// The results of the ARQC step; all of them are empty if there is no ARQC.
struct Authorisation {
    std::string application_data;
    std::string arqc; // field-55 text in hex
    std::string field60;
};

struct CardRequest {
    std::string letters;       // of the wanted fields, "|A|B|E|J"
    std::string applications;  // AIDs in hex, separated by "|"
    std::string transaction{}; // transaction data string; needed for the ARQC only
    bool arqc = false;         // whether to go on to the ARQC
};

struct CardAnswer : Outcome {
    Fields fields;
    Authorisation authorisation;
};

struct ArqcAnswer : Outcome {
    Authorisation authorisation;
};

struct IssuerAnswer {
    std::string transaction;      // transaction data string
    std::string application_data; // from the ARQC step
    std::string response;         // tag 91, templates 71 and 72, in hex
    bool approved = false;
};

struct Completion : Outcome {
    std::string tc; // TC data objects in hex
    std::string script_result;
};

struct Log : Outcome {
    bool readable = false;       // not without log, card or reader
    std::vector<Fields> entries; // the newest first; letters P Q R S T U V W X
};

// The name of a field of the card information.
inline std::string field_name(char letter) {
    switch (letter) {
    case 'A':
        return "card number";
    case 'B':
        return "cardholder name";
    case 'C':
        return "ID type";
    case 'D':
        return "ID number";
    case 'E':
        return "track 2 equivalent data";
    case 'F':
        return "track 1 discretionary data";
    case 'G':
        return "cash balance";
    case 'H':
        return "cash balance limit";
    case 'I':
        return "expiry date";
    case 'J':
        return "PAN sequence number";
    case 'K':
        return "single payment limit";
    default:
        return "issuer's data";
    }
}

// An amount of money, in hundredths as cards write it, with its decimals.
inline std::string money(std::string digits) {
    digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size()));
    digits.insert(0, digits.size() < 3 ? 3 - digits.size() : 0, '0');
    return digits.insert(digits.size() - 2, ".");
}

// The value of a data object in a list of tag, one-byte length and value, all in hex; or "".
inline std::string data_object(std::string_view objects, std::string_view tag) {
    const auto byte_at = [&objects](std::size_t digit) {
        return std::strtoul(std::string(objects.substr(digit, 2)).c_str(), nullptr, 16);
    };
    while (objects.size() >= 6) {
        const std::size_t tag_digits = (byte_at(0) & 0x1FU) == 0x1FU ? 4 : 2;
        const std::string_view found = objects.substr(0, tag_digits);
        const std::string_view value = objects.substr(tag_digits + 2, 2 * byte_at(tag_digits));
        if (found == tag) {
            return std::string(value);
        }
        objects.remove_prefix(tag_digits + 2 + value.size());
    }
    return {};
}

namespace detail {

// Texts of library and card are GBK. Each byte that is not GBK becomes a question mark.
inline std::string utf8(std::string gbk) {
    std::string result;
    iconv_t converter = iconv_open("UTF-8", "GBK");
    if (converter == reinterpret_cast<iconv_t>(-1)) {
        return gbk;
    }
    char* from = gbk.data();
    std::size_t left = gbk.size();
    while (left > 0) {
        std::string piece(3 * left, '\0'); // a character of two bytes takes three at most
        char* to = piece.data();
        std::size_t room = piece.size();
        iconv(converter, &from, &left, &to, &room);
        result.append(piece, 0, piece.size() - room);
        if (left > 0) {
            result += '?';
            from = std::next(from);
            --left;
        }
    }
    iconv_close(converter);
    return result;
}

// Each character is worth its code minus that of '0': the length of track 2 may be "02/", which
// is 19.
inline std::size_t field_length(std::string_view characters) {
    int length = 0;
    for (const char character : characters) {
        length = 10 * length + (character - '0');
    }
    return static_cast<std::size_t>(std::max(length, 0));
}

// Letter, three-digit length in bytes, value, repeated; a card's log begins again with P.
inline std::vector<Fields> field_groups(std::string_view text) {
    constexpr std::size_t head = 4;
    std::vector<Fields> groups;
    while (text.size() >= head) {
        const char letter = text.front();
        std::string value(text.substr(head, field_length(text.substr(1, head - 1))));
        text.remove_prefix(head + value.size());
        value.erase(value.find_last_not_of(' ') + 1);
        // NOLINTNEXTLINE(readability-container-contains): C++17 has only count
        if (groups.empty() || groups.back().count(letter) > 0) {
            groups.emplace_back();
        }
        groups.back()[letter] = utf8(std::move(value));
    }
    return groups;
}

// Byte by byte, since the second byte of a GBK character may be a backslash.
inline std::string json_text(std::string_view text) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string json = "\"";
    for (const char byte : text) {
        const auto code = static_cast<unsigned char>(byte);
        if (code < 0x20) {
            json += "\\u00";
            json += digits[code >> 4U];
            json += digits[code & 0xFU];
        } else {
            json.append(byte == '"' || byte == '\\' ? 1 : 0, '\\');
            json += byte;
        }
    }
    return json + '"';
}

using Member = std::pair<const char*, std::string>; // of a JSON object; the value is JSON already

inline std::string json_object(const std::vector<Member>& members) {
    std::string json;
    for (const auto& [key, value] : members) {
        json += (json.empty() ? "{" : ",") + json_text(key) + ':' + value;
    }
    return json + '}';
}

// Returns the next text of the JSON and removes everything up to its end.
inline std::string take_text(std::string_view& json) {
    constexpr std::string_view escaped = "bfnrt";
    constexpr std::string_view unescaped = "\b\f\n\r\t";
    std::string text;
    std::size_t at = json.find('"') + 1; // 0 if there is none
    while (at > 0 && at < json.size() && json[at] != '"') {
        char byte = json[at++];
        if (byte == '\\' && at < json.size()) {
            byte = json[at++];
            const std::size_t known = escaped.find(byte);
            if (byte == 'u') { // so the library writes control bytes, and nothing else
                const std::string code(json.substr(at, 4));
                byte = static_cast<char>(std::strtoul(code.c_str(), nullptr, 16));
                at += code.size();
            } else if (known != std::string_view::npos) {
                byte = unescaped[known];
            }
        }
        text += byte;
    }
    json.remove_prefix(at > 0 && at < json.size() ? at + 1 : json.size());
    return text;
}

// A value of an object that has nothing but texts, as the library's answers; "" if it is missing.
inline std::string member(std::string_view json, std::string_view key) {
    while (!json.empty()) {
        const std::string name = take_text(json);
        std::string value = take_text(json);
        if (name == key) {
            return value;
        }
    }
    return {};
}

inline Authorisation authorisation(std::string_view json) {
    return {member(json, "LpAppData"), member(json, "ARQC"), member(json, "Field60")};
}

} // namespace detail

// The library, from initDriver to deinit. Each member function is one of its entry points.
class Library {
  public:
    Library() noexcept { initDriver(); }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
    ~Library() { deinit(); }

    // QAVEN_getICCardInfo
    CardAnswer read_card(const CardRequest& request) {
        CardAnswer answer;
        const std::string json =
            call(QAVEN_getICCardInfo,
                 {{"TagList", detail::json_text(request.letters)},
                  {"AIDList", detail::json_text(request.applications)},
                  {"aryInput", detail::json_text(request.transaction)},
                  {"isReadArqc", detail::json_text(request.arqc ? "true" : "false")}},
                 answer);
        for (Fields& fields : detail::field_groups(detail::member(json, "IcInfo"))) {
            answer.fields = std::move(fields);
        }
        answer.authorisation = detail::authorisation(detail::member(json, "IcARQC"));
        return answer;
    }

    // QAVEN_genARQC
    ArqcAnswer generate_arqc(const std::string& transaction, const std::string& applications) {
        ArqcAnswer answer;
        answer.authorisation =
            detail::authorisation(call(QAVEN_genARQC,
                                       {{"aryInput", detail::json_text(transaction)},
                                        {"AIDList", detail::json_text(applications)}},
                                       answer));
        return answer;
    }

    // QAVEN_ARPC_ExeICScript
    Completion complete(const IssuerAnswer& issuer) {
        Completion completion;
        const std::string json = call(QAVEN_ARPC_ExeICScript,
                                      {{"Txdata", detail::json_text(issuer.transaction)},
                                       {"LpAppData", detail::json_text(issuer.application_data)},
                                       {"ARPC", detail::json_text(issuer.response)},
                                       {"Status", issuer.approved ? "0" : "1"}},
                                      completion);
        completion.tc = detail::member(json, "TC");
        completion.script_result = detail::member(json, "Scriptresult");
        return completion;
    }

    // QAVEN_GetTxDetail
    Log read_log(const std::string& application) {
        Log log;
        const std::string json =
            call(QAVEN_GetTxDetail, {{"AIDList", detail::json_text(application)}}, log);
        const std::string text = detail::member(json, "TxDtailRet");
        log.readable = text.size() >= 2;
        if (log.readable) { // two bytes that count come first
            log.entries = detail::field_groups(std::string_view(text).substr(2));
        }
        return log;
    }

  private:
    // The answer of an entry point; nothing if it failed.
    std::string call(decltype(QAVEN_getICCardInfo)& function,
                     const std::vector<detail::Member>& request, Outcome& outcome) {
        resmsg_.front() = errmsg_.front() = '\0';
        outcome.code =
            function(detail::json_object(request).c_str(), resmsg_.data(), errmsg_.data(), 0, 0);
        outcome.failure = detail::utf8(errmsg_.data());
        return resmsg_.data();
    }

    std::array<char, QAVEN_RESMSG_SIZE> resmsg_{};
    std::array<char, QAVEN_ERRMSG_SIZE> errmsg_{};
};

} // namespace qaven

#endif
