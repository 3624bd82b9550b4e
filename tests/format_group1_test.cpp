// The unpacked field table and group 1 in the typed name syntax.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "format_support.hpp"

namespace {

using namespace format_support;

std::string group1(const Fields &fields, int mailNodeOnly) {
    Table table(tf(fields), 23);
    return cl_FrmtGroup1PP(table.t, mailNodeOnly);
}

TEST(FieldTable, FieldsLieInOrderInOneBlock) {
    Table table(tf({{0, "Smith"}, {1, "John"}}), 23);
    EXPECT_STREQ(table.t[0], "Smith");
    EXPECT_STREQ(table.t[1], "John");
    for (int i = 2; i <= 23; ++i) EXPECT_STREQ(table.t[i], "") << i;
    EXPECT_EQ(table.t[1], table.t[0] + 6);
    EXPECT_EQ(table.t[23], table.t[22] + 1);
}

TEST(FieldTable, TrailingLineFeedIsDroppedInPlace) {
    Table table(testkit::packed("Sales\n|\n|a\nb|x"), 5);
    EXPECT_STREQ(table.t[0], "Sales");
    EXPECT_EQ(table.t[1], table.t[0] + 6);  // 6 bytes, not 7
    EXPECT_STREQ(table.t[1], "");
    EXPECT_EQ(table.t[2], table.t[1] + 1);
    EXPECT_STREQ(table.t[2], "a\nb");
    EXPECT_STREQ(table.t[3], "x");
}

TEST(FieldTable, NoFieldsGivesOnlyTheTerminatingEntry) {
    Table table(tf({{0, "Smith"}}), 0);
    EXPECT_EQ(table.t[0][0], '\0');
}

TEST(FieldTable, AShortLengthCutsFieldsInsteadOfOverrunning) {
    std::string text = tf({{0, std::string(300, 's')}, {1, "John"}, {160, std::string(300, 'v')}});
    Table table(text, 161, 10);  // block of 161 + 10 + 1 bytes
    std::size_t used = 0;
    for (int i = 0; i < 161; ++i) used += std::strlen(table.t[i]) + 1;
    EXPECT_LE(used, 171u);
    EXPECT_EQ(std::string(table.t[0]), std::string(10, 's'));
}

TEST(Group1, ExamplesWithAndWithoutThePersonalName) {
    const Fields john = {{0, "Smith"}, {1, "John"}};
    struct Case {
        Fields fields;
        const char *full;
        const char *mail_node;
    } cases[] = {
        {john, "John Smith ", ""},
        {with(john, {{4, "Sales"}, {5, "Europe"}}), "John Smith /Sales,Europe", "Sales,Europe"},
        {with(john, {{4, "Sales"}, {5, "Europe"}, {8, "x"}, {10, "z"}}), "John Smith /Sales,Europe/x//z", "Sales,Europe/x//z"},
        {with(john, {{15, "T1"}, {16, "blue"}}), "John Smith / (T1|blue) ", " (T1|blue) "},
        {{{4, "Sales"}, {18, "red"}}, "/Sales (|) (|red) ", "Sales (|) (|red) "},
        {{{4, "Sales"}}, "/Sales", "Sales"},
        {{}, "", ""},
        {with(john, {{8, "x"}}), "John Smith //x", "/x"},
        {{{4, "A"}, {14, "w"}}, "/A///////w", "A///////w"},
        {{{4, "A"}, {7, "D"}}, "/A,,,D", "A,,,D"},
        {{{6, "C"}}, "/,,C", ",,C"},
        {{{5, "B"}, {7, "D"}}, "/,B,,D", ",B,,D"},
        {{{0, "van Dyke"}, {4, "Sales (EU)"}, {9, "a/b"}}, "van_Dyke /Sales_{EU}//a|b", "Sales_{EU}//a|b"},
        {{{4, "A"}, {19, "t"}, {20, "a b/c"}}, "/A (|) (|) (t|a b/c) ", "A (|) (|) (t|a b/c) "},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(group1(c.fields, 0), c.full) << c.full;
        EXPECT_EQ(group1(c.fields, 1), c.mail_node) << c.mail_node;
    }
}

TEST(Group1, PersonalNameParts) {
    struct Case {
        Fields fields;
        const char *text;
    } cases[] = {
        {{{0, "Smith"}, {1, "John"}, {2, "JR"}, {3, "Jr"}}, "John J.R. Smith Jr. "},
        {{{0, "Smith"}}, "Smith "},
        {{{2, "J"}}, "J. "},
        {{{3, "Jr"}}, "Jr. "},
        {{{0, "O.Neil"}, {1, "Mary Ann"}}, "Mary_Ann O!Neil "},
        {{{4, "Sales"}, {8, "x"}}, ""},
    };
    for (const Case &c : cases) {
        Table table(tf(c.fields), 23);
        EXPECT_EQ(std::string(cl_FrmtGroup1PNPP(table.t)), c.text);
    }
}

TEST(Group1, FromPackedTextAndInPlace) {
    std::string text = tf({{0, "Smith"}, {1, "John"}, {4, "Sales"}, {23, "never"}, {32, "JS"}});
    const char *shown = cl_FormatGroup1(text.c_str());
    EXPECT_STREQ(shown, "John Smith /Sales");
    Table table(text, 23);
    EXPECT_EQ(cl_FrmtGroup1PP(table.t, 0), shown);  // the same static buffer

    std::string buf(4097, '\0');
    std::memcpy(buf.data(), text.c_str(), text.size() + 1);
    testkit::TraceCapture traces;
    cl_FormatName(buf.data());
    EXPECT_STREQ(buf.c_str(), "John Smith /Sales");
    auto records = traces.named("cl_FormatName");
    ASSERT_EQ(records.size(), 2u);  // trace id 17 traces at any level
    EXPECT_EQ(records[0], (testkit::TraceRecord{17, "cl_FormatName", 1}));
}

TEST(Group1, TracesOnlyAboveLevelNine) {
    std::string text = tf({{0, "Smith"}});
    Table table(text, 23);
    int saved = er_SubSystemLoggingLevel;
    testkit::TraceCapture traces;
    er_SubSystemLoggingLevel = 9;
    cl_FrmtGroup1PP(table.t, 0);
    EXPECT_TRUE(traces.named("cl_FrmtGroup1PP").empty());
    er_SubSystemLoggingLevel = 10;
    cl_FrmtGroup1PP(table.t, 0);
    EXPECT_EQ(traces.named("cl_FrmtGroup1PP").size(), 2u);
    EXPECT_EQ(traces.named("cl_FrmtGroup1PNPP").size(), 2u);
    cl_FormatGroup1(text.c_str());  // goes through cl_FrmtGroup1PP, traced as a call of its own
    EXPECT_EQ(traces.named("cl_FrmtGroup1PP").size(), 4u);
    er_SubSystemLoggingLevel = saved;
}

// Maximum-size fields: every text stays within its 4096 characters and is
// cut at a character boundary.
TEST(Group1, LongFieldsAreCutAtTheBound) {
    std::string utf8 = "a";
    while (utf8.size() < 6000) utf8 += "\xC3\xA9";
    Fields all;
    for (int i = 0; i <= 22; ++i) all[i] = utf8;
    all[2] = std::string(5000, 'J');  // initials are written byte by byte
    Table table(tf(all), 23);
    std::string pn = cl_FrmtGroup1PNPP(table.t);
    EXPECT_LE(pn.size(), 4096u);
    EXPECT_EQ(pn.compare(0, 5, "a\xC3\xA9\xC3\xA9"), 0);
    EXPECT_TRUE(valid_utf8(pn));
    for (int mailNodeOnly : {0, 1}) {
        std::string g1 = cl_FrmtGroup1PP(table.t, mailNodeOnly);
        EXPECT_LE(g1.size(), 4096u);
        EXPECT_GE(g1.size(), 4090u);
        EXPECT_TRUE(valid_utf8(g1));
    }
    std::string text = tf(all);
    std::string buf(text.size() + 1, '\0');
    std::memcpy(buf.data(), text.c_str(), text.size() + 1);
    cl_FormatName(buf.data());
    EXPECT_LE(std::strlen(buf.c_str()), 4096u);
}

}  // namespace
