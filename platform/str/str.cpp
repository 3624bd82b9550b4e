// Concatenation of text in a character set. The bounded form never cuts a
// UTF-8 character in two, whatever the set: a cut that would fall inside a
// well-formed UTF-8 sequence moves back to its first byte. Bytes that do not
// form such a sequence (single-byte sets) are cut where the bound falls.
#include <cstring>

#include "str.h"

namespace str {
namespace {

bool continuation(unsigned char c) { return (c & 0xC0) == 0x80; }

// Length of the sequence a UTF-8 lead byte starts; 0 for a byte that starts none.
std::size_t sequence_length(unsigned char c) {
    if (c >= 0xC2 && c <= 0xDF) return 2;
    if (c >= 0xE0 && c <= 0xEF) return 3;
    if (c >= 0xF0 && c <= 0xF4) return 4;
    return 0;
}

// The largest cut <= n of the first `size` bytes of s that does not split a
// well-formed UTF-8 sequence.
std::size_t cut_point(const unsigned char *s, std::size_t size, std::size_t n) {
    if (n >= size || !continuation(s[n])) return n;
    std::size_t lead = n;
    while (lead > 0 && n - lead < 3 && continuation(s[lead])) --lead;
    std::size_t len = sequence_length(s[lead]);
    if (len == 0 || lead + len <= n || lead + len > size) return n;
    for (std::size_t i = lead + 1; i < lead + len; ++i)
        if (!continuation(s[i])) return n;
    return lead;
}

}  // namespace
}  // namespace str

extern "C" {

char *str_strcat(char *dst, const char *src, ccs_Descriptor * /*cs*/) { return std::strcat(dst, src); }

char *str_strncat(char *dst, const char *src, int n, int /*csId*/) {
    if (n <= 0) return dst;
    auto bound = static_cast<std::size_t>(n);
    // Looks at most three bytes past the bound, and never past src's end.
    std::size_t size = strnlen(src, bound + 4);
    const auto *s = reinterpret_cast<const unsigned char *>(src);
    std::size_t take = size <= bound ? size : str::cut_point(s, size, bound);
    char *end = dst + std::strlen(dst);
    std::memcpy(end, src, take);
    end[take] = '\0';
    return dst;
}

}  // extern "C"
