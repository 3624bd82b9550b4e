// The short cuts taken for speed give what the general paths give: UTF-8
// text that skips iconv is exactly the text iconv accepts.
#include <gtest/gtest.h>
#include <iconv.h>

#include <strings.h>

#include <cctype>
#include <random>
#include <string>
#include <vector>

#include "ccs.h"
#include "cl.h"
#include "da.h"
#include "er.h"
#include "format_support.hpp"
#include "t61.h"
#include "testkit.hpp"

namespace {

const char *const kReps[] = {"\x1E", "\x1D", "\x1F", "\x1A[", "\x1A]", "\x18"};

// Null when the transformation refuses the text.
const char *transform(const std::string &text) {
    int len = 0;
    return t61_TransformTInputStr2(text.c_str(), -1, "UTF8", "/=*[]%", kReps, "/=", '\\', 1, &len);
}

std::string utf8_of(unsigned cp) {
    std::string s;
    if (cp < 0x80) {
        s += static_cast<char>(cp);
    } else if (cp < 0x800) {
        s += static_cast<char>(0xC0 | (cp >> 6));
        s += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        s += static_cast<char>(0xE0 | (cp >> 12));
        s += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        s += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        s += static_cast<char>(0xF0 | (cp >> 18));
        s += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        s += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        s += static_cast<char>(0x80 | (cp & 0x3F));
    }
    return s;
}

// What iconv makes of the bytes read as UTF-8: the converted text, or
// nothing (refused) as the empty string.
std::string through_iconv(const std::string &bytes) {
    static iconv_t cd = iconv_open("UTF-8", "UTF-8");
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    char out[64];
    char *in = const_cast<char *>(bytes.data());
    char *o = out;
    std::size_t inLeft = bytes.size(), outLeft = sizeof out;
    std::size_t rc = iconv(cd, &in, &inLeft, &o, &outLeft);
    if (rc == static_cast<std::size_t>(-1) || inLeft != 0) return "";
    return std::string(out, static_cast<std::size_t>(o - out));
}

void expect_as_iconv(const std::string &text) {
    const char *out = transform(text);
    std::string expected = through_iconv(text);
    ASSERT_EQ(out != nullptr, !expected.empty()) << testing::PrintToString(text);
    if (out) {
        EXPECT_EQ(out, expected) << testing::PrintToString(text);
    }
}

// Every encoded code point (surrogates included) and malformed or
// out-of-range sequences: refused exactly when iconv refuses them, else
// given back as iconv gives them.
TEST(FastPath, Utf8TextIsTakenAsIconvTakesIt) {
    for (unsigned cp = 0x80; cp <= 0x10FFFF; ++cp) expect_as_iconv("x" + utf8_of(cp) + "y");
    const char *odd[] = {
        "\x80",         "\xC0\xAF",         "\xC1\xBF",         "\xC3",         "\xC3x",
        "\xE0\x80\xAF", "\xE0\x9F\xBF",     "\xED\xA0\x80",     "\xE2\x82",     "\xF0\x8F\xBF\xBF",
        "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xF8\x88\x80\x80\x80", "\xFE", "\xFF",
    };
    for (const char *bytes : odd) expect_as_iconv(std::string("a") + bytes + "b");
}

// The attribute lookups answer as a scan of the whole table in field order
// would: a local name in any case or an exact internal tag.
const char *scanned_int_name(const char *typed) {
    for (int f = 0; f <= 160; ++f) {
        int number = da_nmFieldNum2DANum(f);
        if (strcasecmp(da_AttribNumberToLocName(number), typed) == 0 ||
            std::string(da_AttribNumberToIntName(number)) == typed)
            return da_AttribNumberToIntName(number);
    }
    return typed;
}

TEST(FastPath, AttributeLookupsAnswerAsAScanWould) {
    std::vector<std::string> typed = {"", "0", "00", "099", "99", "9999999", "12345678", "x", "surnam", "surnamex",
                                      "utf8", "field", "field161", "ou", "ou5", "ou1 ", "-1", "1O8"};
    for (int f = 0; f <= 160; ++f) {
        std::string name = da_AttribNumberToLocName(da_nmFieldNum2DANum(f));
        std::string upper = name, lower = name;
        for (char &c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        for (char &c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        typed.insert(typed.end(), {name, upper, lower, name.substr(1), name + "s", da_AttribNumberToIntName(
                                                                                       da_nmFieldNum2DANum(f))});
    }
    for (const std::string &t : typed) {
        const char *tag = da_FindAttribIntName(t.c_str());
        EXPECT_STREQ(tag, scanned_int_name(t.c_str())) << t;
        int field = da_AttIdToORNIndex(t.c_str(), static_cast<int>(t.size()));
        int expected = -1;
        for (int f = 0; f <= 160; ++f)
            if (t == da_AttribNumberToIntName(da_nmFieldNum2DANum(f))) expected = f;
        EXPECT_EQ(field, expected) << t;
    }
    for (int f = 0; f <= 160; ++f) {  // every local name finds its own field
        const char *tag = da_FindAttribIntName(da_AttribNumberToLocName(da_nmFieldNum2DANum(f)));
        EXPECT_EQ(da_AttIdToORNIndex(tag, static_cast<int>(std::string(tag).size())), f);
    }
}

// Group 1 maps its fields while appending unless cl_ConvertToSpecialChar
// would trace (above level 9); both ways write the same text, cut or not.
TEST(FastPath, Group1TextIsTheSameWhetherTracedOrNot) {
    using format_support::Fields;
    std::string utf8 = "a";
    while (utf8.size() < 4200) utf8 += "\xC3\xA9 .";
    const Fields names[] = {
        {{0, "van Dyke"}, {1, "Mary Ann"}, {2, "J.R"}, {3, "I/I"}, {4, "Sales (EU)"}, {6, "a,b"}, {9, "x/y"}},
        {{0, std::string(4000, 's')}, {1, std::string(90, 'g')}, {2, "JR"}, {4, "Sales"}},
        {{0, utf8.substr(0, 4095)}, {2, std::string(3000, '.')}, {5, "u"}, {14, "w"}, {16, "v"}},
        {{2, utf8}, {3, "Jr"}, {7, utf8}, {8, "o (x)"}},
    };
    int saved = er_SubSystemLoggingLevel;
    for (const Fields &fields : names) {
        format_support::Table table(fields, 23);
        std::string texts[2][2];
        for (int level : {9, 10}) {
            er_SubSystemLoggingLevel = level;
            texts[level - 9][0] = cl_FrmtGroup1PP(table.t, 0);
            texts[level - 9][1] = cl_FrmtGroup1PP(table.t, 1);
        }
        EXPECT_EQ(texts[0][0], texts[1][0]);
        EXPECT_EQ(texts[0][1], texts[1][1]);
    }
    er_SubSystemLoggingLevel = saved;
}

// Packing as the packed form's rules state it, slot by slot: every slot's
// text and a separator, group ends with the 0x1D bytes before them stepped
// back over (except after group 1), the trailing ones removed.
std::string reference_pack(char **slots) {
    std::string out;
    for (int i = 0; i <= 160; ++i) {
        if (slots[i]) out += slots[i];
        if (i % 32 == 31) {
            if (i != 31)
                while (!out.empty() && out.back() == '\x1D') out.pop_back();
            out += '\x17';
        } else {
            out += '\x1D';
        }
    }
    out.pop_back();
    while (!out.empty() && (out.back() == '\x1D' || out.back() == '\x17')) out.pop_back();
    return out;
}

// Random arrays, few slots set, some texts ending or starting with
// separator bytes (which spill into the fields after them).
TEST(FastPath, PackingWritesWhatTheSlotBySlotRulesWrite) {
    std::mt19937 random(7);
    const char *texts[] = {"a", "Smith", "x\x1D", "\x1D", "\x1Dy", "z\x17", "\x17", "", "p\x1D\x1D"};
    for (int round = 0; round < 3000; ++round) {
        char **slots = nullptr;
        cl_UnPackToLargeArray("", &slots);
        int count = static_cast<int>(random() % 12);
        for (int k = 0; k < count; ++k) {
            int field = static_cast<int>(random() % 161);
            if (round % 3 == 0) field = field % 40 + (random() % 2 ? 120 : 0);
            os_free(slots[field]);
            slots[field] = os_strdup(texts[random() % (sizeof texts / sizeof *texts)]);
        }
        std::string packed(4096, '\0');
        cl_ORNArray2Tf(slots, packed.data());
        EXPECT_EQ(testkit::show(packed.c_str()), testkit::show(reference_pack(slots))) << round;
        cl_FreeArray(slots);
    }
}

}  // namespace

// Random packed text: fields of assorted texts (line feeds at the end, in
// the middle, alone) joined by 0x1D and 0x17, so that groups close early,
// group 1 overflows into group 2, and fields far along are reached; no
// non-empty field beyond 160. Every third text is longer than the
// formatters' own table holds, so their other way is taken too.
std::string random_packed(std::mt19937 &random, int round) {
    const std::string texts[] = {"", "", "", "a", "Smith", "x\n", "\n", "a\nb", "\xC3\xA9t\xC3\xA9", "q r",
                                 std::string(300, 'w')};
    std::string text;
    int n = 0;
    int pieces = static_cast<int>(random() % 60);
    if (round % 3 == 0) text = std::string(4100, 'L');
    for (int k = 0; k < pieces; ++k) {
        int next = random() % 5 == 0 ? (n / 32 + 1) * 32 : n + 1;
        if (next > 150) break;
        text += next == n + 1 ? '\x1D' : '\x17';
        n = next;
        text += texts[random() % (sizeof texts / sizeof *texts)];
    }
    return text;
}

// A formatter's text, or the reason of its escape.
template <class F>
std::string outcome_text(F &&format) {
    const char *text = nullptr;
    testkit::Outcome o = testkit::run([&] { text = format(); });
    return o.escaped ? "escape " + std::to_string(o.reason) : std::string(text);
}

// The formatters unpack into a table of their own unless cl_UnpackFullORN
// would trace (above level 9); both tables hold the same fields. The native
// attribute list shows every field, the full name the converted ones too.
TEST(FastPath, FormattersSeeTheSameFieldsInTheirOwnTable) {
    std::mt19937 random(11);
    ccs_Descriptor utf8;
    ASSERT_EQ(ccs_GetCSDescriptor("UTF8", &utf8), 1);
    testkit::TraceCapture quiet;
    int saved = er_SubSystemLoggingLevel;
    for (int round = 0; round < 600; ++round) {
        std::string tf = random_packed(random, round);
        std::string texts[2][4];
        for (int level : {9, 10}) {
            er_SubSystemLoggingLevel = level;
            std::string *t = texts[level - 9];
            const char *p = tf.c_str();
            t[0] = outcome_text([&] { return cl_FormatNative(p); });
            t[1] = outcome_text([&] { return cl_FormatFullName(p, &utf8); });
            t[2] = outcome_text([&] { return cl_FormatGroup1(p); });
            t[3] = outcome_text([&] { return cl_FormatPersonalName(p, &utf8); });
        }
        er_SubSystemLoggingLevel = saved;
        for (int k = 0; k < 4; ++k) EXPECT_EQ(texts[0][k], texts[1][k]) << round << ' ' << testkit::show(tf);
    }
    er_SubSystemLoggingLevel = saved;
}

// A random command-line argument: sometimes a positional part, then
// attributes for random fields (the special ones among them, and repeats)
// with assorted values.
std::string random_argument(std::mt19937 &random) {
    const char *positional[] = {"", "Smith/", "John Smith/Sales,London/", "J.R.R. Gruteda/R/", "/Sales/"};
    const char *values[] = {"a", "Acme", "x y", "\xC3\xA9t\xC3\xA9", "*", "p\\/q", "a\\=b", "1",
                            "SIMPLE:abc", "'0101'H/NS+12345"};
    const int special[] = {0, 1, 8, 9, 35, 46, 64, 96, 128, 130, 160};
    std::string text = positional[random() % 5];
    int count = 1 + static_cast<int>(random() % 5);
    for (int k = 0; k < count; ++k) {
        int field = random() % 2 ? special[random() % 11] : static_cast<int>(random() % 161);
        text += da_AttribNumberToLocName(da_nmFieldNum2DANum(field));
        text += '=';
        text += values[random() % 10];
        if (k + 1 < count) text += '/';
    }
    return text;
}

// The packed result is written from the fields as they were filled, without
// the field array; it is what packing the array of the same argument gives,
// and both ways refuse the same arguments.
TEST(FastPath, ConversionPacksWhatItsArrayPacks) {
    std::mt19937 random(5);
    ccs_Descriptor utf8;
    ASSERT_EQ(ccs_GetCSDescriptor("UTF8", &utf8), 1);
    int accepted = 0;
    for (int round = 0; round < 2000; ++round) {
        std::string argument = random_argument(random);
        int marker = round % 2;
        std::string typed = argument;
        char out[8192];
        std::string direct = outcome_text([&] { return cl_ConvCltoORN(typed.data(), out, 0, marker, &utf8); });
        typed = argument;
        char packed[8192];
        std::string viaArray = outcome_text([&]() -> const char * {
            char **array = cl_ConvCltoArray(typed.data(), out, 0, marker, &utf8);
            cl_ORNArray2Tf(array, packed);
            cl_FreeArray(array);
            return packed;
        });
        EXPECT_EQ(testkit::show(direct), testkit::show(viaArray)) << argument;
        accepted += direct.rfind("escape", 0) != 0;
    }
    EXPECT_GT(accepted, 500);  // most arguments convert
}
