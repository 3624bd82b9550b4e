// The last packed text the command-line conversion made, and its walk.
#include "last_packed.hpp"

#include <cstring>

namespace cl {
LastPacked g_record;

// Walked by the packed form's rules, as the formatters' own table is.
void remember_packed(const char *tf, std::size_t length) {
    start_record();
    const bool placed = walk_fields(tf, [tf](int n, const char *begin, const char *end) {
        note_field(n, static_cast<std::size_t>(begin - tf), static_cast<std::size_t>(end - begin));
    });
    if (placed) finish_record(tf, length);
}

void start_record() {
    LastPacked &last = g_record;
    last.length = -1;
    std::memset(last.maps, 0, sizeof last.maps);
}

// The block's fields end as the formatters' own table ends them: at their
// separator, and a final line feed dropped.
void finish_record(const char *tf, std::size_t length) {
    LastPacked &last = g_record;
    if (length > static_cast<std::size_t>(LastPacked::kTextMax)) return;
    std::memcpy(last.text, tf, length + 1);
    std::memcpy(last.block, tf, length + 1);
    each_mapped_field(last.maps, [&last](int n) {
        char *end = last.block + last.end[n];
        *end = '\0';
        if (end[-1] == '\n') end[-1] = '\0';
    });
    last.length = static_cast<int>(length);
}

LastPacked *last_packed_for(const char *tf) {
    LastPacked &last = g_record;
    if (last.length < 0 || std::strcmp(tf, last.text) != 0) return nullptr;
    return &last;
}

}  // namespace cl
