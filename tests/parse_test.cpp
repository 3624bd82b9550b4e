// Personal names, names with mail nodes, and local addresses.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "testkit.hpp"

namespace {

using testkit::show;

enum Parser { Name, Orn0, Node, NodeMarker, Local };

struct Parsed {
    testkit::Outcome outcome;
    std::string text, result;  // the caller's text afterwards; readable result
    int ret;
};

// Runs a parser on a writable copy of input. The result buffer is filled
// with a sentinel first, so that an untouched buffer shows.
Parsed parse(Parser which, const std::string &input) {
    static char text[8192], out[512];
    static volatile int ret;
    std::memcpy(text, input.c_str(), input.size() + 1);
    std::memset(out, '@', sizeof out - 1);
    out[sizeof out - 1] = '\0';
    ret = -1;
    auto outcome = testkit::run([which] {
        switch (which) {
            case Name: cl_ParseName(text, out); break;
            case Orn0: cl_ParseORN(text, out, 0); break;
            case Node: ret = cl_ParseNameLoclAddr(text, out); break;
            case NodeMarker: ret = cl_ParseNameLoclAddr2(text, out, 1); break;
            case Local: cl_ParseLoclAddr(text, out); break;
        }
    });
    return {outcome, text, show(out), ret};
}

const std::string s40(40, 's'), g16(16, 'g'), u32(32, 'u');

TEST(Parse, AcceptedFieldByField) {
    struct Case {
        Parser parser;
        std::string typed;
        std::string fields;
        int ret;
    } cases[] = {
        {Name, "Smith", "Smith||||", -1},            {Name, "John Smith", "Smith|John|||", -1},
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
    };
    for (const auto &c : cases) {
        Parsed p = parse(c.parser, c.typed);
        EXPECT_FALSE(p.outcome.escaped) << show(c.typed) << " reason " << p.outcome.reason;
        EXPECT_EQ(p.result, c.fields) << show(c.typed);
        EXPECT_EQ(p.ret, c.ret) << show(c.typed);
    }
}

TEST(Parse, EveryReasonLeavesTheResultUntouched) {
    struct Case {
        Parser parser;
        std::string typed;
        int reason;
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
    };
    for (const auto &c : cases) {
        Parsed p = parse(c.parser, c.typed);
        EXPECT_TRUE(p.outcome.is(100, c.reason)) << show(c.typed) << " gave " << p.outcome.reason;
        EXPECT_EQ(p.result, std::string(511, '@')) << show(c.typed);
    }
}

TEST(Parse, TextIsCompactedAndMappedInPlace) {
    EXPECT_EQ(parse(Name, "Mary_Ann  Smith ").text, "Mary Ann Smith");
    EXPECT_EQ(parse(Name, "  J. R.  Smith ").text, "J.R.Smith");
    EXPECT_EQ(parse(Node, "Smith / Sales , Dev").text, "Smith/Sales,Dev");
    EXPECT_EQ(parse(Name, "John Smith .").text, "John Smith.");
    // A refused name keeps what the pre-pass and the replacements did so far.
    EXPECT_EQ(parse(Name, "Van_Dyke  Smith, J").text, "Van Dyke Smith,J");
}

TEST(Parse, TracedUnderOwnNamesWithoutExitOnEscape) {
    const int level = er_SubSystemLoggingLevel;
    er_SubSystemLoggingLevel = 10;
    {
        testkit::TraceCapture capture;
        parse(Node, "Smith");
        for (const char *fn : {"cl_ParseNameLoclAddr", "cl_ParseNameLoclAddr2", "RemoveRedundantSpaces"})
            EXPECT_EQ(capture.named(fn).size(), 2u) << fn;
        EXPECT_EQ(capture.named("IllegalCharacter").size(), 10u);  // five letters
        capture.clear();
        parse(Name, "Smith#");
        EXPECT_EQ(capture.named("cl_ParseORN"), (std::vector<testkit::TraceRecord>{{19, "cl_ParseORN", 1}}));
    }
    er_SubSystemLoggingLevel = 9;
    testkit::TraceCapture quiet;
    parse(Name, "Smith");
    EXPECT_TRUE(quiet.records().empty());
    er_SubSystemLoggingLevel = level;
}

}  // namespace
