// The last packed text the command-line conversion made, and its walk.
#include "last_packed.hpp"

#include <cstring>

namespace cl {
namespace {

// One record: the library runs on one thread, and only the conversion's
// latest result is worth holding.
LastPacked g_last;

}  // namespace

// One pass copies the text twice over (as made, and with every field
// terminated) and notes its fields by the packed form's rules, as
// walk_fields reads them; separate copies and a walk cost more than the
// pass on a name of a few dozen bytes.
void remember_packed(const char *tf, std::size_t length) {
    LastPacked &last = g_last;
    last.length = -1;
    if (length > static_cast<std::size_t>(LastPacked::kTextMax)) return;
    std::memset(last.maps, 0, sizeof last.maps);
    bool placed = true;  // no non-empty field lies beyond 160
    int n = 0;           // the field open at i
    std::size_t start = 0;
    for (std::size_t i = 0;; ++i) {
        const char c = tf[i];
        last.text[i] = c;
        if (!kFieldEnd[static_cast<unsigned char>(c)]) {
            last.block[i] = c;
            continue;
        }
        last.block[i] = '\0';
        if (i > start) {
            if (n > kLastField) {
                placed = false;
            } else {
                last.begin[n] = static_cast<std::uint16_t>(start);
                last.end[n] = static_cast<std::uint16_t>(i);
                last.maps[n / kGroupSize] |= UINT32_C(1) << (n % kGroupSize);
                if (tf[i - 1] == '\n') last.block[i - 1] = '\0';
            }
        }
        if (c == '\0') break;
        n = c == kGroupEnd ? next_group(n) : n + 1;
        start = i + 1;
    }
    if (placed) last.length = static_cast<int>(length);
}

void start_record() {
    LastPacked &last = g_last;
    last.length = -1;
    std::memset(last.maps, 0, sizeof last.maps);
}

// Offsets beyond the text's bound are never read: finish_record keeps no
// longer text.
void note_field(int n, std::size_t offset, std::size_t length) {
    LastPacked &last = g_last;
    last.begin[n] = static_cast<std::uint16_t>(offset);
    last.end[n] = static_cast<std::uint16_t>(offset + length);
    last.maps[n / kGroupSize] |= UINT32_C(1) << (n % kGroupSize);
}

void finish_record(const char *tf, std::size_t length) {
    LastPacked &last = g_last;
    if (length > static_cast<std::size_t>(LastPacked::kTextMax)) return;
    std::memcpy(last.text, tf, length + 1);
    std::memcpy(last.block, tf, length + 1);
    for (int w = 0; w <= kFieldCount / kGroupSize; ++w)
        for (std::uint32_t word = last.maps[w]; word; word &= word - 1) {
            const int n = w * kGroupSize + __builtin_ctz(word);
            char *end = last.block + last.end[n];
            *end = '\0';
            if (end[-1] == '\n') end[-1] = '\0';
        }
    last.length = static_cast<int>(length);
}

LastPacked *last_packed_for(const char *tf) {
    LastPacked &last = g_last;
    if (last.length < 0 || std::strcmp(tf, last.text) != 0) return nullptr;
    return &last;
}

}  // namespace cl
