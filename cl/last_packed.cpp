// The last packed text the command-line conversion made, and its walk.
#include "last_packed.hpp"

#include <cstring>

namespace cl {
namespace {

// One record: the library runs on one thread, and only the conversion's
// latest result is worth holding.
LastPacked g_last;

}  // namespace

void remember_packed(const char *tf, std::size_t length) {
    LastPacked &last = g_last;
    last.length = -1;
    if (length > static_cast<std::size_t>(LastPacked::kTextMax)) return;
    std::memcpy(last.text, tf, length + 1);
    std::memcpy(last.block, tf, length + 1);
    std::memset(last.maps, 0, sizeof last.maps);
    const bool placed = walk_fields(last.block, [&last](int n, char *begin, char *end) {
        last.begin[n] = static_cast<std::uint16_t>(begin - last.block);
        last.end[n] = static_cast<std::uint16_t>(end - last.block);
        last.maps[n / kGroupSize] |= UINT32_C(1) << (n % kGroupSize);
        *end = '\0';
        if (end[-1] == '\n') end[-1] = '\0';
    });
    if (placed) last.length = static_cast<int>(length);
}

LastPacked *last_packed_for(const char *tf) {
    LastPacked &last = g_last;
    if (last.length < 0 || std::strcmp(tf, last.text) != 0) return nullptr;
    return &last;
}

}  // namespace cl
