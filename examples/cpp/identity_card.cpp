// Reads an identity card: finds it on the reader, selects it, reads its base information and lists
// the text. Every reply of the security module is checked before it is used.
//
//   identity_card
//
// The library shows all traffic on standard output; QAVEN_DIAGNOSTICS=off leaves the listing alone.
// Exit status: 0 card read, 1 no reader or a failed transfer, 2 the security module refused.
#include "idcard/icc.h"

#include <cstddef>
#include <cstdio>
#include <span>
#include <vector>

namespace {

enum Exit : int { card_read = 0, no_answer = 1, refused = 2 };

struct Step {
    const char* what;
    unsigned char command;
    unsigned char parameter;
};

constexpr Step find{"find a card", 0x20, 0x01};
constexpr Step select{"select the card", 0x20, 0x02};
constexpr Step read_base{"read its base information", 0x30, 0x01};

using Data = std::vector<unsigned char>;

// The data of the reply ends up in `data`; a failure is told with its cause.
Exit run(const Step& step, Data& data) {
    data.assign(qaven::idcard::kSamvDataCapacity, 0);
    unsigned long length = 0;
    switch (samv_cmd(step.command, step.parameter, data.data(), &length)) {
    case 0:
        data.resize(length);
        return card_read;
    case -2:
        std::fprintf(stderr, "identity_card: could not %s: the reader refused\n", step.what);
        return refused;
    default:
        std::fprintf(stderr, "identity_card: could not %s: no answer from the reader\n", step.what);
        return no_answer;
    }
}

std::size_t big_endian(std::span<const unsigned char, 2> bytes) {
    return static_cast<std::size_t>(bytes[0]) << 8 | bytes[1];
}

// Two lengths of two bytes each, then the text and the picture that they measure.
std::span<unsigned char> text_of(std::span<unsigned char> data) {
    constexpr std::size_t lengths = 4;
    if (data.size() < lengths) {
        return {};
    }
    const std::size_t text_size = big_endian(data.first<2>());
    data = data.subspan(lengths);
    return text_size <= data.size() ? data.first(text_size) : std::span<unsigned char>{};
}

Exit read_card() {
    Data data;
    for (const Step& step : {find, select, read_base}) {
        if (const Exit result = run(step, data); result != card_read) {
            return result;
        }
    }
    const std::span<unsigned char> text = text_of(data);
    if (text.size() < qaven::idcard::kBaseTextUsed) {
        std::fputs("identity_card: the reply holds no text\n", stderr);
        return refused;
    }
    idcard_base_info_parse(text.data());
    return card_read;
}

} // namespace

int main() {
    Exit result = no_answer;
    // An open that found no reader gives 0 as well; the first command then fails.
    if (usb_device_open() == 0) {
        result = read_card();
    }
    usb_device_close();
    return result;
}
