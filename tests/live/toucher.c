/* Makes, closes and removes files as fast as it can, or at a rate.
 *
 * Usage: toucher PREFIX COUNT [RATE]
 * File N is PREFIX.N; nothing is written into it. */
#define _GNU_SOURCE
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

int main(int count, char** arguments) {
    if (count < 3) {
        fprintf(stderr, "usage: toucher PREFIX COUNT [RATE]\n");
        return 2;
    }
    const long files = atol(arguments[2]);
    const double rate = count > 3 ? atof(arguments[3]) : 0;
    const struct timespec pause = {0, rate > 1 ? (long)(1e9 / rate) : 0};
    for (long i = 0; i < files; ++i) {
        char path[4096];
        snprintf(path, sizeof(path), "%s.%ld", arguments[1], i);
        const int fd = open(path, O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
        if (fd < 0) {
            perror(path);
            return 1;
        }
        close(fd);
        unlink(path);
        if (pause.tv_nsec > 0) {
            nanosleep(&pause, NULL);
        }
    }
    return 0;
}
