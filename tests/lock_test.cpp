// The configuration lock between real processes: takes that fail or wait,
// the bounded wait on SIGALRM, and what the caller's alarm looks like after.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

#include "ext.h"
#include "gen.h"
#include "testkit.hpp"

namespace {

using testkit::run;

double seconds_since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// A child process that holds the configuration lock for hold_ms (or until
// released; ending releases it). The parent goes on once the child holds it.
struct Holder {
    pid_t pid;
    explicit Holder(int hold_ms = -1) {
        int ready[2];
        EXPECT_EQ(pipe(ready), 0);
        pid = fork();
        if (pid == 0) {
            gen_GetLock(0, 6);  // an escape ends the child before it answers
            if (write(ready[1], "H", 1) != 1 || hold_ms < 0) pause();
            usleep(static_cast<useconds_t>(hold_ms) * 1000);
            _exit(0);
        }
        close(ready[1]);
        char answer = 0;
        EXPECT_EQ(read(ready[0], &answer, 1), 1) << "the holder could not take the lock";
        close(ready[0]);
    }
    ~Holder() { release(); }
    void release() {
        if (pid > 0) kill(pid, SIGKILL), waitpid(pid, nullptr, 0);
        pid = -1;
    }
};

// Runs f with SIGALRM set to end it by an escape (100/4637) after 3 s: a
// take that waits where it must fail shows as that escape, not as a hang.
testkit::Outcome within_3s(void (*f)()) {
    const ext_SigHandler before = ext_signal(SIGALRM, cl_AlarmTrap);
    alarm(3);
    const testkit::Outcome out = run(f);
    alarm(0);
    ext_signal(SIGALRM, before);
    return out;
}

void on_alarm(int) {}

// The caller's own alarm and handler; back() tells whether both are as they
// were, with the alarm at `left` seconds or one less.
struct CallerAlarm {
    struct sigaction before {};
    explicit CallerAlarm(unsigned seconds) {
        struct sigaction mine {};
        mine.sa_handler = on_alarm;
        sigaction(SIGALRM, &mine, &before);
        alarm(seconds);
    }
    ~CallerAlarm() { alarm(0), sigaction(SIGALRM, &before, nullptr); }
    static bool back(unsigned left) {
        struct sigaction now {};
        sigaction(SIGALRM, nullptr, &now);
        const unsigned remaining = alarm(left);
        return now.sa_handler == on_alarm && remaining <= left && remaining + 1 >= left;
    }
};

TEST(ConfigLock, TakeTestAndFreeInOneProcessWithTheLockFileMode0660) {
    testkit::TempHome home;
    const mode_t before = umask(0);
    EXPECT_EQ(cl_TestConfigLock(), 0);
    EXPECT_TRUE(run([] { cl_FreeConfigLock(); }).is(100, 2602));
    EXPECT_NE(cl_GetConfigLock(), 0);
    umask(before);
    EXPECT_NE(cl_GetConfigLock(), 0) << "a second take by the holder succeeds";
    EXPECT_EQ(cl_TestConfigLock(), 1);
    struct stat st {};
    EXPECT_EQ(stat(home.file("sys/.lock0").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0660u);
    cl_FreeConfigLock();
    EXPECT_EQ(cl_TestConfigLock(), 0);
}

TEST(ConfigLock, AnotherProcessHoldingItMakesTheTakeFailOrWait) {
    testkit::TempHome home;
    Holder holder;
    EXPECT_TRUE(within_3s([] { cl_GetConfigLock(); }).is(100, 2601)) << "a take that must not wait";
    EXPECT_EQ(cl_TestConfigLock(), 0);
    holder.release();
    EXPECT_NE(cl_GetConfigLock(), 0) << "a process that ends releases the lock";
    // A forked child does not hold its parent's lock, nor can it take or free it.
    const pid_t pid = fork();
    if (pid == 0)
        _exit(cl_TestConfigLock() == 0 && within_3s([] { cl_GetConfigLock(); }).is(100, 2601) &&
              run([] { cl_FreeConfigLock(); }).is(100, 2602) ? 0 : 1);
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(cl_TestConfigLock(), 1) << "the child's attempts leave the parent's lock alone";
    cl_FreeConfigLock();

    Holder brief(300);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(within_3s([] { cl_BlockedGetConfigLock(); }).escaped);
    EXPECT_GE(seconds_since(start), 0.25);
    EXPECT_EQ(cl_TestConfigLock(), 1);
    cl_FreeConfigLock();
}

TEST(BoundedWait, TimesOutOrTakesAndPutsTheCallersAlarmAndHandlerBack) {
    testkit::TempHome home;
    {
        Holder holder;
        CallerAlarm caller(100);
        const int fds = testkit::open_fd_count();
        for (int round = 0; round < 2; ++round) {  // the second times out too: the signal was left unblocked
            const auto start = std::chrono::steady_clock::now();
            EXPECT_EQ(cl_WaitForConfigLock(1), 0);
            EXPECT_GE(seconds_since(start), 0.9);
            EXPECT_LT(seconds_since(start), 2.5);
            EXPECT_EQ(er_GetLive(), 0) << "the time-out is not an error of the wait";
            EXPECT_TRUE(CallerAlarm::back(100));
        }
        EXPECT_EQ(testkit::open_fd_count(), fds) << "the interrupted take leaves no descriptor open";
    }
    // Free: taken at once, the alarm cancelled and the handler put back.
    EXPECT_NE(cl_WaitForConfigLock(5), 0);
    EXPECT_EQ(alarm(0), 0u);
    struct sigaction now {};
    sigaction(SIGALRM, nullptr, &now);
    EXPECT_EQ(now.sa_handler, SIG_DFL);
    cl_FreeConfigLock();
    // Zero or less waits without limit and touches no alarm.
    for (int seconds : {0, -3}) {
        Holder holder(400);
        CallerAlarm caller(50);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_NE(cl_WaitForConfigLock(seconds), 0);
        EXPECT_GE(seconds_since(start), 0.35);
        EXPECT_TRUE(CallerAlarm::back(50));
        cl_FreeConfigLock();
    }
    // A take that fails reaches the caller after the alarm is back.
    unlink(home.file("sys/.lock0").c_str());
    mkdir(home.file("sys/.lock0").c_str(), 0700);  // the lock file cannot be opened
    CallerAlarm caller(100);
    EXPECT_TRUE(run([] { cl_WaitForConfigLock(5); }).is(1, EISDIR));
    EXPECT_TRUE(CallerAlarm::back(100));
}

TEST(TakeOrFail, StaysLockedGives8001ThroughTheShortWaitSeam) {
    testkit::TempHome home;
    Holder holder;
    setenv("CL_CFGLOCK_WAIT", "1", 1);
    const auto start = std::chrono::steady_clock::now();
    const testkit::Outcome out = run([] { cl_GetCfgLock(); });
    unsetenv("CL_CFGLOCK_WAIT");
    EXPECT_TRUE(out.is(100, 8001));
    EXPECT_GE(seconds_since(start), 0.9);
    EXPECT_LT(seconds_since(start), 3.0);
    holder.release();
    EXPECT_FALSE(run([] { cl_GetCfgLock(); }).escaped);
    EXPECT_EQ(cl_TestConfigLock(), 1);
    cl_FreeConfigLock();
}

}  // namespace
