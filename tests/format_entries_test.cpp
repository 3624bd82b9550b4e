// Attribute entries: group 2, the special entries, the postal address, the
// native and ascii-encoded attribute-list forms, and the converted entries
// of groups 3 to 5.
#include <gtest/gtest.h>

#include <string>

#include "format_support.hpp"

namespace {

using namespace format_support;

ccs_Descriptor charset(const char *set) {
    ccs_Descriptor d{};
    EXPECT_EQ(ccs_GetCSDescriptor(set, &d), 1) << set;
    return d;
}

std::string group2(const Fields &fields, int first, int last, int ascii) {
    Table table(fields);
    return cl_FrmtGroup2PP(table.t, first, last, ascii);
}

std::string group345(const Fields &fields, const char *set, int first, int last, int needSeparator) {
    Table table(fields);
    ccs_Descriptor d = charset(set);
    return cl_FrmtGroup345PP(table.t, &d, first, last, needSeparator);
}

TEST(AsciiEncodedFields, Membership) {
    for (int field : {-1, 0, 34, 36, 63, 128, 129, 130}) EXPECT_EQ(cl_ShouldAsciiEncode(field), 0) << field;
    for (int field : {35, 64, 100, 127, 131, 160, 1000}) EXPECT_EQ(cl_ShouldAsciiEncode(field), 1) << field;
}

TEST(Group2, EntriesEscapedAndJoined) {
    struct Case {
        Fields fields;
        std::string text;
    } cases[] = {
        {{{33, "Engineer"}}, name(33) + "=Engineer"},
        {{{33, "a"}, {40, "b"}}, name(33) + "=a/" + name(40) + "=b"},
        {{{32, "*"}}, name(32) + "=*"},
        {{{32, "a*b"}}, name(32) + "=a\\*b"},
        {{{32, "**"}}, name(32) + "=\\*\\*"},
        {{{32, " *"}}, name(32) + "= \\*"},
        {{{33, "x/y=z[1]%\\"}}, name(33) + "=x\\/y\\=z\\[1\\]\\%\\\\"},
        {{{46, "Main St\x18" "10% off"}}, name(46) + "=Main St%10\\% off"},
        {{{35, "...4900A1"}}, "presentationAddress=NS+4900A1"},
        {{{35, "\"a\"/NS+12"}}, "presentationAddress=\"a\"\\/NS+12"},  // not packed: shown as stored
        {{}, ""},
    };
    for (const Case &c : cases) EXPECT_EQ(group2(c.fields, 32, 63, 0), c.text) << c.text;
    EXPECT_EQ(group2({{33, "a"}}, 40, 33, 0), "");
    EXPECT_EQ(group2({{33, "a"}, {34, "b"}}, 34, 34, 0), name(34) + "=b");
}

TEST(AttributeLists, NativeAndAsciiEncodedForms) {
    Fields fields = {{0, "Smith"}, {1, "John"}};
    EXPECT_EQ(std::string(cl_FormatNative(tf(fields).c_str())), name(0) + "=Smith/" + name(1) + "=John");
    EXPECT_STREQ(cl_FormatNative(""), "");

    Fields mixed = {{0, "a/b"},   {35, "...4900"}, {46, "x\x18y"}, {64, "\xC3\xA9/"},
                    {130, "u=v"}, {131, "x y"},    {32, "*"}};
    EXPECT_EQ(std::string(cl_FormatAsciiEncoded(tf(mixed).c_str())),
              name(0) + "=a\\/b/" + name(32) + "=*/" + name(35) + "=...4900/" + name(46) + "=x%y/" + name(64) +
                  "=~C3~A9~2F/" + name(130) + "=u\\=v/" + name(131) + "=x~20y");
    // The plain form shows the PSAP address as its special entry.
    EXPECT_NE(std::string(cl_FormatNative(tf(mixed).c_str())).find("presentationAddress=NS+4900/"), std::string::npos);
}

TEST(AttributeLists, ReturnTheEntryBuffer) {
    Table table({{33, "t"}});
    char *entries = cl_FrmtGroup2PP(table.t, 32, 63, 0);
    EXPECT_EQ(cl_FormatNative(tf({{0, "x"}}).c_str()), entries);
    EXPECT_STREQ(entries, (name(0) + "=x").c_str());
}

TEST(AttributeLists, TooLongIsRefusedWhileTheEntriesAreCut) {
    Fields big;
    for (int i = 32; i < 64; ++i) big[i] = std::string(200, 'v');
    std::string text = tf(big);
    auto outcome = testkit::run([&] { cl_FormatNative(text.c_str()); });
    EXPECT_TRUE(outcome.is(100, 4670));
    EXPECT_TRUE(testkit::run([&] { cl_FormatAsciiEncoded(text.c_str()); }).is(100, 4670));
    std::string cut = group2(big, 32, 63, 0);
    EXPECT_EQ(cut.size(), 4096u);
}

TEST(SpecialEntries, PostalAddressAndSpecialEntry) {
    EXPECT_STREQ(cl_FormatPostalAddress("a\x18" "b\x18"), "a%b%");
    EXPECT_STREQ(cl_FormatPostalAddress(""), "");
    EXPECT_STREQ(cl_FormatSpecialEntry("410\x1DS:a/b"), "conversionValue=a\\/b");
}

TEST(Group345, SeparatorsAndRanges) {
    Fields f = {{64, "a"}, {70, "b"}};
    EXPECT_EQ(group345(f, "UTF8", 64, 127, 0), name(64) + "=a/" + name(70) + "=b");
    EXPECT_EQ(group345(f, "UTF8", 64, 127, 1), "/" + name(64) + "=a/" + name(70) + "=b");
    EXPECT_EQ(group345(f, "UTF8", 71, 127, 1), "");
    EXPECT_EQ(group345(f, "UTF8", 70, 64, 0), "");
}

TEST(Group345, ValuesConvertedForTheCallersSet) {
    const std::string e_acute = "\xC3\xA9";
    const std::string euro = "\xE2\x82\xAC";
    struct Case {
        const char *set;
        std::string value;
        std::string shown;
    } cases[] = {
        {"UTF8", e_acute + "/x", e_acute + "\\/x"},
        {"ISO8859-1", e_acute + "/x", "\xE9\\/x"},               // converted, then escaped
        {"ISO8859-1", euro + "=", "?\\="},                      // no mapping for the character
        {"T61", e_acute, "\xC2" "e"},                           // diacritic before the letter
        {"IA5", "a" + e_acute, "a?"},                            // IA5 has a mapping: '?'
        {"VIDEOTEX", "a/b", "a\\/b"},                           // no mapping: escaped, then IA5
        {"VIDEOTEX", e_acute + "*", e_acute + "\\*"},            // IA5 cannot: left as it is
    };
    testkit::TempHome home;  // losses are logged
    for (const Case &c : cases)
        EXPECT_EQ(group345({{66, c.value}}, c.set, 66, 66, 0), name(66) + "=" + c.shown) << c.set << " " << c.value;
}

TEST(Group345, IAFieldIsWrittenAsStored) {
    EXPECT_EQ(group345({{130, "a/b=c%\xC3\xA9"}}, "ISO8859-1", 130, 130, 1), "/" + name(130) + "=a/b=c%\xC3\xA9");
}

}  // namespace
