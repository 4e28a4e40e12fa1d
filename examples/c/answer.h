/*
 * Reading the library's answers: values out of JSON text, fields and data objects out of values,
 * and what they say in words. A host with a JSON library of its own needs the second half only.
 */
#ifndef EXAMPLES_ANSWER_H
#define EXAMPLES_ANSWER_H

#include <stddef.h>

/*
 * Copies the text value of a key of a JSON object to value (size bytes), unescaped and
 * zero-terminated. Returns 1, or 0 when the object has no such text or it does not fit.
 */
int json_text(const char* json, const char* key, char* value, size_t size);

/*
 * Copies the value of a data object, found by its tag in a list given in hex, as hex to value (size
 * bytes). Returns 1, or 0 when the list has no such object or it does not fit.
 */
int data_object(const char* list, const char* tag, char* value, size_t size);

/* Prints a flat JSON object one member a line; long texts are cut unless all of them is wanted. */
void print_json(const char* json, int all);

/* Prints card information (letter, three-digit length, value) one field a line, with its meaning.
 */
void print_card_information(const char* information);

/*
 * Prints the entries of a transaction log, the newest first, and marks the one with this
 * transaction counter (four hex digits). Returns 1 when there is such an entry, 0 when there is
 * not, -1 when the text holds no log at all.
 */
int print_transaction_log(const char* log, const char* counter);

/* Prints a failure text of the library, which is GBK, as UTF-8. */
void print_failure_text(const char* errmsg);

#endif
