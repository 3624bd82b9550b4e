// Full-name and personal-name texts: order and separators of their parts,
// the mail-node form, the static-buffer rules and the bounds.
#include <gtest/gtest.h>

#include <string>

#include "format_support.hpp"

namespace {

using namespace format_support;

class FullName : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(ccs_GetCSDescriptor("UTF8", &utf8), 1); }
    std::string full(const Fields &f, ccs_Descriptor *cs) { return cl_FormatFullName(tf(f).c_str(), cs); }
    std::string full_ia(const Fields &f) { return cl_FormatFullNameIa(tf(f).c_str(), &utf8); }
    std::string mail_node(const Fields &f, int ext) { return cl_FormatMailNode(tf(f).c_str(), &utf8, ext); }
    std::string personal(const Fields &f) { return cl_FormatPersonalName(tf(f).c_str(), &utf8); }
    ccs_Descriptor utf8{};
    const Fields john = {{0, "Smith"}, {1, "John"}};
};

TEST_F(FullName, ExamplesOfTheWrappers) {
    Fields f = with(john, {{4, "Sales"}, {32, "JS"}, {70, "x"}});
    EXPECT_EQ(full(f, &utf8), "John Smith /Sales/" + name(32) + "=JS/" + name(70) + "=x");
    EXPECT_EQ(mail_node(f, 1), "Sales/" + name(70) + "=x");
    EXPECT_EQ(mail_node(f, 0), "Sales");
    EXPECT_EQ(cl_FormatMailNode(tf(f).c_str(), nullptr, 1), std::string("Sales"));
    EXPECT_EQ(full(f, nullptr), "John Smith /Sales/" + name(32) + "=JS");
    for (const char *text : {cl_FormatFullName("", &utf8), cl_FormatFullNameIa("", &utf8),
                             cl_formatORNtoUtf8withIA(""), cl_FormatMailNode("", &utf8, 1)})
        EXPECT_STREQ(text, "");
}

TEST_F(FullName, OrderAndSeparatorsOfTheParts) {
    Fields all = with(john, {{4, "U"},      {33, "t"},   {64, "s"},   {100, "d"}, {128, "n"},
                             {129, "alt"},  {130, "i"},  {160, "cv"}, {23, "no"}, {140, "no"}});
    std::string expected = "John Smith /U/" + name(33) + "=t/" + name(64) + "=s/" + name(100) + "=d/" + name(128) +
                           "=n/" + name(129) + "=alt/conversionValue=cv";
    EXPECT_EQ(full(all, &utf8), expected);
    EXPECT_EQ(full_ia(all), expected + "/" + name(130) + "=i");
    EXPECT_EQ(std::string(cl_formatORNtoUtf8withIA(tf(all).c_str())), expected + "/" + name(130) + "=i");

    EXPECT_EQ(full({{33, "t"}}, &utf8), name(33) + "=t");       // no leading '/'
    EXPECT_EQ(full({{4, "U"}}, &utf8), "/U");
    EXPECT_EQ(full({{128, "n"}}, &utf8), "/" + name(128) + "=n");  // always after '/'
    EXPECT_EQ(full({{129, "a"}}, &utf8), name(129) + "=a");
    EXPECT_EQ(full({{160, "v/w"}}, &utf8), "conversionValue=v\\/w");
    EXPECT_EQ(full({{160, "v"}}, nullptr), "");
    EXPECT_EQ(full({{130, "a/b"}}, &utf8), "");
    EXPECT_EQ(full_ia({{130, "a/b"}}), name(130) + "=a/b");
    EXPECT_EQ(std::string(cl_FormatFullNameIa(tf({{130, "x"}}).c_str(), nullptr)), name(130) + "=x");
}

TEST_F(FullName, MailNodeFormLeavesOutThePersonalName) {
    Fields f = with(john, {{2, "J"}, {3, "Jr"}, {4, "U"}, {32, "c"}, {64, "a"}, {65, "b"}, {66, "c"},
                           {67, "d"}, {96, "e"}, {68, "f"}, {97, "g"}});
    EXPECT_EQ(mail_node(f, 1), "U/" + name(68) + "=f/" + name(97) + "=g");
    EXPECT_EQ(mail_node({{4, "U"}, {97, "g"}}, 1), "U/" + name(97) + "=g");
    EXPECT_EQ(mail_node({{33, "t"}, {97, "g"}}, 1), name(33) + "=t/" + name(97) + "=g");
}

TEST_F(FullName, PersonalNameExamples) {
    struct Case {
        Fields fields;
        std::string text;
    } cases[] = {
        {john, "John Smith "},
        {with(john, {{32, "JS"}}), "John Smith /" + name(32) + "=JS"},
        {with(john, {{32, "JS"}, {66, "x"}}), "John Smith /" + name(32) + "=JS/" + name(66) + "=x"},
        {with(john, {{66, "x"}}), "John Smith /" + name(66) + "=x"},
        {{{96, "y"}}, "/" + name(96) + "=y"},
        {{{64, "s"}}, "/" + name(64) + "=s"},
        {{}, ""},
        {with(john, {{4, "U"}, {8, "o"}, {15, "t"}, {33, "d"}, {68, "q"}, {130, "ia"}}), "John Smith "},
    };
    for (const Case &c : cases) EXPECT_EQ(personal(c.fields), c.text) << c.text;
    EXPECT_EQ(std::string(cl_FormatPersonalNameIa(tf(with(john, {{130, "a=b"}})).c_str(), &utf8)),
              "John Smith /" + name(130) + "=a=b");
    EXPECT_STREQ(cl_FormatG1PersonalName(tf(with(john, {{32, "c"}, {64, "s"}, {96, "y"}, {130, "i"}})).c_str()),
                 "John Smith ");
}

