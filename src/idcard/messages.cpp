// What a bench front end needs beside the device: coloured messages, hex in and out, its usage
// text.
#include "idcard/messages.h"

#include <cstdarg>
#include <cstdio>
#include <string_view>

namespace qaven::idcard {

const char* colour_of(log_level level) {
    switch (level) {
    case LOG_LEVEL_ERROR:
        return "\033[0;31m";
    case LOG_LEVEL_WARNING:
        return "\033[1;33m";
    case LOG_LEVEL_INFORMATION:
        return "\033[0;32m";
    case LOG_LEVEL_PLAIN:
        break;
    }
    return "\033[0m";
}

DumpRow dump_row(std::span<const std::uint8_t> bytes) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    DumpRow text{};
    std::size_t end = 0;
    for (const std::uint8_t byte : bytes) {
        text[end++] = kDigits[byte >> 4U];
        text[end++] = kDigits[byte & 0x0FU];
        text[end++] = ' ';
    }
    text[end] = '\n';
    return text;
}

namespace {

void print_formatted(log_level level, const char* format, std::va_list arguments) {
    std::fputs(colour_of(level), stdout);
    std::vprintf(format, arguments);
    std::fputs(kColourEnd, stdout);
}

int packed_digit(char character) {
    if (character >= '0' && character <= '9') {
        return character - '0';
    }
    if (character >= 'A' && character <= 'F') {
        return character - 'A' + 10;
    }
    if (character >= 'a' && character <= 'f') {
        return character - 'a' + 10;
    }
    return 0;
}

} // namespace

void message(log_level level, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    print_formatted(level, format, arguments);
    va_end(arguments);
}

} // namespace qaven::idcard

namespace idcard = qaven::idcard;

void print(log_level level, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    idcard::print_formatted(level, format, arguments);
    va_end(arguments);
}

void print_buf(char* title, unsigned char* buf, unsigned long len) {
    if (title != nullptr) {
        std::fputs(title, stdout);
    }
    if (buf != nullptr) {
        idcard::dump_rows({buf, len}, [](const char* row) { std::fputs(row, stdout); });
    }
}

int hex2bcd(const char* hex, unsigned long len, unsigned char* out) {
    for (unsigned long i = 0; i < len / 2; ++i) {
        const int high = idcard::packed_digit(hex[2 * i]);
        const int low = idcard::packed_digit(hex[2 * i + 1]);
        out[i] = static_cast<unsigned char>(high << 4 | low);
    }
    return 0;
}

void usage(const char* program) {
    std::printf("usage: %s [-h] [-c cmd] [-b] [-f] [-l] [-n num/name] [-t type]\n", program);
    std::fputs("    -h              : display usage\n"
               "    -c cmd          : send samv command\n"
               "                        -c 2001 --> find idcard\n"
               "                        -c 2002 --> select idcard\n"
               "                        -c 3001 --> read idcard base info\n"
               "    -b              : get idcard base information\n"
               "    -f              : get idcard base information and finger data\n"
               "    -l              : list CCID reader\n"
               "    -n num/name     : test CCID reader. e.g:\n"
               "                        -n 1           --> one digit from list CCID reader\n"
               "                        -n contactless --> specify the reader name\n"
               "    -t type         : test CCID reader\n"
               "                        -t PICC\n"
               "                        -t ICC\n"
               "                        -t SAM\n",
               stdout);
}
