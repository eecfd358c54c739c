/* Starts a program as fast as it can, or at a rate, and says in how many seconds.
 *
 * Usage: spawner PROGRAM COUNT WORKERS MARK [RATE [FILLER]]
 * Every start has the arguments PROGRAM MARK-WORKER-NUMBER- and, when it is given, FILLER. */
#define _GNU_SOURCE
#include <pthread.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <time.h>

static char* const NO_ENVIRONMENT[] = {NULL};
static const char* program;
static const char* mark;
static const char* filler;
static long perWorker;
static double pause_seconds; /* between two starts of one worker; 0 for none */

static double now(void) {
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return (double)time.tv_sec + (double)time.tv_nsec / 1e9;
}

static void wait_until(double due) {
    const double left = due - now();
    if (left > 0) {
        const struct timespec time = {(time_t)left, (long)((left - (double)(time_t)left) * 1e9)};
        nanosleep(&time, NULL);
    }
}

static void* work(void* number) {
    const double begun = now();
    for (long i = 0; i < perWorker; ++i) {
        char text[128];
        snprintf(text, sizeof(text), "%s-%ld-%ld-", mark, (long)number, i);
        char* const arguments[] = {(char*)program, text, (char*)filler, NULL};
        pid_t process;
        if (posix_spawn(&process, program, NULL, NULL, arguments, NO_ENVIRONMENT) != 0) {
            perror(program);
            exit(1);
        }
        waitpid(process, NULL, 0);
        if (pause_seconds > 0) {
            wait_until(begun + (double)(i + 1) * pause_seconds);
        }
    }
    return NULL;
}

int main(int count, char** arguments) {
    if (count < 5) {
        fprintf(stderr, "usage: spawner PROGRAM COUNT WORKERS MARK [RATE [FILLER]]\n");
        return 2;
    }
    const long workers = atol(arguments[3]);
    pthread_t threads[64];
    program = arguments[1];
    mark = arguments[4];
    perWorker = atol(arguments[2]) / workers;
    pause_seconds = count > 5 ? (double)workers / atof(arguments[5]) : 0;
    filler = count > 6 ? arguments[6] : NULL;
    const double begun = now();
    for (long i = 0; i < workers && i < 64; ++i) {
        pthread_create(&threads[i], NULL, work, (void*)i);
    }
    for (long i = 0; i < workers && i < 64; ++i) {
        pthread_join(threads[i], NULL);
    }
    printf("%.3f\n", now() - begun);
    return 0;
}
