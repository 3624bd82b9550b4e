// Character-set descriptors and names. Every known set has an identifier,
// a canonical name (at most 14 characters, as the internal-set contract
// requires) and, where the C library's iconv converts it, an iconv name.
//
// VIDEOTEX (the videotex set of T.100/T.101) is known but has no converter
// here: text can be named in it, but no mapping from UTF-8 exists, so the
// callers' fall-backs for sets without a mapping are reached for real.
#include <strings.h>

#include <array>
#include <cstdio>
#include <string_view>

#include "ccs.h"

namespace ccs {
namespace {

struct Set {
    int id;
    std::string_view name;  // canonical
    const char *iconv;      // null: no converter
};

constexpr std::array<Set, 6> kSets = {{
    {1, "UTF8", "UTF-8"},
    {2, "ISO8859-1", "ISO-8859-1"},
    {3, "IA5", "ASCII"},
    {4, "T61", "T.61-8BIT"},
    {5, "ISO8859-15", "ISO-8859-15"},
    {6, "VIDEOTEX", nullptr},
}};

struct Alias {
    std::string_view alias;
    std::string_view name;
};
// The spellings people and locales use for the same sets.
constexpr std::array<Alias, 5> kAliases = {{
    {"UTF-8", "UTF8"},
    {"ISO-8859-1", "ISO8859-1"},
    {"LATIN1", "ISO8859-1"},
    {"ASCII", "IA5"},
    {"ISO-8859-15", "ISO8859-15"},
}};

bool same(std::string_view a, std::string_view b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

// No alias is a canonical name in another case, so a name spelled exactly
// as a canonical one needs no alias lookup.
constexpr bool same_letters(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        char x = a[i] >= 'a' && a[i] <= 'z' ? static_cast<char>(a[i] - 'a' + 'A') : a[i];
        char y = b[i] >= 'a' && b[i] <= 'z' ? static_cast<char>(b[i] - 'a' + 'A') : b[i];
        if (x != y) return false;
    }
    return true;
}
constexpr bool aliases_differ_from_names() {
    for (const Alias &a : kAliases)
        for (const Set &s : kSets)
            if (same_letters(a.alias, s.name)) return false;
    return true;
}
static_assert(aliases_differ_from_names());

// name spelled exactly as canonical, compared in place (names are short and
// mostly differ in their first byte).
bool spelled(const char *name, std::string_view canonical) {
    for (char c : canonical)
        if (*name++ != c) return false;
    return *name == '\0';
}

const Set *find(const char *name) {
    if (!name) return nullptr;
    for (const Set &s : kSets)  // a name this library handed out, or one spelled like it
        if (s.name.data() == name || spelled(name, s.name)) return &s;
    std::string_view wanted = name;
    for (const Alias &a : kAliases)
        if (same(a.alias, wanted)) wanted = a.name;
    for (const Set &s : kSets)
        if (same(s.name, wanted)) return &s;
    return nullptr;
}

const Set &utf8() { return kSets[0]; }

}  // namespace
}  // namespace ccs

extern "C" {

int ccs_GetCSDescriptor(const char *name, ccs_Descriptor *out) {
    const ccs::Set *set = ccs::find(name);
    if (!set || !out) return 0;
    out->id = set->id;
    std::snprintf(out->name, sizeof out->name, "%.*s", static_cast<int>(set->name.size()), set->name.data());
    return 1;
}

const char *ccs_GetCSName(const ccs_Descriptor *cs) {
    return cs ? cs->name : ccs::utf8().name.data();
}

// Text of a known set is shown in that set itself; a name that is not
// known falls back to IA5, the set every display can show. The selector
// does not change the answer here.
const char *ccs_GetInternalCharset(const char *name, int /*selector*/) {
    const ccs::Set *set = ccs::find(name);
    return set ? set->name.data() : ccs::kSets[2].name.data();
}

const char *ccs_IconvName(const char *name) {
    const ccs::Set *set = ccs::find(name);
    return set ? set->iconv : nullptr;
}

}  // extern "C"
