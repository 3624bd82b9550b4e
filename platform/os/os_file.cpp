// Files of the platform: descriptors and streams over the C library, with
// names that may start with "~" (the server home). A failing open raises
// group 1 with errno as the reason and leaves the name in log slot 1.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "er.h"
#include "ext.h"
#include "os.h"

namespace qx::os {
namespace {

constexpr const char kSourceFile[] = "platform/os/os_file";

[[noreturn]] void raise_errno(const char *object, int line) {
    int error = errno;
    er_SetLogInfo(1, object);
    er_TracedEscape(1, error, kSourceFile, line);
}

// Repeats a transfer until count bytes moved, the file ends, or it fails;
// so a short count means the end of the file, never an interruption.
template <class Transfer>
int transfer_all(Transfer transfer, int count) {
    int done = 0;
    while (done < count) {
        ssize_t n = transfer(done, static_cast<std::size_t>(count - done));
        if (n < 0) {
            if (errno == EINTR) continue;
            return done > 0 ? done : -1;
        }
        if (n == 0) break;
        done += static_cast<int>(n);
    }
    return done;
}

}  // namespace
}  // namespace qx::os

using qx::os::raise_errno;
using qx::os::transfer_all;

static_assert(sizeof(off_t) == 8, "64-bit file offsets");

extern "C" {

int os_open(const char *name, int flags, int mode) {
    char actual[QX_PATH_MAX];
    ext_GetActualFName(name, actual);
    int fd;
    do {
        fd = open(actual, flags, static_cast<mode_t>(mode));
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) raise_errno(actual, __LINE__);
    return fd;
}

int64_t os_lseek(int fd, int64_t offset, int whence) {
    return lseek(fd, static_cast<off_t>(offset), whence);
}

int os_read(int fd, void *buf, int count) {
    auto *bytes = static_cast<char *>(buf);
    return transfer_all([&](int done, std::size_t n) { return read(fd, bytes + done, n); }, count);
}

int os_write(int fd, const void *buf, int count) {
    const auto *bytes = static_cast<const char *>(buf);
    return transfer_all([&](int done, std::size_t n) { return write(fd, bytes + done, n); }, count);
}

void os_close(int fd) {
    // Linux releases the descriptor even when close reports an error, so
    // it is never retried.
    if (close(fd) != 0 && errno != EINTR) raise_errno("", __LINE__);
}

int os_umask(int mask) { return static_cast<int>(umask(static_cast<mode_t>(mask))); }

int os_fexists(const char *name) {
    char actual[QX_PATH_MAX];
    ext_GetActualFName(name, actual);
    struct stat st {};
    return stat(actual, &st) == 0;
}

FILE *os_fopen(const char *name, const char *mode) {
    char actual[QX_PATH_MAX];
    ext_GetActualFName(name, actual);
    FILE *stream = std::fopen(actual, mode);
    if (!stream) raise_errno(actual, __LINE__);
    return stream;
}

void os_fclose(FILE *stream) {
    // The stream is released whatever fclose reports; a failed final
    // flush is still an error of the write.
    if (std::fclose(stream) != 0) raise_errno("", __LINE__);
}

}  // extern "C"
