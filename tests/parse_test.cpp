// Personal names, names with mail nodes, and local addresses.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "testkit.hpp"

namespace {

using testkit::show;

enum class Parser { Name, Orn0, NameNode, NameNodeMarker, Local };

struct Parsed {
    testkit::Outcome outcome;
    std::string text;    // the caller's text afterwards
    std::string result;  // readable packed result
    int ret = -1;
};

// Runs a parser on a writable copy of input; the result buffer is filled
// with a sentinel first so that an untouched buffer can be recognised.
Parsed parse(Parser which, const std::string &input) {
    static char text[8192];
    static char out[512];
    std::memcpy(text, input.c_str(), input.size() + 1);
    std::memset(out, '@', sizeof out - 1);
    out[sizeof out - 1] = '\0';
    static volatile int ret;
    ret = -1;
    Parsed p;
    p.outcome = testkit::run([which] {
        switch (which) {
            case Parser::Name: cl_ParseName(text, out); break;
            case Parser::Orn0: cl_ParseORN(text, out, 0); break;
            case Parser::NameNode: ret = cl_ParseNameLoclAddr(text, out); break;
            case Parser::NameNodeMarker: ret = cl_ParseNameLoclAddr2(text, out, 1); break;
            case Parser::Local: cl_ParseLoclAddr(text, out); break;
        }
    });
    p.text = text;
    p.result = show(out);
    p.ret = ret;
    return p;
}

const std::string kSentinel(511, '@');

TEST(PersonalName, TypicalInputFieldByField) {
    struct Case {
        const char *typed, *fields;
    } cases[] = {
        {"Smith", "Smith||||"},
        {"John Smith", "Smith|John|||"},
        {"John Q. Smith", "Smith|John|Q||"},
        {"J.R.R. Gruteda", "Gruteda||JRR||"},
        {"John Smith Jr.", "Smith|John||Jr|"},
        {"Smith Jr.", "Smith|||Jr|"},
        {"John Q. Smith III.", "Smith|John|Q|III|"},
        {"Mary_Ann Smith", "Smith|Mary Ann|||"},
        {"Smith I.I.I.", "Smith|||III|"},
        {"John Smith Jr.X", "Smith|John||Jr|"},
        {"Smith;John", "Smith,John||||"},
        {"Smith|Sales", "Smith/Sales||||"},
        {"{Jo} Smith", "Smith|(Jo)|||"},
        {"Smith\x1F", "Smith\\x1F||||"},
    };
    for (const auto &c : cases) {
        Parsed p = parse(Parser::Name, c.typed);
        EXPECT_FALSE(p.outcome.escaped) << c.typed << " reason " << p.outcome.reason;
        EXPECT_EQ(p.result, c.fields) << c.typed;
    }
}

TEST(PersonalName, EveryReason) {
    struct Case {
        Parser parser;
        std::string typed;
        int reason;
    } cases[] = {
        {Parser::Name, std::string(41, 'S'), 8006},
        {Parser::Name, std::string(17, 'G') + " Smith", 8007},
        {Parser::Name, "Smith Junior.", 8008},
        {Parser::Name, "John Smith.", 8008},
        {Parser::Name, "ABCDEF.Smith", 8009},
        {Parser::Name, "Smith, John", 8011},
        {Parser::Name, "John Smith Brown", 8012},
        {Parser::Name, "Mary Ann Smith", 8012},
        {Parser::Name, "J. Smith Brown", 8012},
        {Parser::Name, "Smith/Sales", 8013},
        {Parser::Name, "Smith#", 8013},
        {Parser::Name, "Sm\tith", 8013},
        {Parser::Name, "Sm\x1Dith", 8013},
        {Parser::Name, "Sm\xC3\xA9th", 8013},
        {Parser::Name, "", 8014},
        {Parser::Name, "   ", 8014},
        {Parser::Name, "Smith.", 8014},
    };
    for (const auto &c : cases) {
        Parsed p = parse(c.parser, c.typed);
        EXPECT_TRUE(p.outcome.is(100, c.reason)) << show(c.typed) << " gave " << p.outcome.reason;
        EXPECT_EQ(p.result, kSentinel) << show(c.typed);
    }
}

TEST(PersonalName, EmptySurnameAcceptedWhenNotRequired) {
    EXPECT_EQ(parse(Parser::Orn0, "").result, "||||");
    EXPECT_EQ(parse(Parser::Orn0, "   ").result, "||||");
    EXPECT_EQ(parse(Parser::Orn0, "Smith.").result, "||Smith||");
}

TEST(PersonalName, BoundsExactlyAtAndOnePast) {
    const std::string s40(40, 's'), g16(16, 'g');
    EXPECT_EQ(parse(Parser::Name, s40).result, s40 + "||||");
    EXPECT_TRUE(parse(Parser::Name, s40 + "s").outcome.is(100, 8006));
    EXPECT_EQ(parse(Parser::Name, g16 + " Smith").result, "Smith|" + g16 + "|||");
    EXPECT_TRUE(parse(Parser::Name, g16 + "g Smith").outcome.is(100, 8007));
    EXPECT_EQ(parse(Parser::Name, "AB.CDE. Smith").result, "Smith||ABCDE||");
    EXPECT_TRUE(parse(Parser::Name, "AB.CDE.F. Smith").outcome.is(100, 8009));
    EXPECT_EQ(parse(Parser::Name, "Smith I.II.").result, "Smith|||III|");
    EXPECT_TRUE(parse(Parser::Name, "Smith I.II.V.").outcome.is(100, 8008));
    // Substitutes count as one character each.
    EXPECT_EQ(parse(Parser::Name, std::string(39, 's') + "_").result, std::string(39, 's') + " ||||");
}

TEST(PersonalName, TextIsCompactedAndMappedInPlace) {
    EXPECT_EQ(parse(Parser::Name, "Mary_Ann  Smith ").text, "Mary Ann Smith");
    EXPECT_EQ(parse(Parser::Name, "  J. R.  Smith ").text, "J.R.Smith");
    EXPECT_EQ(parse(Parser::NameNode, "Smith / Sales , Dev").text, "Smith/Sales,Dev");
    EXPECT_EQ(parse(Parser::Name, "John Smith .").text, "John Smith.");
    // A refused name keeps what the pre-pass and the replacements did so far.
    Parsed refused = parse(Parser::Name, "Van_Dyke  Smith, J");
    EXPECT_TRUE(refused.outcome.is(100, 8011));
    EXPECT_EQ(refused.text, "Van Dyke Smith,J");
}

TEST(NameAndNode, TypicalInputFieldByField) {
    struct Case {
        const char *typed, *fields;
        int ret;
    } cases[] = {
        {"John Smith / Sales, London", "Smith|John|||Sales|London||", 1},
        {"Smith Jr./Sales", "Smith|||Jr|Sales|||", 1},
        {"John Smith", "Smith|John||||||", 0},
        {"Smith/", "Smith|||||||", 0},
        {"Smith/,", "Smith|||||||", 0},
        {"Smith/A,B,C,D", "Smith||||A|B|C|D", 1},
        {"Smith/Sales,,Dev", "Smith||||Sales||Dev|", 1},
        {"Smith/Sales_Dept", "Smith||||Sales Dept|||", 1},
        {"Smith/Sales|Dev", "Smith||||Sales/Dev|||", 1},
        {"Smith/Sales!Dev", "Smith||||Sales.Dev|||", 1},
        {"Smith/Sales;Dev", "Smith||||Sales,Dev|||", 1},
        {"/Sales", "||||Sales|||", 1},
        {"J.Smith/Sales", "Smith||J||Sales|||", 1},
    };
    for (const auto &c : cases) {
        Parsed p = parse(Parser::NameNode, c.typed);
        EXPECT_FALSE(p.outcome.escaped) << c.typed << " reason " << p.outcome.reason;
        EXPECT_EQ(p.result, c.fields) << c.typed;
        EXPECT_EQ(p.ret, c.ret) << c.typed;
    }
}

TEST(NameAndNode, EveryReason) {
    struct Case {
        const char *typed;
        int reason;
    } cases[] = {
        {"Smith/A,B,C,D,E", 8003},      {"Smith/A,B,C,D,", 8003},
        {"Smith/Sales Dept", 8005},     {"Smith/Sales/Dev", 8005},
        {"Smith/Sales.Dev", 8010},      {"Smith,John/Sales", 8011},
        {"John Smith Brown/Sales", 8012}, {"Smith\x1F/Sales", 8013},
        {"Smith/Sal\x7F", 8013},        {"Smith/,Dev", 8082},
        {"Smith/Sales,,Dev,X", 8082},   {"Smith Junior./Sales", 8008},
    };
    for (const auto &c : cases) {
        Parsed p = parse(Parser::NameNode, c.typed);
        EXPECT_TRUE(p.outcome.is(100, c.reason)) << show(c.typed) << " gave " << p.outcome.reason;
        EXPECT_EQ(p.result, kSentinel) << show(c.typed);
    }
}

TEST(NameAndNode, UnitBoundsAndMarker) {
    const std::string u32(32, 'u');
    EXPECT_EQ(parse(Parser::NameNode, "Smith/" + u32 + ",x").result, "Smith||||" + u32 + "|x||");
    EXPECT_TRUE(parse(Parser::NameNode, "Smith/" + u32 + "u,x").outcome.is(100, 8004));
    EXPECT_EQ(parse(Parser::NameNode, "Smith/x," + u32).result, "Smith||||x|" + u32 + "||");
    EXPECT_TRUE(parse(Parser::NameNode, "Smith/x," + u32 + "u").outcome.is(100, 8004));

    Parsed marked = parse(Parser::NameNodeMarker, "Sm\x1F/Sa\x1F,\x1F");
    EXPECT_FALSE(marked.outcome.escaped);
    EXPECT_EQ(marked.result, "Sm\\x1F||||Sa\\x1F|\\x1F||");
    EXPECT_TRUE(parse(Parser::NameNode, "Smith/Sa\x1F").outcome.is(100, 8013));
}

TEST(LocalAddress, FieldsAndReasons) {
    Parsed ok = parse(Parser::Local, " Sales , London ");
    EXPECT_FALSE(ok.outcome.escaped);
    EXPECT_EQ(ok.result, "||||Sales|London||");
    EXPECT_EQ(ok.text, "Sales,London");
    EXPECT_EQ(parse(Parser::Local, "Sales,,Dev").result, "||||Sales||Dev|");
    EXPECT_EQ(parse(Parser::Local, "A_1,B!2,C|3,D\x1F").result, "||||A 1|B.2|C/3|D\\x1F");
    EXPECT_EQ(parse(Parser::Local, std::string(32, 'u')).result, "||||" + std::string(32, 'u') + "|||");

    struct Case {
        std::string typed;
        int reason;
    } cases[] = {
        {"A,B,C,D,E", 8003}, {"A,B,C,D,", 8003}, {std::string(33, 'u'), 8004},
        {"Smith/Sales", 8005}, {"Sales Dept", 8005}, {"Sales.Dev", 8010},
        {"Sal#", 8013}, {"", 8016}, {",Sales", 8016},
    };
    for (const auto &c : cases) {
        Parsed p = parse(Parser::Local, c.typed);
        EXPECT_TRUE(p.outcome.is(100, c.reason)) << c.typed << " gave " << p.outcome.reason;
        EXPECT_EQ(p.result, kSentinel) << c.typed;
    }
}

TEST(Tracing, EntryAndExitUnderOwnNamesAndNoExitOnEscape) {
    const int level = er_SubSystemLoggingLevel;
    er_SubSystemLoggingLevel = 10;
    {
        testkit::TraceCapture capture;
        parse(Parser::NameNode, "Smith");
        EXPECT_EQ(capture.named("cl_ParseNameLoclAddr").size(), 2u);
        EXPECT_EQ(capture.named("cl_ParseNameLoclAddr2").size(), 2u);
        EXPECT_EQ(capture.named("RemoveRedundantSpaces").size(), 2u);
        EXPECT_EQ(capture.named("IllegalCharacter").size(), 10u);  // five letters
        capture.clear();
        parse(Parser::Name, "Smith#");
        auto records = capture.named("cl_ParseORN");
        ASSERT_EQ(records.size(), 1u);
        EXPECT_EQ(records[0].entry, 1);
    }
    er_SubSystemLoggingLevel = 9;
    {
        testkit::TraceCapture capture;
        parse(Parser::Name, "Smith");
        EXPECT_TRUE(capture.records().empty());
    }
    er_SubSystemLoggingLevel = level;
}

}  // namespace
