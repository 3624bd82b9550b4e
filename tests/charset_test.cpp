// Character sets, conversion, bounded concatenation, ascii encoding and
// growable strings.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

#include "ccs.h"
#include "cvc.h"
#include "enc.h"
#include "fstr.h"
#include "go.h"
#include "str.h"
#include "testkit.hpp"

namespace {

const std::string kEAcute = "\xC3\xA9";
const std::string kEuro = "\xE2\x82\xAC";
const char *const kKnownSets[] = {"UTF8", "ISO8859-1", "IA5", "T61", "ISO8859-15", "VIDEOTEX"};

TEST(CharacterSets, DescriptorsNamesAndInternalSets) {
    for (const char *set : kKnownSets) {
        ccs_Descriptor d{};
        ASSERT_EQ(ccs_GetCSDescriptor(set, &d), 1) << set;
        EXPECT_STREQ(ccs_GetCSName(&d), set);
        EXPECT_STREQ(ccs_GetInternalCharset(set, 2), set);
        EXPECT_LE(std::strlen(ccs_GetInternalCharset(set, 2)), 14u);
    }
    ccs_Descriptor d{};
    EXPECT_EQ(ccs_GetCSDescriptor("utf-8", &d), 1);
    EXPECT_STREQ(d.name, "UTF8");
    EXPECT_EQ(ccs_GetCSDescriptor("KLINGON", &d), 0);
    EXPECT_STREQ(ccs_GetCSName(nullptr), "UTF8");
    EXPECT_STREQ(ccs_IconvName("IA5"), "ASCII");
    EXPECT_EQ(ccs_IconvName("VIDEOTEX"), nullptr);
}

TEST(CharacterSets, MappingAvailability) {
    EXPECT_EQ(cvc_IsMappingAvail("UTF8", "ISO8859-1"), 1);
    EXPECT_EQ(cvc_IsMappingAvail("UTF8", "IA5"), 1);
    EXPECT_EQ(cvc_IsMappingAvail("UTF8", "T61"), 1);
    EXPECT_EQ(cvc_IsMappingAvail("UTF8", "VIDEOTEX"), 0);
    EXPECT_EQ(cvc_IsMappingAvail("UTF8", "KLINGON"), 0);
}

TEST(Conversion, LossesAreMarkedAndLogged) {
    testkit::TempHome home;
    testkit::LogCapture log;
    std::string text = "caf" + kEAcute + " " + kEuro;
    EXPECT_EQ(std::string(go_ConvertStrEscapeLog(text.c_str(), -1, "UTF8", "ISO8859-1")), "caf\xE9 ?");
    ASSERT_EQ(log.records().size(), 1u);
    EXPECT_EQ(log.records()[0].reason, 4672);
    EXPECT_NE(log.records()[0].text.find('1'), std::string::npos);
    EXPECT_STREQ(go_ConvertStrEscapeLog("ab\xFF" "c", -1, "UTF8", "IA5"), "ab?c");  // invalid byte
    EXPECT_STREQ(go_ConvertStrEscapeLog("abc", 2, "UTF8", "IA5"), "ab");          // len counts
    EXPECT_EQ(log.records().size(), 2u);
}

TEST(Conversion, RetainWhenAnythingCannotBeConverted) {
    std::string text = "caf" + kEAcute;
    EXPECT_EQ(std::string(go_ConvertStringOrRetain(text.c_str(), -1, "UTF8", "IA5")), text);
    EXPECT_STREQ(go_ConvertStringOrRetain("cafe", -1, "UTF8", "IA5"), "cafe");
    EXPECT_EQ(std::string(go_ConvertStringOrRetain(text.c_str(), -1, "UTF8", "VIDEOTEX")), text);
    EXPECT_STREQ(go_ConvertStringOrRetain("abc", 2, "UTF8", "KLINGON"), "ab");
    // Every known set is accepted, and plain ASCII survives each of them.
    for (const char *from : kKnownSets)
        for (const char *to : kKnownSets) EXPECT_STREQ(go_ConvertStringOrRetain("Smith", -1, from, to), "Smith");
}

TEST(Conversion, RoundTripsAndAPreviousResultAsInput) {
    std::string text = "Andr" + kEAcute + " M" + "\xC3\xBC" "ller";
    for (const char *set : {"ISO8859-1", "ISO8859-15", "T61"}) {
        const char *there = go_ConvertStringOrRetain(text.c_str(), -1, "UTF8", set);
        EXPECT_NE(std::string(there), text) << set;
        EXPECT_EQ(std::string(go_ConvertStringOrRetain(there, -1, set, "UTF8")), text) << set;
    }
}

TEST(BoundedConcatenation, NeverCutsAUtf8Character) {
    struct Case {
        const char *dst;
        std::string src;
        int n;
        std::string result;
    } cases[] = {
        {"", "abc", 2, "ab"},
        {"x", "abc", 9, "xabc"},
        {"x", "abc", 0, "x"},
        {"", "a" + kEAcute, 2, "a"},
        {"", "a" + kEAcute, 3, "a" + kEAcute},
        {"", "a" + kEuro, 2, "a"},
        {"", "a" + kEuro, 3, "a"},
        {"", "a" + kEuro + "b", 4, "a" + kEuro},
        {"", "a\xF0\x9F\x98\x80", 4, "a"},
        {"", "\xE9\xE9\xE9", 2, "\xE9\xE9"},  // single-byte text is cut at the bound
        {"", "a\xA9\xA9", 2, "a\xA9"},        // stray continuation bytes too
    };
    for (const Case &c : cases) {
        char buf[64];
        for (int id : {1, 2}) {
            std::snprintf(buf, sizeof buf, "%s", c.dst);
            EXPECT_EQ(std::string(str_strncat(buf, c.src.c_str(), c.n, id)), c.result) << c.src << " " << c.n;
        }
    }
    char buf[16] = "a";
    EXPECT_STREQ(str_strcat(buf, "bc", nullptr), "abc");
}

TEST(AsciiEncoding, EveryByteRoundTripsAndNothingNeedsEscaping) {
    std::string all;
    for (int c = 0; c < 256; ++c) all += static_cast<char>(c);
    int status = -1;
    std::string encoded = enc_EncodeToAscii(all.data(), static_cast<int>(all.size()), &status);
    EXPECT_EQ(status, 0);
    for (char c : encoded) {
        EXPECT_TRUE(c > 0x20 && c < 0x7F) << static_cast<int>(c);
        EXPECT_EQ(std::string("/=\\*[]%").find(c), std::string::npos) << c;
    }
    int len = 0;
    char *decoded = enc_DecodeFromAscii(encoded.c_str(), &len);
    EXPECT_EQ(std::string(decoded, static_cast<std::size_t>(len)), all);

    std::mt19937 random(7);
    for (int round = 0; round < 200; ++round) {
        std::string value(random() % 40, '\0');
        for (char &c : value) c = static_cast<char>(random());
        const char *e = enc_EncodeToAscii(value.data(), static_cast<int>(value.size()), &status);
        char *d = enc_DecodeFromAscii(e, &len);
        ASSERT_EQ(std::string(d, static_cast<std::size_t>(len)), value);
    }
    EXPECT_STREQ(enc_EncodeToAscii("Smith-Jones", -1, &status), "Smith-Jones");
    EXPECT_STREQ(enc_DecodeFromAscii("a~2", &len), "a~2");  // not an escape: kept
}

TEST(GrowableStrings, CopyAppendAndSelfAppend) {
    fstr_String s{};
    fstr_FsCsCopy(&s, "abc");
    EXPECT_STREQ(s.text, "abc");
    for (int i = 0; i < 6; ++i) fstr_FsCsCat(&s, s.text);  // grows through several blocks
    EXPECT_EQ(s.length, 3 * 64);
    EXPECT_EQ(std::string(s.text), [] {
        std::string r;
        for (int i = 0; i < 64; ++i) r += "abc";
        return r;
    }());
    fstr_FsCsCopy(&s, s.text + 189);
    EXPECT_STREQ(s.text, "abc");
    EXPECT_EQ(s.length, 3);
    fstr_StrFree(&s);
    EXPECT_EQ(s.text, nullptr);
    fstr_StrInit(&s, "x");
    EXPECT_EQ(s.length, 1);
    fstr_StrFree(&s);
}

}  // namespace
