// A terminal for tests.
#include "counter_terminal.h"

#include <stdexcept>

namespace qaven::card_test {

namespace card = virtual_card;

std::filesystem::path profile_file(std::string_view name) {
    return std::filesystem::path(QAVEN_PROFILES) / (std::string(name) + ".json");
}

Profile profile(std::string_view name) {
    return card::load_profile(profile_file(name));
}

virtual_issuer::Issuer issuer_of(std::string_view name) {
    return virtual_issuer::Issuer::from_profile(profile_file(name));
}

Bytes hex(std::string_view text) {
    const auto bytes = card::from_hex(text);
    if (!bytes) {
        throw std::invalid_argument("not hexadecimal: " + std::string(text));
    }
    return *bytes;
}

std::ostream& operator<<(std::ostream& out, const Reply& reply) {
    return out << (reply.data.empty() ? "no data" : reply.data) << ", status " << reply.status;
}

Reply refused(std::string_view status) {
    return {"", std::string(status)};
}

Reply accepted(std::string_view data) {
    return {card::to_hex(hex(data)), "9000"};
}

Reply CounterTerminal::send(std::string_view command_hex) {
    const Bytes answer = icc_.transmit(hex(command_hex));
    if (answer.size() < 2) {
        throw std::runtime_error("the card gave no status word");
    }
    const ByteView view(answer);
    return {card::to_hex(view.first(view.size() - 2)), card::to_hex(view.last(2))};
}

Reply CounterTerminal::send_with_data(std::string_view header_hex, ByteView data_bytes) {
    const Bytes length = {static_cast<std::uint8_t>(data_bytes.size())};
    return send(card::to_hex(card::concatenate({hex(header_hex), length, data_bytes})));
}

Reply CounterTerminal::select(std::string_view aid) {
    return send_with_data("00A40400", hex(aid));
}

Reply CounterTerminal::begin(std::string_view aid) {
    const Bytes information = hex(select(aid).data);
    const Bytes pdol = card::find_object(information, 0x9F38).value_or(Bytes{});
    Reply options = send_with_data("80A80000", card::encode_object(0x83, fill(pdol)));
    if (options.status != "9000" || options.data.substr(0, 2) != "80") {
        return options;
    }
    const Bytes value = card::find_object(hex(options.data), 0x80).value();
    aip_ = card::to_hex(ByteView(value).first(2));
    records_.clear();
    for (std::size_t entry = 2; entry + 4 <= value.size(); entry += 4) {
        for (unsigned number = value[entry + 1]; number <= value[entry + 2]; ++number) {
            const Bytes command = {0x00, 0xB2, static_cast<std::uint8_t>(number),
                                   static_cast<std::uint8_t>(value[entry] | 0x04U), 0x00};
            card::append(records_, hex(send(card::to_hex(command)).data));
        }
    }
    return options;
}

Bytes CounterTerminal::record_object(TagNumber tag) {
    return card::find_object(records_, tag).value();
}

Bytes CounterTerminal::fill(ByteView dol) const {
    Bytes values;
    const auto list = card::parse_dol(dol).value();
    for (const card::DolEntry& entry : list) {
        const Bytes value = hex(data.at(entry.tag));
        if (value.size() != entry.length) {
            throw std::runtime_error("the card asks for another length");
        }
        card::append(values, value);
    }
    return values;
}

Reply CounterTerminal::first_cryptogram(std::string_view p1) {
    return send_with_data("80AE" + std::string(p1) + "00", fill(record_object(0x8C)));
}

Reply CounterTerminal::second_cryptogram(std::string_view p1) {
    return send_with_data("80AE" + std::string(p1) + "00", fill(record_object(0x8D)));
}

std::string CounterTerminal::field55(const Reply& cryptogram) {
    const Bytes value = card::find_object(hex(cryptogram.data), 0x80).value();
    const ByteView view(value);
    Bytes field;
    const auto add = [&field](TagNumber tag, ByteView object) {
        card::append(field, card::encode_object(tag, object));
    };
    add(0x9F26, view.subspan(3, 8));
    add(0x9F27, view.first(1));
    add(0x9F10, view.subspan(11));
    add(0x9F37, hex(data.at(0x9F37)));
    add(0x9F36, view.subspan(1, 2));
    add(0x95, hex(data.at(0x95)));
    card::append(field, hex(send("80CA9F1300").data));
    for (const TagNumber tag :
         {TagNumber{0x9A}, TagNumber{0x9C}, TagNumber{0x9F02}, TagNumber{0x5F2A}}) {
        add(tag, hex(data.at(tag)));
    }
    add(0x5A, record_object(0x5A));
    add(0x5F34, record_object(0x5F34));
    add(0x82, hex(aip_));
    add(0x9F1A, hex(data.at(0x9F1A)));
    add(0x9F03, hex(data.at(0x9F03)));
    add(0x9F33, hex("20A100"));
    return card::to_hex(field);
}

std::string CounterTerminal::authenticate(ByteView issuer_response) {
    return send_with_data("00820000", card::find_object(issuer_response, 0x91).value()).status;
}

std::string CounterTerminal::run_script(ByteView issuer_response) {
    std::string results;
    Bytes rest = card::find_object(issuer_response, 0x72).value();
    while (const auto command = card::find_object(rest, 0x86)) {
        results += (results.empty() ? "" : " ") + send(card::to_hex(*command)).status;
        const Bytes whole = card::encode_object(0x86, *command);
        const std::string text = card::to_hex(rest);
        const std::string needle = card::to_hex(whole);
        rest = hex(text.substr(text.find(needle) + needle.size()));
    }
    return results;
}

} // namespace qaven::card_test
