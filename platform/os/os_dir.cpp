// Directories of the platform, and the pattern match of file names.
#include <dirent.h>

#include <cerrno>

#include "er.h"
#include "ext.h"
#include "os.h"

namespace qx::os {
namespace {

constexpr const char kSourceFile[] = "platform/os/os_dir";
constexpr char kAnyRun = '\x1F';

// Matches name against pattern, where kAnyRun stands for any run of bytes
// (the empty run too) and every other byte for itself. Backtracks only to
// the last kAnyRun seen, so the cost stays linear in practice.
bool match(const char *name, const char *pattern) {
    const char *star = nullptr;  // the last kAnyRun of the pattern seen
    const char *resume = nullptr;  // where in name the run would grow
    while (*name) {
        if (*pattern == kAnyRun) {
            star = pattern++;
            resume = name;
        } else if (*pattern == *name) {
            ++pattern;
            ++name;
        } else if (star) {
            pattern = star + 1;
            name = ++resume;
        } else {
            return false;
        }
    }
    while (*pattern == kAnyRun) ++pattern;
    return *pattern == '\0';
}

}  // namespace
}  // namespace qx::os

extern "C" {

DIR *os_opendir(const char *name) {
    char actual[QX_PATH_MAX];
    ext_GetActualFName(name, actual);
    DIR *dir = opendir(actual);
    if (!dir && errno != ENOENT) {
        int error = errno;
        er_SetLogInfo(1, actual);
        er_TracedEscape(1, error, qx::os::kSourceFile, __LINE__);
    }
    return dir;  // null for a missing directory: it reads as empty
}

struct dirent *os_readdir(DIR *dir) {
    if (!dir) return nullptr;
    errno = 0;
    struct dirent *entry = readdir(dir);
    if (!entry && errno != 0) er_TracedEscape(1, errno, qx::os::kSourceFile, __LINE__);
    return entry;
}

void os_closedir(DIR *dir) {
    if (dir) closedir(dir);
}

int os_USPatternMatch(const char *name, const char *pattern) {
    return qx::os::match(name, pattern) ? 1 : 0;
}

}  // extern "C"
