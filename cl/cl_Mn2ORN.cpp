// 'personal name/mail node' text into packed text, with a result instead of
// an escape when the personal name is refused.
#include <cstring>

#include "cl.h"
#include "frame.hpp"
#include "packed.hpp"

namespace cl {
namespace {

constexpr const char kSourceFile[] = "cl/cl_Mn2ORN";

constexpr int kLastSeparator = 3;  // four units: three separators at most
// The personal-name part is parsed in a copy of at most 4096 characters; a
// longer one is refused like any other unreadable personal name.
constexpr std::size_t kNameCopy = 4097;

// Appends the mail node that follows the personal name: always four units,
// then every '/' starts a further field; '(' or the end stops.
void append_mail_node(char *o, const char *p) {
    int separators = 0;
    bool done = false;
    while (*p && *p != '(') {
        if (!done) {
            for (; *p && *p != '/' && *p != '(' && separators < kLastSeparator; ++p) {
                if (*p == ',') {
                    *o++ = kFieldSep;
                    ++separators;
                } else {
                    *o++ = *p;
                }
            }
            done = true;
            for (; separators < kLastSeparator; ++separators) *o++ = kFieldSep;
        }
        if (*p == '/') {
            *o++ = kFieldSep;
            ++p;
        } else if (*p && *p != '(') {
            *o++ = *p++;
        }
    }
    *o = '\0';
}

int conv_name_or_mnode(const char *text, char *out, int surnameRequired) {
    Trace t(kTrace19, "cl_ConvNameOrMNode");
    volatile int result = 1;
    const char *slash = std::strchr(text, '/');
    std::size_t nameLen = slash ? static_cast<std::size_t>(slash - text) : std::strlen(text);
    char name[kNameCopy];
    if (nameLen >= sizeof name) {
        result = 0;
    } else {
        std::memcpy(name, text, nameLen);
        name[nameLen] = '\0';
        swallow_all_block(
            CL_HERE, [&] { cl_ParseORN(name, out, surnameRequired); }, [&] { result = 0; });
    }
    if (result == 0) {
        out[0] = '\0';
        return t.exit(0);
    }
    if (slash) append_mail_node(out + std::strlen(out), slash + 1);
    return t.exit(1);
}

}  // namespace
}  // namespace cl

extern "C" {

int cl_ConvNameToORN(const char *text, char *out) {
    cl::Trace t(cl::kTrace19, "cl_ConvNameToORN");
    return t.exit(cl::conv_name_or_mnode(text, out, 1));
}

int cl_ConvMNodeToORN(const char *text, char *out) {
    cl::Trace t(cl::kTrace19, "cl_ConvMNodeToORN");
    return t.exit(cl::conv_name_or_mnode(text, out, 0));
}

}  // extern "C"
