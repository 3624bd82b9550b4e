// Attribute entries of groups 3 to 5, whose values are UTF-8: each value is
// converted for the caller's character set and its key characters escaped in
// that set. The IA field is written as stored.
#include <cstring>

#include "cl.h"
#include "cvc.h"
#include "fmt_buffer.hpp"
#include "frame.hpp"
#include "go.h"

namespace cl {
namespace {

constexpr const char kSourceFile[] = "cl/cl_FmtGroup345";


constexpr const char kStored[] = "UTF8";
constexpr const char kFallback[] = "IA5";
constexpr int kInternalNameSize = 15;  // at most 14 characters, by contract

// Bound: 8193 characters (fmt::kGroup345Size).
fmt::Text g_converted{fmt::kGroup345Size};

// The value as shown in the internal set: converted then escaped where UTF-8
// maps to it; otherwise escaped in UTF-8, then converted to IA5 (or left as
// it is where even that cannot be done).
const char *shown_value(const char *value, const char *internal, bool mapped) {
    if (mapped) {
        const char *converted = go_ConvertStrEscapeLog(value, static_cast<int>(std::strlen(value)), kStored, internal);
        return da_EscapeKeyCharsTx(converted, internal, fmt::kKeyChars);
    }
    const char *escaped = da_EscapeKeyCharsTx(value, kStored, fmt::kKeyChars);
    return go_ConvertStringOrRetain(escaped, static_cast<int>(std::strlen(escaped)), kStored, kFallback);
}

// The name, cut at 14 characters (none: the empty name, which no set has).
void copy_name(char (&to)[kInternalNameSize], const char *name) {
    if (!name) name = "";
    std::size_t n = strnlen(name, sizeof to - 1);
    std::memcpy(to, name, n);
    to[n] = '\0';
}

// The entries from the present field i to last, into the emptied out.
// Kept out of line: most ranges hold no field, and their calls need not
// set up this loop.
__attribute__((noinline)) void write_converted(fmt::Text &out, char **table, ccs_Descriptor *charset, int i, int last,
                                               bool needSeparator) {
    char internal[kInternalNameSize];
    copy_name(internal, ccs_GetInternalCharset(ccs_GetCSName(charset), 2));
    const bool mapped = cvc_IsMappingAvail(kStored, internal) != 0;
    for (; i <= last; i = fmt::next_present(table, i + 1, last)) {
        const char *value = table[i];
        if (needSeparator) out.append("/", charset);
        out.append(fmt::display_name(i), charset);
        out.append("=", charset);
        out.append(i == ORN_IA ? value : shown_value(value, internal, mapped), charset);
        needSeparator = true;
    }
}

char *converted_entries(char **table, ccs_Descriptor *charset, int first, int last, bool needSeparator) {
    fmt::Text &out = g_converted;
    out.begin();
    if (first < 0) first = 0;
    if (last > kFieldCount - 1) last = kFieldCount - 1;
    const int i = fmt::next_present(table, first, last);
    if (i <= last) write_converted(out, table, charset, i, last, needSeparator);  // else no set to look up
    return out.data();
}

}  // namespace

char *fmt::empty_converted() { return g_converted.begin(); }

}  // namespace cl

extern "C" {

char *cl_FrmtGroup345PP(char **table, ccs_Descriptor *charset, int first, int last, int needSeparator) {
    cl::Trace t(cl::kTrace19, "cl_FrmtGroup345PP");
    return t.exit(cl::converted_entries(table, charset, first, last, needSeparator != 0));
}

}  // extern "C"
