/* Reading the library's answers; see answer.h. */
#include "answer.h"

#include <qaven/qaven.h>

#include <ctype.h>
#include <iconv.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* What follows a backslash in a JSON text, and what it stands for. */
static const char escaped[] = "\"\\/bfnrt";
static const char unescaped[] = "\"\\/\b\f\n\r\t";

/*
 * Reads the JSON text that begins behind its opening quotation mark; returns the position behind
 * the closing one, or NULL when it does not end or does not fit.
 */
static const char* read_text(const char* from, char* value, size_t size) {
    size_t used = 0;
    while (*from != '"' && *from != '\0' && used + 1 < size) {
        char character = *from++;
        if (character == '\\' && *from == 'u' && strlen(from) >= 5) {
            /* The library escapes control bytes of a card this way, nothing else. */
            const char digits[] = {from[1], from[2], from[3], from[4], '\0'};
            character = (char)strtol(digits, NULL, 16);
            from += sizeof digits;
        } else if (character == '\\' && *from != '\0') {
            const char* escape = strchr(escaped, *from++);
            if (escape == NULL) {
                return NULL;
            }
            character = unescaped[escape - escaped];
        }
        value[used++] = character;
    }
    value[used] = '\0';
    return *from == '"' ? from + 1 : NULL;
}

int json_text(const char* json, const char* key, char* value, size_t size) {
    /* The library's objects are flat: a text is a key if a colon follows it, and a value if not. */
    static char text[QAVEN_RESMSG_SIZE];
    const char* at = strchr(json, '"');
    while (at != NULL) {
        at = read_text(at + 1, text, sizeof text);
        if (at == NULL) {
            return 0;
        }
        at += strspn(at, " \t\r\n");
        if (*at == ':' && strcmp(text, key) == 0) {
            at += 1 + strspn(at + 1, " \t\r\n");
            return *at == '"' && read_text(at + 1, value, size) != NULL;
        }
        at = strchr(at, '"');
    }
    return 0;
}

/* The first two digits of a hex text as a number; fewer count as what they are. */
static size_t byte_at(const char* hex) {
    char digits[3] = "";
    strncat(digits, hex, 2);
    return strtoul(digits, NULL, 16);
}

int data_object(const char* list, const char* tag, char* value, size_t size) {
    while (strlen(list) >= 4) {
        /* Two-byte tags have the low five bits of their first byte set. Lengths are one byte. */
        const size_t tag_digits = (byte_at(list) & 0x1FU) == 0x1FU ? 4 : 2;
        if (strlen(list) < tag_digits + 2) {
            return 0;
        }
        const char* data = list + tag_digits + 2;
        const size_t digits = 2 * byte_at(list + tag_digits);
        if (strlen(data) < digits) {
            return 0;
        }
        if (strlen(tag) == tag_digits && strncmp(list, tag, tag_digits) == 0) {
            if (digits >= size) {
                return 0;
            }
            memcpy(value, data, digits);
            value[digits] = '\0';
            return 1;
        }
        list = data + digits;
    }
    return 0;
}

/* Prints a JSON text, quotation marks included, as it stands there; returns where it ends. */
static const char* print_text(const char* text, int all) {
    const size_t longest = 280; /* a whole ARQC text */
    const size_t shown = 64;
    size_t cut = 1;
    size_t end = 1;
    while (text[end] != '"' && text[end] != '\0') {
        if (end <= shown) {
            cut = end;
        }
        end += text[end] == '\\' && text[end + 1] != '\0' ? 2 : 1;
    }
    if (all || end <= longest) {
        printf("%.*s\"", (int)end, text);
    } else {
        printf("%.*s...\" (%zu characters)", (int)cut, text, end - 1);
    }
    return text[end] == '"' ? text + end + 1 : text + end;
}

void print_json(const char* json, int all) {
    while (*json != '\0') {
        switch (*json) {
        case '"':
            json = print_text(json, all);
            continue;
        case '{':
            printf("    {\n      ");
            break;
        case ',':
            printf(",\n      ");
            break;
        case ':':
            printf(": ");
            break;
        case '}':
            printf("\n    }\n");
            break;
        default:
            if (!isspace((unsigned char)*json)) {
                putchar(*json);
            }
        }
        ++json;
    }
}

/*
 * Takes the field at the beginning of a text: its letter, and its value (size bytes, cut to what
 * fits). Returns where the next one begins, or NULL at the end of the text.
 */
