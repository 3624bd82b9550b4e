// Stdio-like wrappers and the clock.
#include <unistd.h>

#include <cstdio>
#include <ctime>

#include "mdc.h"
#include "os.h"

extern "C" {

// Reads like os_read: a short count means the end of the file.
int mdc_read(int fd, void *buf, int count) { return os_read(fd, buf, count); }

// Unlike os_close, never raises: callers close on their way to an escape of
// their own, which a failing close must not replace.
void mdc_close(int fd) { close(fd); }

int mdc_fputs(const char *s, FILE *stream) { return std::fputs(s, stream); }
int mdc_fflush(FILE *stream) { return std::fflush(stream); }

void mdc_time(int32_t *t) { *t = static_cast<int32_t>(std::time(nullptr)); }

}  // extern "C"
