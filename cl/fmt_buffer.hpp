// What the formatters share: their bounded static result buffers and the
// parse-and-unpack step every entry point starts with.
// Short cuts: unpack() fills a table on the stack instead of calling
// cl_UnpackFullORN (shortcut_allowed); next_present() compares table
// entries two to a vector (kVectorEntries); entries() and converted() make
// no call for a range the shared map shows empty (shortcut_allowed).
#ifndef CL_FMT_BUFFER_HPP
#define CL_FMT_BUFFER_HPP

#include <cstdint>
#include <cstring>
#include <type_traits>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "ccs.h"
#include "cl.h"
#include "da.h"
#include "frame.hpp"
#include "fstr.h"
#include "last_packed.hpp"
#include "nm.h"
#include "os.h"
#include "packed.hpp"
#include "str.h"
#include "substitute.hpp"

namespace cl::fmt {

// Result buffers of about 4 KiB allocated one after another start at the
// same offset in their pages, and the data cache's sets repeat every 4 KiB:
// their first bytes, all that a short name uses, would compete for the same
// few lines. So each buffer's text starts one line further into its
// allocation than the one before it did, across kStaggerLines lines.
constexpr std::size_t kCacheLine = 64;
constexpr std::size_t kStaggerLines = 16;
inline std::size_t g_buffers_allocated = 0;

// A formatter's result buffer: allocated with os_malloc on the first call,
// never freed, emptied at the start of every call. It holds capacity - 1
// characters and the terminator. An append that does not fit is cut at the
// bound, never inside a UTF-8 character, and the buffer is then full:
// nothing later is appended after the cut, so the text never has a hole.
//
// Plain appends copy the bytes; the appends given a character set go
// through the character-set library's concatenation for that set (null:
// UTF8), where the display text must.
class Text {
public:
    constexpr explicit Text(int capacity) noexcept : capacity_(capacity) {}

    char *begin() {
        if (!data_) {
            const std::size_t stagger = kCacheLine * (g_buffers_allocated++ % kStaggerLines);
            data_ = static_cast<char *>(os_malloc(static_cast<std::size_t>(capacity_) + stagger)) + stagger;
        }
        length_ = 0;
        full_ = false;
        data_[0] = '\0';
        return data_;
    }

    void append(const char *s) {
        if (full_ || !*s) return;  // many group texts are empty
        append(s, std::strlen(s));
    }
    // The same when the length of s, n, is known.
    void append(const char *s, std::size_t n) {
        if (full_ || n == 0) return;
        if (n > room()) return cut_in(s, 0);
        std::memcpy(end(), s, n + 1);
        length_ += static_cast<int>(n);
    }

    void append(const char *s, ccs_Descriptor *cs) {
        if (full_ || !*s) return;  // appending nothing in any set changes nothing
        append(s, std::strlen(s), cs);
    }
    void append(const char *s, std::size_t n, ccs_Descriptor *cs) {
        if (full_ || n == 0) return;
        if (n > room()) return cut_in(s, cs ? cs->id : 0);
        str_strcat(end(), s, cs);
        length_ += static_cast<int>(n);
    }

    void append(char c) {
        if (full_ || c == '\0') return;
        if (room() == 0) {
            full_ = true;
            return;
        }
        data_[length_++] = c;
        data_[length_] = '\0';
    }

    // Whether n more bytes fit whole.
    bool fits(std::size_t n) const { return !full_ && n <= room(); }

    // Appends the n bytes of s, each through map; they must fit.
    void append_mapped(const char *s, std::size_t n, const ByteMap &map) {
        char *e = end();
        for (std::size_t i = 0; i < n; ++i) e[i] = map_byte(s[i], map);
        e[n] = '\0';
        length_ += static_cast<int>(n);
    }

