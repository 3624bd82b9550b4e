// Group 1 in the typed name syntax: personal name, mail node by position,
// standard attributes by position and the bracketed extension attributes,
// e.g. 'John J.R. Smith Jr. /Sales,Europe/x (T1|blue) '.
// Short cut (shortcut_allowed): fields are mapped while they are appended,
// instead of through a copy and cl_ConvertToSpecialChar.
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

void append_mapped(fmt::Text &out, char **table, int field) {
    const char *text = table[field];
    std::size_t n = std::strlen(text);
    if (map_while_appending(n) && out.fits(n)) return out.append_mapped(text, n, kToSubstitute);
    WorkArea work;
    out.append(mapped(work, text));
}

// Each mapped character of the initials followed by '.'.
void append_initials(fmt::Text &out, const char *initials) {
    std::size_t n = std::strlen(initials);
    if (map_while_appending(n)) {
        for (std::size_t i = 0; i < n; ++i) {
            out.append(map_byte(initials[i], kToSubstitute));
            out.append('.');
        }
        return;
    }
    WorkArea work;
    for (const char *p = mapped(work, initials); *p; ++p) {
        out.append(*p);
        out.append('.');
    }
}

char *personal_name(char **table) {
    fmt::Text &out = g_personal_name;
    out.begin();
    if (present(table, kGivenName)) {
        append_mapped(out, table, kGivenName);
        out.append(' ');
    }
    if (present(table, kInitials)) {
        append_initials(out, table[kInitials]);
        out.append(' ');
    }
    if (present(table, kSurname)) {
        append_mapped(out, table, kSurname);
        out.append(' ');
    }
    if (present(table, kGeneration)) {
        append_mapped(out, table, kGeneration);
        out.append(". ");
    }
    return out.data();
}

// `end` is the length up to the last thing that must stay; `keep` a length
// below which the text is never cut (the personal name and its '/').
char *group1(char **table, bool mailNodeOnly) {
    fmt::Text &out = g_group1;
    out.begin();
    int end = 0;
    if (!mailNodeOnly) {
        out.append(cl_FrmtGroup1PNPP(table));
        end = out.size();
        out.append('/');
    }
    const int keep = out.size();

    for (int i = kFirstUnit; i <= kLastUnit; ++i) {
        if (!present(table, i)) continue;
        // Units by position: one comma per position since the previous
        // non-empty unit (or since unit 1).
        for (int gap = i - 1; gap >= kFirstUnit; --gap) {
            out.append(',');
            if (present(table, gap)) break;
        }
        append_mapped(out, table, i);
        end = out.size();
    }
    out.append('/');

    for (int i = kFirstStandard; i <= kLastStandard; ++i) {
        if (present(table, i)) {
            append_mapped(out, table, i);
            end = out.size();
        }
        if (i < kLastStandard) out.append('/');
    }
    out.cut(end > keep ? end : keep);

    bool extensions = false;
    for (int f = kFirstExtension; f <= kLastExtension; ++f) extensions = extensions || present(table, f);
    if (!extensions) {  // their brackets would be cut away again
        out.cut(end);
        return out.data();
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
        if (present(table, type) || present(table, value)) end = out.size();
    }
    out.cut(end);
    return out.data();
}

}  // namespace
}  // namespace cl

extern "C" {

char *cl_FrmtGroup1PNPP(char **table) {
    cl::Trace t(cl::kTrace19, "cl_FrmtGroup1PNPP");
    return t.exit(cl::personal_name(table));
}

char *cl_FrmtGroup1PP(char **table, int mailNodeOnly) {
    cl::Trace t(cl::kTrace19, "cl_FrmtGroup1PP");
    return t.exit(cl::group1(table, mailNodeOnly != 0));
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
