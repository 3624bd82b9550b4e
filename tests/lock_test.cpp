// The configuration lock between real processes: takes that fail or wait,
// the bounded wait on SIGALRM, and what the caller's alarm looks like after.
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>

#include "ext.h"
#include "gen.h"
#include "testkit.hpp"

namespace {

using testkit::run;

double seconds_since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// A child process that holds the configuration lock for hold_ms (or until
// released). The parent goes on once the child holds it.
class Holder {
public:
    explicit Holder(int hold_ms = -1) {
        if (pipe(ready_) != 0 || pipe(go_) != 0) std::abort();
        pid_ = fork();
        if (pid_ == 0) {
            close(ready_[0]);
            close(go_[1]);
            char answer = run([] { gen_GetLock(0, 6); }).escaped ? 'E' : 'H';
            if (write(ready_[1], &answer, 1) != 1) _exit(3);
            pollfd go{go_[0], POLLIN, 0};
            poll(&go, 1, hold_ms);
            _exit(0);  // ending releases the lock
        }
        close(ready_[1]);
        close(go_[0]);
        char answer = 0;
        if (read(ready_[0], &answer, 1) != 1 || answer != 'H') ADD_FAILURE() << "the holder could not take the lock";
    }
    ~Holder() { release(); }
    void release() {
        if (pid_ <= 0) return;
        close(go_[1]);
        waitpid(pid_, nullptr, 0);
        close(ready_[0]);
        pid_ = -1;
    }

private:
    int ready_[2]{}, go_[2]{};
    pid_t pid_ = -1;
};

// Runs f with SIGALRM set to end it by an escape (100/4637) after 3 s: a
// take that waits where it must fail shows as that escape, not as a hang.
template <class F>
testkit::Outcome within_3s(F f) {
    const ext_SigHandler before = ext_signal(SIGALRM, cl_AlarmTrap);
    alarm(3);
    const testkit::Outcome out = run(f);
    alarm(0);
    ext_signal(SIGALRM, before);
    return out;
}

void on_alarm(int) {}

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
    // Whether the handler is still ours and the alarm has about `left` seconds.
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
    {
        Holder holder;
        EXPECT_TRUE(within_3s([] { cl_GetConfigLock(); }).is(100, 2601)) << "a take that must not wait";
        EXPECT_EQ(cl_TestConfigLock(), 0);
    }
    EXPECT_NE(cl_GetConfigLock(), 0) << "a process that ends releases the lock";
    cl_FreeConfigLock();

    Holder holder(300);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(within_3s([] { cl_BlockedGetConfigLock(); }).escaped);
    EXPECT_GE(seconds_since(start), 0.25);
    EXPECT_EQ(cl_TestConfigLock(), 1);
    cl_FreeConfigLock();
}

TEST(ConfigLock, AForkedChildDoesNotHoldItsParentsLock) {
    testkit::TempHome home;
    ASSERT_NE(cl_GetConfigLock(), 0);
    const pid_t pid = fork();
    if (pid == 0) {
        const bool free_in_child = cl_TestConfigLock() == 0 && within_3s([] { cl_GetConfigLock(); }).is(100, 2601) &&
                                   run([] { cl_FreeConfigLock(); }).is(100, 2602);
        _exit(free_in_child ? 0 : 1);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(cl_TestConfigLock(), 1) << "the child's attempts leave the parent's lock alone";
    cl_FreeConfigLock();
}

TEST(BoundedWait, TimesOutAndPutsTheCallersAlarmAndHandlerBack) {
    testkit::TempHome home;
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

TEST(BoundedWait, AFreeLockIsTakenAtOnceAndTheAlarmCancelled) {
    testkit::TempHome home;
    struct sigaction before {};
    sigaction(SIGALRM, nullptr, &before);
    EXPECT_NE(cl_WaitForConfigLock(5), 0);
    EXPECT_EQ(alarm(0), 0u) << "no alarm left running";
    struct sigaction after {};
    sigaction(SIGALRM, nullptr, &after);
    EXPECT_EQ(after.sa_handler, before.sa_handler);
    cl_FreeConfigLock();
}

TEST(BoundedWait, ZeroOrLessWaitsWithoutLimitAndTouchesNoAlarm) {
    testkit::TempHome home;
    for (int seconds : {0, -3}) {
        Holder holder(400);
        CallerAlarm caller(50);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_NE(cl_WaitForConfigLock(seconds), 0);
        EXPECT_GE(seconds_since(start), 0.35);
        EXPECT_TRUE(CallerAlarm::back(50));
        cl_FreeConfigLock();
    }
}

TEST(BoundedWait, AFailingTakeReachesTheCallerAfterTheAlarmIsBack) {
    testkit::TempHome home;
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
