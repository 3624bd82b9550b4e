// Command lines in the event log, and the command file.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>
#include <vector>

#include "testkit.hpp"

namespace {

// Argument vectors the functions may read but never change.
struct Args {
    std::vector<std::string> texts;
    std::vector<char *> pointers;
    explicit Args(std::vector<std::string> t) : texts(std::move(t)) {
        for (auto &s : texts) pointers.push_back(s.data());
        pointers.push_back(nullptr);
    }
    char **argv() { return pointers.data(); }
};

std::string logged(std::vector<std::string> texts) {
    testkit::LogCapture log;
    Args args(std::move(texts));
    cl_LogCommandLine(args.argv());
    EXPECT_EQ(log.records().size(), 1u);
    if (log.records().empty()) return "<nothing logged>";
    const testkit::LogRecord &r = log.records()[0];
    EXPECT_EQ(r.level, 7);
    EXPECT_EQ(r.group, 100);
    EXPECT_EQ(r.reason, 4630);
    EXPECT_EQ(r.t61, 0);
    return r.text;
}

TEST(LogCommandLine, ArgumentsJoinedBySingleSpacesAndCutAt8091) {
    EXPECT_EQ(logged({"prog", "-a", "x y"}), "prog -a x y");
    EXPECT_EQ(logged({}), "");
    EXPECT_EQ(logged({"", "", "a"}), "  a");

    const std::string single(9000, 's');
    EXPECT_EQ(logged({single}), single.substr(0, 8091));

    // Cut inside an argument, and just after a separating space.
    const std::string a(4045, 'a'), b(4044, 'b');
    std::string joined = logged({a, b, "tail", "more"});
    EXPECT_EQ(joined.size(), 8091u);
    EXPECT_TRUE(joined == a + " " + b + " ");
    joined = logged({b, b, "tail"});
    EXPECT_TRUE(joined == b + " " + b + " t");
    joined = logged({a, std::string(5000, 'k'), "more"});
    EXPECT_TRUE(joined == a + " " + std::string(8091 - 4046, 'k'));
}

TEST(LogCommandLine, TracesOnEveryCall) {
    testkit::TraceCapture traces;
    Args args({"prog"});
    cl_LogCommandLine(args.argv());
    EXPECT_EQ(traces.named("cl_LogCommandLine"),
              (std::vector<testkit::TraceRecord>{{17, "cl_LogCommandLine", 1}, {17, "cl_LogCommandLine", 0}}));
}

TEST(LogO61CommandLine, EachArgumentConvertedAndLoggedAsT61) {
    testkit::LogCapture log;
    Args args({"prog", "Jos\xC3\xA9", "caf\xC3\xA9 au lait"});
    cl_LogO61CommandLine(args.argv(), "ISO8859-1", 0);
    ASSERT_EQ(log.records().size(), 1u);
    const testkit::LogRecord &r = log.records()[0];
    EXPECT_EQ(r.t61, 1);
    EXPECT_EQ(r.reason, 4630);
    EXPECT_EQ(r.text, "prog Jos\xE9 caf\xE9 au lait");
    EXPECT_EQ(args.texts[1], "Jos\xC3\xA9") << "the arguments themselves are not changed";

    // Cut at 8091 bytes without splitting a character in two.
    Args wide({std::string(8090, 'w'), "\xC3\xA9"});
    cl_LogO61CommandLine(wide.argv(), "UTF8", 0);
    ASSERT_EQ(log.records().size(), 2u);
    EXPECT_EQ(log.records()[1].text, std::string(8090, 'w') + " ");
}

TEST(UpdateCommandFile, CreatesThenAppendsOneRecordPerCall) {
    testkit::TempHome home;
    const std::string file = home.file("commands");
    cl_UpdateCommandFile("first line", file.c_str());
    EXPECT_EQ(home.read("commands"), "first line\n");
    cl_UpdateCommandFile("two\nlines", file.c_str());
    cl_UpdateCommandFile("", file.c_str());
    EXPECT_EQ(home.read("commands"), "first line\ntwo\nlines\n\n");

    cl_UpdateCommandFile("in the home", "~/sys/cmdfile");
    EXPECT_EQ(home.read("sys/cmdfile"), "in the home\n");

    const int fds = testkit::open_fd_count();
    const std::string unopenable = home.path() + "/no/such/dir/f";  // no std::string alive across the escape
    const char *name = unopenable.c_str();
    auto out = testkit::run([name] { cl_UpdateCommandFile("x", name); });
    EXPECT_TRUE(out.is(1, ENOENT));
    EXPECT_EQ(testkit::open_fd_count(), fds);
}

}  // namespace
