// The fields of a name while the command-line conversion fills them in,
// held as pieces of the texts that hold them, from which the packed result
// or the field array is made once every attribute has been accepted.
#ifndef CL_NAME_FIELDS_HPP
#define CL_NAME_FIELDS_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "name_parse.hpp"
#include "os.h"
#include "packed.hpp"
#include "packing.hpp"

namespace cl {

// A new terminated copy of [begin, end) (os_malloc).
inline char *copy_span(const char *begin, const char *end) {
    auto n = static_cast<std::size_t>(end - begin);
    char *copy = static_cast<char *>(os_malloc(n + 1));
    std::memcpy(copy, begin, n);
    copy[n] = '\0';
    return copy;
}

// The fields of the name while the attribute part fills them in, as pieces
// of the texts that hold them: the positional packed text, the entry copy,
// and the copies of the values that the directory-attribute library
// converts (fields 130 and 35, at most one each). From these the result is
// packed, or the field array made, once every attribute has been accepted.
// Trivially destructible: it lives in the converting frame across escapes.
struct NameFields {
    std::uint32_t set[kFieldCount / kGroupSize + 1];  // bit i % 32 of word i / 32: slot i is set
    Piece slots[kFieldCount];                          // read only where set
    char *owned[2];                                    // converted values (os_free)
    int ownedCount;
    // No slot holds a separator or a group end, so a walk of the packed text
    // finds exactly the set slots that are not empty. The positional pieces
    // are fields of packed text; each stored attribute value is looked at.
    bool clean;

    bool is_set(int i) const { return (set[i / kGroupSize] >> (i % kGroupSize)) & 1U; }
    int set_bound() const {  // one past the last set slot
        for (int w = kFieldCount / kGroupSize; w >= 0; --w)
            if (set[w]) return w * kGroupSize + kGroupSize - __builtin_clz(set[w]);
        return 0;
    }
    template <class F>
    void each_set(int first, int end, F &&f) const {  // within one group
        std::uint32_t word = set[first / kGroupSize] >> (first % kGroupSize);
        if (end - first < kGroupSize) word &= (UINT32_C(1) << (end - first)) - 1;
        while (word) {
            int i = first + __builtin_ctz(word);
            word &= word - 1;
            f(i, slots[i]);
        }
    }

    // The fields of the positional packed text: as its parser noted them,
    // or found by a walk.
    void start(const char *positionalTF, const ParsedFields &noted) {
        std::memset(set, 0, sizeof set);
        ownedCount = 0;
        clean = true;
        if (noted.complete) {
            for (int k = 0; k < noted.count; ++k)
                put(noted.at[k].field, Piece{positionalTF + noted.at[k].begin, noted.at[k].length});
            return;
        }
        walk_fields(positionalTF, [this](int n, const char *begin, const char *end) {
            put(n, Piece{begin, static_cast<std::size_t>(end - begin)});
        });
    }
    void put(int field, Piece piece) {
        slots[field] = piece;
        set[field / kGroupSize] |= UINT32_C(1) << (field % kGroupSize);
    }
    // A terminated text as the field's value.
    void set_text(int field, const char *text) { put(field, Piece{text, std::strlen(text)}); }
    void set_copy(int field, const char *text) {
        char *copy = os_strdup(text);
        owned[ownedCount++] = copy;
        set_text(field, copy);
    }
    char **to_array() const {
        auto **array = static_cast<char **>(os_malloc(sizeof(char *) * kFieldCount));
        for (int i = 0; i < kFieldCount; ++i)
            array[i] = is_set(i) ? copy_span(slots[i].text, slots[i].text + slots[i].len) : nullptr;
        return array;
    }
    void release() {
        while (ownedCount > 0) os_free(owned[--ownedCount]);
    }
};

}  // namespace cl
#endif
