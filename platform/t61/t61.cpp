// The T.61 input transformation: typed text in a named character set becomes
// UTF-8 in which each unescaped special character is replaced by its
// replacement string, ready for the command-line conversion to split.
#include <iconv.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "ccs.h"
#include "er.h"
#include "t61.h"

namespace t61 {
namespace {

constexpr const char kSourceFile[] = "platform/t61";
constexpr char kRepeatedDelimiter = '\x05';  // a second name/value delimiter in one segment
constexpr const char kInternalSet[] = "UTF-8";

// A library-owned buffer that grows to what a call needs and is kept for the
// next call (never freed: the result stays valid until the next call).
struct Buffer {
    char *data = nullptr;
    std::size_t size = 0;

    char *reserve(std::size_t need) {
        if (need > size) {
            void *grown = std::realloc(data, need);
            if (!grown) er_TracedEscape(1, ENOMEM, kSourceFile, __LINE__);
            data = static_cast<char *>(grown);
            size = need;
        }
        return data;
    }
};

Buffer g_utf8;    // the typed text converted to UTF-8
Buffer g_result;  // the transformed text handed to the caller

// One cached conversion handle: a program types in one set.
struct Converter {
    char from[32] = {};
    iconv_t cd = reinterpret_cast<iconv_t>(-1);

    bool open(const char *iconvName) {
        if (cd != reinterpret_cast<iconv_t>(-1) && std::strcmp(from, iconvName) == 0) {
            iconv(cd, nullptr, nullptr, nullptr, nullptr);  // back to the initial state
            return true;
        }
        if (std::strlen(iconvName) >= sizeof from) return false;
        iconv_t fresh = iconv_open(kInternalSet, iconvName);
        if (fresh == reinterpret_cast<iconv_t>(-1)) return false;
        if (cd != reinterpret_cast<iconv_t>(-1)) iconv_close(cd);
        cd = fresh;
        std::strcpy(from, iconvName);
        return true;
    }
};

Converter g_converter;

// The typed text as UTF-8 in g_utf8 (its length in *outLen), or null when
// the set is unknown or the text is not valid in it. UTF-8 to UTF-8 goes
// through iconv too, which checks the sequences.
const char *to_utf8(std::string_view text, const char *charset, std::size_t *outLen) {
    const char *iconvName = ccs_IconvName(charset ? charset : "UTF8");
    if (!iconvName || !g_converter.open(iconvName)) return nullptr;
    std::size_t capacity = text.size() * 2 + 8;
    for (;;) {
        char *out = g_utf8.reserve(capacity);
        char *in = const_cast<char *>(text.data());  // iconv's prototype; it only reads
        std::size_t inLeft = text.size();
        char *outPos = out;
        std::size_t outLeft = capacity - 1;
        iconv(g_converter.cd, nullptr, nullptr, nullptr, nullptr);
        std::size_t rc = iconv(g_converter.cd, &in, &inLeft, &outPos, &outLeft);
        if (rc == static_cast<std::size_t>(-1) && errno == E2BIG) {
            capacity *= 2;
            continue;
        }
        if (rc == static_cast<std::size_t>(-1)) return nullptr;  // EILSEQ or a cut sequence
        *outPos = '\0';
        *outLen = static_cast<std::size_t>(outPos - out);
        return out;
    }
}

// The special characters with their replacement strings, and the bytes the
// transformed text reserves for its own meaning.
struct Specials {
    const char *chars;
    const char *const *replacements;
    std::size_t longest = 1;
    bool reserved[32] = {};

    Specials(const char *specials, const char *const *reps) : chars(specials ? specials : ""), replacements(reps) {
        reserved[static_cast<unsigned char>(kRepeatedDelimiter)] = true;
        for (std::size_t k = 0; chars[k]; ++k) {
            const char *r = replacements[k];
            longest = std::max(longest, std::strlen(r));
            for (; *r; ++r)
                if (static_cast<unsigned char>(*r) < 32) reserved[static_cast<unsigned char>(*r)] = true;
        }
    }
    int index(char c) const {
        if (c == '\0') return -1;
        const char *p = std::strchr(chars, c);
        return p ? static_cast<int>(p - chars) : -1;
    }
    bool is_reserved(char c) const {
        auto b = static_cast<unsigned char>(c);
        return b < 32 && reserved[b];
    }
};

// The transformation proper, on UTF-8 text (a special character or the
// escape character is ASCII, so it never splits a multi-byte character).
// delimiters[0] ends a segment, delimiters[1] separates name from value;
// with repeatFlag set, a further unescaped delimiters[1] in the same segment
// is written as 0x05. Returns null for a typed reserved byte.
char *transform(std::string_view text, const Specials &sp, const char *delimiters, char esc, bool repeatFlag,
                int *outLen) {
    char *out = g_result.reserve(text.size() * sp.longest + 1);
    char *o = out;
    const bool delimiterRule = repeatFlag && delimiters && delimiters[0] && delimiters[1];
    bool valueSeen = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (sp.is_reserved(c)) return nullptr;
        if (c == esc) {
            if (++i == text.size()) break;  // a trailing escape character is dropped
            if (sp.is_reserved(text[i])) return nullptr;
            *o++ = text[i];
            continue;
        }
        int k = sp.index(c);
        if (k < 0) {
            *o++ = c;
            continue;
        }
        if (delimiterRule && c == delimiters[0]) valueSeen = false;
        if (delimiterRule && c == delimiters[1]) {
            if (valueSeen) {
                *o++ = kRepeatedDelimiter;
                continue;
            }
            valueSeen = true;
        }
        for (const char *r = sp.replacements[k]; *r; ++r) *o++ = *r;
    }
    *o = '\0';
    if (outLen) *outLen = static_cast<int>(o - out);
    return out;
}

}  // namespace
}  // namespace t61

extern "C" {

char *t61_TransformTInputStr2(const char *text, int len, const char *charset, const char *specials,
                              const char *const *replacements, const char *delims, int escChar, int flag,
                              int *outLen) {
    if (!text) return nullptr;
    std::size_t n = len < 0 ? std::strlen(text) : strnlen(text, static_cast<std::size_t>(len));
    if (n == 0) return nullptr;  // there is nothing to transform
    std::size_t utf8Len = 0;
    const char *utf8 = t61::to_utf8(std::string_view(text, n), charset, &utf8Len);
    if (!utf8) return nullptr;
    t61::Specials sp(specials, replacements);
    return t61::transform(std::string_view(utf8, utf8Len), sp, delims, static_cast<char>(escChar), flag != 0,
                          outLen);
}

}  // extern "C"