TEST_F(FullName, StaticBufferRules) {
    std::string a = tf(with(john, {{4, "A"}}));
    std::string b = tf({{0, "Jones"}, {4, "B"}});
    // One result text for every full-name wrapper.
    char *first = cl_FormatFullName(a.c_str(), &utf8);
    EXPECT_EQ(cl_FormatMailNode(b.c_str(), &utf8, 1), first);
    EXPECT_STREQ(first, "B");
    // The group 1 personal-name copy is overwritten only by its own function.
    char *copy = cl_FormatG1PersonalName(a.c_str());
    cl_FormatPersonalName(b.c_str(), &utf8);
    cl_FormatFullName(b.c_str(), &utf8);
    EXPECT_STREQ(copy, "John Smith ");
    // The personal-name text of group 1 is shared by every path that makes it.
    char *pn = cl_FrmtGroup1PNPP(Table(john).t);
    cl_FormatPersonalName(b.c_str(), &utf8);
    EXPECT_STREQ(pn, "Jones ");
    cl_FormatG1PersonalName(a.c_str());
    EXPECT_STREQ(pn, "John Smith ");
}

TEST_F(FullName, TraceIds) {
    int saved = er_SubSystemLoggingLevel;
    er_SubSystemLoggingLevel = 0;
    testkit::TraceCapture traces;
    std::string a = tf(john);
    cl_FormatFullNameIa(a.c_str(), &utf8);
    cl_FormatMailNode(a.c_str(), &utf8, 0);
    cl_FormatPersonalName(a.c_str(), &utf8);
    EXPECT_EQ(traces.named("cl_FormatFullNameIa"),
              (std::vector<testkit::TraceRecord>{{15, "cl_FormatFullNameIa", 1}, {15, "cl_FormatFullNameIa", 0}}));
    EXPECT_EQ(traces.named("cl_FormatMailNode").size(), 2u);
    EXPECT_TRUE(traces.named("cl_RealFormatFullName").empty());
    EXPECT_TRUE(traces.named("cl_FormatPersonalName").empty());
    er_SubSystemLoggingLevel = 10;
    cl_FormatPersonalName(a.c_str(), &utf8);
    EXPECT_EQ(traces.named("cl_FormatPersonalName").front(), (testkit::TraceRecord{21, "cl_FormatPersonalName", 1}));
    EXPECT_EQ(traces.named("cl_RealFormatPersonalName").size(), 2u);
    er_SubSystemLoggingLevel = saved;
}

// Every field at its largest packed size (4079 bytes), of UTF-8 text full
// of key characters, so that escaping doubles it: no formatter may write
// past its buffer (the sanitizer build checks), and each text is cut at its
// bound on a character boundary.
TEST_F(FullName, MaximumSizeFieldsStayWithinTheBuffers) {
    std::string value = "a";
    while (value.size() + 3 <= 4079) value += "\xC3\xA9/";
    Fields all;
    for (int i = 0; i <= 160; ++i) all[i] = value;
    all[2] = std::string(4079, 'J');  // initials are written byte by byte
    all[35] = "..." + std::string(4076, 'A');
    std::string text = tf(all);
    ccs_Descriptor latin1{};
    ASSERT_EQ(ccs_GetCSDescriptor("ISO8859-1", &latin1), 1);
    testkit::TempHome home;  // conversion losses are logged
    struct Result {
        std::string text;
        std::size_t bound;
    } results[] = {
        {cl_FormatFullName(text.c_str(), &utf8), 4079},
        {cl_FormatFullNameIa(text.c_str(), &utf8), 4079},
        {cl_formatORNtoUtf8withIA(text.c_str()), 4079},
        {cl_FormatMailNode(text.c_str(), &utf8, 1), 4079},
        {cl_FormatPersonalName(text.c_str(), &utf8), 4079},
        {cl_FormatPersonalNameIa(text.c_str(), &utf8), 4079},
        {cl_FormatG1PersonalName(text.c_str()), 4079},
        {cl_FormatGroup1(text.c_str()), 4096},
    };
    for (const Result &r : results) {
        SCOPED_TRACE(r.text.substr(0, 40));
        EXPECT_LE(r.text.size(), r.bound);
        EXPECT_GE(r.text.size(), r.bound - 3);
        EXPECT_TRUE(valid_utf8(r.text));
    }
    std::string latin = cl_FormatFullName(text.c_str(), &latin1);
    EXPECT_LE(latin.size(), 4079u);
    EXPECT_EQ(latin.compare(0, 4, "a\xC3\xA9|"), 0);  // group 1 stays UTF-8; '/' mapped to '|'
    EXPECT_TRUE(testkit::run([&] { cl_FormatAsciiEncoded(text.c_str()); }).is(100, 4670));

    Table table(text, 161);
    std::string converted = cl_FrmtGroup345PP(table.t, &latin1, 64, 160, 1);
    std::string entries = cl_FrmtGroup2PP(table.t, 0, 160, 1);
    EXPECT_EQ(converted.size(), 8193u);
    EXPECT_EQ(entries.size(), 4096u);
}

}  // namespace
