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
    const std::string surname = name({{0, "Smith"}});
    const std::string user = name({{0, "Smith"}, {4, "Sales"}, {5, "Dev"}});
    struct Case {
        std::map<int, std::string> fields;
        unsigned kind;
        int reason, result;
    } cases[] = {
        {{{0, "Smith"}}, 1, 8119, 0},
        {{{0, "Smith"}}, 2, 0, 0},
        {{{0, "Smith"}}, 3, 8016, 0},
        {{{0, "Smith"}}, 4, 0, 0},
        {{{0, "Smith"}}, 5, 0, 0},
        {{{0, "Smith"}, {4, "S"}, {5, "D"}}, 3, 0, 1},
        {{{0, "Smith"}, {4, "S"}, {5, "D"}}, 5, 0, 1},
        {{{0, "Smith"}, {4, "S"}, {5, "D"}}, 2, 8124, 1},
        {{{4, "S"}, {6, "D"}}, 1, 8122, 1},
        {{{0, "Smith"}, {4, "S"}, {6, "D"}}, 3, 8122, 1},
        {{{5, "S"}}, 1, 8123, 1},
        {{{4, "S"}, {5, "D"}, {7, "F"}}, 1, 8122, 1},
        {{{8, "Org"}}, 1, 0, 1},
        {{{64, "Smith"}}, 2, 8120, 0},
        {{{64, "Smith"}}, 3, 8120, 0},
        {{{64, "Smith"}}, 5, 8120, 0},
        {{{64, "Smith"}}, 4, 0, 0},
        {{{0, "Smith"}, {4, "S"}, {12, "1"}}, 0, 0, 1},
        {{{0, "Smith"}, {4, "S"}, {12, "1"}}, 6, 0, 1},
        // kind 1
        {{}, 1, 8016, 0},
        {{{4, "S"}, {32, "x"}}, 1, 8119, 1},
        {{{4, "S"}, {12, "1"}}, 1, 8119, 1},
        {{{9, "GB"}}, 1, 8123, 1},
        {{{4, "S"}, {69, "D"}}, 1, 8120, 1},
        {{{68, "S"}}, 1, 8123, 1},
        {{{8, "O"}, {10, "A"}}, 1, 8121, 1},
        {{{8, "O"}, {11, "P"}}, 1, 8121, 1},
        {{{8, "O"}, {9, "GB"}, {10, "A"}, {11, "P"}}, 1, 0, 1},
        {{{4, "S"}, {5, "D"}, {6, "E"}, {7, "F"}, {68, "S"}}, 1, 0, 1},
        // kind 2
        {{{1, "John"}}, 2, 8014, 0},
        {{{32, "cn"}}, 2, 0, 0},
        {{{96, "cn"}}, 2, 8120, 0},
        {{{0, "S"}, {33, "x"}}, 2, 8124, 0},
        {{{0, "S"}, {128, "x"}}, 2, 8124, 0},
        {{{0, "S"}, {160, "x"}}, 2, 8124, 0},
        // kind 3
        {{{0, "Smith"}, {4, "S"}, {12, "1"}}, 3, 8119, 1},
        {{{0, "Smith"}, {4, "S"}, {10, "A"}}, 3, 8121, 1},
        {{{0, "Smith"}, {9, "GB"}}, 3, 8123, 1},
        {{{1, "John"}, {4, "S"}}, 3, 8014, 1},
        {{{0, "Smith"}, {64, "Smith"}, {32, "cn"}, {96, "cn"}, {4, "S"}}, 3, 0, 1},
        // kind 4
        {{{0, "S"}, {12, "1"}}, 4, 8124, 0},
        {{{0, "S"}, {33, "x"}}, 4, 8124, 0},
        {{{1, "John"}}, 4, 8014, 0},
        {{{96, "cn"}}, 4, 0, 0},
        {{{1, "John"}, {65, "John"}, {4, "S"}, {11, "P"}}, 4, 8014, 1},
        // kind 5
        {{{0, "S"}, {12, "1"}}, 5, 8124, 0},
        {{{0, "S"}, {9, "GB"}, {11, "P"}}, 5, 0, 1},
        {{{1, "John"}, {4, "S"}}, 5, 8014, 1},
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
        result = -1;
        auto outcome = testkit::run([] { result = cl_ValidateORNFields(text, kind); });
        if (c.reason) {
            EXPECT_TRUE(outcome.is(100, c.reason)) << testkit::show(orn) << " kind " << c.kind;
        } else {
            EXPECT_FALSE(outcome.escaped);
            EXPECT_EQ(result, c.result);
        }
    }
}

TEST(Validate, RejectingCheckerMakesNoExitTrace) {
    const int level = er_SubSystemLoggingLevel;
    er_SubSystemLoggingLevel = 10;
    testkit::TraceCapture capture;
    check(name({{0, "Smith"}}), 3);  // personal part passes, mail node fails
    using R = testkit::TraceRecord;
    std::vector<R> expected = {
        {19, "cl_ValidateORNFieldsNoEscape", 1}, {19, "cl_CheckNewUserFields", 1},
        {19, "cl_CheckPersonalNameFields", 1},   {19, "cl_CheckPersonalNameFields", 0},
        {19, "cl_CheckMailnodeFields", 1},       {19, "cl_ValidateORNFieldsNoEscape", 0},
    };
    EXPECT_EQ(capture.records(), expected);
    capture.clear();
    check(name({{0, "Smith"}}), 5);
    EXPECT_EQ(capture.named("cl_CheckNewUserFields").size(), 2u);
    er_SubSystemLoggingLevel = level;
}

