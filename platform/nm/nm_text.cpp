// The name library's view of packed O/R name text: where each field lies,
// which fields are present, and in-place rewriting of single fields.
// Short cut: where SSE2 is at hand, the ends of fields are found sixteen
// bytes at a time; the plain behaviour is the byte-by-byte walk beside it.
#include <array>
#include <cstdint>
#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "er.h"
#include "nm.h"

namespace {

constexpr const char kSourceFile[] = "platform/nm/nm_text";
constexpr char kFieldSep = ORN_FIELD_SEP;
constexpr char kGroupEnd = ORN_GROUP_END;
constexpr int kGroupSize = ORN_GROUP_SIZE;
constexpr int kLastField = ORN_LAST_FIELD;

// The bytes that end a field: its separator, its group's end, the text's end.
constexpr std::array<bool, 256> make_field_ends() {
    std::array<bool, 256> ends{};
    ends[static_cast<unsigned char>(kFieldSep)] = true;
    ends[static_cast<unsigned char>(kGroupEnd)] = true;
    ends[0] = true;
    return ends;
}
constexpr std::array<bool, 256> kFieldEnd = make_field_ends();

int next_group(int field) { return (field / kGroupSize + 1) * kGroupSize; }

// Calls at(pos) for the offset of every byte that ends a field, in order,
// until at returns true (it must at the text's end, n). Where SSE2 is at
// hand, sixteen bytes are classed at a time; nothing past the terminator is
// read: the last block is the sixteen bytes that end with it (the bits of
// those already seen dropped), or a padded copy of a shorter text.
template <class At>
void each_field_end(const char *orn, std::size_t n, At &&at) {
#if defined(__SSE2__)
    const __m128i sep = _mm_set1_epi8(kFieldSep);
    const __m128i groupEnd = _mm_set1_epi8(kGroupEnd);
    const __m128i nul = _mm_setzero_si128();
    auto ends_in = [&](__m128i v) {
        __m128i ends = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(v, sep), _mm_cmpeq_epi8(v, groupEnd)),
                                    _mm_cmpeq_epi8(v, nul));
        return static_cast<unsigned>(_mm_movemask_epi8(ends));
    };
    for (std::size_t base = 0;; base += 16) {
        unsigned mask;
        if (n + 1 - base >= 16) {
            mask = ends_in(_mm_loadu_si128(reinterpret_cast<const __m128i *>(orn + base)));
        } else if (n + 1 >= 16) {
            std::size_t seen = base - (n + 1 - 16);  // bytes of the block ending at n already walked
            mask = ends_in(_mm_loadu_si128(reinterpret_cast<const __m128i *>(orn + n + 1 - 16))) >> seen;
        } else {
            alignas(16) char tail[16] = {};
            std::memcpy(tail, orn, n + 1);
            mask = ends_in(_mm_load_si128(reinterpret_cast<const __m128i *>(tail)));
        }
        for (; mask != 0; mask &= mask - 1)
            if (at(base + static_cast<std::size_t>(__builtin_ctz(mask)))) return;
    }
#else
    static_cast<void>(n);  // the byte walk stops at the terminator itself
    for (std::size_t pos = 0;; ++pos)
        if (kFieldEnd[static_cast<unsigned char>(orn[pos])] && at(pos)) return;
#endif
}

// Walks the text as the packed form defines it, calling field(n, start,
// end) for every field it reaches, n <= 160, with the offsets of its bytes.
// Returns the number of the field open at the end of the text and stores
// the text's length. Raises 100/1701 when a non-empty field would lie
// beyond field 160.
template <class Field>
int walk(const char *orn, int *length, Field &&field) {
    const std::size_t n = std::strlen(orn);
    int f = 0;
    int start = 0;
    each_field_end(orn, n, [&](std::size_t at) {
        const int end = static_cast<int>(at);
        if (f <= kLastField)
            field(f, start, end);
        else if (end > start)
            er_TracedEscape(100, 1701, kSourceFile, __LINE__);
        const char c = orn[at];
        if (c == '\0') return true;
        f = c == kGroupEnd ? next_group(f) : f + 1;
        start = end + 1;
        return false;
    });
    *length = static_cast<int>(n);
    return f;
}

