// Escapes: the pending (group, reason) pair and the stack of jump
// environments threaded through the active protected blocks.
#include "er.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "er_internal.hpp"

namespace {

struct Pending {
    int live = 0;
    int group = 0;
    int reason = 0;
    int line = 0;
    int accepted = 0;
    const char *file = "";
};

// Process-wide, as the library is used from one thread at a time.
sigjmp_buf *g_current_env = nullptr;
Pending g_pending;

}  // namespace

extern "C" {

void er_TracedEscape(int group, int reason, const char *file, int line) {
    g_pending = Pending{1, group, reason, line, 0, file ? file : ""};
    qx::er::trace_line("ESCAPE %d/%d at %s:%d", group, reason, g_pending.file, line);
    if (g_current_env == nullptr) {
        std::fflush(stdout);
        std::fprintf(stderr, "%s: unhandled error %d/%d raised at %s:%d\n",
                     program_invocation_short_name, group, reason, g_pending.file, line);
        std::exit(ER_UNHANDLED_STATUS);
    }
    siglongjmp(*g_current_env, 1);
}

sigjmp_buf *er_SetCurrEnv(sigjmp_buf *env) {
    sigjmp_buf *previous = g_current_env;
    g_current_env = env;
    return previous;
}

sigjmp_buf *er_GetCurrEnv(void) { return g_current_env; }
int er_GetLive(void) { return g_pending.live; }
int er_GetGroup(void) { return g_pending.group; }
int er_GetReason(void) { return g_pending.reason; }
const char *er_GetFile(void) { return g_pending.file; }
int er_GetLine(void) { return g_pending.line; }

void er_Clear(void) { g_pending = Pending{}; }

void er_TraceBeforeJump(const char *file, int line) {
    qx::er::trace_line("PASS %d/%d at %s:%d", g_pending.group, g_pending.reason,
                       file ? file : "", line);
}

void er_Accept(int how) {
    if (g_pending.live) g_pending.accepted = how;
}

int er_GetAccepted(void) { return g_pending.accepted; }

void er_RecordStatus(er_Status *status) {
    *status = er_Status{g_pending.live, g_pending.group, g_pending.reason,
                        g_pending.line, g_pending.accepted, g_pending.file};
}

void er_RestoreStatus(const er_Status *status) {
    g_pending = Pending{status->live, status->group, status->reason, status->line,
                        status->accepted, status->file};
}

void er_TidyUp(void) {
    er_Clear();
    er_SetLogInfo(1, "");
    qx::er::trace_flush();
}

}  // extern "C"
