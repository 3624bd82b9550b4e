// The T.61 input transformation: typed text in a named character set becomes
// UTF-8 in which each unescaped special character is replaced by its
// replacement string, ready for the command-line conversion to split.
// Short cuts: the table of special characters is kept while a caller passes
// the same arguments again, and runs of literal bytes are copied sixteen at
// a time with SSE2. The plain behaviour they stand for: each character,
// read in turn, is compared with the special characters and the escape.
#include <iconv.h>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "ccs.h"
#include "er.h"
#include "t61.h"

namespace t61 {
namespace {

constexpr const char kSourceFile[] = "platform/t61/t61";
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

// Bytes of the well-formed UTF-8 sequence that begins at p (p < end, *p
// from 0x80 up), or 0 when there is none: no overlong forms, no
// surrogates, nothing above U+10FFFF.
std::size_t utf8_sequence(const unsigned char *p, const unsigned char *end) {
    unsigned char b = *p;
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
        return 0;
    }
    if (static_cast<std::size_t>(end - p) < n || p[1] < lo || p[1] > hi) return 0;
    for (std::size_t k = 2; k < n; ++k)
        if ((p[k] & 0xC0) != 0x80) return 0;
    return n;
}

// True when text is well-formed UTF-8 (every sequence a Unicode scalar
// value). That is exactly what iconv's UTF-8 decoder accepts, and it hands
// such text back unchanged.
bool well_formed_utf8(std::string_view text) {
    const auto *p = reinterpret_cast<const unsigned char *>(text.data());
    const unsigned char *end = p + text.size();
    while (p < end) {
        if (*p < 0x80) {
            ++p;
            continue;
        }
        std::size_t n = utf8_sequence(p, end);
        if (n == 0) return false;
        p += n;
    }
    return true;
}

// The iconv name of a set (null when it has none) and whether that is the
// internal set, remembered for the last name asked: a program types in one
// set. Names that do not fit are looked up each time.
struct SetName {
    const char *iconv = nullptr;
    bool internal = false;
};

inline SetName set_name(const char *charset) {
    static char lastName[32];  // NUL-terminated, at most 31 bytes
    static std::size_t lastLength = sizeof lastName;  // none yet
    static SetName last;
    if (lastLength < sizeof lastName) {
        // Up to the copy's terminator, stopping at the first difference.
        std::size_t i = 0;
        while (i <= lastLength && charset[i] == lastName[i]) ++i;
        if (i > lastLength) return last;
    }
    SetName found;
    found.iconv = ccs_IconvName(charset);
    found.internal = found.iconv && std::strcmp(found.iconv, kInternalSet) == 0;
    std::size_t n = std::strlen(charset);
    if (n < sizeof lastName) {
        std::memcpy(lastName, charset, n + 1);
        lastLength = n;
        last = found;
    }
    return found;
}

// The typed text as UTF-8 (its length in *outLen), or null when the set is
// unknown or the text is not valid in it. Text named UTF-8 that is already
// well-formed is used as it stands; any other text goes through iconv (into
// g_utf8), which checks the sequences.
const char *to_utf8(std::string_view text, const char *charset, std::size_t *outLen) {
    SetName set = set_name(charset ? charset : "UTF8");
    if (set.internal && well_formed_utf8(text)) {
        *outLen = text.size();
        return text.data();
    }
    if (!set.iconv || !g_converter.open(set.iconv)) return nullptr;
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
// entries, built from the special characters, the escape character and the
// bytes the transformed text reserves for its own meaning (0x05 and the
// control bytes of the replacement strings). A reserved byte is refused
// wherever it stands, even as the escape character or a special; the escape
// character comes before the specials; a special listed twice takes its
// first position. Bytes 0x80 to 0xFF that are neither begin a UTF-8
// sequence.
constexpr signed char kLiteral = -1;
constexpr signed char kReserved = -2;
constexpr signed char kEscapeChar = -3;
constexpr signed char kMultiByte = -4;
// Any other value: the position of the special character.

// Bounds of what a cached table keeps of its special characters and
// replacement strings; a larger set gets a table of its own for the call,
// which reads the caller's replacement strings.
constexpr std::size_t kMaxSpecials = 32;
constexpr std::size_t kReplacementBytes = 128;  // all replacements with their terminators

struct Specials {
    // What the table was built from: the caller's pointers and, in a cached
    // table, copies of the texts behind them.
    const char *specialsKey = nullptr;
    const char *const *replacementsKey = nullptr;
    char esc = 0;
    std::size_t count = 0;  // special characters
    const char *chars = "";
    const char *const *replacements = nullptr;  // the strings written, by position
    std::size_t longest = 1;
    bool ascii = true;  // every special and the escape character below 0x80
    signed char action[256] = {};
    // A cached table's copies: the special characters and then each
    // replacement, each with its terminator, one after another; the lengths
    // of the replacements (SIZE_MAX in a table that reads the caller's), and
    // those of the first positions as words (NUL-padded) where they fit one.
    static constexpr std::size_t kWordReplacements = 8;
    char kept[kMaxSpecials + 1 + kReplacementBytes] = {};
    const char *keptReplacements[kMaxSpecials] = {};  // into kept
    std::size_t replacementLength[kMaxSpecials] = {};
    std::uint64_t replacementWord[kWordReplacements] = {};
    // The printable ASCII bytes (0x20 to 0x7F) that are not literal, each
    // repeated over 16 bytes for a block compare; unused rows hold 0x00.
    // Where SSE2 is missing, or for more such bytes than rows, the text is
    // walked a byte at a time.
    static constexpr std::size_t kWatchRows = 8;
    alignas(16) unsigned char watch[kWatchRows][16] = {};
    bool blockWalk = false;

    // True when the specials and their replacements fit a cached table.
    static bool fits(const char *specials, const char *const *reps) {
        std::size_t count = std::strlen(specials);
        if (count > kMaxSpecials) return false;
        std::size_t bytes = 0;
        for (std::size_t k = 0; k < count; ++k) bytes += std::strlen(reps[k]) + 1;
        return bytes <= kReplacementBytes;
    }

    // Builds the table; with keep, from copies of the texts (which must fit).
    void build(const char *specials, const char *const *reps, char escChar, bool keep) {
        specialsKey = specials;
        replacementsKey = reps;
        esc = escChar;
        chars = specials ? specials : "";
        count = std::strlen(chars);
        replacements = reps;
        if (keep) {
            std::memcpy(kept, chars, count + 1);
            chars = kept;
            std::size_t used = count + 1;
            for (std::size_t k = 0; k < count; ++k) {
                std::size_t n = std::strlen(reps[k]) + 1;
                std::memcpy(kept + used, reps[k], n);
                keptReplacements[k] = kept + used;
                used += n;
            }
            replacements = keptReplacements;
        }
        for (std::size_t k = 0; k < kMaxSpecials; ++k)
            replacementLength[k] = keep && k < count ? std::strlen(replacements[k]) : SIZE_MAX;
        for (std::size_t k = 0; k < kWordReplacements; ++k) {
            replacementWord[k] = 0;
            if (replacementLength[k] <= sizeof(std::uint64_t))
                std::memcpy(&replacementWord[k], replacements[k], replacementLength[k]);
        }
        std::memset(action, kLiteral, 128);
        std::memset(action + 128, kMultiByte, 128);
        for (std::size_t k = count; k-- > 0;)  // last to first: the first position wins
            action[static_cast<unsigned char>(chars[k])] = static_cast<signed char>(k);
        action[static_cast<unsigned char>(esc)] = kEscapeChar;
        action[static_cast<unsigned char>(kRepeatedDelimiter)] = kReserved;
        ascii = static_cast<unsigned char>(esc) < 0x80;
        longest = 1;
        for (std::size_t k = 0; k < count; ++k) {
            ascii = ascii && static_cast<unsigned char>(chars[k]) < 0x80;
            const char *r = replacements[k];
            longest = std::max(longest, std::strlen(r));
            for (; *r; ++r)
                if (static_cast<unsigned char>(*r) < 32) action[static_cast<unsigned char>(*r)] = kReserved;
        }
        action[0] = kLiteral;  // the text holds no NUL: its end is its length
        std::memset(watch, 0, sizeof watch);
        std::size_t rows = 0;
        for (int b = 0x20; b < 0x80; ++b) {
            if (action[b] == kLiteral) continue;
            if (rows < kWatchRows) std::memset(watch[rows], b, 16);
            ++rows;
        }
#if defined(__SSE2__)
        blockWalk = rows <= kWatchRows;
#else
        blockWalk = false;
#endif
    }

    // True when this cached table was built from these arguments: the same
    // pointers, and the same texts behind them still. Each text is compared
    // with its copy up to the copy's terminator, which stops at the first
    // difference, so nothing past a terminator of the caller's is read.
    bool built_from(const char *specials, const char *const *reps, char escChar) const {
        if (specials != specialsKey || reps != replacementsKey || escChar != esc) return false;
        const char *from = specials ? specials : "";
        for (std::size_t i = 0; i <= count; ++i)
            if (from[i] != kept[i]) return false;
        const char *copy = kept + count + 1;
        for (std::size_t k = 0; k < count; ++k) {
            from = reps[k];
            std::size_t length = replacementLength[k];
            if (length == 1) {  // most replacements are a byte or two
                if (from[0] != copy[0] || from[1] != '\0') return false;
            } else if (length == 2) {
                if (from[0] != copy[0] || from[1] != copy[1] || from[2] != '\0') return false;
            } else {
                for (std::size_t i = 0; i <= length; ++i)
                    if (from[i] != copy[i]) return false;
            }
            copy += length + 1;
        }
        return true;
    }
};

// Tables of the last sets of specials used (callers pass the same constant
// arrays call after call), replaced in turn when another set comes.
constexpr std::size_t kCachedTables = 4;
Specials g_tables[kCachedTables];
Specials g_uncachedTable;  // for a set that does not fit a cached table
std::size_t g_tablesUsed = 0;
std::size_t g_nextTable = 0;
std::size_t g_lastTable = 0;  // the table the last call used, tried first

// The table for these arguments: a cached one built from the same pointers
// and texts, else one built now, into the cache when the specials fit its
// bounds, else into g_uncachedTable.
const Specials &specials_for(const char *specials, const char *const *reps, char esc) {
    if (g_tablesUsed > 0 && g_tables[g_lastTable].built_from(specials, reps, esc)) return g_tables[g_lastTable];
    for (std::size_t k = 0; k < g_tablesUsed; ++k) {
        if (k != g_lastTable && g_tables[k].built_from(specials, reps, esc)) {
            g_lastTable = k;
            return g_tables[k];
        }
    }
    if (!Specials::fits(specials ? specials : "", reps)) {
        g_uncachedTable.build(specials, reps, esc, false);
        return g_uncachedTable;
    }
    g_lastTable = g_nextTable;
    Specials &slot = g_tables[g_nextTable];
    slot.build(specials, reps, esc, true);
    g_nextTable = (g_nextTable + 1) % kCachedTables;
    g_tablesUsed = std::min(g_tablesUsed + 1, kCachedTables);
    return slot;
}

// Bytes past the end of the text that the block walk may read (a copy of
// the text padded with NULs) and may write (in the result).
constexpr std::size_t kBlock = 16;

Buffer g_padded;  // the text, then kBlock NULs

// Copies the literal bytes from p on to o, stopping at the first byte that
// is not literal or at end; with sp.blockWalk, p must be in a text followed
// by kBlock NULs and o must have kBlock bytes of room beyond what it copies
// (16-byte loads and stores).
// The block walk stops at every byte below 0x20 or from 0x80 up and at each
// watched byte, so also at some bytes that are literal (the caller copies
// those one by one) and at the first NUL after the text, its end.
inline void copy_literals(const unsigned char *&p, const unsigned char *end, char *&o, const Specials &sp) {
#if defined(__SSE2__)
    if (sp.blockWalk) {
        const __m128i below = _mm_set1_epi8(0x20);
        __m128i rows[Specials::kWatchRows];  // in registers: the stores below could alias sp
        for (std::size_t r = 0; r < Specials::kWatchRows; ++r)
            rows[r] = _mm_load_si128(reinterpret_cast<const __m128i *>(sp.watch[r]));
        for (;;) {
            __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
            __m128i stop = _mm_cmplt_epi8(v, below);  // signed: control bytes and 0x80 up
            for (std::size_t r = 0; r < Specials::kWatchRows; ++r) stop = _mm_or_si128(stop, _mm_cmpeq_epi8(v, rows[r]));
            _mm_storeu_si128(reinterpret_cast<__m128i *>(o), v);
            auto mask = static_cast<unsigned>(_mm_movemask_epi8(stop));
            if (mask) {
                auto run = static_cast<unsigned>(__builtin_ctz(mask));
                p += run;
                o += run;
                return;
            }
            p += kBlock;
            o += kBlock;
        }
    }
#endif
    while (p < end && sp.action[*p] == kLiteral) *o++ = static_cast<char>(*p++);
}

// The transformation proper, on UTF-8 text (a special character or the
// escape character is ASCII, so it never splits a multi-byte character).
// delimiters[0] ends a segment, delimiters[1] separates name from value;
// with repeatFlag set, a further unescaped delimiters[1] in the same segment
// is written as 0x05. Returns null for a typed reserved byte.
//
// With checkUtf8, the text is the caller's, named UTF-8 and not yet checked:
// each sequence from 0x80 up is checked as well_formed_utf8 checks it, and
// the first one that is not well-formed stops the walk with *malformed set
// (the caller then takes the general way, which refuses the text). The
// specials must then be ASCII. Without checkUtf8 those bytes are literal.
template <bool checkUtf8>
char *transform(std::string_view text, const Specials &sp, const char *delimiters, bool repeatFlag, int *outLen,
                bool *malformed) {
    char *out = g_result.reserve(text.size() * sp.longest + kBlock + 1);
    char *o = out;
    const bool delimiterRule = repeatFlag && delimiters && delimiters[0] && delimiters[1];
    const char segmentEnd = delimiterRule ? delimiters[0] : '\0';  // '\0': no rule (no special is NUL)
    const char nameValue = delimiterRule ? delimiters[1] : '\0';
    bool valueSeen = false;
    const auto *p = reinterpret_cast<const unsigned char *>(text.data());
    if (sp.blockWalk) {
        char *padded = g_padded.reserve(text.size() + kBlock);
        std::memcpy(padded, text.data(), text.size());
        std::memset(padded + text.size(), 0, kBlock);
        p = reinterpret_cast<const unsigned char *>(padded);
    }
    const unsigned char *end = p + text.size();
    const signed char *action = sp.action;
    for (;;) {
        copy_literals(p, end, o, sp);
        if (p == end) break;
        unsigned char c = *p;
        signed char k = action[c];
        if (k >= 0) {  // a special character: the block walk stops at these most
            if (static_cast<char>(c) == segmentEnd) valueSeen = false;
            ++p;
            if (static_cast<char>(c) == nameValue) {
                if (valueSeen) {
                    *o++ = kRepeatedDelimiter;
                    continue;
                }
                valueSeen = true;
            }
            auto position = static_cast<std::size_t>(k);
            if (position < Specials::kWordReplacements && sp.replacementLength[position] <= sizeof(std::uint64_t)) {
                // A short kept replacement, as one 8-byte store (o has room: see kBlock).
                std::memcpy(o, &sp.replacementWord[position], sizeof(std::uint64_t));
                o += sp.replacementLength[position];
                continue;
            }
            for (const char *r = sp.replacements[k]; *r; ++r) *o++ = *r;
            continue;
        }
        if (k == kLiteral) {  // a byte the block walk stops at, but literal
            *o++ = static_cast<char>(c);
            ++p;
            continue;
        }
        if (k == kMultiByte) {
            std::size_t n = 1;
            if (checkUtf8) {
                n = utf8_sequence(p, end);
                if (n == 0) {
                    *malformed = true;
                    return nullptr;
                }
            }
            for (std::size_t b = 0; b < n; ++b) *o++ = static_cast<char>(p[b]);
            p += n;
            continue;
        }
        if (k == kReserved) return nullptr;
        {  // the escape character
            if (++p == end) break;  // a trailing escape character is dropped
            k = action[*p];
            if (k == kReserved) return nullptr;
            if (k != kMultiByte) *o++ = static_cast<char>(*p++);
            continue;  // a sequence from 0x80 up is copied whole as it stands
        }
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
    const t61::Specials &sp = t61::specials_for(specials, replacements, static_cast<char>(escChar));
    std::string_view typed(text, n);
    if (sp.ascii && t61::set_name(charset ? charset : "UTF8").internal) {
        // UTF-8 checked while it is transformed, in one walk.
        bool malformed = false;
        char *out = t61::transform<true>(typed, sp, delims, flag != 0, outLen, &malformed);
        if (!malformed) return out;
    }
    std::size_t utf8Len = 0;
    const char *utf8 = t61::to_utf8(typed, charset, &utf8Len);
    if (!utf8) return nullptr;
    return t61::transform<false>(std::string_view(utf8, utf8Len), sp, delims, flag != 0, outLen, nullptr);
}

}  // extern "C"
