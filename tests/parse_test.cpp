// Typed names into packed fields: personal names, names with mail nodes,
// local addresses and full names with standard and extension attributes.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "frame.hpp"
#include "testkit.hpp"

namespace {

using testkit::show;

enum Parser { Name, Orn0, Node, NodeMarker, Local, Full, FullMarker };
constexpr int kUntouched = -7;
const std::string kUntouchedResult(511, '@');

struct Parsed {
    testkit::Outcome outcome;
    std::string text, result;  // the caller's text afterwards; readable result
    int ret, index;
};

// Runs a parser on a writable copy of input, the result buffer filled with
// a sentinel first so that an untouched buffer shows.
Parsed parse(Parser which, const std::string &input) {
    static char text[8192], out[8192];
    static int index;
    static volatile int ret;
    static Parser p;
    std::memcpy(text, input.c_str(), input.size() + 1);
    std::memset(out, '@', 511);
    out[511] = '\0';
    index = kUntouched;
    ret = -1;
    p = which;
    auto outcome = testkit::run([] {
        switch (p) {
            case Name: cl_ParseName(text, out); break;
            case Orn0: cl_ParseORN(text, out, 0); break;
            case Node: ret = cl_ParseNameLoclAddr(text, out); break;
            case NodeMarker: ret = cl_ParseNameLoclAddr2(text, out, 1); break;
            case Local: cl_ParseLoclAddr(text, out); break;
            case Full: ret = cl_ParseFullOrn(text, out, &index); break;
            case FullMarker: ret = cl_ParseFullOrn2(text, out, &index, 1); break;
        }
    });
    return {outcome, text, show(out), ret, index};
}

const std::string s40(40, 's'), g16(16, 'g'), u32(32, 'u'), o64(64, 'o'), v128(128, 'v');
const std::string kNode = "Smith" + std::string(4084, ' ') + "/Sales";  // a name part of 4095

// Each table runs untraced and traced: tracing judges the bytes another way.
class Levels : public ::testing::TestWithParam<int> {
protected:
    void SetUp() override { er_SubSystemLoggingLevel = GetParam(); }
    void TearDown() override { er_SubSystemLoggingLevel = 0; }
};
INSTANTIATE_TEST_SUITE_P(Parse, Levels, ::testing::Values(0, 10));

TEST_P(Levels, AcceptedFieldByField) {
    struct Case {
        Parser parser;
        std::string typed, fields;
        int ret;
    } cases[] = {
        {Name, "Smith", "Smith||||", -1}, {Name, "John Smith", "Smith|John|||", -1},
        {Name, "John Q. Smith", "Smith|John|Q||", -1}, {Name, "J.R.R. Gruteda", "Gruteda||JRR||", -1},
        {Name, "John Smith Jr.", "Smith|John||Jr|", -1}, {Name, "Smith Jr.", "Smith|||Jr|", -1},
        {Name, "John Q. Smith III.", "Smith|John|Q|III|", -1}, {Name, "Mary_Ann Smith", "Smith|Mary Ann|||", -1},
        {Name, "John Smith Jr.X", "Smith|John||Jr|", -1}, {Name, "Smith;John", "Smith,John||||", -1},
        {Name, "Smith|Sales", "Smith/Sales||||", -1}, {Name, "{Jo} Smith", "Smith|(Jo)|||", -1},
        {Name, "Smith\x1F", "Smith\\x1F||||", -1},
        {Orn0, "", "||||", -1}, {Orn0, "   ", "||||", -1}, {Orn0, "Smith.", "||Smith||", -1},
        // bounds, exactly at
        {Name, s40, s40 + "||||", -1}, {Name, g16 + " Smith", "Smith|" + g16 + "|||", -1},
        {Name, "AB.CDE. Smith", "Smith||ABCDE||", -1}, {Name, "Smith I.II.", "Smith|||III|", -1},
        {Name, std::string(39, 's') + "_", std::string(39, 's') + " ||||", -1},
        {Node, "Smith/" + u32 + ",x", "Smith||||" + u32 + "|x||", 1}, {Local, u32, "||||" + u32 + "|||", -1},
        // names with mail nodes
        {Node, "John Smith / Sales, London", "Smith|John|||Sales|London||", 1},
        {Node, "Smith Jr./Sales", "Smith|||Jr|Sales|||", 1}, {Node, "John Smith", "Smith|John||||||", 0},
        {Node, "Smith/", "Smith|||||||", 0}, {Node, "Smith/,", "Smith|||||||", 0},
        {Node, "Smith/A,B,C,D", "Smith||||A|B|C|D", 1}, {Node, "Smith/Sales,,Dev", "Smith||||Sales||Dev|", 1},
        {Node, "Smith/Sales_Dept", "Smith||||Sales Dept|||", 1}, {Node, "Smith/S|D!E;F", "Smith||||S/D.E,F|||", 1},
        {Node, "/Sales", "||||Sales|||", 1}, {Node, "J.Smith/Sales", "Smith||J||Sales|||", 1},
        {NodeMarker, "Sm\x1F/Sa\x1F,\x1F", "Sm\\x1F||||Sa\\x1F|\\x1F||", 1},
        // local addresses
        {Local, " Sales , London ", "||||Sales|London||", -1}, {Local, "Sales,,Dev", "||||Sales||Dev|", -1},
        {Local, "A_1,B!2,C|3,D\x1F", "||||A 1|B.2|C/3|D\\x1F", -1},
        // full names: standard values from field 8, extensions from field 15
        {Full, "Smith", "Smith|||||||", 0}, {Full, "Smith/  ", "Smith|||||||", 0},
        {Full, "Smith/()", "Smith|||||||||||||||||", 1}, {Full, "Smith/( )", "Smith|||||||||||||||||", 1},
        {Full, "Smith/Sales", "Smith||||Sales|||", 1},
        {Full, "Smith//val8", "Smith||||||||val8|", 1}, {Full, "Smith/ /val8", "Smith||||||||val8|", 1},
        {Full, "Smith//" + o64, "Smith||||||||" + o64 + "|", 1},
        {Full, "Smith/Sales//GB", "Smith||||Sales|||||GB|", 1},
        {Full, "Smith/S/ a_b!c{d} \t", "Smith||||S||||a b.c(d)|", 1},
        {Full, "Smith/Sales(x)", "Smith||||Sales|||||||||||KVNEXT1|x|", 1},
        {Full, "Smith/(ref|x)", "Smith|||||||||||||||ref|x|", 1},
        {Full, "Smith/( |x)", "Smith|||||||||||||||KVNEXT1|x|", 1},
        {Full, "Smith/(|x)", "Smith|||||||||||||||KVNEXT1|x|", 1},
        {Full, "Smith/(ref|)", "Smith|||||||||||||||ref||", 1},
        {Full, "Smith/( ref |  v w )", "Smith|||||||||||||||ref |v w |", 1},
        {Full, "Smith/(abcdefgh|" + v128 + ")", "Smith|||||||||||||||abcdefgh|" + v128 + "|", 1},
        {Full, "Smith/(a)junk (b)(c)(d) ", "Smith|||||||||||||||KVNEXT1|a|KVNEXT2|b|KVNEXT3|c|KVNEXT4|d|", 1},
        {Full, "Smith(x|y)", "Smith(x/y)|||||||", 0},
        {Full, "John Smith/Sales,London/val8//val10(ref|A-17)(note)",
         "Smith|John|||Sales|London|||val8||val10|||||ref|A-17|KVNEXT2|note|", 1},
        {Full, "Smith//o/GB/A/P/123/term/456/", "Smith||||||||o|GB|A|P|123|term|456||", 1},
        {Full, "Smith" + std::string(4090, ' '), "Smith|||||||", 0},
        {Full, kNode + "/o", "Smith||||Sales||||o|", 1},
        // a marker at the end of a standard value, or alone
        {FullMarker, "Smith/Sales/o/GB\x1F/\x1F", "Smith||||Sales||||o|GB\\x1F|\\x1F|", 1},
    };
    for (const auto &c : cases) {
        Parsed p = parse(c.parser, c.typed);
        EXPECT_FALSE(p.outcome.escaped) << show(c.typed) << " reason " << p.outcome.reason;
        EXPECT_FALSE(p.outcome.pending_after) << show(c.typed);
        EXPECT_EQ(p.result, c.fields) << show(c.typed);
        EXPECT_EQ(p.ret, c.ret) << show(c.typed);
        EXPECT_EQ(p.index, kUntouched) << show(c.typed);
    }
}

// The positional parsers leave the result untouched; the full-name parser
// sets the index for a bad extension attribute only.
TEST_P(Levels, EveryReason) {
    struct Case {
        Parser parser;
        std::string typed;
        int reason, index = kUntouched;
    } cases[] = {
        {Name, s40 + "s", 8006},         {Name, g16 + "g Smith", 8007},      {Name, "Smith Junior.", 8008},
        {Name, "John Smith.", 8008},     {Name, "Smith I.II.V.", 8008},     {Name, "AB.CDE.F. Smith", 8009},
        {Name, "Smith, John", 8011},     {Name, "John Smith Brown", 8012},  {Name, "Mary Ann Smith", 8012},
        {Name, "J. Smith Brown", 8012},  {Name, "Smith/Sales", 8013},       {Name, "Smith#", 8013},
        {Name, "Sm\tith", 8013},         {Name, "Sm\x1Dith", 8013},         {Name, "Sm\xC3\xA9th", 8013},
        {Name, "", 8014},                {Name, "   ", 8014},               {Name, "Smith.", 8014},
        {Node, "Smith/A,B,C,D,E", 8003}, {Node, "Smith/A,B,C,D,", 8003},    {Node, "Smith/" + u32 + "u,x", 8004},
        {Node, "Smith/x," + u32 + "u", 8004}, {Node, "Smith/Sales Dept", 8005}, {Node, "Smith/Sales/Dev", 8005},
        {Node, "Smith/Sales.Dev", 8010}, {Node, "Smith,John/Sales", 8011},  {Node, "John Smith Brown/S", 8012},
        {Node, "Smith\x1F/Sales", 8013}, {Node, "Smith/Sa\x1F", 8013},      {Node, "Smith/,Dev", 8082},
        {Node, "Smith/Sales,,Dev,X", 8082}, {Node, "Smith Junior./Sales", 8008},
        {Local, "A,B,C,D,E", 8003},      {Local, "A,B,C,D,", 8003},         {Local, u32 + "u", 8004},
        {Local, "Smith/Sales", 8005},    {Local, "Sales Dept", 8005},       {Local, "Sales.Dev", 8010},
        {Local, "Sal#", 8013},           {Local, "", 8016},                 {Local, ",Sales", 8016},
        // full names: a bad standard value gives its field's reason
        {Full, "Smith" + std::string(4091, ' '), 9801}, {Full, " " + kNode + "/o", 9801},
        {Full, "Smith, John/Sales/o", 8011},
        {Full, "Smith//" + o64 + "o", 9811},  {Full, "Smith//o#", 9811},
        {Full, "Smith/S/o/G", 9812},          {Full, "Smith/S/o/12", 9812},
        {Full, "Smith/S/o/GB/" + std::string(17, 'a'), 9816},
        {Full, "Smith/S/o/GB/A/" + std::string(17, 'p'), 9813},
        {Full, "Smith/S/o/GB/A/P/12a", 9817},
        {Full, "Smith/S/o/GB/A/P/1/" + std::string(25, 't'), 9814},
        {Full, "Smith/S/o/GB/A/P/1/t/" + std::string(33, '2'), 9818},
        {Full, "Smith/S/o/GB/A/P/1/t/2/extra", 9815},
        {Full, "Smith/S/o/GB/A/P/1/t/2/(x)", 9815},  // an empty eighth value would shift the extensions
        {Full, "Smith/(a|b|c)", 9832, 1}, {Full, "Smith/(x)(a|b|c)", 9832, 2}, {Full, "Smith/(abcdefghi|x)", 9833, 1},
        {Full, "Smith/(a)(b)(c)(x", 9834, 4}, {Full, "Smith/(ref|x", 9834, 1}, {Full, "Smith/(" + v128 + "v)", 9835, 1},
        {Full, "Smith/(a)(b)(c)(d)(e)", 9806},
        // a separator byte in an extension attribute would move the fields after it
        {Full, "Smith/S(a\x1D" "b)", 8013}, {Full, "Smith/S(a\x17" "b)", 8013}, {Full, "Smith/S(t\x17|v)", 8013},
        {Full, "Smith(x)/Sales(ref|\x17\x17\x17\x17\x17" "b)", 8013},
        // the marker: checked without it, alone only in fields 8 to 14
        {Full, "Smith/Sales/o/GB\x1F", 9812},     {FullMarker, "Smith/Sales/o/G\x1F", 9812},
        {FullMarker, "Smith/Sales/o/G\x1F" "B", 9812},
        {FullMarker, "Smith/Sales" + std::string(7, '/') + "/\x1F", 9815},
        {FullMarker, "Smith/Sales" + std::string(160, '/') + "/\x1F", 9815},
    };
    for (const auto &c : cases) {
        Parsed p = parse(c.parser, c.typed);
        EXPECT_TRUE(p.outcome.is(100, c.reason)) << show(c.typed) << " gave " << p.outcome.reason;
        EXPECT_EQ(p.index, c.index) << show(c.typed);
        if (c.parser < Full) {
            EXPECT_EQ(p.result, kUntouchedResult) << show(c.typed);
        }
    }
}

TEST(Parse, TextIsCompactedAndMappedInPlace) {
    struct Case {
        Parser parser;
        const char *typed, *after;
    } cases[] = {
        {Name, "Mary_Ann  Smith ", "Mary Ann Smith"},  {Name, "  J. R.  Smith ", "J.R.Smith"},
        {Node, "Smith / Sales , Dev", "Smith/Sales,Dev"}, {Name, "John Smith .", "John Smith."},
        // a refused name keeps what the pre-pass and the replacements did so far
        {Name, "Van_Dyke  Smith, J", "Van Dyke Smith,J"},
        // a name and mail node alone are parsed in the caller's text; otherwise a copy
        {Full, "John  Smith / Sales_Dept", "John Smith/Sales Dept"},
        {Full, "John  Smith / Sales_Dept/o", "John  Smith / Sales_Dept/o"},
    };
    for (const auto &c : cases) EXPECT_EQ(parse(c.parser, c.typed).text, c.after) << c.typed;
}

TEST(Parse, TranslatedEscapeReplacesTheOriginal) {
    static char text[64], out[512];
    static int index, reason, live_after_clear;
    static const char *file;
    std::strcpy(text, "Smith/Sales/o/G");
    cl::protect({"tests/parse_test", __LINE__}, [] { cl_ParseFullOrn(text, out, &index); },
                [] {
                    reason = er_GetGroup() * 10000 + er_GetReason();
                    file = er_GetFile();
                    er_Clear();
                    live_after_clear = er_GetLive();
                });
    EXPECT_EQ(reason, 100 * 10000 + 9812);
    EXPECT_STREQ(file, "cl/cl_ExtPars");
    EXPECT_EQ(live_after_clear, 0);  // the replaced 9804 is gone
}

// The attribute part alone, appended to a name's packed text. Both entry
// points set the error index before the escape goes on; only the second
// takes the marker.
TEST(ExternalAttribs, ResultOrReasonAndIndex) {
    struct Case {
        std::string attrs;
        int marker;
        std::string fields;  // or the reason
        int reason, index;
    } cases[] = {
        {"/o(x)", 0, "Smith||||||||o|||||||KVNEXT1|x|", 0, 0}, {"/o/GB\x1F", 1, "Smith||||||||o|GB\\x1F|", 0, 0},
        {"/o/GB\x1F", 0, "", 9804, 9}, {"x/o", 0, "", 9805, 0}, {"/o/GBR", 0, "", 9804, 9},
        {"/o/GB/A/P/1/t/2/x", 0, "", 9804, 15}, {"/o/" + std::string(65, 'c'), 0, "", 9803, 9},
        {"(a)(b|c|d)", 0, "", 9832, 2}, {"(a)(b)(c)(d)(e)", 0, "", 9806, 0},
    };
    for (const auto &c : cases) {
        for (bool wrapper : {false, true}) {
            if (wrapper && c.marker) continue;
            static char tf[1024], attrs[256];
            static int index;
            static bool use_wrapper;
            static int marker;
            std::strcpy(tf, "Smith");
            std::strcpy(attrs, c.attrs.c_str());
            index = -1;
            use_wrapper = wrapper;
            marker = c.marker;
            auto outcome = testkit::run([] {
                if (use_wrapper)
                    cl_ParseExternalAttribs(tf, attrs, &index);
                else
                    cl_ParseExternalAttribs2(tf, attrs, &index, marker);
            });
            EXPECT_EQ(outcome.escaped ? outcome.reason : 0, c.reason) << show(c.attrs) << " wrapper " << wrapper;
            EXPECT_EQ(index, c.index) << show(c.attrs);
            if (!c.reason) {
                EXPECT_EQ(show(tf), c.fields) << show(c.attrs);
            }
        }
    }
}

}  // namespace
