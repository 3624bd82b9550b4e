// The server home and the small process services around it.
#include "ext.h"

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "er.h"
#include "home.hpp"

namespace {
constexpr const char kSourceFile[] = "platform/ext/ext";
// Home directory text returned by ext_HomeDir; bounded like every path.
char g_home[QX_PATH_MAX];
}  // namespace

extern "C" {

const char *ext_HomeDir(void) {
    if (!qx::home_dir(g_home, sizeof g_home)) er_TracedEscape(100, 1901, kSourceFile, __LINE__);
    return g_home;
}

char *ext_GetActualFName(const char *name, char *buf) {
    int n;
    if (name[0] == '~') {
        n = std::snprintf(buf, QX_PATH_MAX, "%s%s", ext_HomeDir(), name + 1);
    } else {
        n = std::snprintf(buf, QX_PATH_MAX, "%s", name);
    }
    if (n < 0 || n >= QX_PATH_MAX) {
        er_SetLogInfo(1, name);
        er_TracedEscape(100, 1901, kSourceFile, __LINE__);
    }
    return buf;
}

const char *ext_BaseName(const char *path) {
    const char *slash = std::strrchr(path, '/');
    return slash ? slash + 1 : path;
}

ext_SigHandler ext_signal(int sig, ext_SigHandler handler) {
    struct sigaction action {};
    struct sigaction previous {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    // SA_NODEFER: a handler left by siglongjmp (an escape raised inside it)
    // must not leave its signal blocked for the rest of the process.
    action.sa_flags = SA_NODEFER;
    if (sigaction(sig, &action, &previous) != 0) er_TracedEscape(1, errno, kSourceFile, __LINE__);
    return previous.sa_handler;
}

void ext_ChownToGenesis(const char *path) {
    struct stat home {};
    if (stat(ext_HomeDir(), &home) != 0) return;  // no home: leave ownership alone
    // Only root may give a file away; for anyone else the owner is already
    // the account that runs the server, so a refusal here is not an error.
    if (chown(path, home.st_uid, home.st_gid) != 0 && errno != EPERM) {
        er_SetLogInfo(1, path);
        er_TracedEscape(1, errno, kSourceFile, __LINE__);
    }
}

}  // extern "C"
