// One program file under several names, and the installation check.
#include <cstring>
#include <string_view>

#include "cl.h"
#include "ext.h"
#include "frame.hpp"
#include "mdc.h"
#include "os.h"

namespace cl {
namespace {

constexpr const char kSourceFile[] = "cl/cl_CallProc";
constexpr std::string_view kAnyName = "*";
constexpr int kLineWidth = 79;

// Names of the table, before the terminator, separated by ", " and wrapped
// so that a line stays within kLineWidth columns as far as single names
// allow; then "?" and a newline.
void list_names(const cl_ProcEntry *table) {
    int column = 0;
    for (const cl_ProcEntry *e = table; e->proc; ++e) {
        const int length = static_cast<int>(std::strlen(e->name));
        if (column > 0) {
            if (column + length + 3 > kLineWidth) {
                mdc_fputs(",\n", stderr);
                column = 0;
            } else {
                mdc_fputs(", ", stderr);
                column += 2;
            }
        }
        mdc_fputs(e->name, stderr);
        column += length;
    }
    mdc_fputs("?\n", stderr);
    mdc_fflush(stderr);
}

int call_proc(const cl_ProcEntry *table, int argc, char **argv) {
    const std::string_view invoked = (argv && argv[0]) ? ext_BaseName(argv[0]) : "";
    for (const cl_ProcEntry *e = table; e->proc; ++e)
        if (e->name == invoked || e->name == kAnyName) return e->proc(argc, argv);
    list_names(table);
    return -1;
}

// Marker files "<anything>.inst" in ~/sys/install mark an incomplete
// installation; a missing directory has none.
constexpr const char kInstallDir[] = "~/sys/install";
constexpr const char kMarkerPattern[] = "\x1F.inst";  // 0x1F: any run of characters

int is_everything_installed() {
    Trace t(kTrace21, "cl_IsEveryThingInstalled");
    volatile int result = 1;
    DIR *volatile dir = os_opendir(kInstallDir);
    pass_on_block(
        CL_HERE,
        [&] {
            while (result == 1) {
                const struct dirent *entry = os_readdir(dir);
                if (!entry) break;
                if (os_USPatternMatch(entry->d_name, kMarkerPattern) == 1) result = 0;
            }
        },
        [&] { os_closedir(dir); });
    os_closedir(dir);
    return t.exit(static_cast<int>(result));
}

}  // namespace
}  // namespace cl

extern "C" {
int cl_CallProc(const cl_ProcEntry *table, int argc, char **argv) { return cl::call_proc(table, argc, argv); }
int cl_IsEveryThingInstalled(void) { return cl::is_everything_installed(); }
}
