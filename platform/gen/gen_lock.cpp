// The inter-process locks: a POSIX record lock on <home>/sys/.lock<N>.
// Record locks belong to a process, not to a descriptor: a forked child does
// not inherit them and a process that ends loses them, which is the contract
// of the lock. Beside the descriptor the owning pid is kept, so that a
// forked child, which inherits the memory of its parent, does not take its
// parent's lock for its own.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "er.h"
#include "ext.h"
#include "gen.h"

namespace qx::gen {
namespace {

constexpr const char kSourceFile[] = "platform/gen/gen_lock";
constexpr int kLocks = 8;        // lock numbers 0 to 7
constexpr int kNoWaitBit = 4;    // mode 6: take or fail; mode 2: wait

struct Lock {
    int fd = -1;       // the lock file, open while held or while a take runs
    pid_t owner = 0;   // the process that opened fd
    bool held = false;
};

Lock g_locks[kLocks];

Lock &lock_of(int number) {
    if (number < 0 || number >= kLocks) er_TracedEscape(100, 1811, kSourceFile, __LINE__);
    return g_locks[number];
}

bool held_here(const Lock &lock) { return lock.held && lock.owner == getpid(); }

// A descriptor that holds nothing for this process: left by a wait that a
// signal handler ended with an escape, or inherited from the parent. This
// process holds no record lock on the file, so closing it releases nothing.
void drop_stale(Lock &lock) {
    if (lock.fd >= 0 && !held_here(lock)) {
        close(lock.fd);
        lock = Lock{};
    }
}

[[noreturn]] void fail(Lock &lock, int error, int line) {
    close(lock.fd);
    lock = Lock{};
    if (error == EACCES || error == EAGAIN || error == EDEADLK) er_TracedEscape(100, 1813, kSourceFile, line);
    er_TracedEscape(1, error, kSourceFile, line);
}

// Opens the lock file, creating it with mode 0660 whatever the umask, as
// every file of the home is: the server's group shares the lock.
int open_lock_file(const char *actual) {
    constexpr mode_t kLockMode = 0660;
    int fd = open(actual, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kLockMode);
    if (fd >= 0 && fchmod(fd, kLockMode) != 0) {
        const int error = errno;
        close(fd);
        errno = error;
        return -1;
    }
    if (fd < 0 && errno == EEXIST) fd = open(actual, O_RDWR | O_CLOEXEC);
    return fd;
}

int take(int number, int mode) {
    Lock &lock = lock_of(number);
    if (held_here(lock)) return 1;
    drop_stale(lock);

    char name[32];  // "~/sys/.lock" and at most one digit
    std::snprintf(name, sizeof name, "~/sys/.lock%d", number);
    char actual[QX_PATH_MAX];
    ext_GetActualFName(name, actual);
    lock.owner = getpid();
    lock.fd = open_lock_file(actual);
    if (lock.fd < 0) {
        int error = errno;
        lock = Lock{};
        er_SetLogInfo(1, actual);
        er_TracedEscape(1, error, kSourceFile, __LINE__);
    }

    struct flock range {};
    range.l_type = F_WRLCK;
    range.l_whence = SEEK_SET;
    const int command = (mode & kNoWaitBit) ? F_SETLK : F_SETLKW;
    // A handler that raises an escape (the alarm of a bounded wait) never
    // comes back here; only a handler that returned makes fcntl report
    // EINTR, and then the wait goes on.
    while (fcntl(lock.fd, command, &range) != 0) {
        if (errno != EINTR) fail(lock, errno, __LINE__);
    }
    lock.held = true;
    return 1;
}

void release(int number) {
    Lock &lock = lock_of(number);
    if (!held_here(lock)) {
        drop_stale(lock);
        er_TracedEscape(100, 1812, kSourceFile, __LINE__);
    }
    struct flock range {};
    range.l_type = F_UNLCK;
    range.l_whence = SEEK_SET;
    fcntl(lock.fd, F_SETLK, &range);
    close(lock.fd);
    lock = Lock{};
}

int test(int number) {
    Lock &lock = lock_of(number);
    drop_stale(lock);
    return held_here(lock) ? 1 : 0;
}

}  // namespace
}  // namespace qx::gen

extern "C" {

int gen_GetLock(int lock, int mode) { return qx::gen::take(lock, mode); }
int gen_TestLock(int lock) { return qx::gen::test(lock); }
void gen_FreeLock(int lock) { qx::gen::release(lock); }

}  // extern "C"
