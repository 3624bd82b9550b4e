// Memory of the platform: never returns null to the caller.
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "er.h"
#include "os.h"

namespace {
constexpr const char kSourceFile[] = "platform/os/os_memory";
}

extern "C" {

void *os_malloc(size_t size) {
    void *p = std::malloc(size ? size : 1);
    if (!p) er_TracedEscape(1, ENOMEM, kSourceFile, __LINE__);
    return p;
}

char *os_strdup(const char *s) {
    std::size_t n = std::strlen(s) + 1;
    char *copy = static_cast<char *>(os_malloc(n));
    std::memcpy(copy, s, n);
    return copy;
}

void os_free(void *p) { std::free(p); }

}  // extern "C"
