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

// True when text is well-formed UTF-8 (every sequence a Unicode scalar
// value: no overlong forms, no surrogates, nothing above U+10FFFF). That is
// exactly what iconv's UTF-8 decoder accepts, and it hands such text back
// unchanged.
bool well_formed_utf8(std::string_view text) {
    const auto *p = reinterpret_cast<const unsigned char *>(text.data());
    const unsigned char *end = p + text.size();
    while (p < end) {
        unsigned char b = *p;
        if (b < 0x80) {
            ++p;
            continue;
        }
        // Lead byte: the sequence length and the range of its second byte.
        std::size_t n = 0;
        unsigned char lo = 0x80, hi = 0xBF;
        if (b >= 0xC2 && b <= 0xDF) {
            n = 2;
        } else if (b >= 0xE0 && b <= 0xEF) {
            n = 3;
            if (b == 0xE0) lo = 0xA0;  // no overlong form
            if (b == 0xED) hi = 0x9F;  // no surrogate
        } else if (b >= 0xF0 && b <= 0xF4) {
            n = 4;
            if (b == 0xF0) lo = 0x90;  // no overlong form
            if (b == 0xF4) hi = 0x8F;  // nothing above U+10FFFF
        } else {
            return false;
        }
        if (static_cast<std::size_t>(end - p) < n || p[1] < lo || p[1] > hi) return false;
        for (std::size_t k = 2; k < n; ++k)
            if ((p[k] & 0xC0) != 0x80) return false;
        p += n;
    }
    return true;
}

// The typed text as UTF-8 (its length in *outLen), or null when the set is
// unknown or the text is not valid in it. Text named UTF-8 that is already
// well-formed is used as it stands; any other text goes through iconv (into
// g_utf8), which checks the sequences.
const char *to_utf8(std::string_view text, const char *charset, std::size_t *outLen) {
    const char *iconvName = ccs_IconvName(charset ? charset : "UTF8");
    if (iconvName && std::strcmp(iconvName, kInternalSet) == 0 && well_formed_utf8(text)) {
        *outLen = text.size();
        return text.data();
    }
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

// What each byte of the text is to the transformation: one table of 256
// entries, built per call from the special characters, the escape character
// and the bytes the transformed text reserves for its own meaning (0x05 and
// the control bytes of the replacement strings). A reserved byte is refused
// wherever it stands, even as the escape character or a special; the escape
// character comes before the specials; a special listed twice takes its
// first position.
constexpr signed char kLiteral = -1;
constexpr signed char kReserved = -2;
constexpr signed char kEscapeChar = -3;
// Any other value: the position of the special character.

struct Specials {
    const char *const *replacements;
    std::size_t longest = 1;
    signed char action[256];

    Specials(const char *specials, const char *const *reps, char esc) : replacements(reps) {
        const char *chars = specials ? specials : "";
        std::memset(action, kLiteral, sizeof action);
        for (std::size_t k = std::strlen(chars); k-- > 0;)  // last to first: the first position wins
            action[static_cast<unsigned char>(chars[k])] = static_cast<signed char>(k);
        action[static_cast<unsigned char>(esc)] = kEscapeChar;
        action[static_cast<unsigned char>(kRepeatedDelimiter)] = kReserved;
        for (std::size_t k = 0; chars[k]; ++k) {
            const char *r = replacements[k];
            longest = std::max(longest, std::strlen(r));
            for (; *r; ++r)
                if (static_cast<unsigned char>(*r) < 32) action[static_cast<unsigned char>(*r)] = kReserved;
        }
        action[0] = kLiteral;  // the text holds no NUL: its end is its length
    }
    signed char of(char c) const { return action[static_cast<unsigned char>(c)]; }
};

// The transformation proper, on UTF-8 text (a special character or the
// escape character is ASCII, so it never splits a multi-byte character).
// delimiters[0] ends a segment, delimiters[1] separates name from value;
// with repeatFlag set, a further unescaped delimiters[1] in the same segment
// is written as 0x05. Returns null for a typed reserved byte.
char *transform(std::string_view text, const Specials &sp, const char *delimiters, bool repeatFlag, int *outLen) {
    char *out = g_result.reserve(text.size() * sp.longest + 1);
    char *o = out;
    const bool delimiterRule = repeatFlag && delimiters && delimiters[0] && delimiters[1];
    bool valueSeen = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        signed char k = sp.of(c);
        if (k == kLiteral) {
            *o++ = c;
            continue;
        }
        if (k == kReserved) return nullptr;
        if (k == kEscapeChar) {
            if (++i == text.size()) break;  // a trailing escape character is dropped
            if (sp.of(text[i]) == kReserved) return nullptr;
            *o++ = text[i];
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
    t61::Specials sp(specials, replacements, static_cast<char>(escChar));
    return t61::transform(std::string_view(utf8, utf8Len), sp, delims, flag != 0, outLen);
}

}  // extern "C"
