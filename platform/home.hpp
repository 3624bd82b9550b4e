// The server home directory, shared by the platform stand-ins that resolve
// "~": $QX_HOME, else $HOME/.qx, else /tmp/.qx-<uid>. Read on every call so
// that a program (or a test) may change QX_HOME as it goes.
#ifndef QX_HOME_HPP
#define QX_HOME_HPP
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace qx {

// Writes the home into buf (size bytes); returns false when it does not fit.
inline bool home_dir(char *buf, std::size_t size) {
    const char *home = std::getenv("QX_HOME");
    int n;
    if (home && *home) {
        n = std::snprintf(buf, size, "%s", home);
    } else if (const char *user = std::getenv("HOME"); user && *user) {
        n = std::snprintf(buf, size, "%s/.qx", user);
    } else {
        n = std::snprintf(buf, size, "/tmp/.qx-%u", static_cast<unsigned>(getuid()));
    }
    return n >= 0 && static_cast<std::size_t>(n) < size;
}

}  // namespace qx
#endif
