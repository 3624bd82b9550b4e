// Searching and measuring text that was written just before, a byte at a
// time: a name's fields as a parser or the character-set library wrote
// them, a value that the directory-attribute library has just cut in place.
// The C library reads such text 32 bytes at a time, and a wide read of
// bytes that are still being stored one by one waits until they are all in
// the cache; a byte read takes each byte from its store at once. The texts
// are short, so reading them a byte at a time costs less than the wait.
#ifndef CL_FRESH_TEXT_HPP
#define CL_FRESH_TEXT_HPP

#include <cstddef>

namespace cl {

// The first c among the n bytes at text, or null.
template <class C>
C *first_of(C *text, std::size_t n, char c) {
    for (std::size_t i = 0; i < n; ++i)
        if (text[i] == c) return text + i;
    return nullptr;
}

// strlen(text).
inline std::size_t fresh_length(const char *text) {
    std::size_t n = 0;
    while (text[n] != '\0') ++n;
    return n;
}

}  // namespace cl
#endif
