// The platform stand-ins the formatters and conversions stand on: the name
// library (nm_), directory attributes (da_), the T.61 input transformation
// (t61_) and character sets, conversion and strings (ccs_ cvc_ go_ str_
// enc_ fstr_).
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "ccs.h"
#include "cvc.h"
#include "da.h"
#include "enc.h"
#include "fstr.h"
#include "go.h"
#include "mes.h"
#include "nm.h"
#include "str.h"
#include "t61.h"
#include "testkit.hpp"

namespace {

using testkit::packed;
using testkit::show;

// ---- Name library -----------------------------------------------------------

// A packed name in a buffer with room to grow, and its parsed form.
struct Name {
    char text[1024];
    nm_ParsedORN parsed;
    explicit Name(const std::string &readable) {
        std::strcpy(text, packed(readable).c_str());
        nm_ParseORN(text, &parsed, nullptr);
    }
    std::string field(int f) {
        char buf[6];
        const char *s = nm_GetFieldStr(text, &parsed, f, buf, sizeof buf);
        return s ? s : "-";
    }
};

TEST(NameLibrary, ParseFieldsMapsAndReach) {
    Name n("Smithson||init||||||org#cn#|#x##z");
    EXPECT_EQ(n.parsed.length, static_cast<int>(std::strlen(n.text)));
    EXPECT_EQ(n.field(0), "Smith");  // bounded by the buffer
    EXPECT_EQ(n.field(1) + n.field(5) + n.field(65), "---");
    EXPECT_EQ(n.field(8) + n.field(32) + n.field(96) + n.field(160), "orgcnxz");
    EXPECT_EQ(n.parsed.start[9], -1);  // passed by the group end
    uint32_t maps[6];
    nm_GetFieldMaps(&n.parsed, maps);
    const uint32_t expected[6] = {(1u << 0) | (1u << 2) | (1u << 8), 1, 0, 1, 0, 1};
    for (int w = 0; w < 6; ++w) EXPECT_EQ(maps[w], expected[w]) << w;
    EXPECT_EQ(nm_CheckBit(160, maps) + nm_CheckBit(8, maps), 2);
    EXPECT_EQ(nm_CheckBit(1, maps) + nm_CheckBit(161, maps) + nm_CheckBit(-1, maps), 0);
    struct Case {
        const char *text;
        int reached;  // -1: refused with 100/1701 (a non-empty field beyond 160)
    } cases[] = {
        {"", 1},       {"a", 1},          {"a|", 2},          {"a#", 33},        {"#####", 161},
        {"#####x", 161}, {"#####|", 161}, {"#####|x", -1},    {"######x", -1},
        {"0123456789abcdef|0123456789abcdef0123456789abcdef|x#y", 33},
    };
    for (const Case &c : cases) {
        static std::string text;
        static nm_ParsedORN parsed;
        text = packed(c.text);
        testkit::Outcome o = testkit::run([] { nm_ParseORN(text.c_str(), &parsed, nullptr); });
        if (c.reached < 0)
            EXPECT_TRUE(o.is(100, 1701)) << c.text;
        else
            EXPECT_EQ(o.escaped ? -1 : parsed.reached, c.reached) << c.text;
    }
}

TEST(NameLibrary, PutFieldRewritesInPlace) {
    struct Case {
        const char *before;
        int field;
        const char *value, *after;
    } cases[] = {
        {"Smith|Jo", 1, "John", "Smith|John"},      {"Smith|Johnathan|x", 1, "Jo", "Smith|Jo|x"},
        {"Smith|Jo|x", 1, "", "Smith||x"},          {"Smith", 3, "Jr", "Smith|||Jr"},
        {"", 0, "Smith", "Smith"},                  {"Smith", 33, "t", "Smith#|t"},
        {"Smith", 96, "x", "Smith###x"},            {"Smith||a#cn", 5, "u", "Smith||a|||u#cn"},
        {"Smith#cn", 40, "v", "Smith#cn||||||||v"}, {"a#b##c", 64, "m", "a#b#m#c"},
        {"a#b##c", 70, "m", "a#b#||||||m#c"},       {"Smith", 2, "", "Smith"},
        {"Smith", 160, "cv", "Smith#####cv"},
    };
    for (const auto &c : cases) {
        Name n(c.before);
        nm_PutFieldStr(n.text, &n.parsed, c.field, c.value);
        EXPECT_EQ(show(n.text), c.after) << c.before << " field " << c.field;
        EXPECT_EQ(n.field(c.field), *c.value ? c.value : "-") << c.before;  // the parsed form follows
    }
    static Name n("Smith");
    EXPECT_TRUE(testkit::run([] { nm_PutFieldMem(n.text, &n.parsed, 161, "x", 1); }).is(100, 1702));
    nm_InitORN(n.text, &n.parsed);
    EXPECT_EQ(std::string(n.text) + n.field(0), "-");
    struct Grow {
        const char *before;
        int field;
        const char *after;
    } grows[] = {
        {"a|b", 8, "a|b|||||||"}, {"a||||||||o|", 15, "a||||||||o|||||||"},
        {"a|||||||||||||||t", 15, "a|||||||||||||||t"}, {"a", 33, "a#|"},
    };
    for (const auto &g : grows) {
        char tf[256];
        std::strcpy(tf, packed(g.before).c_str());
        nm_AddSeparators(tf, g.field);
        EXPECT_EQ(show(tf), g.after) << g.before << " to " << g.field;
    }
    EXPECT_EQ(nm_IsT61Field(63) + nm_IsT61Field(128) + nm_IsT61Field(-1), 0);
    EXPECT_EQ(nm_IsT61Field(64) + nm_IsT61Field(127), 2);
}

TEST(NameLibrary, FieldRulesBoundsAndClasses) {
    struct Bound {
        int field, max;
        char fill;
    } bounds[] = {{0, 40, 's'}, {1, 16, 'g'}, {2, 5, 'I'},   {3, 3, 'J'},   {4, 32, 'u'},  {7, 32, 'u'},
                  {8, 64, 'o'}, {10, 16, 'a'}, {11, 16, 'p'}, {12, 16, '1'}, {13, 24, 't'}, {14, 32, '2'}};
    for (const auto &b : bounds) {
        const std::string at(static_cast<std::size_t>(b.max), b.fill);
        EXPECT_EQ(nm_CheckField(at.c_str(), b.field), 1) << b.field;
        EXPECT_EQ(nm_CheckField((at + b.fill).c_str(), b.field), 0) << b.field;
        EXPECT_EQ(nm_CheckField("", b.field), 0) << b.field;
    }
    std::string accents;
    for (int i = 0; i < 40; ++i) accents += "\xC3\xA9";
    struct Case {
        int field;
        std::string value;
        int allowMarker, ok;  // allowMarker -1: nm_CheckField, the positional check
    } cases[] = {
        {9, "GB", -1, 1},  {9, "us", -1, 1},  {9, "826", -1, 1},  {9, "G", -1, 0},   {9, "GBR", -1, 0},
        {9, "82", -1, 0},  {9, "G1", -1, 0},  {10, " ", -1, 1},   {8, "A.B (c)+d-e/f:g=h?i'j,k", -1, 1},
        {8, "a_b", -1, 0}, {8, "a#b", -1, 0}, {8, "a\x1F", -1, 0}, {8, "\xC3\xA9", -1, 0}, {12, "12a", -1, 0},
        {14, "1 2", -1, 0}, {15, "x", -1, 0}, {64, "x", -1, 0},   {-1, "x", -1, 0},
        {8, "Acme", 0, 1}, {8, "Ac!me", 0, 0},
        {15, "abcdefgh", 0, 1}, {15, "abcdefghi", 0, 0},  // extension type: the bound alone
        {16, std::string(128, '#'), 0, 1}, {16, std::string(129, '#'), 0, 0},
        {64, "M\xC3\xBCller", 0, 1}, {64, std::string(40, 'x'), 0, 1}, {64, std::string(41, 'x'), 0, 0},
        {64, accents, 0, 1},  // counted in characters
        {64, "a\tb", 0, 0}, {64, "a\x7F", 0, 0}, {64, "a\xC2\x9F", 0, 0}, {64, "a\xC2\xA0", 0, 1},
        {99, std::string(500, 'x'), 0, 1},  // a text field without a bound
        {99, "a\x1F", 0, 0}, {99, "a\x1F", 1, 1},
        {0, "S\x1Fth", 1, 1},  // markers anywhere in a personal name
        {8, "Acme\x1F", 1, 1}, {8, "Ac\x1Fme", 1, 0}, {8, "\x1F", 1, 1},  // at the end of a standard value only
        {35, "\x01anything", 0, 1}, {160, "", 0, 1}, {8, "", 0, 0},
    };
    for (const auto &c : cases) {
        const int got = c.allowMarker < 0 ? nm_CheckField(c.value.c_str(), c.field)
                                          : nm_CheckFieldText(c.value.data(), static_cast<int>(c.value.size()),
                                                              c.field, c.allowMarker);
        EXPECT_EQ(got, c.ok) << c.field << " '" << show(c.value) << "'";
    }
    // Every field with a rule has the catalogue text of its refusal, which
    // names the attribute and states the bound.
    int ruled = 0;
    for (int field = 0; field <= 160; ++field) {
        int max = -1;
        if (nm_FieldRule(field, &max) == NM_CLASS_NONE) continue;
        ++ruled;
        const std::string text = mes_GetAnyErMsg(100, 4800 + field, nullptr, 0);
        const std::string name = da_AttribNumberToLocName(da_nmFieldNum2DANum(field));
        EXPECT_NE(text.find(" " + name + " "), std::string::npos) << field << ": " << text;
        const bool bounded = max > 0 && field != 9;  // the country's bound is its two forms
        EXPECT_TRUE(!bounded || text.find(std::to_string(max)) != std::string::npos) << text;
    }
    EXPECT_EQ(ruled, 23 + 64);
}

// ---- Directory attributes ---------------------------------------------------

TEST(Attributes, NamesTagsAndFields) {
    struct Case {
        const char *typed, *tag;
        int field;  // of the typed text read as a tag
    } cases[] = {
        {"surname", "100", -1},  {"SURNAME", "100", -1}, {"Country", "109", -1},   {"109", "109", 9},
        {"100", "100", 0},       {"28", "28", 35},       {"presentationAddress", "28", -1},
        {"135", "135", -1},      {"410", "410", 160},    {"260", "260", -1},       {"510", "510", -1},
        {"230", "230", 130},     {"99", "99", -1},       {"0100", "0100", -1},     {"12345678", "12345678", -1},
        {"conversionValue", "410", -1}, {"displayName", "228", -1}, {"field131", "231", -1},
        {"utf8PostalPersonalName", "192", -1}, {"utf8postalpersonalnamE", "192", -1}, {"field161", "field161", -1},
        {"surnam", "surnam", -1}, {"surnamex", "surnamex", -1}, {"1O8", "1O8", -1}, {"", "", -1},
        {"aVeryLongNameThatIsNoAttributeAtAll", "aVeryLongNameThatIsNoAttributeAtAll", -1},
    };
    for (const Case &c : cases) {
        EXPECT_STREQ(da_FindAttribIntName(c.typed), c.tag) << c.typed;
        EXPECT_EQ(da_AttIdToORNIndex(c.typed, static_cast<int>(std::strlen(c.typed))), c.field) << c.typed;
    }
    EXPECT_EQ(da_AttIdToORNIndex("1001", 3), 0);  // len counts
    EXPECT_EQ(da_nmFieldNum2DANum(161), -1);
    EXPECT_STREQ(da_AttribNumberToLocName(99), "");
    EXPECT_STREQ(da_AttribNumberToIntName(28), "28");
}

// Entry text through the tag mapping, the IA encoding and the cursor; the
// shown forms write 0x1D as '|' and 0x1E as \x1E.
TEST(Attributes, EntryTextMappedEncodedAndRead) {
    const std::string many = "ou1\x1D" + std::string(100, 'x') + "\x1E" "Country\x1DGB";
    struct Case {
        std::string text;
        std::string mapped, encoded, attributes;
    } cases[] = {
        {"organization\x1D" "Acme", "108|Acme", "organization|Acme", "organization|Acme|4;"},
        {"ORGANIZATION\x1D" "Acme\x1E" "Country\x1D" "GB", "108|Acme\\x1E109|GB",
         "ORGANIZATION|Acme\\x1ECountry|GB", "ORGANIZATION|Acme|4;Country|GB|2;"},
        {"108\x1D" "a", "108|a", "108|a", "108|a|1;"},                                    // a tag stays
        {"28\x1Dx\x1E" "028\x1Dy", "28|x\\x1E028|y", "28|x\\x1E028|y", "28|x|1;028|y|1;"},  // not tags
        {"unknown\x1Dx\x1E" "1O8\x1Dy", "unknown|x\\x1E1O8|y", "unknown|x\\x1E1O8|y", "unknown|x|1;1O8|y|1;"},
        {"230\x1D" "a=b=c", "230|a=b=c", "230|a|b|c", "230|a=b=c|5;"},  // the IA value's '='
        {"internetAddress\x1D" "a=b", "230|a=b", "internetAddress|a=b", "internetAddress|a=b|3;"},
        {"ou1\x1Dx\x1Dy", "104|x|y", "ou1|x|y", "ou1|x|y|3;"},  // a further 0x1D
        {"\x1E\x1E" "ou1\x1Dx\x1E", "\\x1E\\x1E104|x\\x1E", "\\x1E\\x1Eou1|x\\x1E", "ou1|x|1;"},  // empty entries
        {"ou1", "104", "ou1", "ou1||0;"},  // no value
        {"aVeryLongNameThatIsNoAttributeAtAll\x1Dv", "aVeryLongNameThatIsNoAttributeAtAll|v",
         "aVeryLongNameThatIsNoAttributeAtAll|v", "aVeryLongNameThatIsNoAttributeAtAll|v|1;"},
        {many, "104|" + std::string(100, 'x') + "\\x1E109|GB", show(many), "ou1|" + std::string(100, 'x') + "|100;Country|GB|2;"},
        {"", "", "", ""},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(show(da_MapToInternalTags(c.text.c_str(), 0, 1)), c.mapped) << show(c.text);
        EXPECT_EQ(show(da_EncodeEntryIA(c.text.c_str())), c.encoded) << show(c.text);
        std::vector<char> entry(c.text.begin(), c.text.end());
        entry.push_back('\0');
        da_AttrCursor cursor;
        da_ParseAttribList(entry.data(), &cursor);
        std::string attributes;
        char *name = nullptr, *value = nullptr;
        int len = 0;
        while (da_GetAttrib(entry.data(), &cursor, 0, &name, &value, &len))
            attributes += std::string(name) + "|" + value + "|" + std::to_string(len) + ";";
        EXPECT_EQ(show(attributes), c.attributes) << show(c.text);
    }
    // Each function may be given its own result.
    const char *mapped = da_MapToInternalTags("Country\x1DGB\x1Eorganization\x1D" "Acme", 0, 1);
    EXPECT_EQ(show(da_MapToInternalTags(mapped + 0, 0, 1)), "109|GB\\x1E108|Acme");
    EXPECT_EQ(show(da_MapToInternalTags(mapped + 7, 0, 1)), "108|Acme");
    const char *encoded = da_EncodeEntryIA("230\x1D" "a=b");
    EXPECT_EQ(show(da_EncodeEntryIA(encoded)), "230|a|b");
}

TEST(Attributes, EscapedAndSpecialValues) {
    int status = -1;
    EXPECT_STREQ(da_EscapeKeyCharsAscii("a/b=c*d[e]f%g\\h", "/=*[]%", &status), "a\\/b\\=c\\*d\\[e\\]f\\%g\\\\h");
    EXPECT_EQ(status, 0);
    EXPECT_STREQ(da_EscapeKeyCharsAscii("a/b=c", "=", &status), "a/b\\=c");
    EXPECT_STREQ(da_EscapeKeyCharsAscii("", "/", &status), "");
    const char *once = da_EscapeKeyCharsAscii("/", "/", &status);
    EXPECT_STREQ(da_EscapeKeyCharsAscii(once, "/", &status), "\\\\\\/");  // its own result as input
    EXPECT_STREQ(da_EscapeKeyCharsAscii("a*", nullptr, &status), "a\\*");
    EXPECT_STREQ(da_EscapeKeyCharsTx("\xC3\xA9/x", "UTF8", "/"), "\xC3\xA9\\/x");
    EXPECT_STREQ(da_EscapeKeyCharsTx("\xC3/x", nullptr, "/"), "\xC3\\/x");
    EXPECT_STREQ(da_EscapeKeyCharsTx("\xC2" "e/", "T61", "/"), "\xC2" "e\\/");
    EXPECT_STREQ(da_EscapeKeyCharsTx("\xC2/", "T61", "/"), "\xC2\\/");  // a mark binds letters only
    EXPECT_STREQ(da_EscapeKeyCharsTx("\xE9/", "ISO8859-1", "/"), "\xE9\\/");

    EXPECT_STREQ(da_IAConvAttToTF("/C\x1DUS/ADMD\x1D=x/@gw", -1, 0), "/C=US/ADMD==x/@gw");
    EXPECT_STREQ(da_IAConvTFToAtt("a=bcd", 3, 0), "a=b");
    EXPECT_STREQ(da_ConvEntryToCV("v"), "S:v");
    const char *text = "S:simple";
    int len = -1;
    da_AdjustCVToSimple(&text, &len);
    EXPECT_EQ(std::string(text, static_cast<std::size_t>(len)), "simple");
    text = "plain";
    len = 3;
    da_AdjustCVToSimple(&text, &len);
    EXPECT_EQ(std::string(text, static_cast<std::size_t>(len)), "pla");
    EXPECT_STREQ(da_FormatValue("S:x/y"), "x/y");
    EXPECT_STREQ(da_FormatValue("x"), "x");
    EXPECT_STREQ(da_FormatAttribEntry("410\x1DS:a/b=c", 0, 0, 0, 0), "conversionValue=a\\/b\\=c");
    EXPECT_STREQ(da_FormatAttribEntry("28\x1DS:\"x\"/NS+12", 0, 0, 0, 0), "presentationAddress=\"x\"\\/NS+12");
    EXPECT_STREQ(da_FormatAttribEntry("100\x1DS:Smith", 0, 0, 0, 0), "surname=Smith");
    EXPECT_STREQ(da_FormatAttribEntry("99\x1Dx", 0, 0, 0, 0), "99=x");
    EXPECT_STREQ(da_FormatAttribEntry("no entry", 0, 0, 0, 0), "no entry");
}

TEST(Attributes, PresentationAddressForms) {
    struct Case {
        const char *attribute, *packed, *canonical;  // canonical: null when the attribute is
    } cases[] = {
        {"NS+4900A1", "...4900A1", nullptr},
        {"\"256\"/NS+4900_NS+12", "..323536.4900.12", nullptr},
        {"\"p\"/\"\"/\"\"/NS+12", "70...12", nullptr},
        {"'00FF'H/\"s\"/\"t\"/NS+12", "00FF.73.74.12", nullptr},
        {"\"a/b\"/NS+12", "..612F62.12", nullptr},
        {"'ab'H/ns+0a_NS+Bc", "..AB.0A.BC", "'AB'H/NS+0A_NS+BC"},
        {"'616263'H/NS+12", "..616263.12", "\"abc\"/NS+12"},
    };
    for (const Case &c : cases) {
        int len = -1, status = -1;
        const char *packed = da_PSAPConvAttToTF(c.attribute, -1, &len);
        EXPECT_STREQ(packed, c.packed) << c.attribute;
        EXPECT_EQ(len, static_cast<int>(std::strlen(c.packed)));
        EXPECT_STREQ(da_PSAPConvTFToAtt(c.packed, -1, &status), c.canonical ? c.canonical : c.attribute);
        EXPECT_EQ(status, 0);
    }
    int len = 0, status = 0;
    EXPECT_STREQ(da_PSAPConvAttToTF("NS+12 trailing", 5, &len), "...12");  // len counts
    for (const char *bad : {"", "NS+", "NS+1", "NS+1G", "XX+12", "\"a\"/\"b\"/\"c\"/\"d\"/NS+12", "\"a/NS+12",
                            "'1'H/NS+12", "a/NS+12", "NS+12_", "\"\x01\"/NS+12", "'zz'H/NS+12"})
        EXPECT_TRUE(testkit::run([&] { da_PSAPConvAttToTF(bad, -1, &len); }).is(100, 4671)) << bad;
    for (const char *bad : {"not packed", "..ab.12", "...", "..1.12", "..12."}) {  // lower case is not canonical
        EXPECT_STREQ(da_PSAPConvTFToAtt(bad, -1, &status), bad);
        EXPECT_EQ(status, 1) << bad;
    }
}

// ---- T.61 input transformation ------------------------------------------------

const char *const kReps[] = {"\x1E", "\x1D", "\x1F", "\x1A[", "\x1A]", "\x18"};
const char *const kRepsNoMarker[] = {"\x1E", "\x1D", "\x1A[", "\x1A]", "\x18"};

// The shown result, or "null" when the text is refused.
std::string transform(const std::string &typed, const char *charset = "UTF8", bool marker = true, int flag = 1,
                      int len = -1, const char *specials = nullptr, const char *const *reps = nullptr) {
    int outLen = -1;
    const char *out = t61_TransformTInputStr2(typed.c_str(), len, charset,
                                              specials ? specials : marker ? "/=*[]%" : "/=[]%",
                                              reps ? reps : marker ? kReps : kRepsNoMarker, "/=", '\\', flag, &outLen);
    if (!out) return "null";
    EXPECT_EQ(outLen, static_cast<int>(std::strlen(out))) << show(typed);
    return show(out);
}

TEST(T61, TransformsTypedText) {
    struct Case {
        std::string typed, shown;
        const char *charset = "UTF8";
        bool marker = true;
        int flag = 1, len = -1;
    } cases[] = {
        {"John Smith, Jr. (x) _!|;{}#", "John Smith, Jr. (x) _!|;{}#"},
        {"a/b=c", "a\\x1Eb|c"},
        {"Sales/title=Head/ou1=x", "Sales\\x1Etitle|Head\\x1Eou1|x"},
        {"x*[y]%", "x\\x1F\\x1A[y\\x1A]\\x18"},
        {"a*b", "a*b", "UTF8", false},  // '*' is no special here
        {"ia=a=b=c/x=y", "ia|a\\x05b\\x05c\\x1Ex|y"},  // a second '=' in one segment
        {"ia=a=b", "ia|a|b", "UTF8", true, 0},          // without the flag, every '='
        {"a\\/b\\=c\\\\", "a/b=c\\"},                    // escaped: literal
        {"\\*\\[\\]\\%\\q", "*[]%q"},
        {"x=\\=", "x|="},
        {"\\\xC3\xA9", "\xC3\xA9"},
        {"ab\\", "ab"},  // a final backslash escapes nothing
        {"a\x1E" "b", "null"}, {"a\x1D" "b", "null"}, {"a\x05", "null"}, {"a\\\x1E" "b", "null"},  // reserved bytes
        {"\x18", "null"}, {"a\x1A", "null"}, {"a\x1F", "null"},
        {"a\x1F", "a\\x1F", "UTF8", false},  // the marker byte is reserved only with '*'
        {"a\tb\x01", "a\\x09b\\x01"},        // other control bytes are the caller's to judge
        {"", "null"},
        {"ab/cd", "ab\\x1E", "UTF8", true, 1, 3},
        {"abc", "null", "UTF8", true, 1, 0},
        {"Sm\xE9th/x", "Sm\xC3\xA9th\\x1Ex", "ISO8859-1"},  // converted to UTF-8
        {"plain", "plain", "IA5"},
        {"x", "x", nullptr},  // null names UTF8
        {"Sm\xE9th", "null", "IA5"},
        {"x", "null", "NO-SUCH-SET"},
        {"x", "null", "VIDEOTEX"},
        {"x", "null", "A-CHARACTER-SET-NAME-TOO-LONG-TO-KEEP"},
    };
    for (const Case &c : cases)
        EXPECT_EQ(transform(c.typed, c.charset, c.marker, c.flag, c.len), c.shown) << show(c.typed);
    // The cached converter follows the set of each call.
    EXPECT_EQ(transform("\xE9", "ISO8859-1"), "\xC3\xA9");
    EXPECT_EQ(transform("\xE9", "UTF8"), "null");
    EXPECT_EQ(transform("\xE9\xE9", "ISO8859-1"), "\xC3\xA9\xC3\xA9");
    // The caller's text is never written; a long text grows the result.
    std::string typed(20000, 'a');
    for (std::size_t k = 0; k < typed.size(); k += 3) typed[k] = '[';
    const std::string copy = typed;
    int len = 0;
    const char *out = t61_TransformTInputStr2(typed.c_str(), -1, "UTF8", "/=*[]%", kReps, "/=", '\\', 1, &len);
    EXPECT_EQ(typed, copy);
    EXPECT_EQ(std::strlen(out), typed.size() + typed.size() / 3 + 1);
}

// Well-formed UTF-8 passes as it stands; overlong forms, surrogates, cut
// or stray bytes are refused. (Sequences above U+10FFFF are left to iconv,
// which takes them.)
TEST(T61, Utf8IsCheckedAtEverySequenceBoundary) {
    for (const char *ok : {"\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80", "\xEF\xBF\xBF",
                           "\xF0\x90\x80\x80", "\xF1\x80\x80\x80", "\xF4\x8F\xBF\xBF"})
        EXPECT_EQ(transform(std::string("x") + ok + "y"), std::string("x") + ok + "y") << show(ok);
    for (const char *bad : {"\x80", "\xBF", "\xC0\xAF", "\xC1\xBF", "\xC3", "\xC3x", "\xE0\x80\xAF", "\xE0\x9F\xBF",
                            "\xED\xA0\x80", "\xE2\x82", "\xE2\x82x", "\xF0\x8F\xBF\xBF", "\xF1\x80\x80",
                            "\xF1\x80x\x80", "\xFE", "\xFF"})
        EXPECT_EQ(transform(std::string("a") + bad + "b"), "null") << show(bad);
}

// Random text through the block walk of the usual specials and through
// the byte walk that a set with more watched bytes takes (five specials
// the texts never hold): the same result or the same refusal.
TEST(T61, BlockWalkGivesWhatTheByteWalkGives) {
    const char *pieces[] = {"a", "Smith", "John Q", " ", "/", "=", "*", "[", "]", "%", "\\", ",", "\x05", "\x1E",
                            "\x1F", "\x18", "\x01", "\t", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\x80",
                            "\xC3", "\xED\xA0\x80", "\xFF", "\xE9", "organization=Acme", "0123456789abcdef"};
    const char *charsets[] = {"UTF8", "ISO8859-1", "IA5", nullptr};
    const char *const wideReps[] = {"\x1E", "\x1D", "\x1F", "\x1A[", "\x1A]", "\x18", "?", "?", "?", "?", "?"};
    std::mt19937 random(17);
    int accepted = 0;
    for (int round = 0; round < 20000; ++round) {
        std::string typed;
        for (int k = static_cast<int>(random() % 24); k > 0; --k) typed += pieces[random() % 28];
        const char *charset = charsets[random() % 4];
        const int flag = static_cast<int>(random() % 2);
        const int len = random() % 4 == 0 ? static_cast<int>(random() % (typed.size() + 2)) : -1;
        const std::string block = transform(typed, charset, true, flag, len);
        EXPECT_EQ(block, transform(typed, charset, true, flag, len, "/=*[]%~^`!$", wideReps)) << show(typed);
        accepted += block != "null";
    }
    EXPECT_GT(accepted, 2000);
}

// The kept tables follow what the arrays hold, not where they are.
TEST(T61, KeptTablesFollowTheTextsBehindThePointers) {
    char specials[8] = "/=";
    char slash[4] = "\x1E";
    char equals[4] = "\x1D";
    const char *reps[] = {slash, equals};
    EXPECT_EQ(transform("a/b=c", "UTF8", true, 1, -1, specials, reps), "a\\x1Eb|c");
    std::strcpy(slash, "::");  // same pointers, other texts
    EXPECT_EQ(transform("a/b=c", "UTF8", true, 1, -1, specials, reps), "a::b|c");
    std::strcpy(specials, "=");
    EXPECT_EQ(transform("a/b=c", "UTF8", true, 1, -1, specials, reps), "a/b::c");
    std::strcpy(equals, "\x02");  // a control byte: reserved now, wherever typed
    std::strcpy(specials, "/=");
    EXPECT_EQ(transform("a\x02", "UTF8", true, 1, -1, specials, reps), "null");
    std::strcpy(specials, "/=*");  // a third special, read from a third replacement
    const char *three[] = {slash, equals, "+"};
    EXPECT_EQ(transform("a*/", "UTF8", true, 1, -1, specials, three), "a+::");
    for (int round = 0; round < 3; ++round) {  // more sets than are kept, in turn
        for (const char *s : {"/", "=", "*", "[", "]", "%"}) {
            const char *one[] = {"!"};
            EXPECT_EQ(transform(std::string("x") + s + "y", "UTF8", true, 1, -1, s, one), "x!y") << s;
        }
    }
    std::string many;  // a set too large to keep is transformed all the same
    for (int k = 0; k < 40; ++k) many += static_cast<char>('0' + k);
    std::vector<const char *> manyReps(40, "_");
    manyReps[39] = "\x1E";
    EXPECT_EQ(transform("0xW", "UTF8", true, 1, -1, many.c_str(), manyReps.data()), "_x\\x1E");
    const char *longReps[] = {"a-replacement-longer-than-eight", "\xC3\xA9", ""};
    EXPECT_EQ(transform("x/y=z*", "UTF8", true, 1, -1, "/=*", longReps), "xa-replacement-longer-than-eighty\xC3\xA9z");
}

// ---- Character sets, conversion, strings ---------------------------------------

const char *const kKnownSets[] = {"UTF8", "ISO8859-1", "IA5", "T61", "ISO8859-15", "VIDEOTEX"};

TEST(CharacterSets, DescriptorsNamesAndMappings) {
    for (const char *set : kKnownSets) {
        ccs_Descriptor d{};
        ASSERT_EQ(ccs_GetCSDescriptor(set, &d), 1) << set;
        EXPECT_STREQ(ccs_GetCSName(&d), set);
        EXPECT_STREQ(ccs_GetInternalCharset(d.name, 2), set);
    }
    ccs_Descriptor d{};
    EXPECT_EQ(ccs_GetCSDescriptor("utf-8", &d), 1);
    EXPECT_STREQ(d.name, "UTF8");
    EXPECT_EQ(ccs_GetCSDescriptor("latin1", &d), 1);
    EXPECT_STREQ(d.name, "ISO8859-1");
    EXPECT_EQ(ccs_GetCSDescriptor("KLINGON", &d), 0);
    EXPECT_EQ(ccs_GetCSDescriptor(nullptr, &d), 0);
    EXPECT_STREQ(ccs_GetCSName(nullptr), "UTF8");
    EXPECT_STREQ(ccs_GetInternalCharset("KLINGON", 2), "IA5");
    EXPECT_STREQ(ccs_IconvName("IA5"), "ASCII");
    EXPECT_EQ(ccs_IconvName("VIDEOTEX"), nullptr);
    for (int round = 0; round < 2; ++round) {  // asked of iconv once, then remembered
        EXPECT_EQ(cvc_IsMappingAvail("UTF8", "ISO8859-1") + cvc_IsMappingAvail(nullptr, "IA5") +
                      cvc_IsMappingAvail("UTF8", "T61"),
                  3);
        EXPECT_EQ(cvc_IsMappingAvail("UTF8", "VIDEOTEX") + cvc_IsMappingAvail("UTF8", "KLINGON"), 0);
    }
}

TEST(CharacterSets, ConversionMarksRetainsAndRoundTrips) {
    testkit::TempHome home;
    testkit::LogCapture log;
    EXPECT_STREQ(go_ConvertStrEscapeLog("caf\xC3\xA9 \xE2\x82\xAC", -1, "UTF8", "ISO8859-1"), "caf\xE9 ?");
    ASSERT_EQ(log.records().size(), 1u);
    EXPECT_EQ(log.records()[0].reason, 4672);
    EXPECT_NE(log.records()[0].text.find('1'), std::string::npos);
    EXPECT_STREQ(go_ConvertStrEscapeLog("ab\xFF" "c", -1, nullptr, "IA5"), "ab?c");  // an invalid byte
    EXPECT_STREQ(go_ConvertStrEscapeLog("a\xE9" "b", -1, "ISO8859-1", "IA5"), "a?b");
    EXPECT_STREQ(go_ConvertStrEscapeLog("abc", 2, "UTF8", "IA5"), "ab");  // len counts
    EXPECT_EQ(log.records().size(), 3u);
    EXPECT_STREQ(go_ConvertStringOrRetain("caf\xC3\xA9", -1, "UTF8", "IA5"), "caf\xC3\xA9");
    EXPECT_STREQ(go_ConvertStringOrRetain("cafe", -1, "UTF8", nullptr), "cafe");
    EXPECT_STREQ(go_ConvertStringOrRetain("caf\xC3\xA9", -1, "UTF8", "VIDEOTEX"), "caf\xC3\xA9");
    EXPECT_STREQ(go_ConvertStringOrRetain("abc", 2, "UTF8", "KLINGON"), "ab");
    for (const char *from : kKnownSets)
        for (const char *to : kKnownSets) EXPECT_STREQ(go_ConvertStringOrRetain("Smith", -1, from, to), "Smith");
    const std::string text = "Andr\xC3\xA9 M\xC3\xBCller " + std::string(300, 'x');  // grows the result
    for (const char *set : {"ISO8859-1", "ISO8859-15", "T61"}) {
        const char *there = go_ConvertStringOrRetain(text.c_str(), -1, "UTF8", set);  // a result as input
        EXPECT_NE(std::string(there), text) << set;
        EXPECT_EQ(std::string(go_ConvertStringOrRetain(there, -1, set, "UTF8")), text) << set;
    }
}

TEST(Strings, BoundedConcatenationNeverCutsAUtf8Character) {
    struct Case {
        const char *dst, *src;
        int n;
        const char *result;
    } cases[] = {
        {"", "abc", 2, "ab"},
        {"x", "abc", 9, "xabc"},
        {"x", "abc", 0, "x"},
        {"", "a\xC3\xA9", 2, "a"},
        {"", "a\xC3\xA9", 3, "a\xC3\xA9"},
        {"", "a\xE2\x82\xAC", 2, "a"},
        {"", "a\xE2\x82\xAC", 3, "a"},
        {"", "a\xE2\x82\xAC" "b", 4, "a\xE2\x82\xAC"},
        {"", "a\xF0\x9F\x98\x80", 4, "a"},
        {"", "\xE9\xE9\xE9", 2, "\xE9\xE9"},  // single-byte text is cut at the bound
        {"", "a\xA9\xA9", 2, "a\xA9"},        // stray continuation bytes too
        {"", "\xA9\xA9\xA9\xA9\xA9", 4, "\xA9\xA9\xA9\xA9"},
        {"", "a\xE2\x82", 2, "a\xE2"},        // a cut sequence
        {"", "a\xE2\x82x", 2, "a\xE2"},
    };
    for (const Case &c : cases) {
        char buf[64];
        std::snprintf(buf, sizeof buf, "%s", c.dst);
        EXPECT_STREQ(str_strncat(buf, c.src, c.n, 1), c.result) << show(c.src) << " " << c.n;
    }
    char buf[16] = "a";
    EXPECT_STREQ(str_strcat(buf, "bc", nullptr), "abc");
}

TEST(Strings, AsciiEncodingAndGrowableStrings) {
    std::string all;
    for (int c = 0; c < 256; ++c) all += static_cast<char>(c);
    int status = -1, len = 0;
    const std::string encoded = enc_EncodeToAscii(all.data(), static_cast<int>(all.size()), &status);
    EXPECT_EQ(status, 0);
    for (char c : encoded) EXPECT_TRUE(c > 0x20 && c < 0x7F && !std::strchr("/=\\*[]%", c)) << c;
    const char *decoded = enc_DecodeFromAscii(encoded.c_str(), &len);
    EXPECT_EQ(std::string(decoded, static_cast<std::size_t>(len)), all);
    EXPECT_STREQ(enc_EncodeToAscii("Smith-Jones", -1, &status), "Smith-Jones");
    EXPECT_STREQ(enc_EncodeToAscii("a b~", -1, nullptr), "a~20b~7E");
    EXPECT_STREQ(enc_DecodeFromAscii("a~2", &len), "a~2");  // not an escape: kept
    EXPECT_STREQ(enc_DecodeFromAscii("~4a~G1~7e", &len), "J~G1~");

    fstr_String s{};
    fstr_FsCsCat(&s, "abc");
    for (int i = 0; i < 6; ++i) fstr_FsCsCat(&s, s.text);  // grows through several blocks
    EXPECT_EQ(s.length, 3 * 64);
    EXPECT_EQ(std::strncmp(s.text + 189, "abc", 4), 0);
    fstr_FsCsCopy(&s, s.text + 189);
    EXPECT_STREQ(s.text, "abc");
    EXPECT_EQ(s.length, 3);
    fstr_FsCsCopy(&s, nullptr);
    EXPECT_STREQ(s.text, "");
    fstr_StrFree(&s);
    EXPECT_EQ(s.text, nullptr);
    fstr_StrInit(&s, nullptr);
    EXPECT_EQ(s.length, 0);
    fstr_StrFree(&s);
}

}  // namespace
