// Escapes and protected blocks, the error library's event log and character
// set name, and the display of a pending escape with the program's exit
// status.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "frame.hpp"
#include "testkit.hpp"

namespace {

constexpr const char kSourceFile[] = "tests/errors_test";
using namespace testing::internal;  // CaptureStderr, GetCapturedStderr

TEST(ErrorLibrary, EventLogAndCharacterSetName) {
    testkit::TempHome home;
    testkit::LogCapture capture;
    er_LogMsg(7, 100, 4630, "prog -a x\\y", 0);
    er_LogT61Msg(5, 102, 1, "two\nlines\x7F", 0);
    // Each line starts with a time stamp like 2026-11-22T10:00:00Z.
    const std::string log = home.read("log/events");
    const std::size_t second = log.find('\n') + 1;
    EXPECT_EQ(log[19], 'Z');
    EXPECT_EQ(log.substr(20, second - 20), " L7 100/4630 prog -a x\\x5Cy\n");
    EXPECT_EQ(log.substr(second + 20), " L5 102/1 T61 two\\x0Alines\\x7F\n");
    ASSERT_EQ(capture.records().size(), 2u);
    EXPECT_EQ(capture.records()[0].t61 * 10 + capture.records()[1].t61, 1);
    EXPECT_EQ(capture.records()[1].text, "two\nlines\x7F");
    setenv("QX_HOME", "/proc/no-such-home", 1);  // an unwritable log is skipped; the hook sees the message
    er_LogMsg(7, 100, 4630, "still seen", 0);
    EXPECT_EQ(capture.records().back().text, "still seen");

    const std::string before = er_GetCSStr();
    er_SetCSStr("ISO8859-1");
    EXPECT_STREQ(er_GetCSStr(), "ISO8859-1");
    er_SetCSStr(nullptr);
    EXPECT_EQ(before + " " + er_GetCSStr(), "UTF8 UTF8");
}

// What the handlers and releases of a block ran, in order.
char g_ran[8];
void ran(char c) { g_ran[std::strlen(g_ran)] = c; }
void raise_7() { CL_RAISE(100, 7); }

// The other handler kinds are seen at work in the lock, mail node file
// and start count suites.
TEST(ProtectedBlock, HandlersAndReleasesRunInOrderAndEscapesGoOn) {
    // What reaches the enclosing block (0: nothing), and what ran on the way.
    const struct { void (*block)(); int group, reason; const char *ran; } rows[] = {
        {[] { cl::protect(CL_HERE, [] {}, [] { ran('h'); }); }, 0, 0, ""},
        {[] { cl::swallow_all_block(CL_HERE, [] { CL_RAISE(3, 6015); }, [] { ran('f'); }); }, 0, 0, "f"},
        // A release that fails is forgotten: the first escape goes on.
        {[] { cl::guarded_cleanup_block(CL_HERE, [] { CL_RAISE(3, 6015); }, [] { return true; }, [] { ran('r'), CL_RAISE(1, 9); }); },
         3, 6015, "r"},
        // Nothing held: the escape is accepted (3) and nothing released.
        {[] { cl::guarded_cleanup_block(CL_HERE, [] { CL_RAISE(3, 6015); }, [] { return ran('0' + er_GetAccepted()), false; }, [] { ran('r'); }); },
         3, 6015, "3"},
        {[] { cl::pass_on_block(CL_HERE, [] { cl::pass_on_block(CL_HERE, raise_7, [] { ran('1'); }); }, [] { ran('2'); }); }, 100, 7, "12"},
    };
    sigjmp_buf *const before = er_GetCurrEnv();
    for (const auto &row : rows) {
        std::memset(g_ran, 0, sizeof g_ran);
        const testkit::Outcome out = testkit::run(row.block);
        EXPECT_TRUE((out.escaped ? out.is(row.group, row.reason) : row.group == 0) && !out.pending_after) << out.reason;
        EXPECT_STREQ(g_ran, row.ran);
        EXPECT_EQ(er_GetCurrEnv(), before);
    }
    // An escape with no protected block prints and exits with the documented status.
    EXPECT_EXIT(er_TracedEscape(100, 8013, "cl/cl_parse", 42), testing::ExitedWithCode(ER_UNHANDLED_STATUS),
                "unhandled error 100/8013 raised at cl/cl_parse:42");
    EXPECT_EXIT(cl::pass_on_block(CL_HERE, raise_7, [] {}), testing::ExitedWithCode(ER_UNHANDLED_STATUS),
                "unhandled error 100/7 raised at tests/errors_test:");
}

// The exit status and what the standard error stream got.
std::string sorted(int group, int reason) {
    er_Status pending{1, group, reason, 1, 0, kSourceFile};
    er_RestoreStatus(&pending);
    CaptureStderr();
    const int status = cl_SortAllErrors("prog");
    EXPECT_EQ(er_GetLive(), 0);
    return std::to_string(status) + " " + GetCapturedStderr();
}

TEST(ErrorDisplay, EveryCodeSortedAsErrorOrUsageWithItsStatusAndTheExactLayout) {
    const struct { int group, reason; bool usage; int status; } rows[] = {
        {100, 4620, 0, 3},   {100, 4621, 0, 100}, {100, 4640, 0, 100}, {100, 4681, 1, 2},   {100, 4704, 0, 2},
        {100, 4705, 0, 2},   {100, 4709, 1, 2},   {100, 4722, 1, 2},   {100, 4728, 1, 2},   {100, 4738, 1, 2},
        {100, 4751, 1, 2},   {100, 4752, 1, 2},   {100, 6031, 0, 1},   {100, 8001, 0, 3},   {100, 4623, 0, 103},
        {100, 2601, 0, 103}, {100, 1, 0, 103},    {102, 1600, 1, 2},   {102, 1609, 1, 2},   {102, 1603, 0, 100},
        {102, 1605, 0, 100}, {102, 1606, 0, 100}, {102, 1611, 0, 100}, {102, 1612, 0, 100}, {102, 1613, 0, 100},
        {102, 1615, 0, 105}, {102, 1420, 0, 103}, {3, 5801, 0, 3},     {3, 5803, 0, 106},   {3, 5804, 0, 107},
        {3, 6015, 0, 103},   {3, 5802, 0, 103},
    };
    for (const auto &row : rows) {
        const std::string code = std::to_string(row.group) + "-" + std::to_string(row.reason);
        const std::string start = std::to_string(row.status) + (row.usage ? " usage: prog" : " prog : E" + code + " ");
        EXPECT_EQ(sorted(row.group, row.reason).substr(0, start.size()), start);
    }
    EXPECT_EQ(sorted(100, 8001), "3 prog : E100-8001 The configuration stayed locked by another program; try again later.\n\n");
    // Other groups: no prefix, status 100; a system error names its file.
    er_SetLogInfo(1, "/srv/home/sys/config");
    EXPECT_EQ(sorted(1, EACCES), "100 prog : Permission denied.\n\n  File: /srv/home/sys/config\n");
    EXPECT_EQ(sorted(1, EACCES), "100 prog : Permission denied.\n\n") << "the information went with the last escape";
    er_SetLogInfo(1, "/not/shown");
    for (int group : {5, 0, 101})
        EXPECT_EQ(sorted(group, 7), "100 prog : Error " + std::to_string(group) + "/7 (no text in the catalogue).\n\n");

    // The layout of each display, exactly.
    const struct { void (*show)(); const char *text; } shown[] = {
        {[] { cl_DisplayError(100, 4624, "prog", nullptr); }, "prog : E100-4624 The configuration file is too short.\n\n"},
        {[] { cl_DisplayError(100, 4624, "prog", "x"); }, "prog : E100-4624 The configuration file is too short.\n  x\n"},
        // A text ending in one newline gets one more; its "%s" stays.
        {[] { cl_DisplayUsage(100, 4709, "50%s"); }, "usage: 50%s 'Given Surname/Unit,Unit'\n"},
        {[] { cl_DisplayUsage(100, 4681, "qx"); },
         "usage: qx NAME [ARGUMENT...]\n  qx runs the administrative program NAME as its link would;\n  qx --help lists the names.\n"},
        {[] { cl_DisplayUsage(100, 2101, "%d"); }, "  File: %d\n"},
    };
    for (const auto &row : shown) {
        CaptureStderr(), row.show();
        EXPECT_EQ(GetCapturedStderr(), row.text);
    }
}

}  // namespace
