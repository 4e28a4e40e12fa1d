/* The way to the issuer; see online.h. */
#include "online.h"

#include <spawn.h>
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

/* Starts the program with its standard output going into a pipe; 0 when that did not work. */
static pid_t start(const char* program, const char* message, const char* data, int output) {
    char* const arguments[] = {(char*)program, (char*)message, (char*)data, NULL};
    posix_spawn_file_actions_t actions;
    pid_t child = 0;
    if (posix_spawn_file_actions_init(&actions) != 0) {
        return 0;
    }
    if (posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO) != 0 ||
        posix_spawnp(&child, program, &actions, NULL, arguments, environ) != 0) {
        child = 0;
    }
    posix_spawn_file_actions_destroy(&actions);
    return child;
}

int ask_issuer(const char* program, const char* message, const char* data, char* reply,
               size_t size) {
    int ends[2];
    int status = 0;
    reply[0] = '\0';
    if (pipe(ends) != 0) {
        return 0;
    }
    const pid_t child = start(program, message, data, ends[1]);
    close(ends[1]);
    FILE* output = fdopen(ends[0], "r");
    if (output == NULL) {
        close(ends[0]);
    } else {
        if (fgets(reply, (int)size, output) != NULL) {
            reply[strcspn(reply, "\n")] = '\0';
        }
        fclose(output);
    }
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) &&
           WEXITSTATUS(status) == 0;
}
