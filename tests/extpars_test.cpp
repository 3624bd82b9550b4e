// Full O/R names: standard and extension attributes, the error index and
// the translated reasons.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>

#include "frame.hpp"
#include "testkit.hpp"

namespace {

using Fields = std::map<int, std::string>;
constexpr int kUntouched = -7;

struct Full {
    testkit::Outcome outcome;
    Fields fields;  // non-empty fields of the result
    std::string text;
    int ret, index;
};

Full full(const std::string &input, int allow_marker = 0) {
    static char text[8192], out[8192];
    static int index;
    static volatile int ret;
    std::memcpy(text, input.c_str(), input.size() + 1);
    index = kUntouched;
    ret = -1;
    Full f{testkit::run([allow_marker] { ret = cl_ParseFullOrn2(text, out, &index, allow_marker); }), {}, text, ret, index};
    if (f.outcome.escaped) return f;
    nm_ParsedORN parsed;
    int status = 0;
    nm_ParseORN(out, &parsed, &status);
    for (int n = 0; n < NM_FIELDS; ++n) {
        int len = 0;
        if (const char *p = nm_GetFieldMemPtr(out, &parsed, n, &len)) f.fields[n] = std::string(p, static_cast<std::size_t>(len));
    }
    return f;
}

const std::string s64(64, 'o'), v128(128, 'v');
const std::string kNode = "Smith" + std::string(4084, ' ') + "/Sales";  // name part of 4095

TEST(FullName, FieldsOfTypicalNames) {
    const Fields smith{{0, "Smith"}};
    struct Case {
        std::string typed;
        int ret;
        Fields fields;
    } cases[] = {
        {"Smith", 0, smith}, {"Smith/", 0, smith}, {"Smith/  ", 0, smith}, {"Smith/()", 1, smith}, {"Smith/( )", 1, smith},
        {"Smith/Sales", 1, {{0, "Smith"}, {4, "Sales"}}},
        {"Smith//val8", 1, {{0, "Smith"}, {8, "val8"}}},
        {"Smith/ /val8", 1, {{0, "Smith"}, {8, "val8"}}},
        {"Smith//" + s64, 1, {{0, "Smith"}, {8, s64}}},
        {"Smith/Sales//GB", 1, {{0, "Smith"}, {4, "Sales"}, {9, "GB"}}},
        {"Smith/S/ a_b!c{d} \t", 1, {{0, "Smith"}, {4, "S"}, {8, "a b.c(d)"}}},
        {"Smith/Sales(x)", 1, {{0, "Smith"}, {4, "Sales"}, {15, "KVNEXT1"}, {16, "x"}}},
        {"Smith/(ref|x)", 1, {{0, "Smith"}, {15, "ref"}, {16, "x"}}},
        {"Smith/( |x)", 1, {{0, "Smith"}, {15, "KVNEXT1"}, {16, "x"}}},
        {"Smith/(|x)", 1, {{0, "Smith"}, {15, "KVNEXT1"}, {16, "x"}}},
        {"Smith/(ref|)", 1, {{0, "Smith"}, {15, "ref"}}},
        {"Smith/( ref |  v w )", 1, {{0, "Smith"}, {15, "ref "}, {16, "v w "}}},
        {"Smith/(abcdefgh|" + v128 + ")", 1, {{0, "Smith"}, {15, "abcdefgh"}, {16, v128}}},
        {"Smith/(a)junk (b)(c)(d) ", 1,
         {{0, "Smith"}, {15, "KVNEXT1"}, {16, "a"}, {17, "KVNEXT2"}, {18, "b"}, {19, "KVNEXT3"}, {20, "c"}, {21, "KVNEXT4"}, {22, "d"}}},
        {"Smith(x|y)", 0, {{0, "Smith(x/y)"}}},
        {"John Smith/Sales,London/val8//val10(ref|A-17)(note)", 1,
         {{0, "Smith"}, {1, "John"}, {4, "Sales"}, {5, "London"}, {8, "val8"}, {10, "val10"}, {15, "ref"}, {16, "A-17"},
          {17, "KVNEXT2"}, {18, "note"}}},
        {"Smith//o/GB/A/P/123/term/456/", 1,
         {{0, "Smith"}, {8, "o"}, {9, "GB"}, {10, "A"}, {11, "P"}, {12, "123"}, {13, "term"}, {14, "456"}}},
        {"Smith" + std::string(4090, ' '), 0, smith},
        {kNode + "/o", 1, {{0, "Smith"}, {4, "Sales"}, {8, "o"}}},
    };
    for (const auto &c : cases) {
        Full f = full(c.typed);
        ASSERT_FALSE(f.outcome.escaped) << c.typed << " reason " << f.outcome.reason;
        EXPECT_FALSE(f.outcome.pending_after);
        EXPECT_EQ(f.ret, c.ret) << c.typed;
        EXPECT_EQ(f.fields, c.fields) << c.typed;
        EXPECT_EQ(f.index, kUntouched) << c.typed;
    }
    // Name and mail node alone are parsed in the caller's text; otherwise a copy.
    EXPECT_EQ(full("John  Smith / Sales_Dept").text, "John Smith/Sales Dept");
    EXPECT_EQ(full("John  Smith / Sales_Dept/o").text, "John  Smith / Sales_Dept/o");
}

TEST(FullName, ReasonsTranslationAndIndex) {
    struct Case {
        std::string typed;
        int reason, index;
    } cases[] = {
        {"Smith" + std::string(4091, ' '), 9801, kUntouched}, {" " + kNode + "/o", 9801, kUntouched},
        {"Smith, John/Sales/o", 8011, kUntouched},
        {"Smith//" + s64 + "o", 9811, kUntouched}, {"Smith//o#", 9811, kUntouched},
        {"Smith/S/o/G", 9812, kUntouched}, {"Smith/S/o/12", 9812, kUntouched},
        {"Smith/S/o/GB/" + std::string(17, 'a'), 9816, kUntouched},
        {"Smith/S/o/GB/A/" + std::string(17, 'p'), 9813, kUntouched},
        {"Smith/S/o/GB/A/P/12a", 9817, kUntouched},
        {"Smith/S/o/GB/A/P/1/" + std::string(25, 't'), 9814, kUntouched},
        {"Smith/S/o/GB/A/P/1/t/" + std::string(33, '2'), 9818, kUntouched},
        {"Smith/S/o/GB/A/P/1/t/2/extra", 9815, kUntouched},
        {"Smith/S/o/GB/A/P/1/t/2/(x)", 9815, kUntouched},  // an empty eighth value would shift the extensions
        {"Smith/(a|b|c)", 9832, 1}, {"Smith/(x)(a|b|c)", 9832, 2}, {"Smith/(abcdefghi|x)", 9833, 1},
        {"Smith/(a)(b)(c)(x", 9834, 4}, {"Smith/(ref|x", 9834, 1}, {"Smith/(" + v128 + "v)", 9835, 1},
        {"Smith/(a)(b)(c)(d)(e)", 9806, kUntouched},
        // A separator byte would move the fields after it.
        {"Smith/S(a\x1D" "b)", 8013, kUntouched}, {"Smith/S(t\x17|v)", 8013, kUntouched},
    };
    for (const auto &c : cases) {
        Full f = full(c.typed);
        EXPECT_TRUE(f.outcome.is(100, c.reason)) << c.typed << " gave " << f.outcome.reason;
        EXPECT_EQ(f.index, c.index) << c.typed;
    }
}

TEST(FullName, MarkerAtTheEndOfAStandardValue) {
    Full marked = full("Smith/Sales/o/GB\x1F/\x1F", 1);
    EXPECT_EQ(marked.fields, (Fields{{0, "Smith"}, {4, "Sales"}, {8, "o"}, {9, "GB\x1F"}, {10, "\x1F"}}));
    EXPECT_TRUE(full("Smith/Sales/o/GB\x1F", 0).outcome.is(100, 9812));
    EXPECT_TRUE(full("Smith/Sales/o/G\x1F", 1).outcome.is(100, 9812));  // the rest is still checked
    EXPECT_TRUE(full("Smith/Sales/o/G\x1F" "B", 1).outcome.is(100, 9812));
}

TEST(FullName, TranslatedEscapeIsTheOnlyOnePending) {
    static char text[64], out[512];
    static int index, group, reason, live_after_clear;
    static std::string file;
    std::strcpy(text, "Smith/Sales/o/G");
    cl::protect({"tests/extpars_test", __LINE__}, [] { cl_ParseFullOrn(text, out, &index); },
                [] {
                    group = er_GetGroup();
                    reason = er_GetReason();
                    file = er_GetFile();
                    er_Clear();
                    live_after_clear = er_GetLive();
                });
    EXPECT_EQ(group * 10000 + reason, 100 * 10000 + 9812);
    EXPECT_EQ(file, "cl/cl_ExtPars");
    EXPECT_EQ(live_after_clear, 0);  // the replaced 9804 is gone
}

TEST(ExternalAttribs, ErrorIndexAndTracing) {
    struct Case {
        std::string attrs;
        int reason, index;
    } cases[] = {
        {"x/o", 9805, 0}, {"/o/GBR", 9804, 9}, {"/o/GB/A/P/1/t/2/x", 9804, 15},
        {"/o/" + std::string(65, 'c'), 9803, 9}, {"(a)(b|c|d)", 9832, 2}, {"(a)(b)(c)(d)(e)", 9806, 0},
    };
    const int level = er_SubSystemLoggingLevel;
    er_SubSystemLoggingLevel = 0;
    testkit::TraceCapture capture;
    for (const auto &c : cases) {
        static char tf[1024], attrs[256];
        static int index;
        std::strcpy(tf, "Smith");
        std::strcpy(attrs, c.attrs.c_str());
        index = -1;
        auto outcome = testkit::run([] { cl_ParseExternalAttribs2(tf, attrs, &index, 0); });
        EXPECT_TRUE(outcome.is(100, c.reason)) << c.attrs << " gave " << outcome.reason;
        EXPECT_EQ(index, c.index) << c.attrs;
    }
    // Id 17 traces whatever the level; an escape leaves without the exit.
    EXPECT_EQ(capture.named("cl_ParseExternalAttribs2").size(), std::size(cases));
    capture.clear();
    full("Smith/Sales/o(x)");
    EXPECT_EQ(capture.records(), (std::vector<testkit::TraceRecord>{{17, "cl_ParseExternalAttribs2", 1},
                                                                    {17, "cl_ParseExternalAttribs2", 0}}));
    er_SubSystemLoggingLevel = level;
}

}  // namespace
