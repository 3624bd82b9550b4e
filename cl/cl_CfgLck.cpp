// The configuration lock: release, test, the bounded wait on SIGALRM and
// the take-or-fail with the standard wait.
#include <signal.h>
#include <unistd.h>

#include <cstdlib>

#include "cl.h"
#include "ext.h"
#include "frame.hpp"
#include "gen.h"

namespace cl {
namespace {

constexpr const char kSourceFile[] = "cl/cl_CfgLck";
constexpr int kConfigLock = 0;
constexpr int kStandardWait = 60;  // seconds
// Test seam: CL_CFGLOCK_WAIT may shorten the standard wait to 1 to 59
// seconds; any other value is ignored, so it can never lengthen the wait.
constexpr const char kWaitSeam[] = "CL_CFGLOCK_WAIT";

// The SIGALRM handler in force before the most recent bounded wait armed
// its alarm; overwritten by the next wait, never cleared.
ext_SigHandler g_saved_alarm_handler = nullptr;

void free_config_lock() {
    Trace t(kTrace17, "cl_FreeConfigLock");
    translate_block(CL_HERE, [] { gen_FreeLock(kConfigLock); }, {100, 1812}, {100, 2602});
    t.exit();
}

int test_config_lock() {
    Trace t(kTrace17, "cl_TestConfigLock");
    return t.exit(gen_TestLock(kConfigLock));
}

// Waits for the lock at most `seconds` (without limit when 0 or less). The
// alarm's escape ends the wait and is cleared; whichever way the wait ends,
// the caller's alarm (with the seconds it had left) and SIGALRM handler are
// back before control leaves. The answer is the test, not the take.
int wait_for_config_lock(int seconds) {
    Trace t(kTrace21, "cl_WaitForConfigLock");
    volatile bool armed = false;
    volatile unsigned previous_alarm = 0;
    auto disarm = [&] {
        if (!armed) return;
        alarm(previous_alarm);  // the alarm first, then the handler
        ext_signal(SIGALRM, g_saved_alarm_handler);
        armed = false;
    };
    swallow_one_block(
        CL_HERE,
        [&] {
            if (seconds > 0) {
                g_saved_alarm_handler = ext_signal(SIGALRM, cl_AlarmTrap);  // the handler before the alarm
                previous_alarm = alarm(static_cast<unsigned>(seconds));
                armed = true;
            }
            cl_BlockedGetConfigLock();
            disarm();
        },
        disarm, {100, 4637});
    return t.exit(cl_TestConfigLock());
}

int standard_wait() {
    const char *seam = std::getenv(kWaitSeam);
    if (!seam) return kStandardWait;
    char *end = nullptr;
    const long seconds = std::strtol(seam, &end, 10);
    return (*end == '\0' && seconds > 0 && seconds < kStandardWait) ? static_cast<int>(seconds) : kStandardWait;
}

// Installed for SIGALRM by a bounded wait: ends it with an escape raised
// from inside the handler (ext_signal leaves the signal unblocked).
void alarm_trap() { CL_RAISE(100, 4637); }

void get_cfg_lock() {
    Trace t(kTrace19, "cl_GetCfgLock");
    if (cl_WaitForConfigLock(standard_wait()) == 0) CL_RAISE(100, 8001);
    t.exit();
}

}  // namespace
}  // namespace cl

extern "C" {
void cl_FreeConfigLock(void) { cl::free_config_lock(); }
int cl_TestConfigLock(void) { return cl::test_config_lock(); }
int cl_WaitForConfigLock(int seconds) { return cl::wait_for_config_lock(seconds); }
void cl_GetCfgLock(void) { cl::get_cfg_lock(); }
void cl_AlarmTrap(int) { cl::alarm_trap(); }
}
