// The display text of a whole O/R name, or of its mail-node form: group 1 in
// the typed syntax, then attribute entries in a fixed order: group 2, groups
// 3 and 4, field 128, field 129, field 160, the IA field.
#include "cl.h"
#include "fmt_buffer.hpp"
#include "frame.hpp"

namespace cl {
namespace {

constexpr const char kSourceFile[] = "cl/cl_FmtFullName";


// Bound: 4079 characters each (fmt::kFullSize); longer texts are cut.
fmt::Text g_result{fmt::kFullSize};
fmt::Text g_work{fmt::kFullSize};
// The special entry of field 160; zero at load.
fstr_String g_special{};

// Converted entries for a range, after a '/' when the text so far is not empty.
void append_converted(fmt::Text &out, char **table, ccs_Descriptor *cs, int first, int last) {
    out.append(fmt::converted(table, cs, first, last, !out.empty()), cs);
}

char *full_name(const char *tf, ccs_Descriptor *cs, bool mailNodeOnly, bool withExtended, bool withIA) {
    fmt::Text &result = g_result;
    fmt::Text &work = g_work;
    result.begin();
    fmt::LocalTable local;
    char **table = fmt::unpack(tf, kFieldCount, local);

    const fmt::Written group1 = fmt::traced_group1(table, mailNodeOnly);
    // Most names have no field past group 1. Then each range call below
    // would only empty its buffer, so each buffer is emptied once instead.
    const bool beyond = !fmt::only_group1(table);
    const char *group2 = beyond ? fmt::entries(table, mailNodeOnly ? ORN_COMMON_NAME + 1 : ORN_COMMON_NAME,
                                               ORN_LAST_GROUP2)
                                : fmt::empty_entries();
    if (!*group2 && group1.plain && result.fits(static_cast<std::size_t>(group1.size)) && fmt::ascii_as_is(cs)) {
        result.append(group1.text, static_cast<std::size_t>(group1.size));  // UTF-8 appends plain ASCII as it is
    } else {
        work.begin();  // needed only here
        work.append(group1.text, static_cast<std::size_t>(group1.size));
        work.join(group2);
        result.append(work.data(), static_cast<std::size_t>(work.size()), cs);
    }

    if (!beyond) {
        if ((withExtended && cs) || withIA) fmt::empty_converted();
    } else {
        if (withExtended && cs) {
            // The mail-node form leaves out the counterparts of fields 0 to 3 and 32.
            if (mailNodeOnly) {
                append_converted(result, table, cs, 68, 95);
                append_converted(result, table, cs, 97, 127);
            } else {
                append_converted(result, table, cs, 64, 127);
            }
            result.append(fmt::converted(table, cs, ORN_DISPLAY_NAME, ORN_DISPLAY_NAME, true), cs);
            // Field 128 is written above, converted; only 129 is left for the plain entries.
            result.join(fmt::entries(table, ORN_ALTERNATE_NAME, ORN_ALTERNATE_NAME), cs);
            if (*table[ORN_CV]) result.join(fmt::special_entry(g_special, "410", table[ORN_CV]), cs);
        }
        if (withIA) append_converted(result, table, cs, ORN_IA, ORN_IA);
    }

    fmt::release(table, local);
    return result.data();
}

}  // namespace
}  // namespace cl

extern "C" {

char *cl_RealFormatFullName(const char *tf, ccs_Descriptor *charset, int mailNodeOnly, int withExtended, int withIA) {
    cl::Trace t(cl::kTrace21, "cl_RealFormatFullName");
    return t.exit(cl::full_name(tf, charset, mailNodeOnly != 0, withExtended != 0, withIA != 0));
}

char *cl_FormatFullName(const char *tf, ccs_Descriptor *charset) {
    return cl_RealFormatFullName(tf, charset, 0, 1, 0);
}

char *cl_FormatFullNameIa(const char *tf, ccs_Descriptor *charset) {
    cl::Trace t(cl::kTrace15, "cl_FormatFullNameIa");
    return t.exit(cl_RealFormatFullName(tf, charset, 0, 1, 1));
}

char *cl_formatORNtoUtf8withIA(const char *tf) {
    ccs_Descriptor utf8;
    ccs_GetCSDescriptor("UTF8", &utf8);
    return cl_RealFormatFullName(tf, &utf8, 0, 1, 1);
}

char *cl_FormatMailNode(const char *tf, ccs_Descriptor *charset, int withExtended) {
    cl::Trace t(cl::kTrace15, "cl_FormatMailNode");
    return t.exit(cl_RealFormatFullName(tf, charset, 1, withExtended && charset ? 1 : 0, 0));
}

}  // extern "C"
