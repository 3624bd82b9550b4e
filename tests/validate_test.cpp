// Field validation by kind, the trailing-space switch, and the switches it
// is read from.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "ccs.h"
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

// The result and the reason of the check that does not escape.
std::pair<int, int> check(const std::string &orn, unsigned kind) {
    int reason = -1;
    return {cl_ValidateORNFieldsNoEscape(orn.c_str(), kind, &reason), reason};
}

// Only which fields are present counts: each row's fields hold "x".
TEST(Validate, ReasonsByKind) {
    struct Case {
        std::vector<int> fields;
        unsigned kind;
        int reason, result;
    } cases[] = {
        {{0}, 1, 8119, 0}, {{0}, 2, 0, 0}, {{0}, 3, 8016, 0}, {{0}, 4, 0, 0}, {{0}, 5, 0, 0}, {{0}, 0, 0, 0},
        {{0}, 6, 0, 0}, {{0, 4, 5}, 3, 0, 1}, {{0, 4, 5}, 5, 0, 1}, {{0, 4, 5}, 2, 8124, 1}, {{64}, 2, 8120, 0},
        {{64}, 3, 8120, 0}, {{64}, 5, 8120, 0}, {{64}, 4, 0, 0},
        // kind 1
        {{}, 1, 8016, 0}, {{8}, 1, 0, 1}, {{4, 32}, 1, 8119, 1}, {{4, 12}, 1, 8119, 1}, {{9}, 1, 8123, 1},
        {{68}, 1, 8123, 1}, {{5}, 1, 8123, 1}, {{4, 6}, 1, 8122, 1}, {{4, 69}, 1, 8120, 1}, {{8, 10}, 1, 8121, 1},
        {{8, 11}, 1, 8121, 1}, {{8, 9, 10, 11}, 1, 0, 1}, {{4, 5, 6, 7, 68}, 1, 0, 1},
        // kind 2
        {{1}, 2, 8014, 0}, {{32}, 2, 0, 0}, {{96}, 2, 8120, 0}, {{0, 33}, 2, 8124, 0}, {{0, 128}, 2, 8124, 0},
        {{0, 160}, 2, 8124, 0},
        // kind 3
        {{0, 4, 12}, 3, 8119, 1}, {{0, 4, 10}, 3, 8121, 1}, {{0, 9}, 3, 8123, 1}, {{0, 4, 6}, 3, 8122, 1},
        {{1, 4}, 3, 8014, 1}, {{0, 64, 32, 96, 4}, 3, 0, 1},
        // kinds 4 and 5
        {{0, 12}, 4, 8124, 0}, {{0, 33}, 4, 8124, 0}, {{1, 65, 4}, 4, 8014, 1}, {{96}, 4, 0, 0}, {{0, 12}, 5, 8124, 0},
        {{0, 9, 11}, 5, 0, 1}, {{1, 4}, 5, 8014, 1},
    };
    for (const auto &c : cases) {
        std::map<int, std::string> fields;
        for (int f : c.fields) fields[f] = "x";
        const std::string orn = name(fields);
        const auto [result, reason] = check(orn, c.kind);
        EXPECT_EQ(reason, c.reason) << testkit::show(orn) << " kind " << c.kind;
        EXPECT_EQ(result, c.result) << testkit::show(orn) << " kind " << c.kind;
        int returned = -1;  // the escaping form raises exactly that reason, or returns the result
        auto outcome = testkit::run([&] { returned = cl_ValidateORNFields(orn.c_str(), c.kind); });
        EXPECT_EQ(outcome.escaped ? outcome.reason : returned, c.reason ? c.reason : c.result) << testkit::show(orn);
    }
}

// The trailing-space switch is read once per process, so each scenario runs
// in a fresh one: this binary again, with VALIDATE_SCENARIO set, runs it
// while loading, before any test, and exits with 0 when it held.
int run_scenario(const std::string &which) {
    // Every kind refuses (8013, result 0), or none does.
    auto all_kinds = [](const std::string &orn, bool refused) {
        for (unsigned kind = 0; kind <= 6; ++kind) {
            const auto [result, reason] = check(orn, kind);
            if ((reason == 8013) != refused || (refused && result != 0)) return 1;
        }
        return 0;
    };
    const std::string john = name({{0, "Smith"}, {1, "John "}, {4, "Sales"}});
    if (which == "refused" || which == "allowed") return all_kinds(john, which == "refused");
    if (which == "long")  // judged by the real last byte, not a bounded copy
        return all_kinds(name({{0, std::string(900, 'a') + " "}}), true) * 2 +
               all_kinds(name({{0, std::string(833, 'a') + " " + std::string(66, 'b')}}), false);
    if (which == "converted") {  // texts the conversion has just made, read from its record
        ccs_Descriptor utf8{};
        ccs_GetCSDescriptor("UTF8", &utf8);
        char typed[64] = "Smith/Sales/organization=Acme ";
        char out[256];
        cl_ConvCltoORN(typed, out, 0, 0, &utf8);
        if (!std::strstr(out, "Acme ")) return 4;  // the value keeps its space
        const int spaced = all_kinds(out, true);
        std::strcpy(typed, "Smith/Sales/organization=Acme");
        cl_ConvCltoORN(typed, out, 0, 0, &utf8);
        return spaced * 2 + all_kinds(out, false);
    }
    const int first = check(john, 2).second;  // "read-once": a later change is not seen
    if (std::getenv("CL_ALLOW_TRAILING_SPACE"))
        unsetenv("CL_ALLOW_TRAILING_SPACE");
    else
        setenv("CL_ALLOW_TRAILING_SPACE", "off", 1);
    return first == check(john, 2).second ? 0 : 1;
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
        value ? setenv("CL_ALLOW_TRAILING_SPACE", value, 1) : unsetenv("CL_ALLOW_TRAILING_SPACE");
        execl("/proc/self/exe", "validate_test", static_cast<char *>(nullptr));
        _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 255;
}

TEST(TrailingSpace, SwitchReadOncePerProcess) {
    testkit::TempHome home;  // no switches file yet
    const std::pair<const char *, const char *> runs[] = {{"refused", "No"},     {"allowed", "on"},
                                                          {"allowed", ""},       {"allowed", nullptr},
                                                          {"long", "off"},       {"converted", "off"},
                                                          {"read-once", nullptr},
                                                          {"read-once", "off"}};
    for (const auto &[scenario, value] : runs)
        EXPECT_EQ(in_fresh_process(scenario, value), 0) << scenario << " " << (value ? value : "unset");
    home.write("sys/switches", "# site switches\nCL_ALLOW_TRAILING_SPACE=yes\n  CL_ALLOW_TRAILING_SPACE = No \n");
    EXPECT_EQ(in_fresh_process("refused", nullptr), 0);
    EXPECT_EQ(in_fresh_process("allowed", "true"), 0);  // the environment wins
}

TEST(Switches, PresentAndFalse) {
    testkit::TempHome home;
    const char *kName = "QX_TEST_SWITCH";
    const std::pair<const char *, int> values[] = {{"0", 1},   {"false", 1}, {"FaLsE", 1}, {"no", 1}, {"Off", 1},
                                                   {" off ", 1}, {"on", 0},    {"1", 0},     {"offf", 0}, {"", 0}};
    for (const auto &[value, is_false] : values) {
        setenv(kName, value, 1);
        EXPECT_EQ(cust_PresentAndFalse(kName), is_false) << value;
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
