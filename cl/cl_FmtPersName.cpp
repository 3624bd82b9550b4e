// The personal name of an O/R name: the group 1 personal name, then the
// entries of the other fields that name the person (32, its counterpart 96,
// and 64 to 67, the counterparts of 0 to 3), and the IA field on request.
#include "cl.h"
#include "fmt_buffer.hpp"
#include "frame.hpp"

namespace cl {
namespace {

constexpr const char kSourceFile[] = "cl/cl_FmtPersName";


// Bound: 4079 characters each (fmt::kFullSize); longer texts are cut.
fmt::Text g_personal{fmt::kFullSize};
fmt::Text g_group1_copy{fmt::kFullSize};

char *personal_name(const char *tf, ccs_Descriptor *cs, bool withIA) {
    fmt::Text &out = g_personal;
    out.begin();
    fmt::LocalTable local;
    char **table = fmt::unpack(tf, kFieldCount, local);
    out.append(cl_FrmtGroup1PNPP(table));
    out.join(fmt::entries(table, ORN_COMMON_NAME, ORN_COMMON_NAME));
    out.append(fmt::converted(table, cs, 64, 67, true), cs);
    out.append(fmt::converted(table, cs, 96, 96, true), cs);
    if (withIA) out.append(fmt::converted(table, cs, ORN_IA, ORN_IA, !out.empty()), cs);
    fmt::release(table, local);
    return out.data();
}

char *group1_personal_name(const char *tf) {
    fmt::Text &out = g_group1_copy;
    out.begin();
    fmt::LocalTable local;
    char **table = fmt::unpack(tf, kFieldCount, local);
    out.append(cl_FrmtGroup1PNPP(table));
    fmt::release(table, local);
    return out.data();
}

}  // namespace
}  // namespace cl

extern "C" {

char *cl_RealFormatPersonalName(const char *tf, ccs_Descriptor *charset, int withIA) {
    cl::Trace t(cl::kTrace21, "cl_RealFormatPersonalName");
    return t.exit(cl::personal_name(tf, charset, withIA != 0));
}

char *cl_FormatPersonalName(const char *tf, ccs_Descriptor *charset) {
    cl::Trace t(cl::kTrace21, "cl_FormatPersonalName");
    return t.exit(cl_RealFormatPersonalName(tf, charset, 0));
}

char *cl_FormatPersonalNameIa(const char *tf, ccs_Descriptor *charset) {
    cl::Trace t(cl::kTrace21, "cl_FormatPersonalNameIa");
    return t.exit(cl_RealFormatPersonalName(tf, charset, 1));
}

char *cl_FormatG1PersonalName(const char *tf) {
    cl::Trace t(cl::kTrace21, "cl_FormatG1PersonalName");
    return t.exit(cl::group1_personal_name(tf));
}

}  // extern "C"