// Marks fields from..to-1 (from < to) as not reached: start -1, length 0.
// Most of a name's fields lie past its text, so this is written in stores
// of a Block (a vector of ints) where the range holds one, the last ending
// at `to` (it may overlap the ones before, with the same values).
template <class Block>
inline __attribute__((always_inline)) void fill_unreached(int *start, int *len, unsigned from, unsigned to) {
    constexpr unsigned kInts = sizeof(Block) / sizeof(int);
    Block none;
    Block zero;
    for (unsigned k = 0; k < kInts; ++k) {
        none[k] = -1;
        zero[k] = 0;
    }
    if (to - from < kInts) {
        for (unsigned i = from; i < to; ++i) {
            start[i] = -1;
            len[i] = 0;
        }
        return;
    }
    unsigned i = from;
    for (; i + 4 * kInts <= to; i += 4 * kInts) {
        for (unsigned k = 0; k < 4 * kInts; k += kInts) {
            std::memcpy(start + i + k, &none, sizeof none);
            std::memcpy(len + i + k, &zero, sizeof zero);
        }
    }
    for (; i + kInts < to; i += kInts) {
        std::memcpy(start + i, &none, sizeof none);
        std::memcpy(len + i, &zero, sizeof zero);
    }
    std::memcpy(start + to - kInts, &none, sizeof none);
    std::memcpy(len + to - kInts, &zero, sizeof zero);
}

using Quad = int __attribute__((vector_size(16)));

void fill_by_quads(int *start, int *len, unsigned from, unsigned to) {
    fill_unreached<Quad>(start, len, from, to);
}

#if defined(__x86_64__) && defined(__GNUC__)
// With AVX (checked once, at load), 32-byte stores: half as many.
using Octet = int __attribute__((vector_size(32)));

__attribute__((target("avx"))) void fill_by_octets(int *start, int *len, unsigned from, unsigned to) {
    fill_unreached<Octet>(start, len, from, to);
}

const bool kHaveAvx = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx") != 0;
}();
#endif

void mark_unreached(nm_ParsedORN *parsed, unsigned from, unsigned to) {
    if (from >= to) return;
#if defined(__x86_64__) && defined(__GNUC__)
    if (kHaveAvx) {
        fill_by_octets(parsed->start, parsed->len, from, to);
        return;
    }
#endif
    fill_by_quads(parsed->start, parsed->len, from, to);
}

// The walk noting where each field lies and which are non-empty; the
// fields it passes without reaching (a group end) are marked, and those
// after the end of the text are left alone: `reached` tells where they
// begin. Each slot is written at most once. It walks as `walk` does, with
// the field maps kept in a local until the end (or an escape).
int scan(const char *orn, nm_ParsedORN *parsed) {
    std::uint32_t maps[6] = {};
    const std::size_t n = std::strlen(orn);
    unsigned f = 0;
    unsigned start = 0;
    each_field_end(orn, n, [&](std::size_t at) {
        const auto end = static_cast<unsigned>(at);
        const unsigned len = end - start;
        if (f <= kLastField) {
            parsed->start[f] = static_cast<int>(start);
            parsed->len[f] = static_cast<int>(len);
            if (len != 0) maps[f / kGroupSize] |= UINT32_C(1) << (f % kGroupSize);
        } else if (len != 0) {
            std::memcpy(parsed->maps, maps, sizeof maps);
            er_TracedEscape(100, 1701, kSourceFile, __LINE__);
        }
        const char c = orn[at];
        if (c == '\0') return true;
        if (c == kGroupEnd) {
            const unsigned next = (f / kGroupSize + 1) * kGroupSize;
            mark_unreached(parsed, f + 1, next < NM_FIELDS ? next : NM_FIELDS);
            f = next;
        } else {
            ++f;
        }
        start = end + 1;
        return false;
    });
    parsed->reached = f < NM_FIELDS ? static_cast<int>(f) + 1 : NM_FIELDS;
    std::memcpy(parsed->maps, maps, sizeof maps);
    parsed->length = static_cast<int>(n);
    return static_cast<int>(f);
}

