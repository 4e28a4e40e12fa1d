/*
 * The way to the issuer. At a counter it is a line to the bank's host; here it is a program, run
 * once for each message.
 */
#ifndef EXAMPLES_ONLINE_H
#define EXAMPLES_ONLINE_H

#include <stddef.h>

/*
 * Runs "program message data" and takes the first line that it prints as the reply (size bytes,
 * zero-terminated). Returns 1 when the program ended with status 0, else 0.
 */
int ask_issuer(const char* program, const char* message, const char* data, char* reply,
               size_t size);

#endif
