// Typed names into packed fields: personal names, names with mail nodes,
// local addresses and full names with standard and extension attributes.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>

#include "frame.hpp"
#include "testkit.hpp"

namespace {

using testkit::show;

// Attrs parsers read an attribute part appended to a name's packed text.
enum Parser { Name, Orn0, Node, NodeMarker, Local, Full, FullMarker, Attrs, AttrsMarker, AttrsWrapper };
constexpr int kUntouched = -7;

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
    if (which >= Attrs) std::strcpy(out, "Smith");  // a name's packed fields
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
            case Attrs: cl_ParseExternalAttribs2(out, text, &index, 0); break;
            case AttrsMarker: cl_ParseExternalAttribs2(out, text, &index, 1); break;
            case AttrsWrapper: cl_ParseExternalAttribs(out, text, &index); break;
        }
    });
    return {outcome, text, show(out), outcome.escaped ? outcome.reason : ret, index};
}

const std::string s40(40, 's'), g16(16, 'g'), u32(32, 'u'), o64(64, 'o'), v128(128, 'v'), kUntouchedResult(511, '@');
const std::string kNode = "Smith" + std::string(4084, ' ') + "/Sales";  // a name part of 4095

// Each row gives the packed fields and what the parser returns (-1: nothing),
// or no fields and the reason of the escape. The positional parsers leave
// the result untouched when they refuse; the full-name parser sets the
// index for a bad extension attribute only, and the attribute parsers
// always set it, before the escape goes on. The table runs untraced and
// traced: tracing judges the bytes on another path.
TEST(Parse, FieldsOrReason) {
    struct Case {
        Parser parser;
        std::string typed, fields;
        int ret = -1, index = kUntouched;
    } cases[] = {
        {Name, "Smith", "Smith||||"}, {Name, "John Smith", "Smith|John|||"}, {Name, "John Q. Smith", "Smith|John|Q||"},
        {Name, "J.R.R. Gruteda", "Gruteda||JRR||"}, {Name, "John Smith Jr.", "Smith|John||Jr|"},
        {Name, "Smith Jr.", "Smith|||Jr|"}, {Name, "John Q. Smith III.", "Smith|John|Q|III|"},
        {Name, "Mary_Ann Smith", "Smith|Mary Ann|||"}, {Name, "John Smith Jr.X", "Smith|John||Jr|"},
        {Name, "Smith;John", "Smith,John||||"}, {Name, "Smith|Sales", "Smith/Sales||||"},
        {Name, "{Jo} Smith", "Smith|(Jo)|||"}, {Name, "Smith\x1F", "Smith\\x1F||||"}, {Orn0, "", "||||"},
        {Orn0, "   ", "||||"}, {Orn0, "Smith.", "||Smith||"},
        // bounds, exactly at and one over
        {Name, s40, s40 + "||||"}, {Name, g16 + " Smith", "Smith|" + g16 + "|||"},
        {Name, "AB.CDE. Smith", "Smith||ABCDE||"}, {Name, "Smith I.II.", "Smith|||III|"},
        {Name, std::string(39, 's') + "_", std::string(39, 's') + " ||||"},
        {Node, "Smith/" + u32 + ",x", "Smith||||" + u32 + "|x||", 1}, {Local, u32, "||||" + u32 + "|||"},
        {Name, s40 + "s", "", 8006}, {Name, g16 + "g Smith", "", 8007}, {Name, "AB.CDE.F. Smith", "", 8009},
        {Node, "Smith/" + u32 + "u,x", "", 8004}, {Node, "Smith/x," + u32 + "u", "", 8004},
        {Local, u32 + "u", "", 8004},
        // personal names refused
        {Name, "Smith Junior.", "", 8008}, {Name, "John Smith.", "", 8008}, {Name, "Smith I.II.V.", "", 8008},
        {Name, "Smith, John", "", 8011}, {Name, "John Smith Brown", "", 8012}, {Name, "Mary Ann Smith", "", 8012},
        {Name, "J. Smith Brown", "", 8012}, {Name, "Smith/Sales", "", 8013}, {Name, "Smith#", "", 8013},
        {Name, "Sm\tith", "", 8013}, {Name, "Sm\x1Dith", "", 8013}, {Name, "Sm\xC3\xA9th", "", 8013},
        {Name, "", "", 8014}, {Name, "   ", "", 8014}, {Name, "Smith.", "", 8014},
        // names with mail nodes
        {Node, "John Smith / Sales, London", "Smith|John|||Sales|London||", 1},
        {Node, "Smith Jr./Sales", "Smith|||Jr|Sales|||", 1}, {Node, "John Smith", "Smith|John||||||", 0},
        {Node, "Smith/", "Smith|||||||", 0}, {Node, "Smith/,", "Smith|||||||", 0},
        {Node, "Smith/A,B,C,D", "Smith||||A|B|C|D", 1}, {Node, "Smith/Sales,,Dev", "Smith||||Sales||Dev|", 1},
        {Node, "Smith/Sales_Dept", "Smith||||Sales Dept|||", 1}, {Node, "Smith/S|D!E;F", "Smith||||S/D.E,F|||", 1},
        {Node, "/Sales", "||||Sales|||", 1}, {Node, "J.Smith/Sales", "Smith||J||Sales|||", 1},
        {NodeMarker, "Sm\x1F/Sa\x1F,\x1F", "Sm\\x1F||||Sa\\x1F|\\x1F||", 1}, {Node, "Smith/A,B,C,D,E", "", 8003},
        {Node, "Smith/A,B,C,D,", "", 8003}, {Node, "Smith/Sales Dept", "", 8005}, {Node, "Smith/Sales/Dev", "", 8005},
        {Node, "Smith/Sales.Dev", "", 8010}, {Node, "Smith,John/Sales", "", 8011},
        {Node, "John Smith Brown/S", "", 8012}, {Node, "Smith\x1F/Sales", "", 8013}, {Node, "Smith/Sa\x1F", "", 8013},
        {Node, "Smith/,Dev", "", 8082}, {Node, "Smith/Sales,,Dev,X", "", 8082}, {Node, "Smith Junior./Sales", "", 8008},
        // local addresses
        {Local, " Sales , London ", "||||Sales|London||"}, {Local, "Sales,,Dev", "||||Sales||Dev|"},
        {Local, "A_1,B!2,C|3,D\x1F", "||||A 1|B.2|C/3|D\\x1F"}, {Local, "A,B,C,D,E", "", 8003},
        {Local, "A,B,C,D,", "", 8003}, {Local, "Smith/Sales", "", 8005}, {Local, "Sales Dept", "", 8005},
        {Local, "Sales.Dev", "", 8010}, {Local, "Sal#", "", 8013}, {Local, "", "", 8016}, {Local, ",Sales", "", 8016},
        // full names: standard values from field 8, extensions from field 15
        {Full, "Smith", "Smith|||||||", 0}, {Full, "Smith/  ", "Smith|||||||", 0},
        {Full, "Smith/()", "Smith|||||||||||||||||", 1}, {Full, "Smith/( )", "Smith|||||||||||||||||", 1},
        {Full, "Smith/Sales", "Smith||||Sales|||", 1}, {Full, "Smith//val8", "Smith||||||||val8|", 1},
        {Full, "Smith/Sales/", "Smith||||Sales|||||", 1}, {Full, "Smith//", "Smith|||||||||", 1},
        {Full, "Smith/ /val8", "Smith||||||||val8|", 1}, {Full, "Smith//" + o64, "Smith||||||||" + o64 + "|", 1},
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
        {Full, "Smith" + std::string(4090, ' '), "Smith|||||||", 0}, {Full, kNode + "/o", "Smith||||Sales||||o|", 1},
        {FullMarker, "Smith/Sales/o/GB\x1F/\x1F", "Smith||||Sales||||o|GB\\x1F|\\x1F|", 1},
        // full names refused: a bad standard value gives its field's reason; an empty eighth value
        // would shift the extensions
        {Full, "Smith" + std::string(4091, ' '), "", 9801}, {Full, " " + kNode + "/o", "", 9801},
        {Full, "Smith, John/Sales/o", "", 8011}, {Full, "Smith//" + o64 + "o", "", 9811}, {Full, "Smith//o#", "", 9811},
        {Full, "Smith/S/o/G", "", 9812}, {Full, "Smith/S/o/12", "", 9812},
        {Full, "Smith/S/o/GB/" + std::string(17, 'a'), "", 9816},
        {Full, "Smith/S/o/GB/A/" + std::string(17, 'p'), "", 9813}, {Full, "Smith/S/o/GB/A/P/12a", "", 9817},
        {Full, "Smith/S/o/GB/A/P/1/" + std::string(25, 't'), "", 9814},
        {Full, "Smith/S/o/GB/A/P/1/t/" + std::string(33, '2'), "", 9818},
        {Full, "Smith/S/o/GB/A/P/1/t/2/extra", "", 9815}, {Full, "Smith/S/o/GB/A/P/1/t/2/(x)", "", 9815},
        {Full, "Smith/(a|b|c)", "", 9832, 1}, {Full, "Smith/(x)(a|b|c)", "", 9832, 2},
        {Full, "Smith/(abcdefghi|x)", "", 9833, 1}, {Full, "Smith/(a)(b)(c)(x", "", 9834, 4},
        {Full, "Smith/(ref|x", "", 9834, 1}, {Full, "Smith/(" + v128 + "v)", "", 9835, 1},
        {Full, "Smith/(a)(b)(c)(d)(e)", "", 9806},
        // a separator byte in an extension attribute would move the fields after it
        {Full, "Smith/S(a\x1D" "b)", "", 8013}, {Full, "Smith/S(a\x17" "b)", "", 8013},
        {Full, "Smith/S(t\x17|v)", "", 8013}, {Full, "Smith(x)/Sales(ref|\x17\x17\x17\x17\x17" "b)", "", 8013},
        // the marker: checked without it, alone only in fields 8 to 14
        {Full, "Smith/Sales/o/GB\x1F", "", 9812}, {FullMarker, "Smith/Sales/o/G\x1F", "", 9812},
        {FullMarker, "Smith/Sales/o/G\x1F" "B", "", 9812},
        {FullMarker, "Smith/Sales" + std::string(7, '/') + "/\x1F", "", 9815},
        {FullMarker, "Smith/Sales" + std::string(160, '/') + "/\x1F", "", 9815},
        // the attribute part alone, untranslated
        {Attrs, "/o(x)", "Smith||||||||o|||||||KVNEXT1|x|", -1, 0},
        {AttrsMarker, "/o/GB\x1F", "Smith||||||||o|GB\\x1F|", -1, 0}, {AttrsWrapper, "/o/GB\x1F", "", 9804, 9},
        {Attrs, "x/o", "", 9805, 0}, {AttrsWrapper, "/o/GBR", "", 9804, 9}, {Attrs, "/o/GB/A/P/1/t/2/x", "", 9804, 15},
        {AttrsWrapper, "/o/" + std::string(65, 'c'), "", 9803, 9}, {Attrs, "(a)(b|c|d)", "", 9832, 2},
        {AttrsWrapper, "(a)(b)(c)(d)(e)", "", 9806, 0},
    };
    for (int level : {0, 10}) {
        er_SubSystemLoggingLevel = level;
        for (const auto &c : cases) {
            Parsed p = parse(c.parser, c.typed);
            EXPECT_EQ(p.outcome.escaped, c.fields.empty()) << show(c.typed) << " gave " << p.outcome.reason;
            EXPECT_EQ(p.outcome.group, c.fields.empty() ? 100 : 0) << show(c.typed);
            EXPECT_FALSE(p.outcome.pending_after) << show(c.typed);
            EXPECT_EQ(p.ret, c.ret) << show(c.typed);
            EXPECT_EQ(p.index, c.index) << show(c.typed);
            if (!c.fields.empty()) {
                EXPECT_EQ(p.result, c.fields) << show(c.typed);
            } else if (c.parser < Full) {
                EXPECT_EQ(p.result, kUntouchedResult) << show(c.typed);
            }
        }
    }
    er_SubSystemLoggingLevel = 0;
}

