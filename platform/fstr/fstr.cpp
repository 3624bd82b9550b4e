// Growable strings: NUL-terminated text in memory from os_malloc that grows
// by doubling. A zeroed fstr_String is a valid empty string with no memory.
#include <cerrno>
#include <climits>
#include <cstring>

#include "er.h"
#include "fstr.h"
#include "os.h"

namespace fstr {
namespace {

constexpr const char kSourceFile[] = "platform/fstr/fstr";
constexpr std::size_t kMinCapacity = 32;

// Writes text at offset `at` of s (0 to replace, s->length to append) and
// terminates it. text may point into s itself: the old block is released
// only after the copy.
void put(fstr_String *s, std::size_t at, const char *text) {
    std::size_t n = std::strlen(text);
    std::size_t need = at + n + 1;
    if (need > static_cast<std::size_t>(INT_MAX)) er_TracedEscape(1, ENOMEM, kSourceFile, __LINE__);
    if (!s->text || need > static_cast<std::size_t>(s->capacity)) {
        std::size_t capacity = s->text ? static_cast<std::size_t>(s->capacity) * 2 : kMinCapacity;
        if (capacity < need) capacity = need;
        if (capacity > static_cast<std::size_t>(INT_MAX)) capacity = need;
        char *grown = static_cast<char *>(os_malloc(capacity));
        if (at > 0) std::memcpy(grown, s->text, at);
        std::memcpy(grown + at, text, n);
        os_free(s->text);
        s->text = grown;
        s->capacity = static_cast<int>(capacity);
    } else {
        std::memmove(s->text + at, text, n);
    }
    s->text[at + n] = '\0';
    s->length = static_cast<int>(at + n);
}

}  // namespace
}  // namespace fstr

extern "C" {

void fstr_StrInit(fstr_String *s, const char *text) {
    s->text = nullptr;
    s->length = 0;
    s->capacity = 0;
    fstr::put(s, 0, text ? text : "");
}

void fstr_FsCsCat(fstr_String *s, const char *text) {
    fstr::put(s, s->text ? static_cast<std::size_t>(s->length) : 0, text ? text : "");
}

void fstr_FsCsCopy(fstr_String *s, const char *text) { fstr::put(s, 0, text ? text : ""); }

void fstr_StrFree(fstr_String *s) {
    os_free(s->text);
    s->text = nullptr;
    s->length = 0;
    s->capacity = 0;
}

}  // extern "C"
