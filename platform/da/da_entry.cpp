// Entry text of a command line's attribute part: attribute names mapped to
// internal tags, the IA value put into its attribute form, and a cursor that
// delivers the attributes one by one.
#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "da.h"
#include "da_internal.hpp"
#include "os.h"

namespace da {
namespace {

constexpr char kEntrySep = ORN_ENTRY_SEP;
constexpr char kValueSep = ORN_VALUE_SEP;

// A library-owned result text, valid until the next call of the same
// function. It moves only when a call needs more room than it has, which a
// text read from inside it never does (the result is never longer than the
// text it comes from), so a function may be given its own result.
struct Text {
    char *data = nullptr;
    std::size_t capacity = 0;

    char *room(std::size_t need) {
        if (need > capacity) {
            std::size_t grown = std::max({need, capacity * 2, std::size_t{64}});
            char *fresh = static_cast<char *>(os_malloc(grown));
            os_free(data);
            data = fresh;
            capacity = grown;
        }
        return data;
    }
};

Text g_mapped;
Text g_encoded;

// What a byte is to the walk over entry text.
enum : unsigned char { kPlain = 0, kNameEnd = 1, kEntryEnd = 2 };
constexpr std::array<unsigned char, 256> make_classes() {
    std::array<unsigned char, 256> c{};
    c[static_cast<unsigned char>(kValueSep)] = kNameEnd;
    c[static_cast<unsigned char>(kEntrySep)] = kEntryEnd;
    c[0] = kEntryEnd;
    return c;
}
constexpr std::array<unsigned char, 256> kClass = make_classes();

unsigned char class_of(char c) { return kClass[static_cast<unsigned char>(c)]; }

// Writes each entry with its name replaced by the internal tag, in one walk
// from text to the result: a known name is a local name (matched in any
// case, so of the same length) or a tag, and every tag of the table is at
// most three digits while every local name has at least three characters,
// so the write position never passes the read position (text may be the
// result itself). A tag that would not fit (no such attribute exists)
// leaves the name as typed.
const char *map_to_tags(const char *text) {
    const std::size_t n = std::strlen(text);
    char *out = g_mapped.room(n + 1);
    char *w = out;
    const char *r = text;
    for (;;) {
        const char *name = r;
        EntryName known = entry_name_tag(name);
        r = known.end;
        std::string_view tag = known.tag;
        auto nameLen = static_cast<std::size_t>(r - name);
        if (tag.empty() || tag.size() > nameLen) tag = std::string_view(name, nameLen);
        for (char c : tag) *w++ = c;
        while (class_of(*r) != kEntryEnd) *w++ = *r++;  // the value, from its 0x1D
        if (*r == '\0') break;
        *w++ = kEntrySep;
        ++r;
    }
    *w = '\0';
    return out;
}

// The IA value's attribute form writes '=' as 0x1D.
const char *encode_ia(const char *text) {
    const std::string_view iaTag = ia_tag();
    const std::size_t n = std::strlen(text);
    char *out = g_encoded.room(n + 1);
    std::memmove(out, text, n + 1);
    char *p = out;
    char *const end = out + n;
    for (;;) {
        // An entry "<IA tag>" 0x1D ... (the tag holds neither separator).
        std::size_t k = 0;
        while (k < iaTag.size() && p + k < end && p[k] == iaTag[k]) ++k;
        if (k == iaTag.size() && p + k < end && p[k] == kValueSep) {
            for (char *v = p + k + 1; v < end && *v != kEntrySep; ++v)
                if (*v == '=') *v = kValueSep;
        }
        auto *next = static_cast<char *>(std::memchr(p, kEntrySep, static_cast<std::size_t>(end - p)));
        if (!next) break;
        p = next + 1;
    }
    return out;
}

// Next non-empty entry at the cursor, split in place into name and value.
int next_attribute(da_AttrCursor *cursor, char **name, char **value, int *len) {
    char *p = cursor->pos;
    while (p && *p == kEntrySep) ++p;  // empty entries carry nothing
    if (!p || !*p) {
        cursor->pos = p;
        return 0;
    }
    char *sep = nullptr;  // the first 0x1D
    char *end = p;
    for (;;) {
        while (class_of(*end) == kPlain) ++end;
        if (class_of(*end) == kEntryEnd) break;
        if (!sep) sep = end;
        ++end;
    }
    cursor->pos = *end ? end + 1 : end;
    *end = '\0';
    *name = p;
    if (sep) {
        *sep = '\0';
        *value = sep + 1;
    } else {
        *value = end;  // the empty string
    }
    *len = static_cast<int>(end - *value);
    return 1;
}

}  // namespace
}  // namespace da

extern "C" {

// The stand-in has one mapping table (local names in any case, and tags),
// so the table selector and the flag change nothing here.
const char *da_MapToInternalTags(const char *attrs, int, int) { return da::map_to_tags(attrs); }

const char *da_EncodeEntryIA(const char *entry) { return da::encode_ia(entry); }

void da_ParseAttribList(char *entry, da_AttrCursor *cursor) { cursor->pos = entry; }

int da_GetAttrib(char *, da_AttrCursor *cursor, int, char **name, char **value, int *len) {
    return da::next_attribute(cursor, name, value, len);
}

}  // extern "C"
