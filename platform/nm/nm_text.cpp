// The name library's view of packed O/R name text: where each field lies,
// which fields are present, and in-place rewriting of single fields.
#include <array>
#include <cstring>

#include "er.h"
#include "nm.h"

namespace {

constexpr const char kSourceFile[] = "platform/nm_text";
constexpr char kFieldSep = '\x1D';
constexpr char kGroupEnd = '\x17';
constexpr int kGroupSize = 32;
constexpr int kLastField = NM_FIELDS - 1;

// The bytes that end a field: its separator, its group's end, the text's end.
constexpr std::array<bool, 256> make_field_ends() {
    std::array<bool, 256> ends{};
    ends[static_cast<unsigned char>(kFieldSep)] = true;
    ends[static_cast<unsigned char>(kGroupEnd)] = true;
    ends[0] = true;
    return ends;
}
constexpr std::array<bool, 256> kFieldEnd = make_field_ends();

int next_group(int field) { return (field / kGroupSize + 1) * kGroupSize; }

// Walks the text as the packed form defines it, calling field(n, start,
// end) for every field it reaches, n <= 160, with the offsets of its bytes.
// Returns the number of the field open at the end of the text and stores
// the text's length. Raises 100/1701 when a non-empty field would lie
// beyond field 160.
template <class Field>
int walk(const char *orn, int *length, Field &&field) {
    int n = 0;
    int start = 0;
    int pos = 0;
    auto close_field = [&](int end) {
        if (n <= kLastField)
            field(n, start, end);
        else if (end > start)
            er_TracedEscape(100, 1701, kSourceFile, __LINE__);
    };
    for (;;) {
        while (!kFieldEnd[static_cast<unsigned char>(orn[pos])]) ++pos;  // the field's bytes
        close_field(pos);
        if (orn[pos] == '\0') break;
        n = orn[pos] == kGroupEnd ? next_group(n) : n + 1;
        start = ++pos;
    }
    *length = pos;
    return n;
}

// The walk noting where each field lies and which are non-empty.
int scan(const char *orn, nm_ParsedORN *parsed) {
    std::memset(parsed->start, 0xFF, sizeof parsed->start);  // every int -1: not reached
    std::memset(parsed->len, 0, sizeof parsed->len);
    std::memset(parsed->maps, 0, sizeof parsed->maps);
    return walk(orn, &parsed->length, [parsed](int n, int start, int end) {
        parsed->start[n] = start;
        parsed->len[n] = end - start;
        if (end > start) parsed->maps[n / kGroupSize] |= UINT32_C(1) << (n % kGroupSize);
    });
}

// Separators that lead from field `from` (open at the insertion point) to
// field `to`, written into out; returns their count.
int separators(int from, int to, char *out) {
    int count = 0;
    while (from < to) {
        if (from / kGroupSize == to / kGroupSize) {
            out[count++] = kFieldSep;
            ++from;
        } else {
            out[count++] = kGroupEnd;
            from = next_group(from);
        }
    }
    return count;
}

void splice(char *orn, int at, int remove, const char *insert, int insert_len) {
    int tail = static_cast<int>(std::strlen(orn + at + remove)) + 1;  // with the terminator
    std::memmove(orn + at + insert_len, orn + at + remove, static_cast<std::size_t>(tail));
    if (insert_len > 0) std::memcpy(orn + at, insert, static_cast<std::size_t>(insert_len));
}

}  // namespace

extern "C" {

void nm_ParseORN(const char *orn, nm_ParsedORN *parsed, int *status) {
    scan(orn, parsed);
    if (status) *status = 0;
}

void nm_GetFieldMaps(const nm_ParsedORN *parsed, uint32_t maps[6]) {
    std::memcpy(maps, parsed->maps, sizeof parsed->maps);
}

int nm_CheckBit(int field, const uint32_t maps[6]) {
    if (field < 0 || field > kLastField) return 0;
    return (maps[field / kGroupSize] >> (field % kGroupSize)) & 1U;
}

const char *nm_GetFieldMemPtr(const char *orn, const nm_ParsedORN *parsed, int field, int *len) {
    if (field < 0 || field > kLastField || parsed->len[field] == 0) {
        *len = 0;
        return nullptr;
    }
    *len = parsed->len[field];
    return orn + parsed->start[field];
}

char *nm_GetFieldStr(const char *orn, const nm_ParsedORN *parsed, int field, char *buf, int size) {
    int len = 0;
    const char *p = nm_GetFieldMemPtr(orn, parsed, field, &len);
    if (!p || size <= 0) return nullptr;
    if (len > size - 1) len = size - 1;
    std::memcpy(buf, p, static_cast<std::size_t>(len));
    buf[len] = '\0';
    return buf;
}

void nm_PutFieldMem(char *orn, nm_ParsedORN *parsed, int field, const char *value, int len) {
    if (field < 0 || field > kLastField) er_TracedEscape(100, 1702, kSourceFile, __LINE__);
    int open = scan(orn, parsed);
    if (parsed->start[field] >= 0) {
        splice(orn, parsed->start[field], parsed->len[field], value, len);
    } else if (len > 0) {
        // Not reached yet: insert separators after the last reached field of
        // the same group, or at the end of the text when the group lies beyond.
        int from = open;
        int at = parsed->length;
        for (int r = field - 1; r >= field / kGroupSize * kGroupSize; --r) {
            if (parsed->start[r] >= 0) {
                from = r;
                at = parsed->start[r] + parsed->len[r];
                break;
            }
        }
        char seps[NM_FIELDS];  // at most one separator per field passed
        int count = separators(from, field, seps);
        splice(orn, at, 0, seps, count);
        splice(orn, at + count, 0, value, len);
    }
    scan(orn, parsed);
}

void nm_PutFieldStr(char *orn, nm_ParsedORN *parsed, int field, const char *value) {
    nm_PutFieldMem(orn, parsed, field, value, static_cast<int>(std::strlen(value)));
}

void nm_InitORN(char *orn, nm_ParsedORN *parsed) {
    orn[0] = '\0';
    scan(orn, parsed);
}

void nm_AddSeparators(char *tf, int field) {
    int length = 0;
    int open = walk(tf, &length, [](int, int, int) {});
    int count = separators(open, field, tf + length);
    tf[length + count] = '\0';
}

int nm_IsT61Field(int field) { return field >= 64 && field <= 127; }

}  // extern "C"
