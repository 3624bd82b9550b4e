// The platform stand-ins the formatters and conversions stand on: the name
// library (nm_), directory attributes (da_), the T.61 input transformation
// (t61_), character sets, conversion and strings (ccs_ cvc_ go_ str_ enc_
// fstr_). Shown texts write 0x1D as '|', 0x17 as '#', control bytes as \xNN.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "ccs.h"
#include "cvc.h"
#include "da.h"
#include "dr.h"
#include "enc.h"
#include "ext.h"
#include "gen.h"
#include "go.h"
#include "mes.h"
#include "nm.h"
#include "str.h"
#include "t61.h"
#include "testkit.hpp"

namespace {

using testkit::packed;
using testkit::show;
using Pair = std::pair<std::string, std::string>;

// ---- Name library -----------------------------------------------------------

struct Name {  // a packed name in a buffer with room to grow, and its parsed form
    char text[1024];
    nm_ParsedORN parsed;
    explicit Name(const std::string &readable) { nm_ParseORN(std::strcpy(text, packed(readable).c_str()), &parsed, 0); }
    std::string field(int f) {
        char buf[6];
        return nm_GetFieldStr(text, &parsed, f, buf, sizeof buf) ? buf : "-";
    }
};

TEST(NameLibrary, ParseFieldsMapsAndReach) {
    Name n("Smithson||init||||||org#cn#|#x##z");
    EXPECT_EQ(n.parsed.length, static_cast<int>(std::strlen(n.text)));
    EXPECT_EQ(n.field(0) + n.field(1) + n.field(5) + n.field(65) + n.field(8) + n.field(32) + n.field(96) +
                  n.field(160), "Smith---orgcnxz");  // bounded by the buffer
    EXPECT_EQ(n.parsed.start[9], -1);  // passed by the group end; the maps: see the packed round trip
    EXPECT_EQ(nm_CheckBit(160, n.parsed.maps) + nm_CheckBit(8, n.parsed.maps) * 2 + nm_CheckBit(1, n.parsed.maps) * 4 +
                  nm_CheckBit(161, n.parsed.maps) * 8 + nm_CheckBit(-1, n.parsed.maps) * 16, 3);
    // The fields reached; -1: refused with 100/1701 (a non-empty field beyond 160).
    const std::pair<const char *, int> cases[] = {
        {"", 1}, {"a", 1}, {"a|", 2}, {"a#", 33}, {"#####", 161}, {"#####x", 161}, {"#####|", 161},
        {"#####|x", -1}, {"######x", -1}, {"0123456789abcdef|0123456789abcdef0123456789abcdef|x#y", 33}};
    for (const auto &[readable, reached] : cases) {
        static std::string text;
        static nm_ParsedORN parsed;
        text = packed(readable);
        testkit::Outcome o = testkit::run([] { nm_ParseORN(text.c_str(), &parsed, nullptr); });
        EXPECT_EQ(o.escaped ? -o.is(100, 1701) : parsed.reached, reached) << readable;
    }
}

TEST(NameLibrary, PutFieldAndAddSeparators) {
    // Before, field, value (null: nm_AddSeparators), after.
    const std::tuple<const char *, int, const char *, const char *> cases[] = {
        {"Smith|Jo", 1, "John", "Smith|John"}, {"Smith|Johnathan|x", 1, "Jo", "Smith|Jo|x"},
        {"Smith|Jo|x", 1, "", "Smith||x"}, {"Smith", 3, "Jr", "Smith|||Jr"}, {"", 0, "Smith", "Smith"},
        {"Smith", 33, "t", "Smith#|t"}, {"Smith", 96, "x", "Smith###x"}, {"Smith||a#cn", 5, "u", "Smith||a|||u#cn"},
        {"Smith#cn", 40, "v", "Smith#cn||||||||v"}, {"a#b##c", 64, "m", "a#b#m#c"}, {"a#b##c", 70, "m", "a#b#||||||m#c"},
        {"Smith", 2, "", "Smith"}, {"Smith", 160, "cv", "Smith#####cv"}, {"a|b", 8, nullptr, "a|b|||||||"},
        {"a||||||||o|", 15, nullptr, "a||||||||o|||||||"}, {"a|||||||||||||||t", 15, nullptr, "a|||||||||||||||t"},
        {"a", 33, nullptr, "a#|"}};
    for (const auto &[before, field, value, after] : cases) {
        Name n(before);
        value ? nm_PutFieldStr(n.text, &n.parsed, field, value) : nm_AddSeparators(n.text, field);
        EXPECT_EQ(show(n.text), after) << before << " field " << field;
        EXPECT_EQ(value ? n.field(field) : "", value ? *value ? value : "-" : "");  // the parsed form follows
    }
    static Name n("Smith");
    EXPECT_TRUE(testkit::run([] { nm_PutFieldMem(n.text, &n.parsed, 161, "x", 1); }).is(100, 1702));
    nm_InitORN(n.text, &n.parsed);
    EXPECT_EQ(std::string(n.text) + n.field(0), "-");
    EXPECT_EQ(nm_IsT61Field(63) + nm_IsT61Field(128) * 2 + nm_IsT61Field(64) * 4 + nm_IsT61Field(127) * 8, 12);
}

TEST(NameLibrary, FieldRulesBoundsAndClasses) {
    const std::pair<int, int> bounds[] = {{0, 40}, {1, 16}, {2, 5},   {3, 3},   {4, 32},  {7, 32},
                                           {8, 64}, {10, 16}, {11, 16}, {12, 16}, {13, 24}, {14, 32}};
    for (auto [field, max] : bounds) {
        const std::string at(static_cast<std::size_t>(max), field == 12 || field == 14 ? '1' : 'a');
        EXPECT_EQ(nm_CheckField(at.c_str(), field), 1) << field;
        EXPECT_EQ(nm_CheckField((at + at[0]).c_str(), field) + nm_CheckField("", field), 0) << field;
    }
    std::string accents;
    for (int i = 0; i < 40; ++i) accents += "\xC3\xA9";
    // Field, value, allowMarker (-1: nm_CheckField, the positional check), whether it passes.
    const std::tuple<int, std::string, int, int> cases[] = {
        {9, "GB", -1, 1}, {9, "us", -1, 1}, {9, "826", -1, 1}, {9, "G", -1, 0}, {9, "GBR", -1, 0}, {9, "82", -1, 0},
        {9, "G1", -1, 0}, {10, " ", -1, 1}, {8, "A.B (c)+d-e/f:g=h?i'j,k", -1, 1}, {8, "a_b", -1, 0},
        {8, "a#b", -1, 0}, {8, "a\x1F", -1, 0}, {8, "\xC3\xA9", -1, 0}, {12, "12a", -1, 0}, {14, "1 2", -1, 0},
        {15, "x", -1, 0}, {64, "x", -1, 0}, {-1, "x", -1, 0}, {8, "Acme", 0, 1}, {8, "Ac!me", 0, 0},
        {15, "abcdefgh", 0, 1}, {15, "abcdefghi", 0, 0}, {16, std::string(128, '#'), 0, 1},  // extensions: bound only
        {16, std::string(129, '#'), 0, 0}, {64, "M\xC3\xBCller", 0, 1}, {64, std::string(40, 'x'), 0, 1},
        {64, std::string(41, 'x'), 0, 0}, {64, accents, 0, 1}, {73, "\xC3\xA9t\xC3\xA9", 0, 1}, {73, "etat", 0, 0},
        {64, "a\tb", 0, 0}, {64, "a\x7F", 0, 0}, {64, "a\xC2\x9F", 0, 0}, {64, "a\xC2\xA0", 0, 1},
        {99, std::string(500, 'x'), 0, 1}, {99, "a\x1F", 0, 0}, {99, "a\x1F", 1, 1}, {0, "S\x1Fth", 1, 1},
        {8, "Acme\x1F", 1, 1}, {8, "Ac\x1Fme", 1, 0}, {8, "\x1F", 1, 1}, {35, "\x01anything", 0, 1}, {160, "", 0, 1},
        {8, "", 0, 0}};
    for (const auto &[field, value, marker, ok] : cases)
        EXPECT_EQ(marker < 0 ? nm_CheckField(value.c_str(), field)
                             : nm_CheckFieldText(value.data(), static_cast<int>(value.size()), field, marker),
                  ok)
            << field << " '" << show(value) << "'";
    const std::string refusal = mes_GetAnyErMsg(100, 4800, nullptr, 0);  // names the attribute and the bound
    EXPECT_TRUE(refusal.find(" surname ") != std::string::npos && refusal.find("40") != std::string::npos) << refusal;
}

// ---- Directory attributes ---------------------------------------------------

TEST(Attributes, NamesTagsAndFields) {
    // Typed name, its internal name, its field when read as a tag.
    const std::tuple<const char *, const char *, int> cases[] = {
        {"surname", "100", -1}, {"SURNAME", "100", -1}, {"Country", "109", -1}, {"109", "109", 9}, {"100", "100", 0},
        {"28", "28", 35}, {"presentationAddress", "28", -1}, {"135", "135", -1}, {"410", "410", 160},
        {"260", "260", -1}, {"510", "510", -1}, {"230", "230", 130}, {"99", "99", -1}, {"0100", "0100", -1},
        {"12345678", "12345678", -1}, {"conversionValue", "410", -1}, {"displayName", "228", -1},
        {"field131", "231", -1}, {"utf8postalpersonalnamE", "192", -1}, {"field161", "field161", -1},
        {"surnam", "surnam", -1}, {"surnamex", "surnamex", -1}, {"1O8", "1O8", -1}, {"", "", -1},
        {"aVeryLongNameThatIsNoAttributeAtAll", "aVeryLongNameThatIsNoAttributeAtAll", -1}};
    for (const auto &[typed, tag, field] : cases)
        EXPECT_EQ(da_FindAttribIntName(typed) + std::to_string(da_AttIdToORNIndex(typed, std::strlen(typed))),
                  tag + std::to_string(field));
    EXPECT_EQ(da_AttIdToORNIndex("1001", 3) + da_nmFieldNum2DANum(161), -1);  // len counts; no field 161
    EXPECT_EQ(std::string(da_AttribNumberToLocName(99)) + da_AttribNumberToIntName(28), "28");
}

// Entry text through the tag mapping, the IA encoding and the cursor.
TEST(Attributes, EntryTextMappedEncodedAndRead) {
    const std::string x100(100, 'x'), many = "ou1\x1D" + x100 + "\x1E" "Country\x1DGB";
    const std::tuple<std::string, std::string, std::string, std::string> cases[] = {
        {"ORGANIZATION\x1D" "Acme\x1E" "Country\x1D" "GB", "108|Acme\\x1E109|GB",
         "ORGANIZATION|Acme\\x1ECountry|GB", "ORGANIZATION|Acme|4;Country|GB|2;"},
        {"28\x1Dx\x1E" "028\x1Dy", "28|x\\x1E028|y", "28|x\\x1E028|y", "28|x|1;028|y|1;"},  // a tag stays; 028 is none
        {"1O8\x1Dy\x1E" "aVeryLongNameThatIsNoAttributeAtAll\x1Dv", "1O8|y\\x1EaVeryLongNameThatIsNoAttributeAtAll|v",
         "1O8|y\\x1EaVeryLongNameThatIsNoAttributeAtAll|v", "1O8|y|1;aVeryLongNameThatIsNoAttributeAtAll|v|1;"},
        {"230\x1D" "a=b=c", "230|a=b=c", "230|a|b|c", "230|a=b=c|5;"},  // the IA value's '='
        {"internetAddress\x1D" "a=b", "230|a=b", "internetAddress|a=b", "internetAddress|a=b|3;"},
        {"ou1\x1Dx\x1Dy", "104|x|y", "ou1|x|y", "ou1|x|y|3;"},  // a further 0x1D
        {"\x1E\x1E" "ou1\x1Dx\x1E", "\\x1E\\x1E104|x\\x1E", "\\x1E\\x1Eou1|x\\x1E", "ou1|x|1;"},  // empty entries
        {"ou1", "104", "ou1", "ou1||0;"},  // no value
        {many, "104|" + x100 + "\\x1E109|GB", show(many), "ou1|" + x100 + "|100;Country|GB|2;"},  // results grow
        {"", "", "", ""}};
    for (const auto &[text, mapped, encoded, attributes] : cases) {
        EXPECT_EQ(show(da_MapToInternalTags(text.c_str(), 0, 1)), mapped) << show(text);
        EXPECT_EQ(show(da_EncodeEntryIA(text.c_str())), encoded) << show(text);
        std::vector<char> entry(text.c_str(), text.c_str() + text.size() + 1);
        da_AttrCursor cursor;
        da_ParseAttribList(entry.data(), &cursor);
        std::string read;
        char *name = nullptr, *value = nullptr;
        for (int len = 0; da_GetAttrib(entry.data(), &cursor, 0, &name, &value, &len);)
            read += std::string(name) + "|" + value + "|" + std::to_string(len) + ";";
        EXPECT_EQ(show(read), attributes) << show(text);
    }
    // Each function may be given its own result.
    const char *mapped = da_MapToInternalTags("Country\x1DGB\x1Eorganization\x1D" "Acme", 0, 1);
    EXPECT_EQ(show(da_MapToInternalTags(mapped + 0, 0, 1)), "109|GB\\x1E108|Acme");
    EXPECT_EQ(show(da_MapToInternalTags(mapped + 7, 0, 1)), "108|Acme");
    EXPECT_EQ(show(da_EncodeEntryIA(da_EncodeEntryIA("230\x1D" "a=b"))), "230|a|b");
}

TEST(Attributes, EscapedAndSpecialValues) {
    int status = -1;  // the key characters of the display texts: see the formatters
    EXPECT_STREQ(da_EscapeKeyCharsAscii("a/b=c", "=", &status), "a/b\\=c");
    EXPECT_EQ(status, 0);
    EXPECT_STREQ(da_EscapeKeyCharsAscii(da_EscapeKeyCharsAscii("/", "/", &status), "/", &status), "\\\\\\/");
    EXPECT_STREQ(da_EscapeKeyCharsAscii("a*\\", nullptr, &status), "a\\*\\\\");
    EXPECT_STREQ(da_EscapeKeyCharsTx("\xC3/x", nullptr, "/"), "\xC3\\/x");      // no UTF-8 character
    EXPECT_STREQ(da_EscapeKeyCharsTx("\xC2/\xC2" "e/", "T61", "/"), "\xC2\\/\xC2" "e\\/");  // a mark binds letters
    const Pair entries[] = {{"410\x1DS:a/b=c", "conversionValue=a\\/b\\=c"}, {"100\x1DS:Smith", "surname=Smith"},
                            {"99\x1Dx", "99=x"}, {"no entry", "no entry"}};
    for (const auto &[entry, shown] : entries) EXPECT_EQ(da_FormatAttribEntry(entry.c_str(), 0, 0, 0, 0), shown);
}

TEST(Attributes, PresentationAddressForms) {
    // Attribute form, packed form, the canonical spelling when it differs.
    const std::tuple<const char *, const char *, const char *> cases[] = {
        {"NS+4900A1", "...4900A1", nullptr}, {"\"256\"/NS+4900_NS+12", "..323536.4900.12", nullptr},
        {"\"p\"/\"\"/\"\"/NS+12", "70...12", nullptr}, {"'00FF'H/\"s\"/\"t\"/NS+12", "00FF.73.74.12", nullptr},
        {"\"a/b\"/NS+12", "..612F62.12", nullptr}, {"'ab'H/ns+0a_NS+Bc", "..AB.0A.BC", "'AB'H/NS+0A_NS+BC"},
        {"'616263'H/NS+12", "..616263.12", "\"abc\"/NS+12"}};
    int len = -1, status = -1;
    for (const auto &[attribute, tf, canonical] : cases) {
        EXPECT_STREQ(da_PSAPConvAttToTF(attribute, -1, &len), tf) << attribute;
        EXPECT_EQ(len, static_cast<int>(std::strlen(tf)));
        EXPECT_STREQ(da_PSAPConvTFToAtt(tf, -1, &status), canonical ? canonical : attribute);
        EXPECT_EQ(status, 0);
    }
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

const char *const kReps[] = {"\x1E", "\x1D", "\x1F", "\x1A[", "\x1A]", "\x18", "?", "?", "?", "?", "?"};
const char *const kRepsNoMarker[] = {"\x1E", "\x1D", "\x1A[", "\x1A]", "\x18"};

// The shown result, or "null" when the text is refused.
std::string transform(const std::string &typed, const char *charset = "UTF8", const char *specials = "/=*[]%",
                      int flag = 1, int len = -1, const char *const *reps = kReps) {
    int outLen = -1;
    const char *out = t61_TransformTInputStr2(typed.c_str(), len, charset, specials, reps, "/=", '\\', flag, &outLen);
    EXPECT_EQ(out ? static_cast<int>(std::strlen(out)) : outLen, outLen) << show(typed);
    return out ? show(out) : "null";
}

TEST(T61, TransformsTypedText) {
    const Pair utf8[] = {
        {"John Smith, Jr. (x) _!|;{}#", "John Smith, Jr. (x) _!|;{}#"}, {"a/b=c", "a\\x1Eb|c"},
        {"Sales/title=Head/ou1=x", "Sales\\x1Etitle|Head\\x1Eou1|x"}, {"x*[y]%", "x\\x1F\\x1A[y\\x1A]\\x18"},
        {"ia=a=b=c/x=y", "ia|a\\x05b\\x05c\\x1Ex|y"},  // a second '=' in one segment
        {"a\\/b\\=c\\\\", "a/b=c\\"}, {"\\*\\[\\]\\%\\q", "*[]%q"}, {"x=\\=", "x|="}, {"\\\xC3\xA9", "\xC3\xA9"},
        {"ab\\", "ab"},  // a final backslash escapes nothing
        {"a\x1E" "b", "null"}, {"a\x1D" "b", "null"}, {"a\x05", "null"}, {"a\\\x1E" "b", "null"},  // reserved
        {"\x18", "null"}, {"a\x1A", "null"}, {"a\x1F", "null"}, {"", "null"},
        {"a\tb\x01", "a\\x09b\\x01"}};  // other control bytes are the caller's to judge
    for (const auto &[typed, shown] : utf8) EXPECT_EQ(transform(typed), shown) << show(typed);
    EXPECT_EQ(transform("a*b\x1F", "UTF8", "/=[]%", 1, -1, kRepsNoMarker), "a*b\\x1F");  // no '*': no marker
    EXPECT_EQ(transform("ia=a=b", "UTF8", "/=*[]%", 0), "ia|a|b");                     // no flag: every '='
    EXPECT_EQ(transform("ab/cd", "UTF8", "/=*[]%", 1, 3), "ab\\x1E");
    EXPECT_EQ(transform("abc", "UTF8", "/=*[]%", 1, 0), "null");
    const Pair sets[] = {{"ISO8859-1", "Sm\xC3\xA9th\\x1Ex"}, {"IA5", "null"}, {"NO-SUCH-SET", "null"},
                         {"VIDEOTEX", "null"}, {"A-CHARACTER-SET-NAME-TOO-LONG-TO-KEEP", "null"}};
    for (const auto &[set, shown] : sets) EXPECT_EQ(transform("Sm\xE9th/x", set.c_str()), shown) << set;
    EXPECT_EQ(transform("plain", "IA5") + transform("x", nullptr), "plainx");  // null names UTF8
    // The cached converter follows the set of each call.
    EXPECT_EQ(transform("\xE9", "UTF8"), "null");
    EXPECT_EQ(transform("\xE9\xE9", "ISO8859-1"), "\xC3\xA9\xC3\xA9");
    const std::string typed(20000, '[');  // a long text grows the result; the caller's text is never written
    EXPECT_EQ(transform(typed).substr(99990) + std::to_string(transform(typed).size()), "\\x1A[\\x1A[100000");
    EXPECT_EQ(typed, std::string(20000, '['));
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

// The block walk classes sixteen bytes at a time: specials, reserved and
// multi-byte characters on either side of each block boundary.
TEST(T61, BlockWalkStopsAtEveryBoundary) {
    const std::string sixteen = "0123456789abcdef";
    const Pair cases[] = {
        {sixteen.substr(0, 15) + "/" + sixteen, sixteen.substr(0, 15) + "\\x1E" + sixteen},
        {sixteen + "=x", sixteen + "|x"}, {sixteen + sixteen + "*", sixteen + sixteen + "\\x1F"},
        {sixteen.substr(0, 15) + "\xC3\xA9" + sixteen, sixteen.substr(0, 15) + "\xC3\xA9" + sixteen},
        {sixteen + "\\/" + sixteen, sixteen + "/" + sixteen}, {sixteen.substr(1) + "\\" + "/", sixteen.substr(1) + "/"},
        {sixteen + sixteen.substr(1) + "\x05", "null"}, {sixteen + "\xC3", "null"}, {sixteen + "\t", sixteen + "\\x09"}};
    for (const auto &[typed, shown] : cases)  // the same through the byte walk of a set with more watched bytes
        EXPECT_EQ(transform(typed) + "~" + transform(typed, "UTF8", "/=*[]%~^`!$"), shown + "~" + shown) << typed;
}

// The kept tables follow what the arrays hold, not where they are.
TEST(T61, KeptTablesFollowTheTextsBehindThePointers) {
    char specials[8] = "/=", slash[4] = "\x1E", equals[4] = "\x1D";
    const char *reps[] = {slash, equals, "+"};
    EXPECT_EQ(transform("a/b=c", "UTF8", specials, 1, -1, reps), "a\\x1Eb|c");
    std::strcpy(slash, "::");  // same pointers, other texts
    EXPECT_EQ(transform("a/b=c", "UTF8", specials, 1, -1, reps), "a::b|c");
    std::strcpy(specials, "=");
    EXPECT_EQ(transform("a/b=c", "UTF8", specials, 1, -1, reps), "a/b::c");
    std::strcpy(equals, "\x02");  // a control byte: reserved now, wherever typed
    std::strcpy(specials, "/=");
    EXPECT_EQ(transform("a\x02", "UTF8", specials, 1, -1, reps), "null");
    std::strcpy(specials, "/=*");  // a third special, read from the third replacement
    EXPECT_EQ(transform("a*/", "UTF8", specials, 1, -1, reps), "a+::");
    const char *one[] = {"!"};
    for (const char *s : {"/", "=", "*", "[", "]", "%", "/"})  // more sets than are kept, in turn
        EXPECT_EQ(transform(std::string("x") + s + "y", "UTF8", s, 1, -1, one), "x!y") << s;
    std::vector<const char *> manyReps(40, "_");  // a set too large to keep is transformed all the same
    manyReps[39] = "\x1E";
    EXPECT_EQ(transform("0xW", "UTF8", "0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVW", 1, -1, manyReps.data()), "_x\\x1E");
    const char *longReps[] = {"a-replacement-longer-than-eight", "\xC3\xA9", ""};
    EXPECT_EQ(transform("x/y=z*", "UTF8", "/=*", 1, -1, longReps), "xa-replacement-longer-than-eighty\xC3\xA9z");
}

// ---- Refusals of the stand-ins' own contracts ----------------------------------

TEST(StandIns, RefuseWhatTheirContractsExclude) {
    char buf[QX_PATH_MAX];
    const std::string long_name = "~/" + std::string(QX_PATH_MAX, 'x');
    EXPECT_TRUE(testkit::run([] { dr_ValidateEntry("", 0, 0, 0, 1); }).is(100, 4650));
    EXPECT_TRUE(testkit::run([] { gen_GetLock(8, 6); }).is(100, 1811));  // locks 0 to 7
    EXPECT_TRUE(testkit::run([] { gen_FreeLock(-1); }).is(100, 1811));
    EXPECT_TRUE(testkit::run([&] { ext_GetActualFName(long_name.c_str(), buf); }).is(100, 1901));
}

// ---- Character sets, conversion, strings ---------------------------------------

TEST(CharacterSets, DescriptorsNamesAndMappings) {
    const char *const known[] = {"UTF8", "ISO8859-1", "IA5", "T61", "ISO8859-15", "VIDEOTEX"};
    ccs_Descriptor d{};
    for (const char *set : known)  // each is known, and plain text converts to and from every other
        for (const char *to : known) EXPECT_STREQ(go_ConvertStringOrRetain("Smith", -1, set, to), "Smith");
    EXPECT_EQ(ccs_GetCSDescriptor("KLINGON", &d) + ccs_GetCSDescriptor(nullptr, &d), 0);
    EXPECT_EQ(ccs_GetCSDescriptor("latin1", &d), 1);  // another spelling, in any case
    EXPECT_EQ(std::string(d.name) + ccs_GetCSName(nullptr) + ccs_GetInternalCharset("KLINGON", 2), "ISO8859-1UTF8IA5");
    EXPECT_EQ(cvc_IsMappingAvail("UTF8", "ISO8859-1") + cvc_IsMappingAvail(nullptr, "T61"), 2);
    EXPECT_EQ(cvc_IsMappingAvail("UTF8", "VIDEOTEX") + cvc_IsMappingAvail("UTF8", "KLINGON"), 0);
}

TEST(CharacterSets, ConversionMarksLogsRetainsAndRoundTrips) {
    testkit::TempHome home;
    testkit::LogCapture log;
    EXPECT_STREQ(go_ConvertStrEscapeLog("caf\xC3\xA9 \xE2\x82\xAC", -1, "UTF8", "ISO8859-1"), "caf\xE9 ?");
    ASSERT_EQ(log.records().size(), 1u);  // one message for the call, counting the characters lost
    EXPECT_TRUE(log.records()[0].reason == 4672 && log.records()[0].text.find("1 character") != std::string::npos);
    EXPECT_STREQ(go_ConvertStrEscapeLog("ab\xFF" "c", -1, nullptr, "IA5"), "ab?c");  // an invalid byte
    EXPECT_STREQ(go_ConvertStrEscapeLog("a\xE9" "b", 2, "ISO8859-1", "IA5"), "a?");  // len counts
    EXPECT_EQ(log.records().size(), 3u);
    for (const char *set : {"IA5", "VIDEOTEX"})  // a character without a mapping, no mapping at all
        EXPECT_STREQ(go_ConvertStringOrRetain("caf\xC3\xA9", -1, "UTF8", set), "caf\xC3\xA9");
    const char *there = go_ConvertStringOrRetain("Andr\xC3\xA9", -1, "UTF8", "T61");  // a result as input
    EXPECT_EQ(std::string(go_ConvertStringOrRetain(there, -1, "T61", nullptr)) + there[4], "Andr\xC3\xA9\xC2");
}

TEST(Strings, BoundedConcatenationNeverCutsAUtf8Character) {
    // Appended text, the bound, the result (after "x").
    const std::tuple<const char *, int, const char *> cases[] = {
        {"abc", 2, "xab"}, {"abc", 9, "xabc"}, {"abc", 0, "x"}, {"a\xC3\xA9", 2, "xa"}, {"a\xC3\xA9", 3, "xa\xC3\xA9"},
        {"a\xE2\x82\xAC", 2, "xa"}, {"a\xE2\x82\xAC", 3, "xa"}, {"a\xE2\x82\xAC" "b", 4, "xa\xE2\x82\xAC"},
        {"a\xF0\x9F\x98\x80", 4, "xa"}, {"\xE9\xE9\xE9", 2, "x\xE9\xE9"},  // single-byte text is cut at the bound
        {"a\xA9\xA9", 2, "xa\xA9"}, {"\xA9\xA9\xA9\xA9\xA9", 4, "x\xA9\xA9\xA9\xA9"},  // stray continuation bytes
        {"a\xE2\x82", 2, "xa\xE2"}, {"a\xE2\x82x", 2, "xa\xE2"}};  // cut sequences
    for (const auto &[src, n, result] : cases) {
        char buf[64] = "x";
        EXPECT_STREQ(str_strncat(buf, src, n, 1), result) << show(src) << " " << n;
    }
}

TEST(Strings, AsciiEncodingRoundTripsEveryByte) {
    std::string all;
    for (int c = 0; c < 256; ++c) all += static_cast<char>(c);
    int len = 0;
    const std::string encoded = enc_EncodeToAscii(all.data(), static_cast<int>(all.size()), nullptr);
    for (char c : encoded) EXPECT_TRUE(c > 0x20 && c < 0x7F && !std::strchr("/=\\*[]%", c)) << c;
    const char *decoded = enc_DecodeFromAscii(encoded.c_str(), &len);
    EXPECT_EQ(std::string(decoded, static_cast<std::size_t>(len)), all);
    EXPECT_STREQ(enc_EncodeToAscii("Smith-Jones a b~", -1, nullptr), "Smith-Jones~20a~20b~7E");
    EXPECT_STREQ(enc_DecodeFromAscii("~4a~G1~7e~2", &len), "J~G1~~2");  // a '~' of no escape is kept
}

}  // namespace