static const char* take_field(const char* text, char* letter, char* value, size_t size) {
    if (strlen(text) < 4) {
        return NULL;
    }
    /* Each character is worth its code minus that of '0': track 2 may have "02/", which is 19. */
    const int length_said = 100 * (text[1] - '0') + 10 * (text[2] - '0') + (text[3] - '0');
    const char* from = text + 4;
    const size_t rest = strlen(from);
    size_t length = length_said > 0 ? (size_t)length_said : 0;
    length = length < rest ? length : rest;
    *letter = *text;
    snprintf(value, size, "%.*s", (int)length, from);
    return from + length;
}

static const char* field_name(char letter) {
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
        return "electronic cash balance";
    case 'H':
        return "electronic cash limit";
    case 'I':
        return "expiry date (YYMMDD)";
    case 'J':
        return "PAN sequence number";
    case 'K':
        return "electronic cash single limit";
    case 'L':
    case 'M':
    case 'N':
    case 'O':
        return "issuer's own data";
    default:
        return "unknown field";
    }
}

void print_card_information(const char* information) {
    static char value[QAVEN_USERINFO_SIZE];
    char letter = '\0';
    while ((information = take_field(information, &letter, value, sizeof value)) != NULL) {
        printf("    %c  %-30s %s\n", letter, field_name(letter),
               *value != '\0' ? value : "(not on this card)");
    }
}

/* One entry of the log as the text has it: hex digits, and a name padded with blanks. */
struct log_entry {
    char amount[QAVEN_TXDETAIL_SIZE];
    char currency[QAVEN_TXDETAIL_SIZE];
    char date[QAVEN_TXDETAIL_SIZE];
    char time[QAVEN_TXDETAIL_SIZE];
    char type[QAVEN_TXDETAIL_SIZE];
    char merchant[QAVEN_TXDETAIL_SIZE];
    char counter[QAVEN_TXDETAIL_SIZE];
};

/* The number of characters without the blanks at the end. */
static int trimmed_length(const char* text) {
    size_t length = strlen(text);
    while (length > 0 && text[length - 1] == ' ') {
        --length;
    }
    return (int)length;
}

static void keep_field(struct log_entry* entry, char letter, const char* value) {
    switch (letter) {
    case 'P':
        snprintf(entry->amount, sizeof entry->amount, "%s", value);
        break;
    case 'R':
        snprintf(entry->currency, sizeof entry->currency, "%s", value);
        break;
    case 'S':
        snprintf(entry->date, sizeof entry->date, "%s", value);
        break;
    case 'T':
        snprintf(entry->type, sizeof entry->type, "%s", value);
        break;
    case 'U':
        snprintf(entry->time, sizeof entry->time, "%s", value);
        break;
    case 'W':
        snprintf(entry->merchant, sizeof entry->merchant, "%.*s", trimmed_length(value), value);
        break;
    case 'X':
        snprintf(entry->counter, sizeof entry->counter, "%s", value);
        break;
    default: /* Q, the other amount, and V, the country, are not listed here. */
        break;
    }
}

int print_transaction_log(const char* log, const char* counter) {
    static struct log_entry entry;
    static char value[QAVEN_TXDETAIL_SIZE];
    char letter = '\0';
    int found = 0;
    /* Two count bytes come first; "0" alone stands for a card or a reader that gave no log. */
    if (strlen(log) < 2) {
        return -1;
    }
    printf("    counter  date    time    amount        currency  type  merchant\n");
    for (const char* at = log + 2; (at = take_field(at, &letter, value, sizeof value)) != NULL;) {
        keep_field(&entry, letter, value);
        if (letter == 'X') { /* the last field of an entry */
            const int ours = strcmp(entry.counter, counter) == 0;
            const unsigned long amount = strtoul(entry.amount, NULL, 10);
            printf("    %-8s %-7s %-7s %9lu.%02lu  %-9s %-5s %s%s\n", entry.counter, entry.date,
                   entry.time, amount / 100, amount % 100, entry.currency, entry.type,
                   entry.merchant, ours ? "  <-- this transaction" : "");
            found |= ours;
        }
    }
    return found;
}

void print_failure_text(const char* errmsg) {
    char gbk[QAVEN_ERRMSG_SIZE];
    char utf8[3 * QAVEN_ERRMSG_SIZE] = "";
    char* in = gbk;
    char* out = utf8;
    snprintf(gbk, sizeof gbk, "%s", errmsg);
    size_t in_left = strlen(gbk);
    size_t out_left = sizeof utf8 - 1;
    iconv_t converter = iconv_open("UTF-8", "GBK");
    if (converter != (iconv_t)-1) {
        iconv(converter, &in, &in_left, &out, &out_left);
        iconv_close(converter);
    }
    *out = '\0';
    printf("    %s\n", utf8);
}
