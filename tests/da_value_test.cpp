// Attribute values: key-character escaping, the PSAP, IA and CV forms and
// the display of special entries.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "da.h"
#include "testkit.hpp"

namespace {

TEST(Escaping, KeyCharactersAndBackslash) {
    int status = -1;
    EXPECT_STREQ(da_EscapeKeyCharsAscii("a/b=c*d[e]f%g\\h", "/=*[]%", &status), "a\\/b\\=c\\*d\\[e\\]f\\%g\\\\h");
    EXPECT_EQ(status, 0);
    EXPECT_STREQ(da_EscapeKeyCharsAscii("a/b=c", "=", &status), "a/b\\=c");
    EXPECT_STREQ(da_EscapeKeyCharsAscii("", "/", &status), "");
    const char *once = da_EscapeKeyCharsAscii("/", "/", &status);
    EXPECT_STREQ(da_EscapeKeyCharsAscii(once, "/", &status), "\\\\\\/");  // its own result as input

    EXPECT_STREQ(da_EscapeKeyCharsTx("\xC3\xA9/x", "UTF8", "/"), "\xC3\xA9\\/x");
    EXPECT_STREQ(da_EscapeKeyCharsTx("\xC2" "e/", "T61", "/"), "\xC2" "e\\/");
    EXPECT_STREQ(da_EscapeKeyCharsTx("\xC2/", "T61", "/"), "\xC2\\/");  // a mark binds letters only
}

TEST(PSAP, AttributeAndPackedFormsAreInverse) {
    struct Case {
        const char *attribute;  // canonical spelling
        const char *packed;
    } cases[] = {
        {"NS+4900A1", "...4900A1"},
        {"\"256\"/NS+4900_NS+12", "..323536.4900.12"},
        {"\"p\"/\"\"/\"\"/NS+12", "70...12"},
        {"'00FF'H/\"s\"/\"t\"/NS+12", "00FF.73.74.12"},
        {"\"a/b\"/NS+12", "..612F62.12"},
    };
    for (const Case &c : cases) {
        int len = -1;
        const char *packed = da_PSAPConvAttToTF(c.attribute, -1, &len);
        EXPECT_STREQ(packed, c.packed) << c.attribute;
        EXPECT_EQ(len, static_cast<int>(std::strlen(c.packed)));
        for (const char *p = packed; *p; ++p) EXPECT_TRUE(*p != '\x17' && *p != '\x1D');
        int status = -1;
        EXPECT_STREQ(da_PSAPConvTFToAtt(c.packed, -1, &status), c.attribute);
        EXPECT_EQ(status, 0);
    }
}

TEST(PSAP, OtherSpellingsPackCanonically) {
    int len = 0;
    EXPECT_STREQ(da_PSAPConvAttToTF("'ab'H/ns+0a_NS+Bc", -1, &len), "..AB.0A.BC");
    EXPECT_STREQ(da_PSAPConvAttToTF("'616263'H/NS+12", -1, &len), "..616263.12");
    int status = 0;
    EXPECT_STREQ(da_PSAPConvTFToAtt("..616263.12", -1, &status), "\"abc\"/NS+12");
    EXPECT_STREQ(da_PSAPConvAttToTF("NS+12 trailing", 5, &len), "...12");  // len counts
}

TEST(PSAP, TextThatIsNoAddress) {
    for (const char *bad : {"", "NS+", "NS+1", "NS+1G", "XX+12", "\"a\"/\"b\"/\"c\"/\"d\"/NS+12", "\"a/NS+12",
                            "'1'H/NS+12", "a/NS+12", "NS+12_"}) {
        auto outcome = testkit::run([&] {
            int len = 0;
            da_PSAPConvAttToTF(bad, -1, &len);
        });
        EXPECT_TRUE(outcome.is(100, 4671)) << bad;
    }
    int status = 0;
    EXPECT_STREQ(da_PSAPConvTFToAtt("not packed", -1, &status), "not packed");
    EXPECT_EQ(status, 1);
    EXPECT_STREQ(da_PSAPConvTFToAtt("..ab.12", -1, &status), "..ab.12");  // lower case is not canonical
    EXPECT_EQ(status, 1);
}

TEST(SpecialValues, IAAndCV) {
    EXPECT_STREQ(da_IAConvAttToTF("/C\x1DUS/ADMD\x1D=x/@gw", -1, 0), "/C=US/ADMD==x/@gw");
    EXPECT_STREQ(da_IAConvTFToAtt("a=b", -1, 0), "a=b");
    EXPECT_STREQ(da_IAConvTFToAtt("a=bcd", 3, 0), "a=b");

    EXPECT_STREQ(da_ConvEntryToCV("v"), "S:v");
    const char *text = "S:simple";
    int len = -1;
    da_AdjustCVToSimple(&text, &len);
    EXPECT_EQ(std::string(text, static_cast<std::size_t>(len)), "simple");
    const char *plain = "plain";
    len = 3;
    da_AdjustCVToSimple(&plain, &len);
    EXPECT_EQ(std::string(plain, static_cast<std::size_t>(len)), "pla");
    EXPECT_STREQ(da_FormatValue("S:x/y"), "x/y");
    EXPECT_STREQ(da_FormatValue("x"), "x");
}

TEST(SpecialEntries, DisplayText) {
    EXPECT_STREQ(da_FormatAttribEntry("410\x1DS:a/b=c", 0, 0, 0, 0), "conversionValue=a\\/b\\=c");
    EXPECT_STREQ(da_FormatAttribEntry("28\x1DS:\"x\"/NS+12", 0, 0, 0, 0), "presentationAddress=\"x\"\\/NS+12");
    EXPECT_STREQ(da_FormatAttribEntry("100\x1DS:Smith", 0, 0, 0, 0), "surname=Smith");
    EXPECT_STREQ(da_FormatAttribEntry("no entry", 0, 0, 0, 0), "no entry");
}

}  // namespace
