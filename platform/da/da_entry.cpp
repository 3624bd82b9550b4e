// Entry text of a command line's attribute part: attribute names mapped to
// internal tags, the IA value put into its attribute form, and a cursor that
// delivers the attributes one by one.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "da.h"
#include "er.h"

namespace da {
namespace {

constexpr const char kSourceFile[] = "platform/da_entry";
constexpr char kEntrySep = '\x1E';
constexpr char kValueSep = '\x1D';
constexpr int kIAField = 130;
// Longer than any local name or tag of the attribute table: a typed name
// that does not fit is unknown and stays as typed.
constexpr std::size_t kNameMax = 64;

// A library-owned result text that grows to what a call needs; valid until
// the next call of the same function.
struct Buffer {
    char *data = nullptr;
    std::size_t size = 0;

    char *reserve(std::size_t need) {
        if (need > size) {
            void *grown = std::realloc(data, need);
            if (!grown) er_TracedEscape(1, ENOMEM, kSourceFile, __LINE__);
            data = static_cast<char *>(grown);
            size = need;
        }
        return data;
    }
};

Buffer g_mapped;
Buffer g_encoded;

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

// Tags are at most three digits, so a mapped entry never outgrows this.
std::size_t mapped_room(std::string_view text) {
    std::size_t entries = 1;
    for (char c : text) entries += c == kEntrySep;
    return text.size() + entries * 8 + 1;
}

const char *map_to_tags(std::string_view text) {
    char *out = g_mapped.reserve(mapped_room(text));
    char *o = out;
    auto put = [&o](std::string_view s) {
        std::memcpy(o, s.data(), s.size());
        o += s.size();
    };
    for_each_entry(text, [&](std::string_view entry, bool last) {
        std::size_t sep = entry.find(kValueSep);
        std::string_view name = entry.substr(0, sep);
        put(internal_name(name));
        put(entry.substr(name.size()));
        if (!last) *o++ = kEntrySep;
    });
    *o = '\0';
    return out;
}

// The IA value's attribute form writes '=' as 0x1D.
const char *encode_ia(std::string_view text) {
    const char *iaTag = da_AttribNumberToIntName(da_nmFieldNum2DANum(kIAField));
    char *out = g_encoded.reserve(text.size() + 1);
    std::memcpy(out, text.data(), text.size());
    out[text.size()] = '\0';
    for_each_entry(text, [&](std::string_view entry, bool) {
        std::size_t sep = entry.find(kValueSep);
        if (sep == std::string_view::npos || entry.substr(0, sep) != iaTag) return;
        char *value = out + (entry.data() - text.data()) + sep + 1;
        for (std::size_t k = sep + 1; k < entry.size(); ++k, ++value)
            if (*value == '=') *value = kValueSep;
    });
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
const char *da_MapToInternalTags(const char *attrs, int, int) { return da::map_to_tags(attrs ? attrs : ""); }

const char *da_EncodeEntryIA(const char *entry) { return da::encode_ia(entry ? entry : ""); }

void da_ParseAttribList(char *entry, da_AttrCursor *cursor) { cursor->pos = entry; }

int da_GetAttrib(char *, da_AttrCursor *cursor, int, char **name, char **value, int *len) {
    return da::next_attribute(cursor, name, value, len);
}

}  // extern "C"
