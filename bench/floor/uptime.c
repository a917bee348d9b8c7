// bench/floor/uptime.c - the floor of uptime: reads one clock and writes one line.
#include <stdio.h>
#include <time.h>
#include <unistd.h>

int main(void) {
    struct timespec up;
    clock_gettime(CLOCK_BOOTTIME, &up);
    const long seconds = (long)up.tv_sec;
    char line[64];
    const int length = snprintf(line, sizeof line, "%ld days %02ld:%02ld:%02ld\n", seconds / 86400, seconds / 3600 % 24,
                                seconds / 60 % 60, seconds % 60);
    return write(STDOUT_FILENO, line, (size_t)length) != length;
}