// Separators that lead from field `from` (open at the insertion point) to
// field `to`, written into out; returns their count.
int separators(int from, int to, char *out) {
    int count = 0;
    while (from < to) {
        if (from / kGroupSize == to / kGroupSize) {
            out[count++] = kFieldSep;
            ++from;
        } else {
            out[count++] = kGroupEnd;
            from = next_group(from);
        }
    }
    return count;
}

void splice(char *orn, int at, int remove, const char *insert, int insert_len) {
    int tail = static_cast<int>(std::strlen(orn + at + remove)) + 1;  // with the terminator
    std::memmove(orn + at + insert_len, orn + at + remove, static_cast<std::size_t>(tail));
    if (insert_len > 0) std::memcpy(orn + at, insert, static_cast<std::size_t>(insert_len));
}

}  // namespace

extern "C" {

void nm_ParseORN(const char *orn, nm_ParsedORN *parsed, int *status) {
    scan(orn, parsed);
    if (status) *status = 0;
}

void nm_GetFieldMaps(const nm_ParsedORN *parsed, uint32_t maps[6]) {
    std::memcpy(maps, parsed->maps, sizeof parsed->maps);
}

int nm_CheckBit(int field, const uint32_t maps[6]) {
    if (field < 0 || field > kLastField) return 0;
    return (maps[field / kGroupSize] >> (field % kGroupSize)) & 1U;
}

const char *nm_GetFieldMemPtr(const char *orn, const nm_ParsedORN *parsed, int field, int *len) {
    if (field < 0 || field >= parsed->reached || parsed->len[field] == 0) {
        *len = 0;
        return nullptr;
    }
    *len = parsed->len[field];
    return orn + parsed->start[field];
}

char *nm_GetFieldStr(const char *orn, const nm_ParsedORN *parsed, int field, char *buf, int size) {
    int len = 0;
    const char *p = nm_GetFieldMemPtr(orn, parsed, field, &len);
    if (!p || size <= 0) return nullptr;
    if (len > size - 1) len = size - 1;
    std::memcpy(buf, p, static_cast<std::size_t>(len));
    buf[len] = '\0';
    return buf;
}

void nm_PutFieldMem(char *orn, nm_ParsedORN *parsed, int field, const char *value, int len) {
    if (field < 0 || field > kLastField) er_TracedEscape(100, 1702, kSourceFile, __LINE__);
    int open = scan(orn, parsed);
    if (field < parsed->reached && parsed->start[field] >= 0) {
        splice(orn, parsed->start[field], parsed->len[field], value, len);
    } else if (len > 0) {
        // Not reached yet: insert separators after the last reached field of
        // the same group, or at the end of the text when the group lies beyond.
        int from = open;
        int at = parsed->length;
        for (int r = field - 1; r >= field / kGroupSize * kGroupSize; --r) {
            if (r < parsed->reached && parsed->start[r] >= 0) {
                from = r;
                at = parsed->start[r] + parsed->len[r];
                break;
            }
        }
        char seps[NM_FIELDS];  // at most one separator per field passed
        int count = separators(from, field, seps);
        splice(orn, at, 0, seps, count);
        splice(orn, at + count, 0, value, len);
    }
    scan(orn, parsed);
}

void nm_PutFieldStr(char *orn, nm_ParsedORN *parsed, int field, const char *value) {
    nm_PutFieldMem(orn, parsed, field, value, static_cast<int>(std::strlen(value)));
}

void nm_InitORN(char *orn, nm_ParsedORN *parsed) {
    orn[0] = '\0';
    scan(orn, parsed);
}

void nm_AddSeparators(char *tf, int field) {
    int length = 0;
    int open = walk(tf, &length, [](int, int, int) {});
    int count = separators(open, field, tf + length);
    tf[length + count] = '\0';
}

int nm_IsT61Field(int field) { return field >= ORN_COUNTERPART && field <= ORN_LAST_TEXT; }

}  // extern "C"
