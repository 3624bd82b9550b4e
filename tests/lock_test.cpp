// The configuration lock between real processes: takes that fail or wait,
// the bounded wait on SIGALRM, and what the caller's alarm looks like after.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

#include "ext.h"
#include "gen.h"
#include "testkit.hpp"

namespace {


double seconds_since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// A child process that holds the configuration lock for hold_ms, or until
// ended (which releases it); the parent goes on once the child holds it.
// Tests end every holder they start, so nothing here may ASSERT.
pid_t holder(int hold_ms = -1) {
    int ready[2];
    EXPECT_EQ(pipe(ready), 0);
    const pid_t pid = fork();
    if (pid == 0) {
        gen_GetLock(0, 6);  // an escape ends the child before it answers
        if (write(ready[1], "H", 1) != 1 || hold_ms < 0) pause();
        usleep(static_cast<useconds_t>(hold_ms) * 1000);
        _exit(0);
    }
    char answer = 0;
    close(ready[1]);
    EXPECT_EQ(read(ready[0], &answer, 1), 1) << "the holder could not take the lock";
    close(ready[0]);
    return pid;
}
void end(pid_t holder) { kill(holder, SIGKILL), waitpid(holder, nullptr, 0); }

// Runs f with SIGALRM set to end it by an escape (100/4637) after 3 s: a
// take that waits where it must fail shows as that escape, not as a hang.
testkit::Outcome within_3s(void (*f)()) {
    const ext_SigHandler before = ext_signal(SIGALRM, cl_AlarmTrap);
    alarm(3);
    const testkit::Outcome out = testkit::run(f);
    alarm(0), ext_signal(SIGALRM, before);
    return out;
}

// The caller's own alarm and handler; caller_back() tells whether both are
// as they were, the alarm at `left` seconds or one less.
void on_alarm(int) {}
volatile sig_atomic_t g_rang = 0;
void count_alarm(int) { g_rang = g_rang + 1; }
void arm_caller(unsigned seconds) { ext_signal(SIGALRM, on_alarm), alarm(seconds); }
bool caller_back(unsigned left) {
    const unsigned remaining = alarm(left);
    return ext_signal(SIGALRM, on_alarm) == on_alarm && remaining <= left && remaining + 1 >= left;
}

TEST(ConfigLock, TakeTestAndFreeWithTheLockFileMode0660AndAnotherProcessHoldingIt) {
    testkit::TempHome home;
    const mode_t before = umask(0);
    EXPECT_TRUE(cl_TestConfigLock() == 0 && testkit::run([] { cl_FreeConfigLock(); }).is(100, 2602));
    EXPECT_NE(cl_GetConfigLock(), 0);
    umask(before);
    EXPECT_TRUE(cl_GetConfigLock() != 0 && cl_TestConfigLock() == 1) << "a second take by the holder succeeds";
    struct stat st {};
    EXPECT_EQ(stat(home.file("sys/.lock0").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0660u);
    cl_FreeConfigLock();

    pid_t other = holder();
    EXPECT_TRUE(within_3s([] { cl_GetConfigLock(); }).is(100, 2601)) << "a take that must not wait";
    EXPECT_EQ(cl_TestConfigLock(), 0);
    // Taking or failing: the standard wait (shortened to 1 s here) ends in 100/8001.
    setenv("CL_CFGLOCK_WAIT", "1", 1);
    auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(testkit::run([] { cl_GetCfgLock(); }).is(100, 8001));
    EXPECT_TRUE(seconds_since(start) >= 0.9 && seconds_since(start) < 3.0) << seconds_since(start);
    unsetenv("CL_CFGLOCK_WAIT");
    end(other);
    EXPECT_NE(cl_GetConfigLock(), 0) << "a process that ends releases the lock";
    cl_FreeConfigLock();

    other = holder(300);
    start = std::chrono::steady_clock::now();
    EXPECT_FALSE(within_3s([] { cl_BlockedGetConfigLock(); }).escaped);
    EXPECT_GE(seconds_since(start), 0.25);
    EXPECT_EQ(cl_TestConfigLock(), 1);
    cl_FreeConfigLock();
    end(other);
}

TEST(BoundedWait, TimesOutOrTakesAndPutsTheCallersAlarmAndHandlerBack) {
    testkit::TempHome home;
    const pid_t other = holder();
    arm_caller(100);
    const int fds = testkit::open_fd_count();
    for (int round = 0; round < 2; ++round) {  // the second times out too: the signal was left unblocked
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(cl_WaitForConfigLock(1), 0);
        EXPECT_TRUE(seconds_since(begin) >= 0.9 && seconds_since(begin) < 2.5) << seconds_since(begin);
        EXPECT_EQ(er_GetLive(), 0) << "the time-out is not an error of the wait";
        EXPECT_TRUE(caller_back(100));
    }
    EXPECT_EQ(testkit::open_fd_count(), fds) << "the interrupted take leaves no descriptor open";
    end(other);
    // Zero seconds (or less) waits without limit and touches no alarm: the
    // caller's own alarm rings during the wait.
    const pid_t slow = holder(1500);
    g_rang = 0;
    ext_signal(SIGALRM, count_alarm), alarm(1);
    EXPECT_NE(cl_WaitForConfigLock(0), 0);
    EXPECT_EQ(g_rang, 1) << "the caller's alarm rang while the wait went on";
    waitpid(slow, nullptr, 0);
    cl_FreeConfigLock();
    arm_caller(100);
    EXPECT_NE(cl_WaitForConfigLock(-1), 0);
    EXPECT_TRUE(caller_back(100));
    cl_FreeConfigLock();
    alarm(0), ext_signal(SIGALRM, SIG_DFL);
    // A free lock is taken at once; the alarm is cancelled, the handler back.
    EXPECT_NE(cl_WaitForConfigLock(5), 0);
    EXPECT_EQ(alarm(0), 0u);
    EXPECT_EQ(ext_signal(SIGALRM, SIG_DFL), SIG_DFL);
    cl_FreeConfigLock();
    // A take that fails reaches the caller after the alarm is back.
    unlink(home.file("sys/.lock0").c_str());
    mkdir(home.file("sys/.lock0").c_str(), 0700);  // the lock file cannot be opened
    arm_caller(100);
    EXPECT_TRUE(testkit::run([] { cl_WaitForConfigLock(5); }).is(1, EISDIR));
    EXPECT_TRUE(caller_back(100));
    alarm(0), ext_signal(SIGALRM, SIG_DFL);
}

}  // namespace
