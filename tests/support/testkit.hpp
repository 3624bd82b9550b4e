// Test support: catching escapes, temporary server homes, trace and log
// capture, packed text written readably.
#ifndef CL_TESTKIT_HPP
#define CL_TESTKIT_HPP

#include <setjmp.h>

#include <string>
#include <vector>

#include "cl.h"
#include "er.h"

namespace testkit {

// The outcome of running code under a protected block.
struct Outcome {
    bool escaped = false;
    int group = 0;
    int reason = 0;
    bool pending_after = false;  // an escape still pending after the catch
    bool is(int g, int r) const { return escaped && group == g && reason == r; }
};

// Runs f under a protected block. f must hold no object with a destructor
// across a call that can escape. The escape is cleared afterwards.
template <class F>
__attribute__((noinline)) Outcome run(F &&f) {
    Outcome outcome;
    sigjmp_buf env;
    sigjmp_buf *volatile previous = er_SetCurrEnv(&env);
    if (sigsetjmp(env, 0) == 0) {
        f();
        er_SetCurrEnv(previous);
        outcome.pending_after = er_GetLive() != 0;
    } else {
        er_SetCurrEnv(previous);
        outcome.escaped = true;
        outcome.group = er_GetGroup();
        outcome.reason = er_GetReason();
        er_Clear();
    }
    return outcome;
}

// A file's bytes, written whole or read whole (empty when it cannot be read).
void write_file(const std::string &path, const std::string &bytes);
std::string read_file(const std::string &path);

// A fresh server home (QX_HOME) with a sys/ directory, removed afterwards.
class TempHome {
public:
    TempHome();
    ~TempHome();
    TempHome(const TempHome &) = delete;
    TempHome &operator=(const TempHome &) = delete;
    const std::string &path() const { return path_; }
    std::string file(const std::string &relative) const { return path_ + "/" + relative; }
    void write(const std::string &relative, const std::string &bytes) const;
    std::string read(const std::string &relative) const;

private:
    std::string path_;
};

// Records every trace call while alive.
struct TraceRecord {
    int id;
    std::string name;
    int entry;
    bool operator==(const TraceRecord &o) const { return id == o.id && name == o.name && entry == o.entry; }
};
class TraceCapture {
public:
    TraceCapture();
    ~TraceCapture();
    const std::vector<TraceRecord> &records() const;
    std::vector<TraceRecord> named(const std::string &name) const;
    void clear();

private:
    er_TraceHook previous_;
};

// Records every event-log message while alive.
struct LogRecord {
    int level, group, reason;
    std::string text;
    int t61;
};
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    const std::vector<LogRecord> &records() const;

private:
    er_LogHook previous_;
};

// Packed text made readable: 0x1D as '|', 0x17 as '#', other control bytes
// as \xNN. Lets expectations read like 'Smith|John|||'.
std::string show(const std::string &packed);
// The inverse, for writing packed text in tests.
std::string packed(const std::string &readable);

// Number of open file descriptors of this process.
int open_fd_count();

}  // namespace testkit
#endif