// The trailing-space switch is process-wide state read once, so each
// scenario runs in a fresh process: this test binary executed again with
// VALIDATE_SCENARIO set runs that scenario while loading, before any test,
// and exits with 0 when it held.

// 0 when every kind reports `reason` (result 0 for 8013), else 1.
int all_kinds_give(const std::string &orn, int reason) {
    for (unsigned kind = 0; kind <= 6; ++kind) {
        const Checked c = check(orn, kind);
        if (reason == 8013 && (c.reason != 8013 || c.result != 0)) return 1;
        if (reason == 0 && c.reason == 8013) return 1;
    }
    return 0;
}

void set_switch(const char *value) {
    if (value)
        setenv("CL_ALLOW_TRAILING_SPACE", value, 1);
    else
        unsetenv("CL_ALLOW_TRAILING_SPACE");
}

int run_scenario(const std::string &which) {
    const std::string john = name({{0, "Smith"}, {1, "John "}, {4, "Sales"}});
    if (which == "refused") return all_kinds_give(john, 8013);
    if (which == "allowed") return all_kinds_give(john, 0);
    if (which == "long") {
        // A long field is judged by its real last byte, not by a bounded copy.
        const std::string long_field = name({{0, std::string(900, 'a') + " "}});
        const std::string inner_space = name({{0, std::string(833, 'a') + " " + std::string(66, 'b')}});
        return all_kinds_give(long_field, 8013) * 2 + all_kinds_give(inner_space, 0);
    }
    if (which == "read-once") {  // the first call fixes the setting
        const char *initial = std::getenv("CL_ALLOW_TRAILING_SPACE");
        const int first = check(john, 2).reason;
        set_switch(initial ? nullptr : "off");
        return first == check(john, 2).reason ? 0 : 1;
    }
    return 100;
}

const int kScenarioLoaded = [] {
    if (const char *which = std::getenv("VALIDATE_SCENARIO")) _exit(run_scenario(which));
    return 0;
}();

// Exit status of the scenario run in a fresh process with the switch set
// to value (null: unset).
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

TEST(TrailingSpace, SwitchDecidesInAFreshProcess) {
    testkit::TempHome home;  // no switches file
    for (const char *value : {"false", "OFF", "No", "0"}) EXPECT_EQ(in_fresh_process("refused", value), 0) << value;
    for (const char *value : {"on", "1", ""}) EXPECT_EQ(in_fresh_process("allowed", value), 0) << value;
    EXPECT_EQ(in_fresh_process("allowed", nullptr), 0);
    EXPECT_EQ(in_fresh_process("long", "off"), 0);
}

TEST(TrailingSpace, SwitchIsReadOnce) {
    testkit::TempHome home;
    EXPECT_EQ(in_fresh_process("read-once", nullptr), 0);
    EXPECT_EQ(in_fresh_process("read-once", "off"), 0);
}

TEST(TrailingSpace, SwitchFromTheSwitchesFile) {
    testkit::TempHome home;
    home.write("sys/switches", "# site switches\nCL_ALLOW_TRAILING_SPACE=yes\n  CL_ALLOW_TRAILING_SPACE = No \n");
    EXPECT_EQ(in_fresh_process("refused", nullptr), 0);
    EXPECT_EQ(in_fresh_process("allowed", "true"), 0);  // the environment wins
}

TEST(Switches, PresentAndFalse) {
    testkit::TempHome home;
    const char *kName = "QX_TEST_SWITCH";
    struct Case {
        const char *value;
        int expected;
    } cases[] = {{"0", 1}, {"false", 1}, {"FaLsE", 1}, {"no", 1}, {"Off", 1}, {" off ", 1},
                 {"on", 0}, {"1", 0},    {"offf", 0},  {"", 0},  {nullptr, 0}};
    for (const auto &c : cases) {
        if (c.value)
            setenv(kName, c.value, 1);
        else
            unsetenv(kName);
        EXPECT_EQ(cust_PresentAndFalse(kName), c.expected) << (c.value ? c.value : "(unset)");
    }
    unsetenv(kName);
    home.write("sys/switches", "QX_TEST_SWITCH=off\n" + std::string(2000, 'x') + "\nQX_TEST_SWITCH_2=off\nQX_TEST_SWITCHX=on\n");
    EXPECT_EQ(cust_PresentAndFalse(kName), 1);
    EXPECT_EQ(cust_PresentAndFalse("QX_TEST_SWITCH_2"), 1);
    EXPECT_EQ(cust_PresentAndFalse("QX_TEST_SWITC"), 0);
    home.write("sys/switches", "QX_TEST_SWITCH=off\nQX_TEST_SWITCH=on\n");
    EXPECT_EQ(cust_PresentAndFalse(kName), 0);  // the last line decides
}

}  // namespace
