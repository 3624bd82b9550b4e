// The event log: <home>/log/events, one line per message:
//   2026-11-22T10:00:00Z L7 100/4630 [T61] text
// Control bytes of the text are written as \xNN so a record stays one line.
// Logging never fails the caller: a log that cannot be written is skipped,
// but the hook still sees every message.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>

#include "er.h"
#include "home.hpp"

namespace {

er_LogHook g_log_hook = nullptr;
// Log information slots, each bounded by the caller's 200-byte buffer.
constexpr int kInfoSize = 200;
char g_log_info[2][kInfoSize];
// Character-set name of the program's text; bounded by the copy below.
char g_cs_str[32] = "UTF8";

void write_record(int level, int group, int reason, const char *text, bool t61) {
    char path[QX_PATH_MAX];
    char dir[QX_PATH_MAX];
    if (!qx::home_dir(dir, sizeof dir)) return;
    if (std::snprintf(path, sizeof path, "%s/log", dir) >= static_cast<int>(sizeof path)) return;
    mkdir(path, 0770);  // exists already in the usual case
    if (std::snprintf(path, sizeof path, "%s/log/events", dir) >= static_cast<int>(sizeof path)) return;
    int fd = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0660);
    if (fd < 0) return;
    FILE *file = fdopen(fd, "a");
    if (!file) {
        close(fd);
        return;
    }
    char stamp[32];
    std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%SZ", &utc);
    std::fprintf(file, "%s L%d %d/%d %s", stamp, level, group, reason, t61 ? "T61 " : "");
    for (const unsigned char *p = reinterpret_cast<const unsigned char *>(text ? text : ""); *p; ++p) {
        if (*p < 0x20 || *p == 0x7F || *p == '\\')
            std::fprintf(file, "\\x%02X", *p);
        else
            std::fputc(*p, file);
    }
    std::fputc('\n', file);
    std::fclose(file);
}

}  // namespace

extern "C" {

void er_LogMsg(int level, int group, int reason, const char *text, int /*flags*/) {
    if (g_log_hook) g_log_hook(level, group, reason, text, 0);
    write_record(level, group, reason, text, false);
}

void er_LogT61Msg(int level, int group, int reason, const char *text, int /*flags*/) {
    if (g_log_hook) g_log_hook(level, group, reason, text, 1);
    write_record(level, group, reason, text, true);
}

er_LogHook er_SetLogHook(er_LogHook hook) {
    er_LogHook previous = g_log_hook;
    g_log_hook = hook;
    return previous;
}

void er_SetLogInfo(int which, const char *text) {
    if (which < 0 || which > 1) return;
    std::snprintf(g_log_info[which], kInfoSize, "%s", text ? text : "");
}

void er_GetLogInfo(int which, char *buf, int /*flags*/) {
    if (!buf) return;
    if (which < 0 || which > 1) {
        buf[0] = '\0';
        return;
    }
    std::snprintf(buf, kInfoSize, "%s", g_log_info[which]);
}

const char *er_GetCSStr(void) { return g_cs_str; }

void er_SetCSStr(const char *charsetName) {
    std::snprintf(g_cs_str, sizeof g_cs_str, "%s", charsetName && *charsetName ? charsetName : "UTF8");
}

}  // extern "C"
