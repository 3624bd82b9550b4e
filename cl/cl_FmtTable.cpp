// The unpacked field table every formatter reads: the fields of one name
// copied into one block, with a table of pointers into it.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "cl.h"
#include "fmt_buffer.hpp"
#include "frame.hpp"
#include "nm.h"
#include "os.h"

namespace cl {
namespace {

constexpr const char kSourceFile[] = "cl/cl_FmtTable";

// Block layout: the fields one after another, each closed by a NUL (a field
// ending in a line feed is stored without it), then the empty text that the
// terminating entry points at.

// Places a field's n bytes (n > 0) at entry and returns where the next
// field starts.
inline char *place(char *entry, const char *p, std::size_t n) {
    std::memcpy(entry, p, n);
    if (entry[n - 1] == '\n') {  // stored without it, in n bytes
        entry[n - 1] = '\0';
        return entry + n;
    }
    entry[n] = '\0';
    return entry + n + 1;
}

// Every field needs one byte of the block at least, so a field is cut where
// copying it whole would leave the remaining fields no room: an ornLength
// smaller than the text cannot make the copy overrun the block.
char **unpack_table(const char *tf, const nm_ParsedORN *parsed, int fieldCount, int ornLength) {
    if (fieldCount < 0) fieldCount = 0;
    if (ornLength < 0) ornLength = 0;
    auto **table = static_cast<char **>(os_malloc(sizeof(char *) * static_cast<std::size_t>(fieldCount + 1)));
    char *block = static_cast<char *>(
        os_malloc(static_cast<std::size_t>(fieldCount) + static_cast<std::size_t>(ornLength) + 1));
    table[0] = block;
    char *entry = block;
    // Bytes of the block beyond one per field and the terminating entry's
    // one: what the fields' texts may still take.
    std::size_t spare = static_cast<std::size_t>(ornLength);
    for (int i = 0; i < fieldCount; ++i) {
        int len;  // always set by nm_GetFieldMemPtr
        const char *p = nm_GetFieldMemPtr(tf, parsed, i, &len);
        table[i] = entry;
        std::size_t n = p && len > 0 ? std::min(static_cast<std::size_t>(len), spare) : 0;
        if (n == 0) {  // most fields of a name: one NUL
            *entry++ = '\0';
            continue;
        }
        char *next = place(entry, p, n);
        spare -= static_cast<std::size_t>(next - entry) - 1;
        entry = next;
    }
    table[fieldCount] = entry;
    *entry = '\0';
    return table;
}

// The one empty text that every empty field of the formatters' own tables
// points at; nothing writes to it.
char g_emptyField[1] = "";

}  // namespace

namespace fmt {

char *const kSharedEmpty = g_emptyField;

// Constant-initialized: every entry at the empty text, no field set.
constexpr SharedEntries all_empty() {
    SharedEntries shared{};
    for (char *&e : shared.entries) e = g_emptyField;
    return shared;
}
SharedEntries g_shared = all_empty();

namespace {

// Points the entries the last fill set back at the empty text.
char **reset_shared(SharedEntries &shared) {
    char **entries = shared.entries;
    each_mapped_field(shared.filled, [entries](int n) { entries[n] = g_emptyField; });
    std::memset(shared.filled, 0, sizeof shared.filled);
    return entries;
}

}  // namespace

// Each byte that ends a field of the copied text, and a line feed that
// closes one, becomes the field's terminator.
char **unpack_local(const char *tf, int length, int fieldCount, LocalTable &local) {
    if (length < 0 || length > LocalTable::kTextMax || fieldCount < 0 || fieldCount > kFieldCount) return nullptr;
    SharedEntries &shared = g_shared;
    char **entries = reset_shared(shared);
    std::memcpy(local.block, tf, static_cast<std::size_t>(length) + 1);
    walk_fields(local.block, [&shared, entries, fieldCount](int n, char *begin, char *end) {
        if (n >= fieldCount) return;
        *end = '\0';
        if (end[-1] == '\n') end[-1] = '\0';
        entries[n] = begin;
        shared.filled[n / kGroupSize] |= UINT32_C(1) << (n % kGroupSize);
    });
    local.entries = entries;
    return entries;
}

// The record's block is terminated as unpack_local terminates its copy, so
// the entries point into it as they stand.
char **known_entries(LastPacked &known, int fieldCount, LocalTable &local) {
    SharedEntries &shared = g_shared;
    char **entries = reset_shared(shared);
    each_mapped_field(known.maps, [&](int n) {
        if (n >= fieldCount) return;
        entries[n] = known.block + known.begin[n];
        shared.filled[n / kGroupSize] |= UINT32_C(1) << (n % kGroupSize);
    });
    local.entries = entries;
    return entries;
}

}  // namespace fmt
}  // namespace cl

extern "C" {

void cl_UnpackFullORN(const char *tf, char ***table, const nm_ParsedORN *parsed, int fieldCount, int ornLength) {
    cl::Trace t(cl::kTrace19, "cl_UnpackFullORN");
    *table = cl::unpack_table(tf, parsed, fieldCount, ornLength);
    t.exit();
}

void cl_FreeORN(char **table) {
    if (!table) return;
    os_free(table[0]);
    os_free(table);
}

}  // extern "C"
