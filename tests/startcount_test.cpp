// The system start count and date: exact bytes of the file, the caches of
// a process, and two processes counting.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "testkit.hpp"

namespace {

using testkit::run;

std::string sysdata(uint32_t count, int32_t date, std::size_t size = 60) {
    std::string bytes(64, '\xEE');
    std::memcpy(&bytes[40], &count, 4);
    std::memcpy(&bytes[44], &date, 4);
    return bytes.substr(0, size);
}

uint32_t count_in(const std::string &bytes) {
    uint32_t v = 0;
    std::memcpy(&v, &bytes[40], 4);
    return v;
}
int32_t date_in(const std::string &bytes) {
    int32_t v = 0;
    std::memcpy(&v, &bytes[44], 4);
    return v;
}

// The caches live for the life of a process: each case runs in a fresh
// child, which reports what it found through its exit status.
template <class F>
int in_child(F &&f) {
    std::fflush(nullptr);
    pid_t pid = fork();
    if (pid == 0) _exit(f());
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 255;
}

TEST(StartCount, CountingWritesExactBytesAndWraps) {
    testkit::TempHome home;
    home.write("sys/sysdata", sysdata(7, 1000));
    const int32_t before = static_cast<int32_t>(std::time(nullptr));
    testkit::TraceCapture traces;
    cl_IncSystemStartCount();
    EXPECT_EQ(traces.records(), (std::vector<testkit::TraceRecord>{{17, "cl_IncSystemStartCount", 1},
                                                                   {17, "cl_IncSystemStartCount", 0}}));
    std::string bytes = home.read("sys/sysdata");
    ASSERT_EQ(bytes.size(), 60u);
    EXPECT_EQ(count_in(bytes), 8u);
    EXPECT_GE(date_in(bytes), before);
    EXPECT_LE(date_in(bytes), static_cast<int32_t>(std::time(nullptr)));
    EXPECT_EQ(bytes.substr(0, 40), std::string(40, '\xEE'));
    EXPECT_EQ(bytes.substr(48), std::string(12, '\xEE')) << "no other byte is touched";

    // 44 bytes: the date extends the file to 48.
    home.write("sys/sysdata", sysdata(4294967295u, 0, 44));
    cl_IncSystemStartCount();
    bytes = home.read("sys/sysdata");
    ASSERT_EQ(bytes.size(), 48u);
    EXPECT_EQ(count_in(bytes), 0u) << "the count wraps";
}

TEST(StartCount, CachesKeepTheFirstReadForTheProcess) {
    testkit::TempHome home;
    home.write("sys/sysdata", sysdata(7, 123456));
    EXPECT_EQ(in_child([] {
                  if (cl_GetSystemStartCount() != 7 || cl_GetSystemStartDate() != 123456) return 1;
                  cl_IncSystemStartCount();
                  if (cl_GetSystemStartCount() != 7 || cl_GetSystemStartDate() != 123456) return 2;
                  return 0;
              }),
              0);
    EXPECT_EQ(count_in(home.read("sys/sysdata")), 8u);
    EXPECT_EQ(in_child([] { return cl_GetSystemStartCount() == 8 ? 0 : 1; }), 0) << "a new process reads 8";

    // A stored 0 is no cache: it is read again on every call.
    home.write("sys/sysdata", sysdata(0, 0));
    EXPECT_EQ(in_child([&] {
                  if (cl_GetSystemStartCount() != 0 || cl_GetSystemStartDate() != 0) return 1;
                  home.write("sys/sysdata", sysdata(5, 77));
                  if (cl_GetSystemStartCount() != 5 || cl_GetSystemStartDate() != 77) return 2;
                  home.write("sys/sysdata", sysdata(9, 99));
                  return cl_GetSystemStartCount() == 5 && cl_GetSystemStartDate() == 77 ? 0 : 3;
              }),
              0);
}

TEST(StartCount, ShortOrMissingFileEscapesWithTheCachesUnchangedAndNothingOpen) {
    testkit::TempHome home;
    EXPECT_EQ(in_child([&] {
                  const int fds = testkit::open_fd_count();
                  if (!run([] { cl_GetSystemStartCount(); }).is(1, ENOENT)) return 1;
                  if (!run([] { cl_GetSystemStartDate(); }).is(1, ENOENT)) return 2;
                  if (!run([] { cl_IncSystemStartCount(); }).is(1, ENOENT)) return 3;
                  home.write("sys/sysdata", sysdata(3, 33, 46));  // the count fits, the date not
                  if (!run([] { cl_GetSystemStartDate(); }).is(3, 6015)) return 4;
                  if (cl_GetSystemStartCount() != 3) return 5;
                  home.write("sys/sysdata", sysdata(3, 33, 42));
                  if (!run([] { cl_IncSystemStartCount(); }).is(3, 6015)) return 6;
                  if (home.read("sys/sysdata") != sysdata(3, 33, 42)) return 7;
                  home.write("sys/sysdata", sysdata(4, 44));
                  if (cl_GetSystemStartDate() != 44) return 8;  // the failed read left the cache empty
                  return testkit::open_fd_count() == fds ? 0 : 9;
              }),
              0);
}

TEST(StartCount, TwoProcessesCounting) {
    testkit::TempHome home;
    home.write("sys/sysdata", sysdata(100, 0));
    constexpr int kEach = 200;
    auto counter = [] {
        for (int i = 0; i < kEach; ++i)
            if (run([] { cl_IncSystemStartCount(); }).escaped) return 1;
        return 0;
    };
    pid_t other = fork();
    if (other == 0) _exit(counter());
    const int mine = counter();
    int status = 0;
    waitpid(other, &status, 0);
    EXPECT_EQ(mine, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    // Not locked: counts written at the same moment may coincide, but every
    // counted start of one process adds one, and the file stays whole.
    const std::string bytes = home.read("sys/sysdata");
    ASSERT_EQ(bytes.size(), 60u);
    EXPECT_GE(count_in(bytes), 100u + kEach);
    EXPECT_LE(count_in(bytes), 100u + 2 * kEach);
    EXPECT_GT(date_in(bytes), 0);
}

}  // namespace
