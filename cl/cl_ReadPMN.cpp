// The primary mail node of the site, read from the configuration file.
#include <cstring>

#include "cl.h"
#include "ext.h"
#include "file_field.hpp"
#include "frame.hpp"
#include "os.h"
#include "packed.hpp"

namespace cl {
namespace {

constexpr const char kSourceFile[] = "cl/cl_ReadPMN";
constexpr int kNameFields = ORN_UNIT1;  // the empty personal-name fields before the units

// buf (136 bytes: four separators, four units of 32 and three separators,
// the terminator) receives the packed O/R name; the packed mail node, from
// buf + 4, is returned. An empty unit leaves no separator behind.
char *read_primary_mail_node(char *buf) {
    Trace t(kTrace19, "cl_ReadPMN");
    char actual[QX_PATH_MAX];
    ext_GetActualFName(kConfigFile, actual);
    const int fd = os_open(actual, 0, 0);

    std::memset(buf, kFieldSep, kNameFields);
    char *const node = buf + kNameFields;
    char *out = node;
    *out = '\0';
    read_units(
        fd, kPrimaryUnits, os_read,
        [&](int index, const char *unit) {
            if (index > 0 && unit[0] != '\0') *out++ = kFieldSep;
            out = stpcpy(out, unit);
        },
        [&](FieldIo result) {
            os_close(fd);
            if (result == FieldIo::kNotPositioned) CL_RAISE(100, 4623);
            CL_RAISE(100, 4624);
        });
    os_close(fd);
    return t.exit(node);
}

}  // namespace
}  // namespace cl

extern "C" char *cl_ReadPMN(char *buf) { return cl::read_primary_mail_node(buf); }
