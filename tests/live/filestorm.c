/* Makes, renames and removes files as fast as it can: filestorm FOLDER COUNT */
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

int main(int argc, char** argv) {
    const int count = argc == 3 ? atoi(argv[2]) : 0;
    if (count <= 0 || chdir(argv[1]) != 0) {
        return 2;
    }
    for (int i = 0; i < count; ++i) {
        char first[32], second[32];
        snprintf(first, sizeof(first), "a%d", i);
        snprintf(second, sizeof(second), "b%d", i);
        const int file = open(first, O_CREAT | O_EXCL | O_WRONLY, 0600);
        if (file < 0 || close(file) != 0 || rename(first, second) != 0 || unlink(second) != 0) {
            return 1;
        }
    }
    return 0;
}
