// The configuration lock between real processes: takes that fail or wait,
// the bounded wait on SIGALRM, and what the caller's alarm looks like after.
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>

#include "ext.h"
#include "gen.h"
#include "testkit.hpp"

namespace {

using Clock = std::chrono::steady_clock;
using testkit::run;

double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// A child process that takes lock `lock` and holds it for hold_ms (or until
// released), optionally then waiting for lock `then_wait_for`. The parent
// goes on only once the child holds the lock.
class Holder {
public:
    explicit Holder(int hold_ms = -1, int lock = 0, int then_wait_for = -1) {
        if (pipe(ready_) != 0 || pipe(go_) != 0) std::abort();
        pid_ = fork();
        if (pid_ == 0) child(hold_ms, lock, then_wait_for);
        close(ready_[1]);
        close(go_[0]);
        char answer = 0;
        if (read(ready_[0], &answer, 1) != 1 || answer != 'H') ADD_FAILURE() << "the holder could not take the lock";
    }
    ~Holder() { release(); }
    // Ends the child (which releases the lock by ending) and returns its status.
    int release() {
        if (pid_ <= 0) return status_;
        close(go_[1]);
        waitpid(pid_, &status_, 0);
        close(ready_[0]);
        pid_ = -1;
        return status_;
    }

private:
    [[noreturn]] void child(int hold_ms, int lock, int then_wait_for) {
        close(ready_[0]);
        close(go_[1]);
        auto taken = run([lock] { gen_GetLock(lock, 6); });
        char answer = taken.escaped ? 'E' : 'H';
        if (write(ready_[1], &answer, 1) != 1) _exit(3);
        if (then_wait_for >= 0 && run([then_wait_for] { gen_GetLock(then_wait_for, 2); }).escaped) _exit(4);
        pollfd go{go_[0], POLLIN, 0};
        poll(&go, 1, hold_ms);
        _exit(0);  // ending releases every lock the child holds
    }
    int ready_[2]{};
    int go_[2]{};
    pid_t pid_ = -1;
    int status_ = 0;
};

void on_alarm(int) {}

ext_SigHandler current_alarm_handler() {
    struct sigaction now {};
    sigaction(SIGALRM, nullptr, &now);
    return now.sa_handler;
}

// The caller's own alarm and handler, put back as they were afterwards.
struct CallerAlarm {
    struct sigaction before {};
    explicit CallerAlarm(unsigned seconds) {
        struct sigaction mine {};
        mine.sa_handler = on_alarm;
        sigaction(SIGALRM, &mine, &before);
        alarm(seconds);
    }
    ~CallerAlarm() {
        alarm(0);
        sigaction(SIGALRM, &before, nullptr);
    }
};

TEST(ConfigLock, TakeTestAndFreeInOneProcess) {
    testkit::TempHome home;
    EXPECT_EQ(cl_TestConfigLock(), 0);
    EXPECT_TRUE(run([] { cl_FreeConfigLock(); }).is(100, 2602));
    EXPECT_NE(cl_GetConfigLock(), 0);
    EXPECT_NE(cl_GetConfigLock(), 0) << "a second take by the holder succeeds";
    EXPECT_EQ(cl_TestConfigLock(), 1);
    cl_FreeConfigLock();
    EXPECT_EQ(cl_TestConfigLock(), 0);
    EXPECT_TRUE(run([] { cl_FreeConfigLock(); }).is(100, 2602));
}

TEST(ConfigLock, AnotherProcessHoldingItGives2601) {
    testkit::TempHome home;
    Holder holder;
    EXPECT_TRUE(run([] { cl_GetConfigLock(); }).is(100, 2601));
    EXPECT_EQ(cl_TestConfigLock(), 0);
    holder.release();
    EXPECT_NE(cl_GetConfigLock(), 0) << "a process that ends releases the lock";
    cl_FreeConfigLock();
}

TEST(ConfigLock, AForkedChildDoesNotHoldItsParentsLock) {
    testkit::TempHome home;
    ASSERT_NE(cl_GetConfigLock(), 0);
    pid_t pid = fork();
    if (pid == 0) {
        int code = cl_TestConfigLock() != 0 ? 1 : 0;
        if (!run([] { cl_GetConfigLock(); }).is(100, 2601)) code |= 2;
        if (!run([] { cl_FreeConfigLock(); }).is(100, 2602)) code |= 4;
        _exit(code);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(cl_TestConfigLock(), 1) << "the child's attempts leave the parent's lock alone";
    cl_FreeConfigLock();
}

TEST(ConfigLock, BlockedTakeWaitsUntilTheOtherProcessEnds) {
    testkit::TempHome home;
    Holder holder(300);
    auto start = Clock::now();
    EXPECT_NE(cl_BlockedGetConfigLock(), 0);
    EXPECT_GE(seconds_since(start), 0.25);
    EXPECT_EQ(cl_TestConfigLock(), 1);
    cl_FreeConfigLock();
}

TEST(ConfigLock, TraceIds) {
    testkit::TempHome home;
    testkit::TraceCapture traces;
    ASSERT_LE(er_SubSystemLoggingLevel, 9);
    cl_GetConfigLock();
    cl_TestConfigLock();
    cl_FreeConfigLock();
    cl_BlockedGetConfigLock();
    EXPECT_NE(cl_WaitForConfigLock(1), 0);
    cl_GetCfgLock();
    cl_FreeConfigLock();
    const std::vector<testkit::TraceRecord> expected = {
        {17, "cl_GetConfigLock", 1},        {17, "cl_GetConfigLock", 0},        {17, "cl_TestConfigLock", 1},
        {17, "cl_TestConfigLock", 0},       {17, "cl_FreeConfigLock", 1},       {17, "cl_FreeConfigLock", 0},
        {17, "cl_BlockedGetConfigLock", 1}, {17, "cl_BlockedGetConfigLock", 0},
        // the wait (21) and the take-or-fail (19) trace only above level 9
        {17, "cl_BlockedGetConfigLock", 1}, {17, "cl_BlockedGetConfigLock", 0}, {17, "cl_TestConfigLock", 1},
        {17, "cl_TestConfigLock", 0},       {17, "cl_BlockedGetConfigLock", 1}, {17, "cl_BlockedGetConfigLock", 0},
        {17, "cl_TestConfigLock", 1},       {17, "cl_TestConfigLock", 0},       {17, "cl_FreeConfigLock", 1},
        {17, "cl_FreeConfigLock", 0},
    };
    EXPECT_EQ(traces.records(), expected);
}

TEST(BoundedWait, TimesOutAndPutsTheCallersAlarmAndHandlerBack) {
    testkit::TempHome home;
    Holder holder;
    CallerAlarm caller(100);
    const int fds = testkit::open_fd_count();
    auto start = Clock::now();
    EXPECT_EQ(cl_WaitForConfigLock(2), 0);
    const double waited = seconds_since(start);
    EXPECT_GE(waited, 1.9);
    EXPECT_LT(waited, 3.5);
    EXPECT_EQ(er_GetLive(), 0) << "the time-out is not an error of the wait";
    EXPECT_EQ(current_alarm_handler(), &on_alarm);
    const unsigned left = alarm(0);
    EXPECT_GE(left, 98u);
    EXPECT_LE(left, 100u);
    EXPECT_EQ(testkit::open_fd_count(), fds) << "the interrupted take leaves no descriptor open";

    // A second bounded wait times out too: the signal was left unblocked.
    EXPECT_EQ(cl_WaitForConfigLock(1), 0);
    EXPECT_EQ(current_alarm_handler(), &on_alarm);
}

TEST(BoundedWait, FreeLockIsTakenAtOnceAndTheAlarmCancelled) {
    testkit::TempHome home;
    const ext_SigHandler before = current_alarm_handler();
    auto start = Clock::now();
    EXPECT_NE(cl_WaitForConfigLock(5), 0);
    EXPECT_LT(seconds_since(start), 1.0);
    EXPECT_EQ(alarm(0), 0u) << "no alarm left running";
    EXPECT_EQ(current_alarm_handler(), before);
    cl_FreeConfigLock();
}

TEST(BoundedWait, ZeroOrLessWaitsWithoutLimitAndTouchesNoAlarm) {
    testkit::TempHome home;
    for (int seconds : {0, -3}) {
        Holder holder(400);
        CallerAlarm caller(50);
        auto start = Clock::now();
        EXPECT_NE(cl_WaitForConfigLock(seconds), 0);
        EXPECT_GE(seconds_since(start), 0.35);
        EXPECT_EQ(current_alarm_handler(), &on_alarm);
        const unsigned left = alarm(0);
        EXPECT_GE(left, 49u);
        EXPECT_LE(left, 50u);
        cl_FreeConfigLock();
    }
}

TEST(BoundedWait, ALockFailureReachesTheCallerAs2601AfterTheAlarmIsBack) {
    testkit::TempHome home;
    // This process holds lock 1; the child holds lock 0 and waits for lock 1.
    // Our wait for lock 0 would close the circle: the lock library refuses it.
    ASSERT_NE(gen_GetLock(1, 6), 0);
    Holder holder(-1, 0, 1);
    usleep(300 * 1000);  // let the child block on lock 1
    CallerAlarm caller(100);
    auto out = run([] { cl_WaitForConfigLock(5); });
    EXPECT_TRUE(out.is(100, 2601)) << out.group << "/" << out.reason;
    EXPECT_EQ(current_alarm_handler(), &on_alarm);
    const unsigned left = alarm(0);
    EXPECT_GE(left, 99u);
    gen_FreeLock(1);
    EXPECT_EQ(holder.release(), 0);
}

TEST(TakeOrFail, StaysLockedGives8001ThroughTheShortWaitSeam) {
    testkit::TempHome home;
    Holder holder;
    setenv("CL_CFGLOCK_WAIT", "1", 1);
    auto start = Clock::now();
    auto out = run([] { cl_GetCfgLock(); });
    unsetenv("CL_CFGLOCK_WAIT");
    EXPECT_TRUE(out.is(100, 8001));
    EXPECT_GE(seconds_since(start), 0.9);
    EXPECT_LT(seconds_since(start), 3.0);
    holder.release();

    auto taken = run([] { cl_GetCfgLock(); });
    EXPECT_FALSE(taken.escaped);
    EXPECT_EQ(cl_TestConfigLock(), 1);
    cl_FreeConfigLock();
}

}  // namespace
