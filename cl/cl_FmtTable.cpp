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
    SharedEntries shared{};  // every length 0
    for (char *&e : shared.entries) e = g_emptyField;
    return shared;
}
SharedEntries g_shared = all_empty();

namespace {

void clear_entry(SharedEntries &shared, int n) {
    shared.entries[n] = g_emptyField;
    shared.length[n] = 0;
}

// The block of the formatters' one table: a copy of the packed text.
char g_block[LocalTable::kTextMax + 1];

// Points the entries the last fill set back at the empty text.
char **reset_shared(SharedEntries &shared) {
    each_mapped_field(shared.filled, [&shared](int n) { clear_entry(shared, n); });
    std::memset(shared.filled, 0, sizeof shared.filled);
    return shared.entries;
}

// The bits of word w of a field map that stand for fields below count.
constexpr std::uint32_t below(int count, int w) {
    const int bits = count - w * kGroupSize;
    if (bits <= 0) return 0;
    return bits >= kGroupSize ? ~UINT32_C(0) : (UINT32_C(1) << bits) - 1;
}

}  // namespace

// Each byte that ends a field of the copied text, and a line feed that
// closes one, becomes the field's terminator.
char **unpack_local(const char *tf, int length, int fieldCount, LocalTable &local) {
    if (length < 0 || length > LocalTable::kTextMax || fieldCount < 0 || fieldCount > kFieldCount) return nullptr;
    SharedEntries &shared = g_shared;
    char **entries = reset_shared(shared);
    std::memcpy(g_block, tf, static_cast<std::size_t>(length) + 1);
    walk_fields(g_block, [&shared, entries, fieldCount](int n, char *begin, char *end) {
        if (n >= fieldCount) return;
        *end = '\0';
        if (end[-1] == '\n') *--end = '\0';
        entries[n] = begin;
        shared.length[n] = static_cast<std::uint16_t>(end - begin);
        shared.filled[n / kGroupSize] |= UINT32_C(1) << (n % kGroupSize);
    });
    local.entries = entries;
    return entries;
}

// The record's block is terminated as unpack_local terminates its copy, so
// the entries point into it as they stand; a field whose last byte is
// there a terminator ended in the line feed it replaced. One pass per word
// of the maps clears what the last fill set and the record does not, and
// sets what the record has.
char **known_entries(LastPacked &known, int fieldCount, LocalTable &local) {
    SharedEntries &shared = g_shared;
    char **entries = shared.entries;
    for (int w = 0; w <= kFieldCount / kGroupSize; ++w) {
        const std::uint32_t before = shared.filled[w];
        if (!(known.maps[w] | before)) continue;  // most words of a name
        const std::uint32_t now = known.maps[w] & below(fieldCount, w);
        for (std::uint32_t gone = before & ~now; gone; gone &= gone - 1)
            clear_entry(shared, w * kGroupSize + __builtin_ctz(gone));
        for (std::uint32_t word = now; word; word &= word - 1) {
            const int n = w * kGroupSize + __builtin_ctz(word);
            const int begin = known.begin[n];
            const int end = known.end[n] - (known.block[known.end[n] - 1] == '\0');
            entries[n] = known.block + begin;
            shared.length[n] = static_cast<std::uint16_t>(end - begin);
        }
        shared.filled[w] = now;
    }
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
