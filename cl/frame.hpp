// The call frame every library function follows: tracing, raising escapes
// and protected blocks with their handler kinds. The block itself (attempt,
// guarded_release, Code, raise) is the installed cl_escape.h, which programs
// use too.
//
// An escape is a siglongjmp: it skips the frames between the raise and the
// protected block without running anything in them. So no object with a
// destructor may be alive across a call that can escape, and a local that a
// protected body assigns and its handler reads is declared volatile.
#ifndef CL_FRAME_HPP
#define CL_FRAME_HPP

#include <setjmp.h>

#include <type_traits>

#include "cl_escape.h"

#include "er.h"

namespace cl {

// Trace ids: 19 and 21 trace only above logging level 9; 17 and 15 always.
enum TraceId : int { kTrace19 = 19, kTrace21 = 21, kTrace17 = 17, kTrace15 = 15 };

// Whether a function with this trace id traces now.
inline bool traces(int id) noexcept { return id == kTrace17 || id == kTrace15 || er_SubSystemLoggingLevel > 9; }

// Whether the library may take a short cut: do the work of a traced helper
// (id 19: IllegalCharacter, cl_ConvertToSpecialChar, cl_UnpackFullORN)
// inline instead of calling it. Only when the call would leave no trace
// record, so that the trace file shows the same calls either way; the
// results are the same by construction. Every fast path asks this.
inline bool shortcut_allowed() noexcept { return !traces(kTrace19); }

// Entry trace on construction, exit trace on an explicit exit(): an escape
// leaves without the exit trace, as it must. Trivially destructible.
class Trace {
public:
    Trace(int id, const char *name) noexcept : id_(id), name_(name), on_(traces(id)) {
        if (on_) er_RealLogProc(id_, name_, 1);
    }
    void exit() const noexcept {
        if (on_) er_RealLogProc(id_, name_, 0);
    }
    // return t.exit(value);
    template <class T>
    T exit(T value) const noexcept {
        exit();
        return value;
    }

private:
    int id_;
    const char *name_;
    bool on_;
};
static_assert(std::is_trivially_destructible_v<Trace>);

// Where a protected block ends: named when an escape is passed on from it.
struct Site {
    const char *file;
    int line;
};

// Each source defines `constexpr const char kSourceFile[] = "cl/cl_X";`.
#define CL_RAISE(group, reason) ::cl::raise((group), (reason), kSourceFile, __LINE__)
#define CL_HERE (::cl::Site{kSourceFile, __LINE__})

// Continues a still-pending escape to the enclosing block.
inline void pass_on_if_live(Site site) noexcept {
    if (!er_GetLive()) return;
    er_TraceBeforeJump(site.file, site.line);
    sigjmp_buf *outer = er_GetCurrEnv();
    if (!outer) er_TracedEscape(er_GetGroup(), er_GetReason(), er_GetFile(), er_GetLine());
    siglongjmp(*outer, 1);
}

// A protected block: body; on an escape, handler, then pass the escape on
// unless the handler cleared it.
template <class Body, class Handler>
void protect(Site site, Body &&body, Handler &&handler) {
    if (attempt(body)) {
        handler();
        pass_on_if_live(site);
    }
}

// Handler kind "pass on": release what the body allocated, pass on.
template <class Body, class Release>
void pass_on_block(Site site, Body &&body, Release &&release) {
    protect(site, body, release);
}

// Handler kind "translate": escape `from` becomes escape `to`, raised to the
// enclosing block; any other escape passes on.
template <class Body>
void translate_block(Site site, Body &&body, Code from, Code to) {
    protect(site, body, [&] {
        if (from.pending()) {
            er_Clear();
            er_TracedEscape(to.group, to.reason, site.file, site.line);
        }
    });
}

// Handler kind "swallow one": undo what the body set up; clear `code`, pass
// on any other escape.
template <class Body, class Undo>
void swallow_one_block(Site site, Body &&body, Undo &&undo, Code code) {
    protect(site, body, [&] {
        undo();
        if (code.pending()) er_Clear();
    });
}

// Handler kind "swallow all": note the failure, clear whatever arrived.
template <class Body, class OnFail>
void swallow_all_block(Site site, Body &&body, OnFail &&on_fail) {
    protect(site, body, [&] {
        on_fail();
        er_Clear();
    });
}

// Handler kind "guarded clean-up": accept, release what is held under the
// status guard, pass on.
template <class Body, class Held, class Release>
void guarded_cleanup_block(Site site, Body &&body, Held &&held, Release &&release) {
    protect(site, body, [&] {
        er_Accept(3);
        if (held()) guarded_release(release);
    });
}

}  // namespace cl

#endif  // CL_FRAME_HPP
