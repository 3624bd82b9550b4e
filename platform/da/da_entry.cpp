// Entry text of a command line's attribute part: attribute names mapped to
// internal tags, the IA value put into its attribute form, and a cursor that
// delivers the attributes one by one.
#include <cstring>
#include <string_view>

#include "da.h"
#include "fstr.h"

namespace da {
namespace {

constexpr char kEntrySep = '\x1E';
constexpr char kValueSep = '\x1D';
constexpr int kIAField = 130;
// Longer than any local name or tag of the attribute table: a typed name
// that does not fit is unknown and stays as typed.
constexpr std::size_t kNameMax = 64;

// Library-owned result texts, valid until the next call of the same
// function. Both are a copy of the input rewritten in place.
fstr_String g_mapped{};
fstr_String g_encoded{};

// Calls each(entry) for every 0x1E-separated entry of text, in order.
template <class Each>
void for_each_entry(std::string_view text, Each &&each) {
    std::size_t begin = 0;
    for (;;) {
        std::size_t end = text.find(kEntrySep, begin);
        bool last = end == std::string_view::npos;
        each(text.substr(begin, (last ? text.size() : end) - begin), last);
        if (last) return;
        begin = end + 1;
    }
}

// The internal tag of a typed name, or the name itself when it has none.
std::string_view internal_name(std::string_view typed) {
    if (typed.empty() || typed.size() >= kNameMax) return typed;
    char name[kNameMax];
    std::memcpy(name, typed.data(), typed.size());
    name[typed.size()] = '\0';
    const char *tag = da_FindAttribIntName(name);
    if (tag == name) return typed;  // unknown: the typed name itself came back
    return tag;
}

// Rewrites the names of the copy in place: a known name is a local name
// (matched in any case, so of the same length) or a tag, and every tag of
// the table is at most three digits while every local name has at least
// three characters, so the write position never passes the read position.
// A tag that would not fit (no such attribute exists) leaves the name as
// typed.
const char *map_to_tags(const char *text) {
    fstr_FsCsCopy(&g_mapped, text);
    char *w = g_mapped.text;
    const char *r = g_mapped.text;
    for (;;) {
        std::size_t entryLen = std::strcspn(r, "\x1E");
        std::size_t nameLen = std::strcspn(r, "\x1D\x1E");
        std::string_view tag = internal_name(std::string_view(r, nameLen));
        if (tag.size() > nameLen) tag = std::string_view(r, nameLen);
        std::memmove(w, tag.data(), tag.size());
        w += tag.size();
        std::memmove(w, r + nameLen, entryLen - nameLen);
        w += entryLen - nameLen;
        if (!r[entryLen]) break;
        *w++ = kEntrySep;
        r += entryLen + 1;
    }
    *w = '\0';
    g_mapped.length = static_cast<int>(w - g_mapped.text);
    return g_mapped.text;
}

// The IA value's attribute form writes '=' as 0x1D.
const char *encode_ia(const char *text) {
    const char *iaTag = da_AttribNumberToIntName(da_nmFieldNum2DANum(kIAField));
    fstr_FsCsCopy(&g_encoded, text);
    std::string_view copy(g_encoded.text, static_cast<std::size_t>(g_encoded.length));
    for_each_entry(copy, [&](std::string_view entry, bool) {
        std::size_t sep = entry.find(kValueSep);
        if (sep == std::string_view::npos || entry.substr(0, sep) != iaTag) return;
        char *value = g_encoded.text + (entry.data() - copy.data());
        for (std::size_t k = sep + 1; k < entry.size(); ++k)
            if (value[k] == '=') value[k] = kValueSep;
    });
    return g_encoded.text;
}

// Next non-empty entry at the cursor, split in place into name and value.
int next_attribute(da_AttrCursor *cursor, char **name, char **value, int *len) {
    char *p = cursor->pos;
    while (p && *p == kEntrySep) ++p;  // empty entries carry nothing
    if (!p || !*p) {
        cursor->pos = p;
        return 0;
    }
    char *end = p + std::strcspn(p, "\x1E");
    cursor->pos = *end ? end + 1 : end;
    *end = '\0';
    char *sep = std::strchr(p, kValueSep);
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
