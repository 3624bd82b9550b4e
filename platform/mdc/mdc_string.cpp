// String helpers and release of platform memory.
#include <cstring>

#include "mdc.h"
#include "os.h"

extern "C" {

// The first byte of s that is one of accept, or null (also for a null s).
char *mdc_strpbrk(const char *s, const char *accept) {
    if (!s || !accept) return nullptr;
    return const_cast<char *>(std::strpbrk(s, accept));
}

// Memory of the platform comes from os_malloc; null is accepted.
void mdc_free(void *p) { os_free(p); }

}  // extern "C"
