// The error library's outputs: the trace file, the event log and the log
// information slot.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "testkit.hpp"

namespace {

std::string slurp(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

// The trace file is opened once per process: exercise it in a child.
TEST(TraceFile, RecordsEntryExitEscapeAndPassInOrder) {
    testkit::TempHome home;
    std::string path = home.file("trace");
    pid_t pid = fork();
    if (pid == 0) {
        setenv("QX_TRACE_FILE", path.c_str(), 1);
        er_RealLogProc(17, "cl_Example", 1);
        er_RealLogProc(17, "cl_Example", 0);
        testkit::run([] { er_TracedEscape(100, 2601, "cl/cl_GetCfg", 12); });
        _exit(0);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(slurp(path), "ENTER 17 cl_Example\nEXIT 17 cl_Example\nESCAPE 100/2601 at cl/cl_GetCfg:12\n");
}

TEST(TraceFile, SilentWhenUnset) {
    testkit::TempHome home;
    unsetenv("QX_TRACE_FILE");
    er_RealLogProc(17, "cl_Example", 1);  // must not fail or write anywhere
    struct stat st {};
    EXPECT_NE(stat(home.file("log").c_str(), &st), 0);
}

TEST(EventLog, OneLinePerMessageWithLevelCodeAndEscapedText) {
    testkit::TempHome home;
    testkit::LogCapture capture;
    er_LogMsg(7, 100, 4630, "prog -a x y", 0);
    er_LogT61Msg(7, 100, 4630, "two\nlines", 0);
    std::string log = home.read("log/events");
    std::istringstream lines(log);
    std::string first, second, extra;
    ASSERT_TRUE(std::getline(lines, first));
    ASSERT_TRUE(std::getline(lines, second));
    EXPECT_FALSE(std::getline(lines, extra));
    // 2026-11-22T10:00:00Z is 20 characters, then the rest.
    ASSERT_GT(first.size(), 21u);
    EXPECT_EQ(first[19], 'Z');
    EXPECT_EQ(first.substr(20), " L7 100/4630 prog -a x y");
    EXPECT_EQ(second.substr(20), " L7 100/4630 T61 two\\x0Alines");
    ASSERT_EQ(capture.records().size(), 2u);
    EXPECT_EQ(capture.records()[1].text, "two\nlines");
    EXPECT_EQ(capture.records()[1].t61, 1);
    EXPECT_EQ(capture.records()[0].t61, 0);
}

TEST(EventLog, AnUnwritableLogIsSkippedButTheHookSeesTheMessage) {
    setenv("QX_HOME", "/proc/no-such-home", 1);
    testkit::LogCapture capture;
    er_LogMsg(7, 100, 4630, "still seen", 0);
    ASSERT_EQ(capture.records().size(), 1u);
    EXPECT_EQ(capture.records()[0].text, "still seen");
    unsetenv("QX_HOME");
}

TEST(LogInfo, HoldsTheLastObjectBoundedAndIsEmptiedByTidyUp) {
    char buf[200];
    er_SetLogInfo(1, "/srv/qx/sys/config");
    er_GetLogInfo(1, buf, 0);
    EXPECT_STREQ(buf, "/srv/qx/sys/config");
    std::string longer(500, 'x');
    er_SetLogInfo(1, longer.c_str());
    er_GetLogInfo(1, buf, 0);
    EXPECT_EQ(std::string(buf), std::string(199, 'x'));
    er_TidyUp();
    er_GetLogInfo(1, buf, 0);
    EXPECT_STREQ(buf, "");
}

TEST(CharsetName, Utf8UnlessSet) {
    EXPECT_STREQ(er_GetCSStr(), "UTF8");
    er_SetCSStr("ISO8859-1");
    EXPECT_STREQ(er_GetCSStr(), "ISO8859-1");
    er_SetCSStr(nullptr);
    EXPECT_STREQ(er_GetCSStr(), "UTF8");
}

}  // namespace