TEST(Parse, TextIsCompactedAndMappedInPlace) {
    const std::tuple<Parser, const char *, const char *> cases[] = {
        {Name, "Mary_Ann  Smith ", "Mary Ann Smith"}, {Name, "  J. R.  Smith ", "J.R.Smith"},
        {Node, "Smith / Sales , Dev", "Smith/Sales,Dev"}, {Name, "John Smith .", "John Smith."},
        // a refused name keeps what the pre-pass and the replacements did so far
        {Name, "Van_Dyke  Smith, J", "Van Dyke Smith,J"},
        // a name and mail node alone are parsed in the caller's text; otherwise a copy
        {Full, "John  Smith / Sales_Dept", "John Smith/Sales Dept"},
        {Full, "John  Smith / Sales_Dept/o", "John  Smith / Sales_Dept/o"},
    };
    for (const auto &[parser, typed, after] : cases) EXPECT_EQ(parse(parser, typed).text, after) << typed;
}

// The reason given in place of a bad standard value's comes from the parser.
TEST(Parse, TranslatedEscapeNamesTheParser) {
    static char text[] = "Smith/Sales/o/G", out[512];
    static int index;
    static const char *file;
    cl::protect({"tests/parse_test", __LINE__}, [] { cl_ParseFullOrn(text, out, &index); }, [] {
        file = er_GetFile();
        er_Clear();
    });
    EXPECT_STREQ(file, "cl/cl_ExtPars");
}

}  // namespace