    // Appends entries after a '/' when both the text and they are non-empty.
    void join(const char *entries) {
        if (!empty() && *entries) append('/');
        append(entries);
    }
    void join(const char *entries, ccs_Descriptor *cs) {
        if (!empty() && *entries) append("/", cs);
        append(entries, cs);
    }

    // Cuts the text back to `length` characters (no effect beyond its end).
    void cut(int length) {
        if (length >= length_) return;
        length_ = length;
        data_[length_] = '\0';
    }

    char *data() const { return data_; }
    int size() const { return length_; }
    bool empty() const { return length_ == 0; }
    bool full() const { return full_; }

private:
    friend class Filling;
    char *end() const { return data_ + length_; }
    std::size_t room() const { return static_cast<std::size_t>(capacity_ - 1 - length_); }

    // What fits of s, cut at a character boundary; the text is then full.
    void cut_in(const char *s, int csId) {
        char *e = end();
        str_strncat(e, s, static_cast<int>(room()), csId);
        length_ += static_cast<int>(std::strlen(e));
        full_ = true;
    }

    char *data_ = nullptr;
    int capacity_;
    int length_ = 0;
    bool full_ = false;
};
static_assert(std::is_trivially_destructible_v<Text>);

// Writes an empty (just begun) Text with no bound check per byte, once the
// whole text has been found to fit (Text::fits on a bound of its length);
// done() terminates it. Notes whether every byte written was ASCII.
class Filling {
    static constexpr ByteMap kSame = make_byte_map("", "");

public:
    explicit Filling(Text &text) : text_(text), start_(text.end()), p_(start_) {}
    void append(char c) {
        bits_ |= static_cast<unsigned char>(c);
        *p_++ = c;
    }
    void append(const char *s) { append_mapped(s, kSame); }
    // The loop keeps its place in locals: a char store could alias the members.
    void append_mapped(const char *s, const ByteMap &map) {
        char *p = p_;
        unsigned bits = bits_;
        for (; *s; ++s) {
            const char c = map_byte(*s, map);
            bits |= static_cast<unsigned char>(c);
            *p++ = c;
        }
        p_ = p;
        bits_ = bits;
    }
    // What another, done, Filling wrote.
    void append(const Filling &other) {
        const auto n = static_cast<std::size_t>(other.size());
        std::memcpy(p_, other.start_, n);
        p_ += n;
        bits_ |= other.bits_;
    }
    int size() const { return static_cast<int>(p_ - start_); }
    void cut(int length) {
        if (length < size()) p_ = start_ + length;
    }
    bool plain() const { return bits_ < 0x80; }
    void done() {
        *p_ = '\0';
        text_.length_ = size();
    }

private:
    Text &text_;
    char *start_;
    char *p_;
    unsigned bits_ = 0;
};
static_assert(std::is_trivially_destructible_v<Filling>);

// Whether bytes appended in set cs (null: UTF8) are appended as they are
// when they are plain ASCII: true of UTF-8 alone here.
inline bool ascii_as_is(const ccs_Descriptor *cs) { return std::strcmp(ccs_GetCSName(cs), "UTF8") == 0; }

// A text a formatter wrote, its length, and whether it is known to be
// plain ASCII (false: not known).
struct Written {
    const char *text;
    int size;
    bool plain;
};

// Group 1 as cl_FrmtGroup1PP writes and traces it.
Written traced_group1(char **table, bool mailNodeOnly);

// Sizes of the buffers, terminator included.
constexpr int kGroup1Size = 4097;    // personal-name and group 1 texts, field work area
constexpr int kGroup2Size = 4097;    // attribute entries
constexpr int kGroup345Size = 8194;  // converted attribute entries
constexpr int kFullSize = 4080;      // full-name and personal-name texts

constexpr const char kKeyChars[] = "/=*[]%";

// Copies s into work (size bytes), cut like Text::append.
inline char *bounded_copy(char *work, int size, const char *s) {
    work[0] = '\0';
    return str_strncat(work, s, size - 1, 0);
}

// An unpacked field table: entries pointing into a copy of a packed text of
// up to kTextMax bytes, in which the fields are terminated in place, or
// into the conversion's record. Every empty field, and the terminating
// entry, points at one shared empty text; the formatters only read the
// table. Trivially destructible, so an escape may cross it.
//
// The entries are the library's one table of entries, and the copy its one
// block (the formatters keep one table at a time, like their result
// buffers): every entry points at the shared empty text except those of
// the fields the last fill found, which the next fill points back at it
// first. So a fill writes the entries of the name's fields alone, not all
// 162, and a fill left by an escape is undone by the next one as well. The
// block is not in the formatter's frame: 4 KiB there would set the frames
// it calls a page below the caller's, where their first lines would
// compete for the same lines of the data cache.
struct LocalTable {
    static constexpr int kTextMax = 4096;
    char **entries;
};

// The empty text that the empty fields of a table point at.
extern char *const kSharedEmpty;

// The entries every LocalTable uses, and which of them the last fill set
// (bit k of word w for field 32w + k); the others point at kSharedEmpty.
// Their lengths are kept beside them (at most kTextMax: they lie in the
// table's block or the conversion's record), so that the formatters
// measure no field of these tables.
struct SharedEntries {
    char *entries[kFieldCount + 1];
    std::uint16_t length[kFieldCount + 1];  // strlen(entries[n])
    FieldMaps filled;
};
static_assert(LocalTable::kTextMax <= UINT16_MAX && LastPacked::kTextMax <= UINT16_MAX);
extern SharedEntries g_shared;

// strlen(table[field]), read from the shared entries' lengths when the
// table is theirs.
inline std::size_t field_length(char *const *table, int field) {
    if (table == g_shared.entries) return g_shared.length[field];
    return std::strlen(table[field]);
}

// Whether entries can be compared two to a 16-byte vector: SSE2 and
// 8-byte pointers. Elsewhere (32-bit x86 without SSE2 included) the plain
// loop does the work alone.
#if defined(__SSE2__)
constexpr bool kVectorEntries = sizeof(char *) == 8 && sizeof(long long) == 8;
#else
constexpr bool kVectorEntries = false;
#endif

// The first field from i to last that is not empty, or last + 1. In the
// shared entries only the fields the fill set are looked at; in another
// table, entries that are the shared empty text are passed over four at a
// time where kVectorEntries holds, and any other entry is looked at.
inline int next_present(char *const *table, int i, int last) {
    if (table == g_shared.entries) {  // only the fields the fill set can be present
        while (i <= last) {
            const std::uint32_t word = g_shared.filled[i / kGroupSize] >> (i % kGroupSize);
            if (!word) {
                i = next_group(i);
                continue;
            }
            i += __builtin_ctz(word);
            if (i > last) break;
            if (*table[i]) return i;
            ++i;
        }
        return last + 1;
    }
#if defined(__SSE2__)
    if constexpr (kVectorEntries) {
        const __m128i empty = _mm_set1_epi64x(reinterpret_cast<long long>(kSharedEmpty));
        for (; i + 3 <= last; i += 4) {
            const auto *four = reinterpret_cast<const __m128i *>(table + i);
            __m128i same = _mm_and_si128(_mm_cmpeq_epi32(_mm_loadu_si128(four), empty),
                                         _mm_cmpeq_epi32(_mm_loadu_si128(four + 1), empty));
            if (_mm_movemask_epi8(same) != 0xFFFF) break;
        }
    }
#endif
    for (; i <= last; ++i)
        if (*table[i]) return i;
    return last + 1;
}

// True when table is the shared entries and their map has no field from
// first to last (0 <= first <= last <= 160): those fields are all empty.
// False says nothing.
inline bool none_mapped(char *const *table, int first, int last) {
    if (table != g_shared.entries) return false;
    const auto from = static_cast<unsigned>(first), to = static_cast<unsigned>(last);
    for (unsigned w = from / kGroupSize; w <= to / kGroupSize; ++w) {
        std::uint32_t word = g_shared.filled[w];
        if (w == from / kGroupSize) word &= ~UINT32_C(0) << (from % kGroupSize);
        if (w == to / kGroupSize) word &= ~UINT32_C(0) >> (kGroupSize - 1 - to % kGroupSize);
        if (word) return false;
    }
    return true;
}

// True when nothing traces and table is the shared entries with no field
// past group 1 (from field 32 on); false says nothing.
inline bool only_group1(char *const *table) { return shortcut_allowed() && none_mapped(table, ORN_COMMON_NAME, kLastField); }

// The buffers of cl_FrmtGroup2PP and cl_FrmtGroup345PP, emptied: all that
// those calls do for a range without a field.
char *empty_entries();
char *empty_converted();

// cl_FrmtGroup2PP (not ascii-encoded) and cl_FrmtGroup345PP of a range.
// When nothing traces and the map of the shared entries shows the range
// empty, the call would only empty its buffer: so that alone is done.
inline const char *entries(char **table, int first, int last) {
    if (shortcut_allowed() && none_mapped(table, first, last)) return empty_entries();
    return cl_FrmtGroup2PP(table, first, last, 0);
}
inline const char *converted(char **table, ccs_Descriptor *cs, int first, int last, bool needSeparator) {
    if (shortcut_allowed() && none_mapped(table, first, last)) return empty_converted();
    return cl_FrmtGroup345PP(table, cs, first, last, needSeparator ? 1 : 0);
}

// Fills the formatters' table (its block and entries, noted in local) with
// the first fieldCount fields of tf (length bytes), read by the packed
// form's rules, and returns its entries; null when tf is longer than the
// block holds. Each entry reads as the text that
// cl_UnpackFullORN gives the field.
char **unpack_local(const char *tf, int length, int fieldCount, LocalTable &local);

// The entries of the first fieldCount fields of a text the conversion made
// last, pointing into its record (0 <= fieldCount <= 161).
char **known_entries(LastPacked &known, int fieldCount, LocalTable &local);

// Parses packed text (the name library checks it) and unpacks its first
// fieldCount fields: into the formatters' table, unless cl_UnpackFullORN
// would trace or the text does not fit there, then into a new table. Hand the result to
// release(). The text the conversion has just made needs neither: its
// record holds the walk already.
inline char **unpack(const char *tf, int fieldCount, LocalTable &local) {
    local.entries = nullptr;
    if (shortcut_allowed())
        if (LastPacked *known = last_packed_for(tf)) return known_entries(*known, fieldCount, local);
    nm_ParsedORN parsed;
    int status = 0;
    nm_ParseORN(tf, &parsed, &status);
    int length = static_cast<int>(std::strlen(tf));
    if (shortcut_allowed())
        if (char **table = unpack_local(tf, length, fieldCount, local)) return table;
    char **table = nullptr;
    cl_UnpackFullORN(tf, &table, &parsed, fieldCount, length);
    return table;
}

inline void release(char **table, LocalTable &local) {
    if (table != local.entries) cl_FreeORN(table);
}

// The display text of the special entry "<number>" 0x1D "<CV of value>",
// built in s.
inline const char *special_entry(fstr_String &s, const char *number, const char *attributeValue) {
    fstr_FsCsCopy(&s, number);
    fstr_FsCsCat(&s, kValueSepText);
    fstr_FsCsCat(&s, da_ConvEntryToCV(attributeValue));
    return cl_FormatSpecialEntry(s.text);
}

// The display name of a field's attribute.
inline const char *display_name(int field) { return da_AttribNumberToLocName(da_nmFieldNum2DANum(field)); }

}  // namespace cl::fmt

#endif  // CL_FMT_BUFFER_HPP
