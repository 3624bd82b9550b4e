// The packed text the command-line conversion made last, held with what one
// walk of it finds: which fields are present and where each lies. A program
// converts a typed name, then checks it and shows it; validation and the
// formatters, handed the same bytes, read the fields from here instead of
// having the name library parse the text again and unpacking it once more.
//
// The record describes its own copy of the text, so it never goes stale: a
// caller's buffer that changed since simply no longer matches it. Only the
// conversion writes it; the readers compare the whole text first.
#ifndef CL_LAST_PACKED_HPP
#define CL_LAST_PACKED_HPP

#include <cstddef>
#include <cstdint>

#include "packed.hpp"

namespace cl {

struct LastPacked {
    // Longer texts are not held (the formatters' own table holds no more).
    static constexpr int kTextMax = 4096;

    int length = -1;  // bytes of text; -1 while nothing is held
    // Field 32w + k is non-empty: bit k of word w (the name library's maps).
    FieldMaps maps;
    // Offsets of the bytes of each field in text and block; read only
    // where maps has the field's bit.
    std::uint16_t begin[kFieldCount];
    std::uint16_t end[kFieldCount];
    char text[kTextMax + 1];   // the packed text as made
    char block[kTextMax + 1];  // the same with every field terminated in place,
                               // a final line feed dropped, as the formatters read it
};

// Holds tf (length bytes) and its walk, or nothing when it does not fit or a
// non-empty field lies beyond field 160 (the name library refuses such a
// text, so every reader must still hand it over).
void remember_packed(const char *tf, std::size_t length);

// The same record made while the text is packed from its fields, when none
// of their bytes is a separator, a group end or a NUL (so that a walk of the
// text would find exactly those fields): start_record(), then note_field()
// for every non-empty field as it is written, then finish_record() with the
// complete text.
void start_record();
void finish_record(const char *tf, std::size_t length);

// The one record: the library runs on one thread, and only the
// conversion's latest result is worth holding. Written only through the
// functions above.
extern LastPacked g_record;

// Offsets beyond the text's bound are never read: finish_record keeps no
// longer text. Inline: packing calls it for every field it writes.
inline void note_field(int n, std::size_t offset, std::size_t length) {
    LastPacked &last = g_record;
    last.begin[n] = static_cast<std::uint16_t>(offset);
    last.end[n] = static_cast<std::uint16_t>(offset + length);
    last.maps[n / kGroupSize] |= UINT32_C(1) << (n % kGroupSize);
}

// The record when tf holds exactly the remembered bytes; null otherwise.
// Its readers only read it (the formatters' tables point into its block).
LastPacked *last_packed_for(const char *tf);

}  // namespace cl
#endif
