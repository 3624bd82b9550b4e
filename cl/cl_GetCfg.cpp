// Taking the configuration lock (lock 0 of the platform), with or without
// waiting for it.
#include "cl.h"
#include "frame.hpp"
#include "gen.h"

namespace cl {
namespace {

constexpr const char kSourceFile[] = "cl/cl_GetCfg";
constexpr int kConfigLock = 0;
constexpr int kModeTry = 6;
constexpr int kModeWait = 2;

// The lock library's "held by another process" becomes the library's own
// "configuration locked" code; any other escape passes on unchanged.
int take_config_lock(const char *name, int mode) {
    Trace t(kTrace17, name);
    volatile int result = 0;
    translate_block(CL_HERE, [&] { result = gen_GetLock(kConfigLock, mode); }, {100, 1813}, {100, 2601});
    return t.exit(static_cast<int>(result));
}

}  // namespace
}  // namespace cl

extern "C" {
int cl_GetConfigLock(void) { return cl::take_config_lock("cl_GetConfigLock", cl::kModeTry); }
int cl_BlockedGetConfigLock(void) { return cl::take_config_lock("cl_BlockedGetConfigLock", cl::kModeWait); }
}
