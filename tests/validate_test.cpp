// Field validation by kind, the trailing-space switch, and the switches it
// is read from.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <string>

#include "cust.h"
#include "testkit.hpp"

namespace {

// Packed text holding the given fields.
std::string name(const std::map<int, std::string> &fields) {
    static char tf[8192];
    nm_ParsedORN parsed;
    nm_InitORN(tf, &parsed);
    for (const auto &[field, value] : fields) nm_PutFieldStr(tf, &parsed, field, value.c_str());
    return tf;
}

struct Checked {
    int result, reason;
};
Checked check(const std::string &orn, unsigned kind) {
    Checked c{};
    c.result = cl_ValidateORNFieldsNoEscape(orn.c_str(), kind, &c.reason);
    return c;
}

TEST(Validate, ReasonsByKind) {
    const std::map<int, std::string> s{{0, "S"}}, s45{{0, "S"}, {4, "u"}, {5, "v"}};
    struct Case {
        std::map<int, std::string> fields;
        unsigned kind;
        int reason, result;
    } cases[] = {
        {s, 1, 8119, 0}, {s, 2, 0, 0}, {s, 3, 8016, 0}, {s, 4, 0, 0}, {s, 5, 0, 0}, {s, 0, 0, 0}, {s, 6, 0, 0},
        {s45, 3, 0, 1}, {s45, 5, 0, 1}, {s45, 2, 8124, 1},
        {{{64, "S"}}, 2, 8120, 0}, {{{64, "S"}}, 3, 8120, 0}, {{{64, "S"}}, 5, 8120, 0}, {{{64, "S"}}, 4, 0, 0},
        // kind 1
        {{}, 1, 8016, 0}, {{{8, "O"}}, 1, 0, 1}, {{{4, "u"}, {32, "x"}}, 1, 8119, 1}, {{{4, "u"}, {12, "1"}}, 1, 8119, 1},
        {{{9, "GB"}}, 1, 8123, 1}, {{{68, "u"}}, 1, 8123, 1}, {{{5, "v"}}, 1, 8123, 1}, {{{4, "u"}, {6, "w"}}, 1, 8122, 1},
        {{{4, "u"}, {69, "v"}}, 1, 8120, 1}, {{{8, "O"}, {10, "A"}}, 1, 8121, 1}, {{{8, "O"}, {11, "P"}}, 1, 8121, 1},
        {{{8, "O"}, {9, "GB"}, {10, "A"}, {11, "P"}}, 1, 0, 1}, {{{4, "u"}, {5, "v"}, {6, "w"}, {7, "x"}, {68, "u"}}, 1, 0, 1},
        // kind 2
        {{{1, "J"}}, 2, 8014, 0}, {{{32, "cn"}}, 2, 0, 0}, {{{96, "cn"}}, 2, 8120, 0}, {{{0, "S"}, {33, "x"}}, 2, 8124, 0},
        {{{0, "S"}, {128, "x"}}, 2, 8124, 0}, {{{0, "S"}, {160, "x"}}, 2, 8124, 0},
        // kind 3
        {{{0, "S"}, {4, "u"}, {12, "1"}}, 3, 8119, 1}, {{{0, "S"}, {4, "u"}, {10, "A"}}, 3, 8121, 1},
        {{{0, "S"}, {9, "GB"}}, 3, 8123, 1}, {{{0, "S"}, {4, "u"}, {6, "w"}}, 3, 8122, 1}, {{{1, "J"}, {4, "u"}}, 3, 8014, 1},
        {{{0, "S"}, {64, "S"}, {32, "cn"}, {96, "cn"}, {4, "u"}}, 3, 0, 1},
        // kinds 4 and 5
        {{{0, "S"}, {12, "1"}}, 4, 8124, 0}, {{{0, "S"}, {33, "x"}}, 4, 8124, 0}, {{{1, "J"}, {65, "J"}, {4, "u"}}, 4, 8014, 1},
        {{{96, "cn"}}, 4, 0, 0}, {{{0, "S"}, {12, "1"}}, 5, 8124, 0}, {{{0, "S"}, {9, "GB"}, {11, "P"}}, 5, 0, 1},
        {{{1, "J"}, {4, "u"}}, 5, 8014, 1},
    };
    for (const auto &c : cases) {
        const std::string orn = name(c.fields);
        const Checked got = check(orn, c.kind);
        EXPECT_EQ(got.reason, c.reason) << testkit::show(orn) << " kind " << c.kind;
        EXPECT_EQ(got.result, c.result) << testkit::show(orn) << " kind " << c.kind;
        // The escaping form raises exactly that reason, or returns the result.
        static volatile int result;
        static const char *text;
        static unsigned kind;
        text = orn.c_str();
        kind = c.kind;
        auto outcome = testkit::run([] { result = cl_ValidateORNFields(text, kind); });
        EXPECT_EQ(outcome.escaped ? outcome.reason : 0, c.reason) << testkit::show(orn) << " kind " << c.kind;
        if (!c.reason) {
            EXPECT_EQ(result, c.result);
        }
    }
}

TEST(Validate, RejectingCheckerMakesNoExitTrace) {
    const int level = er_SubSystemLoggingLevel;
    er_SubSystemLoggingLevel = 10;
    testkit::TraceCapture capture;
    check(name({{0, "S"}}), 3);  // personal part passes, mail node fails
    EXPECT_EQ(capture.records(), (std::vector<testkit::TraceRecord>{
                                     {19, "cl_ValidateORNFieldsNoEscape", 1}, {19, "cl_CheckNewUserFields", 1},
                                     {19, "cl_CheckPersonalNameFields", 1}, {19, "cl_CheckPersonalNameFields", 0},
                                     {19, "cl_CheckMailnodeFields", 1}, {19, "cl_ValidateORNFieldsNoEscape", 0}}));
    capture.clear();
    check(name({{0, "S"}}), 5);  // traced under the kind-3 name
    EXPECT_EQ(capture.named("cl_CheckNewUserFields").size(), 2u);
    er_SubSystemLoggingLevel = level;
}

// The trailing-space switch is process-wide state read once, so each
// scenario runs in a fresh process: this binary executed again with
// VALIDATE_SCENARIO set runs the scenario while loading, before any test,
// and exits with 0 when it held.

void set_switch(const char *value) {
    if (value)
        setenv("CL_ALLOW_TRAILING_SPACE", value, 1);
    else
        unsetenv("CL_ALLOW_TRAILING_SPACE");
}

// 0 when every kind refuses (8013, result 0) or every kind lets it pass that rule.
int all_kinds(const std::string &orn, bool refused) {
    for (unsigned kind = 0; kind <= 6; ++kind) {
        const Checked c = check(orn, kind);
        if ((c.reason == 8013) != refused || (refused && c.result != 0)) return 1;
    }
    return 0;
}

int run_scenario(const std::string &which) {
    const std::string john = name({{0, "Smith"}, {1, "John "}, {4, "Sales"}});
    if (which == "refused") return all_kinds(john, true);
    if (which == "allowed") return all_kinds(john, false);
    if (which == "long")  // judged by the real last byte, not a bounded copy
        return all_kinds(name({{0, std::string(900, 'a') + " "}}), true) * 2 +
               all_kinds(name({{0, std::string(833, 'a') + " " + std::string(66, 'b')}}), false);
    if (which == "read-once") {
        const bool was_set = std::getenv("CL_ALLOW_TRAILING_SPACE") != nullptr;
        const int first = check(john, 2).reason;
        set_switch(was_set ? nullptr : "off");
        return first == check(john, 2).reason ? 0 : 1;
    }
    return 100;
}

const int kScenarioLoaded = [] {
    if (const char *which = std::getenv("VALIDATE_SCENARIO")) _exit(run_scenario(which));
    return 0;
}();

int in_fresh_process(const char *scenario, const char *value) {
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        setenv("VALIDATE_SCENARIO", scenario, 1);
        set_switch(value);
        execl("/proc/self/exe", "validate_test", static_cast<char *>(nullptr));
        _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 255;
}

TEST(TrailingSpace, SwitchReadOncePerProcess) {
    testkit::TempHome home;  // no switches file yet
    for (const char *value : {"false", "OFF", "No", "0"}) EXPECT_EQ(in_fresh_process("refused", value), 0) << value;
    for (const char *value : {"on", "1", ""}) EXPECT_EQ(in_fresh_process("allowed", value), 0) << value;
    EXPECT_EQ(in_fresh_process("allowed", nullptr), 0);
    EXPECT_EQ(in_fresh_process("long", "off"), 0);
    EXPECT_EQ(in_fresh_process("read-once", nullptr), 0);
    EXPECT_EQ(in_fresh_process("read-once", "off"), 0);
    home.write("sys/switches", "# site switches\nCL_ALLOW_TRAILING_SPACE=yes\n  CL_ALLOW_TRAILING_SPACE = No \n");
    EXPECT_EQ(in_fresh_process("refused", nullptr), 0);
    EXPECT_EQ(in_fresh_process("allowed", "true"), 0);  // the environment wins
}

TEST(Switches, PresentAndFalse) {
    testkit::TempHome home;
    const char *kName = "QX_TEST_SWITCH";
    for (const char *value : {"0", "false", "FaLsE", "no", "Off", " off "}) {
        setenv(kName, value, 1);
        EXPECT_EQ(cust_PresentAndFalse(kName), 1) << value;
    }
    for (const char *value : {"on", "1", "offf", ""}) {
        setenv(kName, value, 1);
        EXPECT_EQ(cust_PresentAndFalse(kName), 0) << value;
    }
    unsetenv(kName);
    EXPECT_EQ(cust_PresentAndFalse(kName), 0);
    home.write("sys/switches", "QX_TEST_SWITCH=off\n" + std::string(2000, 'x') + "\nQX_TEST_SWITCH_2=off\n");
    EXPECT_EQ(cust_PresentAndFalse(kName), 1);
    EXPECT_EQ(cust_PresentAndFalse("QX_TEST_SWITCH_2"), 1);
    EXPECT_EQ(cust_PresentAndFalse("QX_TEST_SWITC"), 0);
    home.write("sys/switches", "QX_TEST_SWITCH=off\nQX_TEST_SWITCH=on\n");
    EXPECT_EQ(cust_PresentAndFalse(kName), 0);  // the last line decides
}

}  // namespace
