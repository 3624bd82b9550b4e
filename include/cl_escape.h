/* Catching the library's escapes in a program.
 *
 * A failing library call does not return: it raises an escape (a group and
 * a reason) through the error library, which jumps with siglongjmp to the
 * innermost protected block. A program runs its calls inside such a block
 * and, when an escape arrives, reads it with er_GetGroup()/er_GetReason(),
 * shows it with cl_SortAllErrors(), or clears it with er_Clear().
 *
 * The jump skips every frame between the raise and the block without
 * running anything in them: a local that the block's body changes and its
 * handler reads must be volatile, and (in C++) no object with a destructor
 * may live across a call that can escape.
 *
 * In C (sigjmp_buf is POSIX, which -std=c99 hides: the flags of pkg-config
 * and of the CMake target cl::cl define _DEFAULT_SOURCE; a program compiled
 * without them defines _DEFAULT_SOURCE or _POSIX_C_SOURCE 200809L itself,
 * before any system header):
 *
 *     cl_Block block;
 *     CL_TRY(block) {
 *         cl_ConvCltoORN(text, tf, 0, 0, descriptor);
 *     } CL_CATCH(block) {
 *         status = cl_SortAllErrors(argv[0]);  // shows it, clears it
 *     } CL_END_TRY(block);
 *
 * CL_TRY and CL_CATCH put the previous block back before the handler runs,
 * so an escape raised inside the handler reaches the enclosing block.
 * Leaving the body by return, break or goto would leave the block installed:
 * don't. cl_GuardedCall runs a clean-up function inside a handler without
 * losing the escape being handled.
 *
 * In C++ the same pattern comes as functions in namespace cl: attempt(),
 * fails(), guarded_release(), and Code and raise() for the program's own
 * escapes. */
#ifndef CL_ESCAPE_H
#define CL_ESCAPE_H

#include <setjmp.h>

#include "er.h"

/* One protected block: the jump environment and the block it replaces. */
typedef struct cl_Block {
    sigjmp_buf env;
    sigjmp_buf *previous;
} cl_Block;

#define CL_TRY(block)                                    \
    (block).previous = er_SetCurrEnv(&(block).env);      \
    if (sigsetjmp((block).env, 0) == 0) {
#define CL_CATCH(block)                                  \
        er_SetCurrEnv((block).previous);                 \
    } else {                                             \
        er_SetCurrEnv((block).previous);
#define CL_END_TRY(block) }

/* Calls fn(arg) in a block of its own, keeping the escape that is pending:
 * an escape of fn is forgotten, the first one stays. For releasing what a
 * failed body held (a lock, a file) from inside a handler. */
static inline void cl_GuardedCall(void (*fn)(void *), void *arg) {
    er_Status status;
    cl_Block block;
    er_RecordStatus(&status);
    CL_TRY(block) {
        fn(arg);
    } CL_CATCH(block) {
    } CL_END_TRY(block);
    er_RestoreStatus(&status);
}

#ifdef __cplusplus
namespace cl {

/* A (group, reason) pair of the catalogue. */
struct Code {
    int group;
    int reason;
    bool pending() const noexcept { return er_GetLive() && er_GetGroup() == group && er_GetReason() == reason; }
};

/* Raises code; file names the raising source, line the line. */
[[noreturn]] inline void raise(Code code, const char *file, int line) noexcept {
    er_TracedEscape(code.group, code.reason, file, line);
}
[[noreturn]] inline void raise(int group, int reason, const char *file, int line) noexcept {
    er_TracedEscape(group, reason, file, line);
}

/* Runs body in a protected block and puts the previous block back on both
 * paths before anything else can raise. True when an escape arrived (it is
 * still pending). Never inlined: sigsetjmp needs a frame that is live when
 * the jump lands, and body runs inside this one. */
template <class Body>
__attribute__((noinline)) bool attempt(Body &body) noexcept {
    sigjmp_buf env;
    sigjmp_buf *volatile saved = er_SetCurrEnv(&env);
    if (sigsetjmp(env, 0) == 0) {
        body();
        er_SetCurrEnv(saved);
        return false;
    }
    er_SetCurrEnv(saved);
    return true;
}

/* Runs body; an escape from it is cleared and reported as true. */
template <class Body>
bool fails(Body &&body) noexcept {
    if (!attempt(body)) return false;
    er_Clear();
    return true;
}

/* Runs release inside a handler without losing the escape being handled:
 * a failing release is caught and forgotten, the first escape stays. */
template <class Release>
void guarded_release(Release &&release) noexcept {
    er_Status status;
    er_RecordStatus(&status);
    attempt(release);
    er_RestoreStatus(&status);
}

}  // namespace cl
#endif

#endif
