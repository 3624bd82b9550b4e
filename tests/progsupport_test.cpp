// What the programs share: the command line in the event log and the
// command file, one program file under several names, the installation
// check, and the system start count and date.
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "os.h"
#include "testkit.hpp"

namespace {

using namespace testing::internal;  // CaptureStderr, GetCapturedStderr

// The text a call logged, with "T61 " before a converted one.
std::string logged(std::vector<std::string> args, const char *charset = nullptr) {
    const std::vector<std::string> given = args;  // the functions only read them
    std::vector<char *> argv(args.size() + 1, nullptr);
    for (std::size_t i = 0; i < args.size(); ++i) argv[i] = args[i].data();
    testkit::LogCapture log;
    charset ? cl_LogO61CommandLine(argv.data(), charset, 0) : cl_LogCommandLine(argv.data());
    EXPECT_EQ(args, given);
    for (const testkit::LogRecord &r : log.records())
        if (log.records().size() == 1 && r.level == 7 && r.group == 100 && r.reason == 4630) return (r.t61 ? "T61 " : "") + r.text;
    return "not one record of level 7, 100/4630";
}

TEST(CommandLine, LoggedJoinedBySingleSpacesAndCutAt8091AndWrittenToTheCommandFile) {
    const std::string a(4045, 'a'), b(4044, 'b'), k(5000, 'k'), s(9000, 's'), w(8090, 'w');
    const struct { std::vector<std::string> args; const char *charset; std::string text; } rows[] = {
        {{"prog", "-a", "x y"}, nullptr, "prog -a x y"}, {{}, nullptr, ""}, {{"", "", "a"}, nullptr, "  a"}, {{s}, nullptr, s.substr(0, 8091)},
        {{a, b, "tail", "more"}, nullptr, a + " " + b + " "},  // cut just after a separating space
        {{b, b, "tail"}, nullptr, b + " " + b + " t"}, {{a, k, "more"}, nullptr, a + " " + k.substr(0, 8091 - 4046)},
        {{"prog", "Jos\xC3\xA9", "caf\xC3\xA9 au lait"}, "ISO8859-1", "T61 prog Jos\xE9 caf\xE9 au lait"},
        {{w, "\xC3\xA9"}, "UTF8", "T61 " + w + " "},  // a character is not cut in two
    };
    for (const auto &row : rows) EXPECT_TRUE(logged(row.args, row.charset) == row.text) << row.text.substr(0, 20);

    // The command file: created, then one record appended per call.
    testkit::TempHome home;
    for (const char *text : {"first line", "two\nlines", ""}) cl_UpdateCommandFile(text, home.file("commands").c_str());
    EXPECT_EQ(home.read("commands"), "first line\ntwo\nlines\n\n");
    cl_UpdateCommandFile("in the home", "~/sys/cmdfile");
    EXPECT_EQ(home.read("sys/cmdfile"), "in the home\n");
}

int p1(int argc, char **argv) { return argc == 2 && std::strcmp(argv[1], "arg") == 0 ? 11 : 1; }
int p2(int argc, char **argv) { return argc == 2 && std::strcmp(argv[1], "arg") == 0 ? 22 : 2; }

TEST(CallProc, RunsTheProcedureOfTheInvokedBaseNameOrListsTheNamesAndTheInstallCheck) {
    const std::string a(30, 'a'), b(30, 'b'), c(30, 'c'), d(10, 'd'), e(5, 'e'), f(74, 'f'), g(2, 'g');
    const std::vector<cl_ProcEntry> two = {{"ls1", p1}, {"ls2", p2}, {}}, star = {{"ls1", p1}, {"*", p2}, {"never", p1}, {}},
        none = {{"ignored", nullptr}}, edge = {{f.c_str(), p1}, {g.c_str(), p1}, {"h", p1}, {}},
        wide = {{a.c_str(), p1}, {b.c_str(), p1}, {c.c_str(), p1}, {d.c_str(), p1}, {e.c_str(), p1}, {}};
    // The result, then what the standard error stream got.
    const struct { const std::vector<cl_ProcEntry> &table; std::string invoked, out; } rows[] = {
        {two, "/usr/bin/ls2", "22 "}, {two, "ls1", "11 "}, {two, "xyz", "-1 ls1, ls2?\n"}, {two, "LS1", "-1 ls1, ls2?\n"},
        {two, "/usr/bin/ls2/", "-1 ls1, ls2?\n"},  // the base name is after the last '/'
        {star, "ls1", "11 "}, {star, "never", "22 "}, {none, "x", "-1 ?\n"},  // '*' takes every other name
        // Lines wrap within 79 columns: "a, b," ends at 63 and c would end at 93.
        {wide, "x", "-1 " + a + ", " + b + ",\n" + c + ", " + d + ", " + e + "?\n"},
        {edge, "x", "-1 " + f + ", " + g + ",\nh?\n"},  // "f, g," reaches column 79 exactly
    };
    for (auto row : rows) {
        char arg[] = "arg";
        char *argv[] = {row.invoked.data(), arg, nullptr};
        CaptureStderr();
        const int result = cl_CallProc(row.table.data(), 2, argv);
        EXPECT_EQ(std::to_string(result) + " " + GetCapturedStderr(), row.out) << row.invoked;
    }

    // Marker files "*.inst" in ~/sys/install tell an incomplete installation.
    testkit::TempHome home;
    const int fds = testkit::open_fd_count();
    EXPECT_EQ(cl_IsEveryThingInstalled(), 1) << "no directory: nothing marks an incomplete installation";
    mkdir(home.file("sys/install").c_str(), 0770);
    for (const char *name : {"readme", "x.inst.old", "inst", ".insta", "a.Inst"}) home.write(std::string("sys/install/") + name, "");
    EXPECT_EQ(cl_IsEveryThingInstalled(), 1);
    home.write("sys/install/base.inst", "");
    EXPECT_EQ(cl_IsEveryThingInstalled(), 0);
    EXPECT_EQ(testkit::open_fd_count(), fds);
    EXPECT_EQ(os_USPatternMatch("abc", "a*c"), 0) << "0x1F is the only wildcard";
}

// A directory that opens but cannot be read: the map_files directory of
// another process, to a process without capabilities. An escape while the
// install directory is read must close it.
TEST(InstallCheck, AnUnreadableDirectoryEscapesWithItClosed) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root, to drop the capabilities that would allow the read";
    testkit::TempHome home;
    const std::string other = "/proc/" + std::to_string(getpid()) + "/map_files";
    ASSERT_EQ(symlink(other.c_str(), home.file("sys/install").c_str()), 0);
    const pid_t child = fork();
    if (child == 0) {
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct none[2] = {};
        const int fds = testkit::open_fd_count();
        _exit(syscall(SYS_capset, &header, none) != 0                      ? 1
              : !testkit::run([] { cl_IsEveryThingInstalled(); }).is(1, EACCES) ? 2
              : testkit::open_fd_count() != fds                         ? 3 : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0) << "1: no capabilities to drop, 2: no escape, 3: the directory left open";
}

// The count at offset 40, the date at 44; every other byte 0xEE.
std::string sysdata(uint32_t count, int32_t date, std::size_t size = 60) {
    std::string bytes(64, '\xEE');
    std::memcpy(&bytes[40], &count, 4), std::memcpy(&bytes[44], &date, 4);
    return bytes.substr(0, size);
}

TEST(StartCount, ExactBytesWrappingAndCachesThatKeepTheFirstNonZeroRead) {
    testkit::TempHome home;
    home.write("sys/sysdata", sysdata(7, 1000));
    const auto before = static_cast<int32_t>(std::time(nullptr));
    cl_IncSystemStartCount();
    const std::string bytes = home.read("sys/sysdata");
    int32_t date = 0;
    std::memcpy(&date, bytes.data() + 44, 4);
    EXPECT_TRUE(date >= before && date <= static_cast<int32_t>(std::time(nullptr))) << date;
    EXPECT_EQ(bytes, sysdata(8, date)) << "no other byte is touched";
    home.write("sys/sysdata", sysdata(4294967295u, 0, 44));
    cl_IncSystemStartCount();
    EXPECT_EQ(home.read("sys/sysdata").substr(0, 44), sysdata(0, 0, 44)) << "the count wraps";
    EXPECT_EQ(home.read("sys/sysdata").size(), 48u) << "the date extends the file";

    // The caches are those of this test's process, where nothing read the
    // start count before (CTest runs every test in a process of its own).
    const int fds = testkit::open_fd_count();
    home.write("sys/sysdata", sysdata(0, 0, 46));  // the count fits, the date not
    EXPECT_TRUE(testkit::run([] { cl_GetSystemStartDate(); }).is(3, 6015));
    EXPECT_EQ(cl_GetSystemStartCount(), 0u);
    home.write("sys/sysdata", sysdata(3, 33, 42));
    EXPECT_TRUE(testkit::run([] { cl_IncSystemStartCount(); }).is(3, 6015));
    EXPECT_EQ(home.read("sys/sysdata"), sysdata(3, 33, 42));
    EXPECT_EQ(testkit::open_fd_count(), fds);
    home.write("sys/sysdata", sysdata(5, 77));  // neither a stored 0 nor a failure was cached
    EXPECT_EQ(cl_GetSystemStartCount() + cl_GetSystemStartDate(), 5u + 77);
    home.write("sys/sysdata", sysdata(9, 99));
    cl_IncSystemStartCount();
    EXPECT_EQ(cl_GetSystemStartCount() + cl_GetSystemStartDate(), 5u + 77) << "read once for the process";
}

}  // namespace
