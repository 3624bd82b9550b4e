// Byte values and limits of the packed O/R name text shared by the sources.
#ifndef CL_PACKED_HPP
#define CL_PACKED_HPP

#include <array>
#include <cstdint>

#include "orn.h"

namespace cl {

// The library's names for the vocabulary of orn.h.
constexpr char kFieldSep = ORN_FIELD_SEP;
constexpr char kGroupEnd = ORN_GROUP_END;
constexpr char kMarker = ORN_MARKER;
constexpr int kFieldCount = ORN_FIELDS;
constexpr int kGroupSize = ORN_GROUP_SIZE;
constexpr int kLastField = ORN_LAST_FIELD;
// The separators as texts, for calls that append strings.
constexpr char kFieldSepText[] = {kFieldSep, '\0'};
constexpr char kEntrySepText[] = {ORN_ENTRY_SEP, '\0'};
constexpr char kValueSepText[] = {ORN_VALUE_SEP, '\0'};

// The bytes that end a field of packed text: its separator, its group's
// end and the text's end.
constexpr std::array<bool, 256> make_field_ends() {
    std::array<bool, 256> ends{};
    ends[static_cast<unsigned char>(kFieldSep)] = true;
    ends[static_cast<unsigned char>(kGroupEnd)] = true;
    ends[0] = true;
    return ends;
}
inline constexpr std::array<bool, 256> kFieldEnd = make_field_ends();

// The first field of the group after the one that holds field n.
constexpr int next_group(int n) { return (n / kGroupSize + 1) * kGroupSize; }

// Field maps: bit k of word w for field 32w + k.
using FieldMaps = std::uint32_t[kFieldCount / kGroupSize + 1];

// Calls f(n) for every field n whose bit is set in maps, in order.
template <class F>
void each_mapped_field(const FieldMaps &maps, F &&f) {
    for (int w = 0; w <= kFieldCount / kGroupSize; ++w)
        for (std::uint32_t word = maps[w]; word; word &= word - 1) f(w * kGroupSize + __builtin_ctz(word));
}

// Calls field(n, begin, end) for every non-empty field of packed text up to
// field 160, in order; fields the text would place beyond 160 are skipped,
// and the result is then false. field may overwrite the byte at end (the
// walk has read it) and bytes before it. Runs of empty fields are stepped
// over without a call.
template <class C, class Field>
bool walk_fields(C *tf, Field &&field) {
    int n = 0;
    bool placed = true;  // no non-empty field lies beyond 160
    C *start = tf;
    for (C *p = tf;; ++p) {
        while (!kFieldEnd[static_cast<unsigned char>(*p)]) ++p;  // the field's bytes
        const char end = *p;
        if (p > start) {
            if (n <= kLastField)
                field(n, start, p);
            else
                placed = false;
        }
        if (end == '\0') return placed;
        if (end == kGroupEnd)
            n = next_group(n);
        else
            for (++n; p[1] == kFieldSep; ++p) ++n;
        start = p + 1;
    }
}

// True when text holds a byte that would end its field in packed text.
constexpr bool holds_separator(const char *text, long len) {
    for (long i = 0; i < len; ++i)
        if (text[i] == kFieldSep || text[i] == kGroupEnd) return true;
    return false;
}

}  // namespace cl
#endif
