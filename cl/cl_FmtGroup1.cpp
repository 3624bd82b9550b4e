// Group 1 in the typed name syntax: personal name, mail node by position,
// standard attributes by position and the bracketed extension attributes,
// e.g. 'John J.R. Smith Jr. /Sales,Europe/x (T1|blue) '.
// Short cuts (shortcut_allowed): fields are mapped while they are appended,
// instead of through a copy and cl_ConvertToSpecialChar; and a text that
// fits whole (fits_whole) is written without a bound check per byte.
#include "cl.h"
#include "fmt_buffer.hpp"
#include "frame.hpp"

namespace cl {
namespace {

constexpr const char kSourceFile[] = "cl/cl_FmtGroup1";

enum Field : int {
    kSurname = 0,
    kGivenName = 1,
    kInitials = 2,
    kGeneration = 3,
    kFirstUnit = 4,
    kLastUnit = 7,
    kFirstStandard = 8,
    kLastStandard = 14,
    kExtensions = 4,  // extension k (1 to 4): type 13 + 2k, value 14 + 2k
    kFirstExtension = 15,
    kLastExtension = 22,
    kGroup1Fields = 23,
};

// Bound: 4096 characters each (fmt::kGroup1Size).
fmt::Text g_personal_name{fmt::kGroup1Size};
fmt::Text g_group1{fmt::kGroup1Size};

bool present(char **table, int field) { return table[field][0] != '\0'; }

using WorkArea = char[fmt::kGroup1Size];

// The field with its delimiters written as substitute characters, mapped by
// cl_ConvertToSpecialChar in a work area of 4097 bytes (a longer field is
// cut there).
const char *mapped(WorkArea &work, const char *field) {
    fmt::bounded_copy(work, sizeof work, field);
    cl_ConvertToSpecialChar(work);
    return work;
}

// Mapping byte by byte while appending writes the same text as mapping a
// copy, as long as the copy would not be cut; the copy is kept for longer
// fields, and whenever cl_ConvertToSpecialChar would trace, so that its
// trace records stay.
bool map_while_appending(std::size_t n) { return shortcut_allowed() && n < sizeof(WorkArea); }

// Group 1 written into a Text with every append bounded: what does not fit
// is cut at the bound.
struct Bounded {
    fmt::Text &out;
    char **table;
    bool present(int field) const { return cl::present(table, field); }
    bool any_present(int first, int last) const {
        for (int f = first; f <= last; ++f)
            if (present(f)) return true;
        return false;
    }
    void append(char c) { out.append(c); }
    void append(const char *s) { out.append(s); }
    void mapped(const char *text) {
        std::size_t n = std::strlen(text);
        if (map_while_appending(n) && out.fits(n)) return out.append_mapped(text, n, kToSubstitute);
        WorkArea work;
        out.append(cl::mapped(work, text));
    }
    // Each mapped character of the initials followed by '.'.
    void initials(const char *initials) {
        std::size_t n = std::strlen(initials);
        if (map_while_appending(n)) {
            for (std::size_t i = 0; i < n; ++i) {
                out.append(map_byte(initials[i], kToSubstitute));
                out.append('.');
            }
            return;
        }
        WorkArea work;
        for (const char *p = cl::mapped(work, initials); *p; ++p) {
            out.append(*p);
            out.append('.');
        }
    }
    void personal_name() { out.append(cl_FrmtGroup1PNPP(table)); }
    // Every separator is appended, since one that meets the bound fills the text.
    static bool more(int) { return true; }
    int size() const { return out.size(); }
    void cut(int length) { out.cut(length); }
};

// Group 1 written whole, once fits_whole has found that it fits: the same
// appends without a bound check each.
struct Whole {
    fmt::Filling out;
    char **table;
    std::uint32_t fields;  // bit n: field n is present
    bool present(int field) const { return fields >> field & 1; }
    bool any_present(int first, int last) const { return fields >> first & ((UINT32_C(2) << (last - first)) - 1); }
    void append(char c) { out.append(c); }
    void append(const char *s) { out.append(s); }
    void mapped(const char *text) { out.append_mapped(text, kToSubstitute); }
    void initials(const char *initials) {
        for (const char *p = initials; *p; ++p) {
            out.append(map_byte(*p, kToSubstitute));
            out.append('.');
        }
    }
    void personal_name();
    // Whether a standard attribute from i on is present: the separators
    // after the last one would only be cut again.
    bool more(int i) const { return any_present(i, kLastStandard); }
    int size() const { return out.size(); }
    void cut(int length) { out.cut(length); }
};

template <class Out>
void write_personal_name(Out &out) {
    char **table = out.table;
    if (out.present(kGivenName)) {
        out.mapped(table[kGivenName]);
        out.append(' ');
    }
    if (out.present(kInitials)) {
        out.initials(table[kInitials]);
        out.append(' ');
    }
    if (out.present(kSurname)) {
        out.mapped(table[kSurname]);
        out.append(' ');
    }
    if (out.present(kGeneration)) {
        out.mapped(table[kGeneration]);
        out.append(". ");
    }
}

// `end` is the length up to the last thing that must stay; `keep` a length
// below which the text is never cut (the personal name and its '/').
template <class Out>
void write_group1(Out &out, bool mailNodeOnly) {
    char **table = out.table;
    int end = 0;
    if (!mailNodeOnly) {
        out.personal_name();
        end = out.size();
        out.append('/');
    }
    const int keep = out.size();

    for (int i = kFirstUnit; i <= kLastUnit; ++i) {
        if (!out.present(i)) continue;
        // Units by position: one comma per position since the previous
        // non-empty unit (or since unit 1).
        for (int gap = i - 1; gap >= kFirstUnit; --gap) {
            out.append(',');
            if (out.present(gap)) break;
        }
        out.mapped(table[i]);
        end = out.size();
    }
    out.append('/');

    for (int i = kFirstStandard; i <= kLastStandard && out.more(i); ++i) {
        if (out.present(i)) {
            out.mapped(table[i]);
            end = out.size();
        }
        if (i < kLastStandard) out.append('/');
    }
    out.cut(end > keep ? end : keep);

    if (!out.any_present(kFirstExtension, kLastExtension)) {  // their brackets would be cut away again
        out.cut(end);
        return;
    }
    out.append(" (");
    for (int k = 1; k <= kExtensions; ++k) {
        int type = 13 + 2 * k;
        int value = type + 1;
        if (k > 1) out.append('(');
        out.append(table[type]);
        out.append('|');
        out.append(table[value]);
        out.append(") ");
        if (out.present(type) || out.present(value)) end = out.size();
    }
    out.cut(end);
}

// Bytes that group 1 writes besides its fields, at most: ' ' after the
// given name, the initials and the surname and ". " after the generation
// (5); the '/' after the personal name (1); a comma per unit position
// skipped, three at most, and the '/' after the units (4); the '/' between
// the standard attributes (6); " (", "|) " and three "(|) " around the
// extensions (17).
constexpr std::size_t kGroup1Marks = 5 + 1 + 4 + 6 + 17;
constexpr std::size_t kPersonalNameMarks = 5;

// Which fields of group 1 are present, and the most group 1 and its
// personal name alone can take: their marks, every field, the initials
// twice (each gets a '.'). The fields of the shared entries are found by
// their map and their lengths read.
struct Scan {
    std::uint32_t fields = 0;  // bit n: field n is present
    std::size_t personal = kPersonalNameMarks;
    std::size_t group1 = kGroup1Marks;
    void add(int field, std::size_t length) {
        fields |= static_cast<std::uint32_t>(length != 0) << field;
        personal += field <= kGeneration ? length : 0;
        group1 += length;
    }
    Scan &done(std::size_t initials) {  // once more for their '.'
        personal += initials;
        group1 += initials;
        return *this;
    }
};

Scan scan(char **table) {
    Scan found;
    if (table == fmt::g_shared.entries) {
        constexpr std::uint32_t kGroup1 = (UINT32_C(1) << kGroup1Fields) - 1;
        for (std::uint32_t word = fmt::g_shared.filled[0] & kGroup1; word; word &= word - 1) {
            const int n = __builtin_ctz(word);
            found.add(n, fmt::g_shared.length[n]);
        }
        return found.done(fmt::g_shared.length[kInitials]);
    }
    for (int n = 0; n < kGroup1Fields; ++n)
        if (present(table, n)) found.add(n, std::strlen(table[n]));
    return found.done(std::strlen(table[kInitials]));
}

// The one test between the two ways of writing: whole, when the text
// cannot reach the bound of out (so nothing would be cut) and the mapping
// may be done while writing (nothing would trace).
bool fits_whole(const fmt::Text &out, std::size_t most) { return shortcut_allowed() && out.fits(most); }

// The personal name into its own buffer: whole when it fits.
char *personal_name(char **table, const Scan &found) {
    fmt::Text &text = g_personal_name;
    text.begin();
    if (fits_whole(text, found.personal)) {
        Whole out{fmt::Filling(text), table, found.fields};
        write_personal_name(out);
        out.out.done();
    } else {
        Bounded out{text, table};
        write_personal_name(out);
    }
    return text.data();
}

// Written whole, group 1 writes the personal name, as cl_FrmtGroup1PNPP
// would, in the personal name's own buffer (whole there too, that buffer
// being as large), and copies it from there.
void Whole::personal_name() {
    fmt::Text &text = g_personal_name;
    text.begin();
    Whole own{fmt::Filling(text), table, fields};
    write_personal_name(own);
    own.out.done();
    out.append(own.out);
}

fmt::Written group1(char **table, bool mailNodeOnly) {
    fmt::Text &text = g_group1;
    text.begin();
    const Scan found = scan(table);
    if (fits_whole(text, found.group1)) {
        Whole out{fmt::Filling(text), table, found.fields};
        write_group1(out, mailNodeOnly);
        out.out.done();
        return {text.data(), text.size(), out.out.plain()};
    }
    Bounded out{text, table};
    write_group1(out, mailNodeOnly);
    return {text.data(), text.size(), false};
}

}  // namespace

fmt::Written fmt::traced_group1(char **table, bool mailNodeOnly) {
    Trace t(kTrace19, "cl_FrmtGroup1PP");
    return t.exit(group1(table, mailNodeOnly));
}

}  // namespace cl

extern "C" {

char *cl_FrmtGroup1PNPP(char **table) {
    cl::Trace t(cl::kTrace19, "cl_FrmtGroup1PNPP");
    return t.exit(cl::personal_name(table, cl::scan(table)));
}

char *cl_FrmtGroup1PP(char **table, int mailNodeOnly) {
    return const_cast<char *>(cl::fmt::traced_group1(table, mailNodeOnly != 0).text);
}

char *cl_FormatGroup1(const char *tf) {
    cl::fmt::LocalTable local;
    char **table = cl::fmt::unpack(tf, cl::kGroup1Fields, local);
    char *text = cl_FrmtGroup1PP(table, 0);
    cl::fmt::release(table, local);
    return text;
}

// The caller's buffer must hold 4097 bytes: the text may be longer than the
// packed text it replaces.
void cl_FormatName(char *buf) {
    cl::Trace t(cl::kTrace17, "cl_FormatName");
    const char *text = cl_FormatGroup1(buf);
    std::memmove(buf, text, std::strlen(text) + 1);
    t.exit();
}

}  // extern "C"
