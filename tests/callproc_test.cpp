// One program file under several names, and the installation check.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "os.h"
#include "testkit.hpp"

namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

int g_argc = 0;
char **g_argv = nullptr;
int p1(int argc, char **argv) {
    g_argc = argc;
    g_argv = argv;
    return 11;
}
int p2(int argc, char **argv) {
    g_argc = argc;
    g_argv = argv;
    return 22;
}

struct Called {
    int result;
    std::string listed;
};

Called call(const std::vector<cl_ProcEntry> &table, const char *invoked) {
    char name[256];
    std::snprintf(name, sizeof name, "%s", invoked);
    char arg[] = "arg";
    char *argv[] = {name, arg, nullptr};
    g_argc = 0;
    g_argv = nullptr;
    CaptureStderr();
    int result = cl_CallProc(table.data(), 2, argv);
    Called out{result, GetCapturedStderr()};
    if (result != -1) {
        EXPECT_EQ(g_argc, 2);
        EXPECT_EQ(g_argv, argv) << "the procedure gets the same argument array";
    }
    return out;
}

TEST(CallProc, RunsTheProcedureOfTheInvokedBaseName) {
    const std::vector<cl_ProcEntry> table = {{"ls1", p1}, {"ls2", p2}, {nullptr, nullptr}};
    EXPECT_EQ(call(table, "/usr/bin/ls2").result, 22);
    EXPECT_EQ(call(table, "ls1").result, 11);
    const Called unknown = call(table, "xyz");
    EXPECT_EQ(unknown.result, -1);
    EXPECT_EQ(unknown.listed, "ls1, ls2?\n");
    EXPECT_EQ(call(table, "/usr/bin/ls2/").listed, "ls1, ls2?\n") << "the base name is after the last '/'";
    EXPECT_EQ(call(table, "LS1").result, -1) << "names compare exactly";
}

TEST(CallProc, StarTakesEveryOtherNameAndHidesWhatFollows) {
    const std::vector<cl_ProcEntry> table = {{"ls1", p1}, {"*", p2}, {"never", p1}, {nullptr, nullptr}};
    EXPECT_EQ(call(table, "ls1").result, 11);
    const Called other = call(table, "never");
    EXPECT_EQ(other.result, 22);
    EXPECT_EQ(other.listed, "");
}

TEST(CallProc, NameListWrapsWithin79Columns) {
    const std::vector<cl_ProcEntry> empty = {{"ignored", nullptr}};
    EXPECT_EQ(call(empty, "x").listed, "?\n");

    const std::string a(30, 'a'), b(30, 'b'), c(30, 'c'), d(10, 'd'), e(5, 'e');
    const std::vector<cl_ProcEntry> wide = {
        {a.c_str(), p1}, {b.c_str(), p1}, {c.c_str(), p1}, {d.c_str(), p1}, {e.c_str(), p1}, {nullptr, nullptr}};
    // a, b end at column 62; 62 + 30 + 3 > 79 wraps before c. c, d end at 42,
    // and 42 + 5 + 3 fits.
    EXPECT_EQ(call(wide, "x").listed, a + ", " + b + ",\n" + c + ", " + d + ", " + e + "?\n");

    const std::string f(74, 'f'), g(1, 'g'), h(2, 'h');
    // 74 + 1 + 3 = 78 fits; then 77 + 2 + 3 = 82 wraps.
    const std::vector<cl_ProcEntry> edge = {{f.c_str(), p1}, {g.c_str(), p1}, {h.c_str(), p1}, {nullptr, nullptr}};
    EXPECT_EQ(call(edge, "x").listed, f + ", " + g + ",\n" + h + "?\n");
}

TEST(InstallCheck, MarkerFilesEndingInDotInst) {
    testkit::TempHome home;
    const int fds = testkit::open_fd_count();
    EXPECT_EQ(cl_IsEveryThingInstalled(), 1) << "no directory: nothing marks an incomplete installation";
    mkdir(home.file("sys/install").c_str(), 0770);
    EXPECT_EQ(cl_IsEveryThingInstalled(), 1);
    for (const char *name : {"readme", "x.inst.old", "inst", ".insta", "a.Inst"}) home.write(std::string("sys/install/") + name, "");
    EXPECT_EQ(cl_IsEveryThingInstalled(), 1);
    home.write("sys/install/base.inst", "");
    EXPECT_EQ(cl_IsEveryThingInstalled(), 0);
    EXPECT_EQ(testkit::open_fd_count(), fds);
}

TEST(InstallCheck, PatternMatchWildcardIsAnyRun) {
    const struct {
        const char *name, *pattern;
        int match;
    } cases[] = {
        {"base.inst", "\x1F.inst", 1}, {".inst", "\x1F.inst", 1},    {"x.inst.old", "\x1F.inst", 0},
        {"a.inst.inst", "\x1F.inst", 1}, {"abc", "a\x1F" "c", 1},     {"ac", "a\x1F" "c", 1},
        {"abcbd", "a\x1F" "b\x1F" "d", 1}, {"abcbe", "a\x1F" "b\x1F" "d", 0}, {"", "\x1F", 1},
        {"", "", 1},                     {"a", "", 0},                 {"abc", "abc", 1},
        {"abc", "ab", 0},                {"a*c", "a*c", 1},            {"abc", "a*c", 0},
    };
    for (const auto &c : cases) EXPECT_EQ(os_USPatternMatch(c.name, c.pattern), c.match) << c.name;
}

}  // namespace
