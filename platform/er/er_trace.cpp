// Tracing: every er_RealLogProc call reaches the hook; records go to the
// file named by QX_TRACE_FILE, and nowhere when it is unset.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "er.h"
#include "er_internal.hpp"

namespace {

int initial_level() {
    const char *text = std::getenv("QX_TRACE_LEVEL");
    return text ? std::atoi(text) : 0;
}

er_TraceHook g_trace_hook = nullptr;
FILE *g_trace_file = nullptr;
bool g_trace_file_tried = false;

FILE *trace_file() {
    if (!g_trace_file_tried) {
        g_trace_file_tried = true;
        if (const char *name = std::getenv("QX_TRACE_FILE"); name && *name) {
            g_trace_file = std::fopen(name, "ae");
            if (g_trace_file) std::setvbuf(g_trace_file, nullptr, _IOLBF, 0);
        }
    }
    return g_trace_file;
}

}  // namespace

extern "C" {

int er_SubSystemLoggingLevel = initial_level();

void er_RealLogProc(int traceId, const char *name, int entry) {
    if (g_trace_hook) g_trace_hook(traceId, name, entry);
    if (!trace_file()) return;  // the usual case: no record to format
    qx::er::trace_line("%s %d %s", entry ? "ENTER" : "EXIT", traceId, name ? name : "");
}

er_TraceHook er_SetTraceHook(er_TraceHook hook) {
    er_TraceHook previous = g_trace_hook;
    g_trace_hook = hook;
    return previous;
}

}  // extern "C"

namespace qx::er {

void trace_line(const char *format, ...) {
    FILE *file = trace_file();
    if (!file) return;
    va_list args;
    va_start(args, format);
    std::vfprintf(file, format, args);
    va_end(args);
    std::fputc('\n', file);
}

void trace_flush() {
    if (g_trace_file) std::fflush(g_trace_file);
}

}  // namespace qx::er
