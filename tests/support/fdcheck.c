/* Preloaded into the sample programs by their tests (LD_PRELOAD): at exit,
 * writes one line to standard error for every descriptor that the program
 * opened and left open. Descriptors open at start-up (inherited) are not the
 * program's, and the error library's trace file (QX_TRACE_FILE) stays open
 * by design: neither is reported. A short-lived program that forgets a
 * close() shows nothing else a test could see. */
#define _GNU_SOURCE
#include <dirent.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

enum { kMaxFd = 1024 }; /* descriptors at or above this are not watched */
static unsigned char inherited[kMaxFd];

static void walk(int report) {
    DIR *dir = opendir("/proc/self/fd");
    if (dir == NULL) return;
    const int own = dirfd(dir);
    for (struct dirent *e; (e = readdir(dir)) != NULL;) {
        if (e->d_name[0] == '.') continue;
        const int fd = atoi(e->d_name);
        if (fd == own || fd < 0 || fd >= kMaxFd) continue;
        if (!report) {
            inherited[fd] = 1;
        } else if (!inherited[fd]) {
            char link[64], target[4096];
            snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
            const ssize_t n = readlink(link, target, sizeof target - 1);
            target[n < 0 ? 0 : n] = '\0';
            const char *trace = getenv("QX_TRACE_FILE");
            if (!(trace && strcmp(target, trace) == 0)) dprintf(2, "fdcheck: descriptor %d left open: %s\n", fd, target);
        }
    }
    closedir(dir);
}

__attribute__((constructor)) static void note_inherited(void) { walk(0); }
__attribute__((destructor)) static void report_left_open(void) { walk(1); }
