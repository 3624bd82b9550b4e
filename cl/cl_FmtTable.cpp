// The unpacked field table every formatter reads: the fields of one name
// copied into one block, with a table of pointers into it.
#include <algorithm>
#include <cstring>

#include "cl.h"
#include "frame.hpp"
#include "nm.h"
#include "os.h"

namespace cl {
namespace {

constexpr const char kSourceFile[] = "cl/cl_format";

// Block layout: the fields one after another, each closed by a NUL (a field
// ending in a line feed is stored without it), then the empty text that the
// terminating entry points at. Every field needs one byte of the block at
// least, so a field is cut where copying it whole would leave the remaining
// fields no room: an ornLength smaller than the text cannot make the copy
// overrun the block.
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
        std::memcpy(entry, p, n);
        if (entry[n - 1] == '\n') {  // stored without it, in n bytes
            entry[n - 1] = '\0';
            entry += n;
            spare -= n - 1;
        } else {
            entry[n] = '\0';
            entry += n + 1;
            spare -= n;
        }
    }
    table[fieldCount] = entry;
    *entry = '\0';
    return table;
}

}  // namespace
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
