// Full O/R names: standard and extension attributes, the error index and
// the translated reasons.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>

#include "testkit.hpp"

namespace {

using Fields = std::map<int, std::string>;

// Non-empty fields of packed text, by field number.
Fields read_fields(const char *tf) {
    nm_ParsedORN parsed;
    int status = -1;
    nm_ParseORN(tf, &parsed, &status);
    Fields fields;
    for (int f = 0; f < NM_FIELDS; ++f) {
        int len = 0;
        if (const char *p = nm_GetFieldMemPtr(tf, &parsed, f, &len)) fields[f] = std::string(p, static_cast<std::size_t>(len));
    }
    return fields;
}

struct Full {
    testkit::Outcome outcome;
    Fields fields;
    std::string text;
    int ret = -1;
    int index = 0;
};

constexpr int kUntouched = -7;

Full full(const std::string &input, int allow_marker = 0) {
    static char text[8192];
    static char out[8192];
    static int index;
    static volatile int ret;
    std::memcpy(text, input.c_str(), input.size() + 1);
    std::memset(out, '@', sizeof out - 1);
    out[sizeof out - 1] = '\0';
    index = kUntouched;
    ret = -1;
    Full f;
    f.outcome = testkit::run([allow_marker] { ret = cl_ParseFullOrn2(text, out, &index, allow_marker); });
    if (!f.outcome.escaped) f.fields = read_fields(out);
    f.text = text;
    f.ret = ret;
    f.index = index;
    return f;
}

TEST(FullName, FieldsOfTypicalNames) {
    struct Case {
        const char *typed;
        int ret;
        Fields fields;
    } cases[] = {
        {"Smith", 0, {{0, "Smith"}}},
        {"Smith/", 0, {{0, "Smith"}}},
        {"Smith/  ", 0, {{0, "Smith"}}},
        {"Smith/Sales", 1, {{0, "Smith"}, {4, "Sales"}}},
        {"Smith//val8", 1, {{0, "Smith"}, {8, "val8"}}},
        {"Smith/ /val8", 1, {{0, "Smith"}, {8, "val8"}}},
        {"Smith/Sales//GB", 1, {{0, "Smith"}, {4, "Sales"}, {9, "GB"}}},
        {"Smith/Sales/a_b", 1, {{0, "Smith"}, {4, "Sales"}, {8, "a b"}}},
        {"Smith/Sales/ a!b{c} \t", 1, {{0, "Smith"}, {4, "Sales"}, {8, "a.b(c)"}}},
        {"Smith/Sales(x)", 1, {{0, "Smith"}, {4, "Sales"}, {15, "KVNEXT1"}, {16, "x"}}},
        {"Smith/(ref|x)", 1, {{0, "Smith"}, {15, "ref"}, {16, "x"}}},
        {"Smith/( |x)", 1, {{0, "Smith"}, {15, "KVNEXT1"}, {16, "x"}}},
        {"Smith/(|x)", 1, {{0, "Smith"}, {15, "KVNEXT1"}, {16, "x"}}},
        {"Smith/()", 1, {{0, "Smith"}}},
        {"Smith/( )", 1, {{0, "Smith"}}},
        {"Smith/(ref|)", 1, {{0, "Smith"}, {15, "ref"}}},
        {"Smith/( ref |  v w )", 1, {{0, "Smith"}, {15, "ref "}, {16, "v w "}}},
        {"Smith/(a)junk (b)(c)(d)", 1,
         {{0, "Smith"}, {15, "KVNEXT1"}, {16, "a"}, {17, "KVNEXT2"}, {18, "b"}, {19, "KVNEXT3"}, {20, "c"},
          {21, "KVNEXT4"}, {22, "d"}}},
        {"Smith/(a) ", 1, {{0, "Smith"}, {15, "KVNEXT1"}, {16, "a"}}},
        {"Smith(x|y)", 0, {{0, "Smith(x/y)"}}},
        {"John Smith/Sales,London/val8//val10(ref|A-17)(note)", 1,
         {{0, "Smith"}, {1, "John"}, {4, "Sales"}, {5, "London"}, {8, "val8"}, {10, "val10"}, {15, "ref"},
          {16, "A-17"}, {17, "KVNEXT2"}, {18, "note"}}},
        {"Smith//o/GB/A/P/123/term/456", 1,
         {{0, "Smith"}, {8, "o"}, {9, "GB"}, {10, "A"}, {11, "P"}, {12, "123"}, {13, "term"}, {14, "456"}}},
        {"Smith//o/GB/A/P/123/term/456/", 1,
         {{0, "Smith"}, {8, "o"}, {9, "GB"}, {10, "A"}, {11, "P"}, {12, "123"}, {13, "term"}, {14, "456"}}},
    };
    for (const auto &c : cases) {
        Full f = full(c.typed);
        ASSERT_FALSE(f.outcome.escaped) << c.typed << " reason " << f.outcome.reason;
        EXPECT_EQ(f.ret, c.ret) << c.typed;
        EXPECT_EQ(f.fields, c.fields) << c.typed;
        EXPECT_EQ(f.index, kUntouched) << c.typed;
    }
}

TEST(FullName, NameAndMailNodeAloneAreParsedInPlace) {
    EXPECT_EQ(full("John  Smith / Sales_Dept").text, "John Smith/Sales Dept");
    // With attributes the name part is parsed in a copy.
    EXPECT_EQ(full("John  Smith / Sales_Dept/o").text, "John  Smith / Sales_Dept/o");
}

TEST(FullName, StandardValueReasonsAreTranslatedByField) {
    const std::string s64(64, 'o');
    EXPECT_EQ(full("Smith//" + s64).fields.at(8), s64);
    struct Case {
        std::string typed;
        int reason;
    } cases[] = {
        {"Smith//" + s64 + "o", 9811},          {"Smith//o#", 9811},
        {"Smith/Sales/o/G", 9812},              {"Smith/Sales/o/12", 9812},
        {"Smith/Sales/o/GB/" + std::string(17, 'a'), 9816},
        {"Smith/Sales/o/GB/A/" + std::string(17, 'p'), 9813},
        {"Smith/Sales/o/GB/A/P/12a", 9817},     {"Smith/Sales/o/GB/A/P/" + std::string(16, '1'), 9817},
        {"Smith/Sales/o/GB/A/P/1/" + std::string(25, 't'), 9814},
        {"Smith/Sales/o/GB/A/P/1/t/" + std::string(33, '2'), 9818},
        {"Smith/Sales/o/GB/A/P/1/t/2/extra", 9815},
        // An eighth, empty value would push the extension attributes out of place.
        {"Smith/Sales/o/GB/A/P/1/t/2/(x)", 9815},
    };
    for (const auto &c : cases) {
        Full f = full(c.typed);
        EXPECT_TRUE(f.outcome.is(100, c.reason)) << c.typed << " gave " << f.outcome.reason;
        EXPECT_EQ(f.index, kUntouched) << c.typed;
        EXPECT_EQ(er_GetLive(), 0);
    }
}

TEST(FullName, ExtensionReasonsSetTheCallersIndex) {
    const std::string v128(128, 'v');
    EXPECT_EQ(full("Smith/(abcdefgh|" + v128 + ")").fields.at(16), v128);
    struct Case {
        std::string typed;
        int reason, index;
    } cases[] = {
        {"Smith/(a|b|c)", 9832, 1},
        {"Smith/(x)(a|b|c)", 9832, 2},
        {"Smith/(abcdefghi|x)", 9833, 1},
        {"Smith/(a)(b)(c)(x", 9834, 4},
        {"Smith/(ref|x", 9834, 1},
        {"Smith/(" + v128 + "v)", 9835, 1},
        {"Smith/(a)(b)(c)(d)(e)", 9806, kUntouched},
    };
    for (const auto &c : cases) {
        Full f = full(c.typed);
        EXPECT_TRUE(f.outcome.is(100, c.reason)) << c.typed << " gave " << f.outcome.reason;
        EXPECT_EQ(f.index, c.index) << c.typed;
    }
}

TEST(FullName, NamePartReasonsPassUntranslated) {
    // The name part is copied into 4095 characters.
    const std::string padded = "Smith" + std::string(4090, ' ');
    EXPECT_EQ(full(padded).fields, (Fields{{0, "Smith"}}));
    EXPECT_TRUE(full(padded + " ").outcome.is(100, 9801));
    const std::string node = "Smith" + std::string(4084, ' ') + "/Sales";  // 4095 with the mail node
    EXPECT_EQ(full(node + "/o").fields, (Fields{{0, "Smith"}, {4, "Sales"}, {8, "o"}}));
    EXPECT_TRUE(full(" " + node + "/o").outcome.is(100, 9801));
    EXPECT_TRUE(full("Smith/Sales/" + std::string(4090, 'a')).outcome.is(100, 9811));
    EXPECT_TRUE(full("S" + std::string(4095, ' ') + "/x/o").outcome.is(100, 9801));
    EXPECT_TRUE(full("Smith, John/Sales/o").outcome.is(100, 8011));
    EXPECT_TRUE(full("Smith\x1F/Sales").outcome.is(100, 8013));
}

TEST(FullName, MarkerAtTheEndOfAStandardValue) {
    Full marked = full("Smith/Sales/o/GB\x1F/\x1F", 1);
    ASSERT_FALSE(marked.outcome.escaped) << marked.outcome.reason;
    EXPECT_EQ(marked.fields.at(9), "GB\x1F");
    EXPECT_EQ(marked.fields.at(10), "\x1F");
    EXPECT_TRUE(full("Smith/Sales/o/GB\x1F", 0).outcome.is(100, 9812));
    EXPECT_TRUE(full("Smith/Sales/o/G\x1F", 1).outcome.is(100, 9812));  // the check still applies
    EXPECT_TRUE(full("Smith/Sales/o/G\x1F" "B", 1).outcome.is(100, 9812));
}

TEST(ExternalAttribs, ErrorIndexAndStartCharacter) {
    struct Case {
        const char *attrs;
        int reason, index;
    } cases[] = {
        {"x/o", 9805, 0}, {"/o/GBR", 9804, 9}, {"/o/GB/A/P/1/t/2/x", 9804, 15}, {"(a)(b|c|d)", 9832, 2},
    };
    for (const auto &c : cases) {
        static char tf[1024];
        static char attrs[256];
        static int index;
        std::strcpy(tf, "Smith");
        std::strcpy(attrs, c.attrs);
        index = -1;
        auto outcome = testkit::run([] { cl_ParseExternalAttribs(tf, attrs, &index); });
        EXPECT_TRUE(outcome.is(100, c.reason)) << c.attrs << " gave " << outcome.reason;
        EXPECT_EQ(index, c.index) << c.attrs;
    }
}

TEST(ExternalAttribs, TracedAlwaysWithId17) {
    const int level = er_SubSystemLoggingLevel;
    er_SubSystemLoggingLevel = 0;
    testkit::TraceCapture capture;
    full("Smith/Sales/o(x)");
    std::vector<testkit::TraceRecord> expected = {{17, "cl_ParseExternalAttribs2", 1}, {17, "cl_ParseExternalAttribs2", 0}};
    EXPECT_EQ(capture.records(), expected);
    capture.clear();
    full("Smith/Sales/o(a|b|c)");  // left by an escape: entry only
    expected.pop_back();
    EXPECT_EQ(capture.records(), expected);
    er_SubSystemLoggingLevel = level;
}

}  // namespace
