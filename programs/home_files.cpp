// Files of the home. Plain POSIX calls: a failure raises group 1 with errno
// and names the file in log information slot 1, so cl_SortAllErrors shows
// it. A file is written whole or not at all; a file the library reads by
// fixed rules is checked here for damage before anything of it is shown.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "qxadm.hpp"

namespace qxadm {
namespace {

constexpr const char kSourceFile[] = "programs/home_files";

[[noreturn]] void raise_errno(const char *path, int err, int line) {
    er_SetLogInfo(1, path);
    raise(Code{1, err}, kSourceFile, line);
}

}  // namespace

void actual_name(const char *name, char *buf) { ext_GetActualFName(name, buf); }

// Reports the file (a "~" name) as damaged: 100/4766 with the file named.
[[noreturn]] void raise_damaged(const char *name, int line) {
    char path[QX_PATH_MAX];
    actual_name(name, path);
    std::snprintf(g_detail, sizeof g_detail, "File: %s", path);
    raise(kFileDamaged, kSourceFile, line);
}

// mkdir -p, each directory mode 0770.
void make_dirs(const char *path) {
    char partial[QX_PATH_MAX];
    std::snprintf(partial, sizeof partial, "%s", path);
    for (char *p = partial + 1;; ++p) {
        if (*p != '/' && *p != '\0') continue;
        char saved = *p;
        *p = '\0';
        if (mkdir(partial, 0770) != 0 && errno != EEXIST) raise_errno(partial, errno, __LINE__);
        *p = saved;
        if (saved == '\0') break;
    }
}

// Writes the file whole or not at all: into a temporary file of its own in
// the same directory (mode 0660), flushed to disk, then renamed into place.
void write_whole_file(const char *path, const unsigned char *bytes, std::size_t size) {
    char temp[QX_PATH_MAX + 8];  // the path and ".XXXXXX"
    std::snprintf(temp, sizeof temp, "%s.XXXXXX", path);
    int fd = mkostemp(temp, O_CLOEXEC);
    if (fd < 0) raise_errno(path, errno, __LINE__);
    int err = fchmod(fd, 0660) == 0 ? 0 : errno;
    for (std::size_t done = 0; err == 0 && done < size;) {
        ssize_t n = write(fd, bytes + done, size - done);
        if (n < 0 && errno != EINTR) err = errno;
        if (n > 0) done += static_cast<std::size_t>(n);
    }
    if (err == 0 && fsync(fd) != 0) err = errno;
    if (close(fd) != 0 && err == 0) err = errno;
    if (err == 0 && rename(temp, path) != 0) err = errno;
    if (err != 0) {
        unlink(temp);
        raise_errno(path, err, __LINE__);
    }
}

// Whether path exists as a file of the type (S_IFREG, S_IFDIR; 0: any).
bool exists(const char *path, mode_t type) {
    struct stat st;
    return stat(path, &st) == 0 && (type == 0 || (st.st_mode & S_IFMT) == type);
}

// sys/config is written last when a home is set up: its presence marks a
// home that is. home: QX_PATH_MAX bytes, the home's actual path.
bool home_set_up(char *home) {
    char config[QX_PATH_MAX];
    if (fails([&] {
            actual_name("~", home);
            actual_name(kConfigName, config);
        }))
        return true;  // nothing to hint at: the name itself failed
    return exists(config, S_IFREG);
}

// Four unit fields of sys/config at offsets at, each 32 bytes of text padded
// with NUL bytes. The units are judged as a mail node's; a block whose units
// are all empty is sound only when empty_ok. Anything else is damage, and so
// is a file too short to hold the block.
void check_config_units(const std::array<int, 4> &at, bool empty_ok) {
    char path[QX_PATH_MAX];
    actual_name(kConfigName, path);
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) raise_errno(path, errno, __LINE__);
    constexpr char kSep[] = {ORN_FIELD_SEP, '\0'};
    // An empty personal name, then the units in their places.
    char packed[ORN_UNIT1 + ORN_UNITS * (kUnitLen + 1) + 1] = {ORN_FIELD_SEP, ORN_FIELD_SEP, ORN_FIELD_SEP, ORN_FIELD_SEP};
    bool sound = true, empty = true;
    for (std::size_t i = 0; i < at.size(); ++i) {
        char field[kUnitLen + 1] = {};
        sound = sound && pread(fd, field, kUnitLen, at[i]) == kUnitLen;
        const std::size_t len = strnlen(field, kUnitLen);
        for (std::size_t k = len; k < kUnitLen; ++k) sound = sound && field[k] == '\0';
        if (i > 0) std::strcat(packed, kSep);
        std::strcat(packed, field);
        empty = empty && len == 0;
    }
    close(fd);
    if (!sound || (empty ? !empty_ok : !sound_mail_node(packed))) raise_damaged(kConfigName, __LINE__);
}

}  // namespace qxadm
