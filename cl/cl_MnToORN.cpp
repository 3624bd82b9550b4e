// A mail node typed alone into packed text: organizational units in fields
// 4 to 7 behind a four-field prefix, further '/' words in fields 8 on.
#include <cctype>
#include <cstring>

#include "cl.h"
#include "frame.hpp"
#include "packed.hpp"

namespace cl {
namespace {

constexpr const char kSourceFile[] = "cl/cl_MnToORN";

constexpr int kLastSeparator = 3;  // four units: three separators at most
constexpr int kFirstUnitField = ORN_UNIT1;
// Separators after the prefix that still open a field of the name.
constexpr int kSeparatorsMax = kLastField - kFirstUnitField;

// The personal-name fields before the units: empty, or place holders.
constexpr char kEmptyPrefix[] = {kFieldSep, kFieldSep, kFieldSep, kFieldSep, '\0'};
constexpr char kPlaceHolderPrefix[] = {'S', kFieldSep, 'F', kFieldSep, 'I', kFieldSep, 'G', kFieldSep, '\0'};

bool is_space(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

// Trims white space at both ends of every 0x1D-separated field, in place.
// The write position never passes the read position, so no work buffer (and
// no length bound) is needed.
void trim_fields(char *s) {
    char *w = s;
    bool fieldStart = true;
    for (const char *r = s; *r;) {
        if (*r == kFieldSep) {
            *w++ = *r++;
            fieldStart = true;
        } else if (is_space(*r)) {
            const char *run = r;
            while (is_space(*r)) ++r;
            bool trailing = *r == '\0' || *r == kFieldSep;
            if (!fieldStart && !trailing)
                while (run < r) *w++ = *run++;
        } else {
            *w++ = *r++;
            fieldStart = false;
        }
    }
    *w = '\0';
}

// Refuses what would not stay in its field of the packed text: a typed
// separator byte (8013), or more '/' parts than the name has fields (4673).
// Checked before anything is written, so a refused mail node leaves the
// caller's buffer as it was.
void check_mail_node(const char *mailNode) {
    int separators = 0;
    for (const char *p = mailNode; *p; ++p) {
        if (*p == kFieldSep || *p == kGroupEnd) CL_RAISE(100, 8013);
        if (*p == '/')
            separators = (separators < kLastSeparator ? kLastSeparator : separators) + 1;
        else if (*p == ',' && separators < kLastSeparator)
            ++separators;
        if (separators > kSeparatorsMax) CL_RAISE(100, 4673);
    }
}

// Writes the mail node's units after the prefix, directly into the caller's
// buffer (which holds the prefix, the mail node and one byte per unit), then
// trims and maps the substitute characters of the part written.
void real_mn_to_orn(char *out, const char *mailNode, const char *prefix) {
    Trace t(kTrace19, "cl_RealMnToORName");
    check_mail_node(mailNode);
    std::strcpy(out, prefix);
    char *start = out + std::strlen(prefix);
    char *o = start;
    int separators = 0;
    for (const char *p = mailNode; *p; ++p) {
        if (*p == '/' && separators < kLastSeparator)
            for (; separators < kLastSeparator; ++separators) *o++ = kFieldSep;
        if (*p == ',' && separators < kLastSeparator) {
            *o++ = kFieldSep;
            ++separators;
        } else {
            *o++ = *p == '/' ? kFieldSep : *p;
        }
    }
    *o = '\0';
    cl_RemoveLead_TrailSpaces(start);
    cl_ConvertSpecialChar(start);
    t.exit();
}

}  // namespace
}  // namespace cl

extern "C" {

void cl_PositionalMnToORN(char *out, const char *mailNode) {
    cl::Trace t(cl::kTrace17, "cl_PositionalMnToORN");
    cl::real_mn_to_orn(out, mailNode, cl::kEmptyPrefix);
    t.exit();
}

void cl_MailNodeToPartORName(char *out, const char *mailNode) {
    cl::Trace t(cl::kTrace17, "cl_MailNodeToPartORName");
    cl::real_mn_to_orn(out, mailNode, cl::kPlaceHolderPrefix);
    t.exit();
}

void cl_RemoveLead_TrailSpaces(char *fields) {
    cl::Trace t(cl::kTrace19, "cl_RemoveLead_TrailSpaces");
    cl::trim_fields(fields);
    t.exit();
}

}  // extern "C"
