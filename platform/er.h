/* er_: escapes, protected blocks, tracing and the event log.
 *
 * An escape is a pending (group, reason) pair plus the file and line that
 * raised it. er_TracedEscape records it and siglongjmps to the current
 * environment. Catch one with:
 *   prev = er_SetCurrEnv(&env);
 *   if (sigsetjmp(env, 0) == 0) { ...; er_SetCurrEnv(prev); }
 *   else { er_SetCurrEnv(prev); ... }
 * With no environment current, an escape prints "<prog>: unhandled error
 * G/R raised at FILE:LINE" on stderr and exits with ER_UNHANDLED_STATUS.
 *
 * Environment: QX_TRACE_LEVEL sets er_SubSystemLoggingLevel at load;
 * QX_TRACE_FILE names a file that receives one line per trace record
 * (silent when unset). The event log is <home>/log/events.
 * sigjmp_buf is POSIX: strict C99 callers define _POSIX_C_SOURCE. */
#ifndef ER_H
#define ER_H
#include <setjmp.h>
#include "qx.h"
QX_BEGIN

#define ER_UNHANDLED_STATUS 70

extern QX_API int er_SubSystemLoggingLevel;
QX_API void  er_RealLogProc(int traceId, const char *name, int entry);
QX_API QX_NORETURN void er_TracedEscape(int group, int reason, const char *file, int line);
QX_API sigjmp_buf *er_SetCurrEnv(sigjmp_buf *env);
QX_API sigjmp_buf *er_GetCurrEnv(void);
QX_API int   er_GetLive(void);
QX_API int   er_GetGroup(void);
QX_API int   er_GetReason(void);
QX_API const char *er_GetFile(void);
QX_API int   er_GetLine(void);
QX_API void  er_Clear(void);
QX_API void  er_TraceBeforeJump(const char *file, int line);
/* Marks the pending escape as accepted by a handler of the given class
 * (3: a clean-up handler that will pass it on). Does not clear it. */
QX_API void  er_Accept(int how);
QX_API int   er_GetAccepted(void);

typedef struct er_Status {
    int live, group, reason, line, accepted;
    const char *file;
} er_Status;
QX_API void  er_RecordStatus(er_Status *status);
QX_API void  er_RestoreStatus(const er_Status *status);
QX_API void  er_TidyUp(void);

/* Event log: one line per message under <home>/log/events. */
QX_API void  er_LogMsg(int level, int group, int reason, const char *text, int flags);
QX_API void  er_LogT61Msg(int level, int group, int reason, const char *text, int flags);
/* Log information slot 1 holds the object of the last failed system call
 * (a file name), set by the os_ library; empty when there is none. */
QX_API void  er_SetLogInfo(int which, const char *text);
QX_API void  er_GetLogInfo(int which, char *buf, int flags); /* buf: 200 bytes */
QX_API const char *er_GetCSStr(void);          /* "UTF8" unless set */
QX_API void  er_SetCSStr(const char *charsetName);

typedef void (*er_TraceHook)(int traceId, const char *name, int entry);
QX_API er_TraceHook er_SetTraceHook(er_TraceHook hook);
typedef void (*er_LogHook)(int level, int group, int reason, const char *text, int t61);
QX_API er_LogHook er_SetLogHook(er_LogHook hook);

QX_END
#endif
