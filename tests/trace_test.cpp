// The trace records of every traced function of the library: what one call
// leaves at logging level 9 and above it, and that a call that fails (an
// escape, or a checker's refusal) leaves its entry record without the exit.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>

#include "os.h"
#include "testkit.hpp"

namespace {

char g_text[8192], g_out[8192], g_prog[] = "prog", g_arg[] = "-a";
char *g_argv[] = {g_prog, g_arg, nullptr}, **g_table, **g_array;
int g_index, g_reason;
ccs_Descriptor g_utf8;
nm_ParsedORN g_parsed;

char *w(const char *s) { return std::strcpy(g_text, s); }
constexpr const char kJohn[] = "Smith\x1DJohn\x1D\x1D\x1DSales";  // surname, given name, unit 1
constexpr const char kNode[] = "\x1D\x1D\x1D\x1DSales";
constexpr const char kBeyond[] = "\x17\x17\x17\x17\x17\x1Dx";  // a field past 160: the name library refuses it

void validate(const char *orn, unsigned kind) { cl_ValidateORNFieldsNoEscape(orn, kind, &g_reason); }
const er_Status kPending{1, 100, 8001, 1, 0, "tests/trace_test"};  // an escape for cl_SortAllErrors

// A call and its records at levels 9 and 10 ("17+" an entry, "17-" an
// exit); a failing call, run in the broken home above level 9, with its
// records and the escape it raised (none where a checker refuses).
struct Row { const char *name; void (*call)(); const char *at9, *at10; void (*fail)(); const char *failed; };

// Calls that take the lock free it again. The start count rows read 0,
// which is never cached, and come before the one that counts.
const Row kRows[] = {
    {"cl_GetConfigLock", [] { cl_GetConfigLock(), cl_FreeConfigLock(); }, "17+ 17-", "17+ 17-", [] { cl_GetConfigLock(); }, "17+ 1/21"},
    {"cl_BlockedGetConfigLock", [] { cl_BlockedGetConfigLock(), cl_FreeConfigLock(); }, "17+ 17-", "17+ 17-", [] { cl_BlockedGetConfigLock(); }, "17+ 1/21"},
    {"cl_WaitForConfigLock", [] { cl_WaitForConfigLock(1), cl_FreeConfigLock(); }, "", "21+ 21-", [] { cl_WaitForConfigLock(1); }, "21+ 1/21"},
    {"cl_GetCfgLock", [] { cl_GetCfgLock(), cl_FreeConfigLock(); }, "", "19+ 19-", [] { cl_GetCfgLock(); }, "19+ 1/21"},
    {"cl_TestConfigLock", [] { cl_TestConfigLock(); }, "17+ 17-", "17+ 17-", nullptr, ""},
    {"cl_FreeConfigLock", [] { cl_GetConfigLock(), cl_FreeConfigLock(); }, "17+ 17-", "17+ 17-", [] { cl_FreeConfigLock(); }, "17+ 100/2602"},
    {"cl_GetSystemStartCount", [] { cl_GetSystemStartCount(); }, "", "19+ 19-", [] { cl_GetSystemStartCount(); }, "19+ 1/2"},
    {"cl_GetSystemStartDate", [] { cl_GetSystemStartDate(); }, "", "19+ 19-", [] { cl_GetSystemStartDate(); }, "19+ 1/2"},
    {"cl_IncSystemStartCount", [] { cl_IncSystemStartCount(); }, "17+ 17-", "17+ 17-", [] { cl_IncSystemStartCount(); }, "17+ 1/2"},
    {"cl_IsEveryThingInstalled", [] { cl_IsEveryThingInstalled(); }, "", "21+ 21-", [] { cl_IsEveryThingInstalled(); }, "21+ 1/20"},
    {"cl_LogCommandLine", [] { cl_LogCommandLine(g_argv); }, "17+ 17-", "17+ 17-", nullptr, ""},
    {"cl_LogO61CommandLine", [] { cl_LogO61CommandLine(g_argv, "ISO8859-1", 0); }, "17+ 17-", "17+ 17-", nullptr, ""},
    {"cl_UpdateCommandFile", [] { cl_UpdateCommandFile("x", "~/sys/cmdfile"); }, "", "19+ 19-", [] { cl_UpdateCommandFile("x", "~/no/f"); }, "19+ 1/2"},
    {"cl_DisplayError", [] { cl_DisplayError(100, 4624, "prog", "x"); }, "", "19+ 19-", nullptr, ""},
    {"cl_DisplayUsage", [] { cl_DisplayUsage(100, 4681, "prog"); }, "", "19+ 19-", nullptr, ""},
    {"cl_SortAllErrors", [] { er_RestoreStatus(&kPending), cl_SortAllErrors("prog"); }, "", "19+ 19-", nullptr, ""},
    {"cl_ReadPMN", [] { cl_ReadPMN(g_out); }, "", "19+ 19-", [] { cl_ReadPMN(g_out); }, "19+ 100/4624"},
    {"cl_ReadDefMNode", [] { cl_ReadDefMNode(0, g_out); }, "", "19+ 19-", [] { cl_ReadDefMNode(1, g_out); }, "19+ 102/1420"},
    {"cl_GetOldUXMN", [] { cl_ReadDefMNode(1, g_out); }, "15+ 15-", "15+ 15-", [] { cl_ReadDefMNode(1, g_out); }, "15+ 102/1420"},
    {"cl_WriteDefMNode", [] { cl_WriteDefMNode(2, "x"); }, "", "19+ 19-", [] { cl_WriteDefMNode(-1, "x"); }, "19+ 100/4626"},
    {"cl_SetNodeForDisplay", [] { cl_SetNodeForDisplay(w("A,,")); }, "", "19+ 19-", nullptr, ""},
    {"cl_SimplifyRoute", [] { cl_SimplifyRoute(w(kJohn)); }, "17+ 17-", "17+ 17-", [] { cl_SimplifyRoute(w(kBeyond)); }, "17+ 100/1701"},
    {"cl_RemoveTxTFields", [] { cl_RemoveTxTFields(w(kJohn)); }, "17+ 17-", "17+ 17-", [] { cl_RemoveTxTFields(w(kBeyond)); }, "17+ 100/1701"},
    {"cl_ParseORN", [] { cl_ParseORN(w("John Smith"), g_out, 1); }, "", "19+ 19-", [] { cl_ParseORN(w("Smith#"), g_out, 1); }, "19+ 100/8013"},
    {"cl_ParseName", [] { cl_ParseName(w("John Smith"), g_out); }, "", "19+ 19-", [] { cl_ParseName(w("Smith#"), g_out); }, "19+ 100/8013"},
    {"cl_ParseNameLoclAddr2", [] { cl_ParseNameLoclAddr2(w("Smith/Sales"), g_out, 0); }, "", "19+ 19-", [] { cl_ParseNameLoclAddr2(w("S#"), g_out, 0); }, "19+ 100/8013"},
    {"cl_ParseNameLoclAddr", [] { cl_ParseNameLoclAddr(w("Smith/Sales"), g_out); }, "", "19+ 19-", [] { cl_ParseNameLoclAddr(w("S#"), g_out); }, "19+ 100/8013"},
    {"cl_ParseLoclAddr", [] { cl_ParseLoclAddr(w("Sales,Dev"), g_out); }, "", "19+ 19-", [] { cl_ParseLoclAddr(w(""), g_out); }, "19+ 100/8016"},
    {"IllegalCharacter", [] { cl_ParseName(w("ab"), g_out); }, "", "19+ 19- 19+ 19-", nullptr, ""},
    {"RemoveRedundantSpaces", [] { cl_ParseName(w("a  b"), g_out); }, "", "19+ 19-", nullptr, ""},
    {"cl_ParseFullOrn2", [] { cl_ParseFullOrn2(w("Smith/Sales"), g_out, &g_index, 0); }, "", "19+ 19-", [] { cl_ParseFullOrn2(w("S#"), g_out, &g_index, 0); }, "19+ 100/8013"},
    {"cl_ParseFullOrn", [] { cl_ParseFullOrn(w("Smith/Sales"), g_out, &g_index); }, "", "19+ 19-", [] { cl_ParseFullOrn(w("S#"), g_out, &g_index); }, "19+ 100/8013"},
    {"cl_ParseExternalAttribs2", [] { cl_ParseExternalAttribs2(std::strcpy(g_out, "S"), w("(a)"), &g_index, 0); }, "17+ 17-", "17+ 17-", nullptr, ""},
    {"cl_ParseExternalAttribs", [] { cl_ParseExternalAttribs(std::strcpy(g_out, "S"), w("(a)"), &g_index); }, "17+ 17-", "17+ 17-", nullptr, ""},
    // The conversion reads the lone '/' before the attributes as this function does, plain positional part or not.
    {"cl_ParseExternalAttribs2", [] { cl_ConvCltoORN(w("Smith/Sales/organization=Acme"), g_out, 0, 0, &g_utf8); }, "17+ 17-", "17+ 17-", nullptr, ""},
    {"cl_ParseExternalAttribs2", [] { cl_ConvCltoORN(w("Smith/organization=Acme"), g_out, 0, 0, &g_utf8); }, "", "", nullptr, ""},
    {"cl_ValidateORNFieldsNoEscape", [] { validate(kJohn, 3); }, "", "19+ 19-", [] { validate(kBeyond, 3); }, "19+ 100/1701"},
    {"cl_CheckMailnodeFields", [] { validate(kNode, 1); }, "", "19+ 19-", [] { validate(kJohn, 1); }, "19+"},
    {"cl_CheckPersonalNameFields", [] { validate("Smith\x1DJohn", 2); }, "", "19+ 19-", [] { validate(kNode, 2); }, "19+"},
    {"cl_CheckNewUserFields", [] { validate(kJohn, 3); }, "", "19+ 19-", [] { validate(kNode, 3); }, "19+"},
    {"cl_CheckOldUserFields", [] { validate(kJohn, 4); }, "", "19+ 19-", [] { validate(kNode, 4); }, "19+"},
    {"cl_CheckNewUserFields", [] { validate(kJohn, 5); }, "", "19+ 19-", [] { validate(kNode, 5); }, "19+"},  // kind 5
    {"cl_ConvNameToORN", [] { cl_ConvNameToORN("John Smith/Sales", g_out); }, "", "19+ 19-", nullptr, ""},
    {"cl_ConvMNodeToORN", [] { cl_ConvMNodeToORN("Smith/Sales", g_out); }, "", "19+ 19-", nullptr, ""},
    {"cl_ConvNameOrMNode", [] { cl_ConvNameToORN("S#/Sales", g_out); }, "", "19+ 19-", nullptr, ""},
    {"cl_PositionalMnToORN", [] { cl_PositionalMnToORN(g_out, "Sales"); }, "17+ 17-", "17+ 17-", [] { cl_PositionalMnToORN(g_out, "a\x1D"); }, "17+ 100/8013"},
    {"cl_MailNodeToPartORName", [] { cl_MailNodeToPartORName(g_out, "Sales"); }, "17+ 17-", "17+ 17-", [] { cl_MailNodeToPartORName(g_out, "a\x1D"); }, "17+ 100/8013"},
    {"cl_RealMnToORName", [] { cl_PositionalMnToORN(g_out, "Sales"); }, "", "19+ 19-", [] { cl_PositionalMnToORN(g_out, "a\x1D"); }, "19+ 100/8013"},
    {"cl_RemoveLead_TrailSpaces", [] { cl_RemoveLead_TrailSpaces(w(" a ")); }, "", "19+ 19-", nullptr, ""},
    {"cl_ConvertToSpecialChar", [] { cl_ConvertToSpecialChar(w("a b")); }, "", "19+ 19-", nullptr, ""},
    {"cl_ConvertSpecialChar", [] { cl_ConvertSpecialChar(w("a_b")); }, "", "19+ 19-", nullptr, ""},
    {"cl_ArrayToDA", [] { os_free(cl_ArrayToDA(g_array, 1)); }, "", "21+ 21-", nullptr, ""},
    {"cl_UnpackFullORN", [] { char **t; cl_UnpackFullORN(kJohn, &t, &g_parsed, 23, 20), cl_FreeORN(t); }, "", "19+ 19-", nullptr, ""},
    {"cl_FrmtGroup1PNPP", [] { cl_FrmtGroup1PNPP(g_table); }, "", "19+ 19-", nullptr, ""},
    {"cl_FrmtGroup1PP", [] { cl_FrmtGroup1PP(g_table, 0); }, "", "19+ 19-", nullptr, ""},
    {"cl_FormatName", [] { cl_FormatName(w(kJohn)); }, "17+ 17-", "17+ 17-", [] { cl_FormatName(w(kBeyond)); }, "17+ 100/1701"},
    {"cl_FrmtGroup2PP", [] { cl_FrmtGroup2PP(g_table, 23, 30, 0); }, "", "19+ 19-", nullptr, ""},
    {"cl_ShouldAsciiEncode", [] { cl_ShouldAsciiEncode(5); }, "", "19+ 19-", nullptr, ""},
    {"cl_FrmtGroup345PP", [] { cl_FrmtGroup345PP(g_table, &g_utf8, 64, 67, 1); }, "", "19+ 19-", nullptr, ""},
    {"cl_RealFormatFullName", [] { cl_FormatFullName(kJohn, &g_utf8); }, "", "21+ 21-", [] { cl_FormatFullName(kBeyond, &g_utf8); }, "21+ 100/1701"},
    {"cl_FormatFullNameIa", [] { cl_FormatFullNameIa(kJohn, &g_utf8); }, "15+ 15-", "15+ 15-", [] { cl_FormatFullNameIa(kBeyond, &g_utf8); }, "15+ 100/1701"},
    {"cl_FormatMailNode", [] { cl_FormatMailNode(kJohn, &g_utf8, 1); }, "15+ 15-", "15+ 15-", [] { cl_FormatMailNode(kBeyond, &g_utf8, 1); }, "15+ 100/1701"},
    {"cl_RealFormatPersonalName", [] { cl_RealFormatPersonalName(kJohn, &g_utf8, 1); }, "", "21+ 21-", [] { cl_RealFormatPersonalName(kBeyond, &g_utf8, 1); }, "21+ 100/1701"},
    {"cl_FormatPersonalName", [] { cl_FormatPersonalName(kJohn, &g_utf8); }, "", "21+ 21-", [] { cl_FormatPersonalName(kBeyond, &g_utf8); }, "21+ 100/1701"},
    {"cl_FormatPersonalNameIa", [] { cl_FormatPersonalNameIa(kJohn, &g_utf8); }, "", "21+ 21-", [] { cl_FormatPersonalNameIa(kBeyond, &g_utf8); }, "21+ 100/1701"},
    {"cl_FormatG1PersonalName", [] { cl_FormatG1PersonalName(kJohn); }, "", "21+ 21-", [] { cl_FormatG1PersonalName(kBeyond); }, "21+ 100/1701"},
};

// The records of name since the last look, and the escape that ended the call.
std::string seen(testkit::TraceCapture &capture, const char *name, const testkit::Outcome &out) {
    std::string text;
    for (const auto &r : capture.named(name)) text += (text.empty() ? "" : " ") + std::to_string(r.id) + (r.entry ? "+" : "-");
    capture.clear();
    return out.escaped ? text + " " + std::to_string(out.group) + "/" + std::to_string(out.reason) : text;
}

TEST(Trace, EveryTracedFunctionAtLevelNineAndAbove) {
    // The broken home: a short configuration file, no start count file, a
    // file where the install directory belongs and a directory in place of
    // the lock file.
    testkit::TempHome broken;
    broken.write("sys/config", std::string(60, '\0'));
    broken.write("sys/install", "");
    mkdir(broken.file("sys/.lock0").c_str(), 0700);
    testkit::TempHome home;
    setenv("QX_TRACE_FILE", home.file("trace").c_str(), 1);  // read at the process's first record
    home.write("sys/config", std::string(268, '\0'));
    home.write("sys/sysdata", std::string(60, '\0'));
    ASSERT_EQ(ccs_GetCSDescriptor("UTF8", &g_utf8), 1);
    nm_ParseORN(kJohn, &g_parsed, &g_index);
    cl_UnpackFullORN(kJohn, &g_table, &g_parsed, 161, static_cast<int>(std::strlen(kJohn)));
    cl_UnPackToLargeArray(kJohn, &g_array);

    const int saved = er_SubSystemLoggingLevel;
    testkit::TraceCapture capture;
    for (const Row &r : kRows) {
        SCOPED_TRACE(r.name);
        setenv("QX_HOME", home.path().c_str(), 1);
        for (int level : {9, 10}) {
            er_SubSystemLoggingLevel = level;
            EXPECT_EQ(seen(capture, r.name, testkit::run(r.call)), level == 9 ? r.at9 : r.at10) << "level " << level;
        }
        if (!r.fail) continue;
        setenv("QX_HOME", broken.path().c_str(), 1);
        const int fds = testkit::open_fd_count();
        EXPECT_EQ(seen(capture, r.name, testkit::run(r.fail)), r.failed) << "a failing call";
        EXPECT_EQ(testkit::open_fd_count(), fds) << "a failing call leaves nothing open";
    }
    er_SubSystemLoggingLevel = saved;
    const std::string file = home.read("trace");  // every record, an escape's too
    EXPECT_EQ(file.rfind("ENTER 17 cl_GetConfigLock\nEXIT 17 cl_GetConfigLock\nENTER 17 cl_FreeConfigLock\nEXIT 17 cl_FreeConfigLock\n", 0), 0u);
    EXPECT_NE(file.find("\nENTER 17 cl_FreeConfigLock\nESCAPE 100/1812 at platform/gen/gen_lock:"), std::string::npos);
    cl_FreeORN(g_table);
    cl_FreeArray(g_array);
}

}  // namespace
