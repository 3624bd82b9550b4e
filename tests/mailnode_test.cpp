// Mail nodes into packed text: the positional and place-holder forms, the
// trimming of fields, and 'name/mail node' with a result instead of escapes.
#include <gtest/gtest.h>

#include <string>

#include "testkit.hpp"

namespace {

using testkit::show;

std::string positional(const std::string &mailNode) {
    std::string out(mailNode.size() + 64, '\xAA');
    cl_PositionalMnToORN(out.data(), mailNode.c_str());
    return show(out.c_str());
}

TEST(PositionalMailNode, UnitsSlashesAndPadding) {
    struct Case {
        const char *typed;
        const char *expected;  // shown: 0x1D as '|'
    };
    const Case cases[] = {
        {"Sales,London", "||||Sales|London"},
        {"Sales", "||||Sales"},
        {"Sales/x", "||||Sales||||x"},          // the word lands in field 8
        {"Sales,London/x/y", "||||Sales|London|||x|y"},
        {"A,B,C,D,E", "||||A|B|C|D,E"},          // a fifth unit joins the fourth
        {"A,B,C,D/x", "||||A|B|C|D|x"},
        {"", "||||"},
        {" Sales , Lon don ", "||||Sales|Lon don"},  // trimmed, inner space kept
        {"Sales_Dept,R!D", "||||Sales Dept|R.D"},
        {"Sales_ ,x", "||||Sales |x"},           // trimming comes first
        {"a;b,{c}", "||||a,b|(c)"},
    };
    for (const Case &c : cases) EXPECT_EQ(positional(c.typed), c.expected) << c.typed;
}

TEST(PositionalMailNode, PlaceHolderPrefixAndTracing) {
    testkit::TraceCapture traces;
    char out[64];
    cl_MailNodeToPartORName(out, "Sales,London");
    EXPECT_EQ(show(out), "S|F|I|G|Sales|London");
    cl_PositionalMnToORN(out, "x");
    using R = testkit::TraceRecord;
    EXPECT_EQ(traces.named("cl_PositionalMnToORN"), (std::vector<R>{{17, "cl_PositionalMnToORN", 1},
                                                                    {17, "cl_PositionalMnToORN", 0}}));
    EXPECT_EQ(traces.named("cl_MailNodeToPartORName").size(), 2u);
}

TEST(RemoveLeadTrailSpaces, EveryFieldIsTrimmedInPlace) {
    struct Case {
        const char *in;
        const char *expected;
    };
    const Case cases[] = {
        {"  a  |\tb c\t| |", "a|b c||"},
        {"", ""},
        {"   ", ""},
        {"a b  c", "a b  c"},
        {"|| x ||", "||x||"},
        {"\xC3\xA9 ", "\xC3\xA9"},
    };
    for (const Case &c : cases) {
        std::string s = testkit::packed(c.in);
        cl_RemoveLead_TrailSpaces(s.data());
        EXPECT_EQ(show(s.c_str()), c.expected) << c.in;
    }
}

struct Converted {
    int result;
    std::string shown;
};

Converted convert(int (*fn)(const char *, char *), const std::string &text) {
    std::string out(text.size() + 200, '\xAA');
    int result = fn(text.c_str(), out.data());
    return {result, show(out.c_str())};
}

TEST(ConvNameToORN, NameAndMailNode) {
    struct Case {
        const char *typed;
        int result;
        const char *expected;
    };
    const Case cases[] = {
        {"John Smith/Sales,London", 1, "Smith|John|||Sales|London||"},
        {"Smith", 1, "Smith||||"},                       // no slash: no mail node
        {"Smith/", 1, "Smith||||"},
        {"Smith/Sales/x/y", 1, "Smith||||Sales||||x|y"},
        {"Smith/A,B,C,D,E", 1, "Smith||||A|B|C|D,E"},
        {"Smith/Sales(ref|x)/y", 1, "Smith||||Sales|||"},  // '(' ends it
        {"Smith/ Sales_x ", 1, "Smith|||| Sales_x |||"},   // neither trimmed nor mapped
        {"/Sales", 0, ""},                                 // surname required
        {"Smith, John/Sales", 0, ""},
        {"Smith#/Sales", 0, ""},
    };
    for (const Case &c : cases) {
        Converted r = convert(cl_ConvNameToORN, c.typed);
        EXPECT_EQ(r.result, c.result) << c.typed;
        EXPECT_EQ(r.shown, c.expected) << c.typed;
    }
    EXPECT_EQ(er_GetLive(), 0);
}

TEST(ConvMNodeToORN, EmptyPersonalNameIsAccepted) {
    Converted r = convert(cl_ConvMNodeToORN, "/Sales");
    EXPECT_EQ(r.result, 1);
    EXPECT_EQ(r.shown, "||||Sales|||");
    r = convert(cl_ConvMNodeToORN, "Smith,x/Sales");
    EXPECT_EQ(r.result, 0);
    EXPECT_EQ(r.shown, "");
}

TEST(ConvNameToORN, OverlongPersonalNameIsRefused) {
    std::string text(5000, ' ');
    text += "Smith/Sales";
    EXPECT_EQ(convert(cl_ConvNameToORN, text).result, 0);
    std::string fits(4000, ' ');
    fits += "Smith/Sales";
    EXPECT_EQ(convert(cl_ConvNameToORN, fits).shown, "Smith||||Sales|||");
}

}  // namespace
