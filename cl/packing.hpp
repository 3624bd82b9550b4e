// Packing fields into packed O/R name text: the one writer of the packed
// form, shared by the field array (cl_ORNArray2Tf) and the command-line
// conversion, which packs from pieces of the texts that hold its fields.
#ifndef CL_PACKING_HPP
#define CL_PACKING_HPP

#include <cstddef>
#include <cstring>

#include "packed.hpp"

namespace cl {

// A slot's text as packing reads it: not necessarily terminated.
struct Piece {
    const char *text;
    std::size_t len;
};

// The slots of a field array: each_set(first, end, f) calls f(i, piece)
// for every set slot from first to end - 1, in order; no slot from
// set_bound() on is set.
struct ArraySlots {
    char *const *slots;
    static constexpr int set_bound() { return kFieldCount; }
    template <class F>
    void each_set(int first, int end, F &&f) const {
#pragma GCC unroll 8  // most slots are null: a short step over each
        for (int i = first; i < end; ++i)
            if (const char *s = slots[i]) f(i, Piece{s, std::strlen(s)});
    }
};

// Where packing tells what it wrote: note(n, offset, length) for every
// non-empty slot, in order, as its bytes are placed.
struct NoNotes {
    void operator()(int, std::size_t, std::size_t) const {}
};

// Writes n field separators at p; returns the end. A byte loop: there are
// a few at a time, which an inline `rep stosb` or a call would take longer
// to start on than to write. The empty asm keeps the compiler from turning
// the loop into one of those.
inline char *separators(char *p, int n) {
    for (int k = 0; k < n; ++k) {
        p[k] = kFieldSep;
#if defined(__GNUC__)
        asm("" : "+r"(k));
#endif
    }
    return p + n;
}

// Slots first to first + 31 with one 0x1D between neighbours, then the
// group's 0x17. Separators are written only before a set slot; after the
// last one, group 1 keeps all of them, while the other groups drop them
// together with any 0x1D bytes just before (a slot's own text included),
// back to the start of the buffer at most.
template <class Slots, class Note>
char *pack_group(const Slots &slots, int first, char *out, char *p, char *&content_end, Note &note) {
    int last = first;  // the last slot written; i - last separators lead to slot i
    slots.each_set(first, first + kGroupSize, [&](int i, Piece s) {
        p = separators(p, i - last);
        last = i;
        std::memcpy(p, s.text, s.len);
        if (s.len > 0) note(i, static_cast<std::size_t>(p - out), s.len);
        p += s.len;
        if (s.len > 0) content_end = p;
    });
    if (first == 0) {
        const int owed = kGroupSize - 1 - last;
        std::memset(p, kFieldSep, static_cast<std::size_t>(owed));
        p += owed;
    } else {
        while (p > out && p[-1] == kFieldSep) --p;
        if (p < content_end) content_end = p;
    }
    *p++ = kGroupEnd;
    return p;
}

// Groups 1 to 5, then field 160; the text ends at its last non-empty field,
// without the separators and group ends after it. Only separators and group
// ends were written after content_end, so those are cleared at once; the
// slots' own trailing ones, one by one. Returns the text's length.
// The groups after the last one with a set slot would add only group ends,
// which go with the rest, so they are not written.
template <class Slots, class Note = NoNotes>
std::size_t pack(const Slots &slots, char *out, Note &&note = Note{}) {
    char *p = out;
    char *content_end = out;  // just after the last byte of a non-empty slot
    const int bound = slots.set_bound();
    for (int first = 0; first < kLastField && first < bound; first += kGroupSize)
        p = pack_group(slots, first, out, p, content_end, note);
    if (bound > kLastField) slots.each_set(kLastField, kFieldCount, [&](int n, Piece s) {
        std::memcpy(p, s.text, s.len);
        if (s.len > 0) note(n, static_cast<std::size_t>(p - out), s.len);
        p += s.len;
        if (s.len > 0) content_end = p;
    });
    std::memset(content_end, 0, static_cast<std::size_t>(p - content_end) + 1);
    p = content_end;
    while (p > out && (p[-1] == kFieldSep || p[-1] == kGroupEnd)) *--p = '\0';
    return static_cast<std::size_t>(p - out);
}

}  // namespace cl
#endif
