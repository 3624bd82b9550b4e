// The name library over packed text: parsing, field maps, reading and
// rewriting single fields in place, separators and field checks.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "da.h"
#include "mes.h"
#include "nm.h"
#include "testkit.hpp"

namespace {

using testkit::packed;
using testkit::show;

// A packed name in a buffer with room to grow, and its parsed form.
struct Name {
    char text[1024];
    nm_ParsedORN parsed;
    explicit Name(const std::string &readable) {
        std::strcpy(text, packed(readable).c_str());
        int status = -1;
        nm_ParseORN(text, &parsed, &status);
    }
    std::string field(int f) {
        char buf[6];
        const char *s = nm_GetFieldStr(text, &parsed, f, buf, sizeof buf);
        return s ? s : "-";
    }
};

TEST(NameLibrary, ParseAndFieldMaps) {
    Name n("Smithson||init||||||org#cn#|#x##z");
    EXPECT_EQ(n.parsed.length, static_cast<int>(std::strlen(n.text)));
    EXPECT_EQ(n.field(0), "Smith");  // bounded by the buffer
    EXPECT_EQ(n.field(1) + n.field(5) + n.field(65), "---");
    EXPECT_EQ(n.field(8) + n.field(32) + n.field(96) + n.field(160), "orgcnxz");
    EXPECT_EQ(n.parsed.start[9], -1);  // skipped by the group closing
    uint32_t maps[6];
    nm_GetFieldMaps(&n.parsed, maps);
    const uint32_t expected[6] = {(1u << 0) | (1u << 2) | (1u << 8), 1, 0, 1, 0, 1};
    for (int w = 0; w < 6; ++w) EXPECT_EQ(maps[w], expected[w]) << w;
    EXPECT_EQ(nm_CheckBit(160, maps) + nm_CheckBit(8, maps), 2);
    EXPECT_EQ(nm_CheckBit(1, maps) + nm_CheckBit(161, maps) + nm_CheckBit(-1, maps), 0);

    std::string overflow;
    for (int i = 0; i < 33; ++i) overflow += "f" + std::to_string(i) + (i < 32 ? "|" : "");
    Name spill(overflow + "#x");
    EXPECT_EQ(spill.field(32) + spill.field(64), "f32x");

    static std::string beyond;  // a non-empty field 161
    beyond = packed(std::string(31, '|') + "#####|x");
    auto refused = testkit::run([] {
        nm_ParsedORN parsed;
        nm_ParseORN(beyond.c_str(), &parsed, nullptr);
    });
    EXPECT_TRUE(refused.is(100, 1701));
}

TEST(NameLibrary, PutFieldRewritesInPlace) {
    struct Case {
        const char *before;
        int field;
        const char *value, *after;
    } cases[] = {
        {"Smith|Jo", 1, "John", "Smith|John"},     {"Smith|Johnathan|x", 1, "Jo", "Smith|Jo|x"},
        {"Smith|Jo|x", 1, "", "Smith||x"},         {"Smith", 3, "Jr", "Smith|||Jr"},
        {"", 0, "Smith", "Smith"},                 {"Smith", 33, "t", "Smith#|t"},
        {"Smith", 96, "x", "Smith###x"},           {"Smith||a#cn", 5, "u", "Smith||a|||u#cn"},
        {"Smith#cn", 40, "v", "Smith#cn||||||||v"}, {"a#b##c", 64, "m", "a#b#m#c"},
        {"a#b##c", 70, "m", "a#b#||||||m#c"},      {"Smith", 2, "", "Smith"},
        {"Smith", 160, "cv", "Smith#####cv"},
    };
    for (const auto &c : cases) {
        Name n(c.before);
        nm_PutFieldStr(n.text, &n.parsed, c.field, c.value);
        EXPECT_EQ(show(n.text), c.after) << c.before << " field " << c.field;
        EXPECT_EQ(n.field(c.field), *c.value ? c.value : "-") << c.before;  // the parsed form follows
    }
    static Name n("Smith");
    auto refused = testkit::run([] { nm_PutFieldMem(n.text, &n.parsed, 161, "x", 1); });
    EXPECT_TRUE(refused.is(100, 1702));
    nm_InitORN(n.text, &n.parsed);
    EXPECT_EQ(std::string(n.text) + n.field(0), "-");
}

TEST(NameLibrary, AddSeparatorsAndT61Fields) {
    struct Case {
        const char *before;
        int field;
        const char *after;
    } cases[] = {
        {"a|b", 8, "a|b|||||||"}, {"a||||||||o|", 15, "a||||||||o|||||||"}, {"a|||||||||||||||t", 15, "a|||||||||||||||t"},
        {"a", 33, "a#|"},
    };
    for (const auto &c : cases) {
        char tf[256];
        std::strcpy(tf, packed(c.before).c_str());
        nm_AddSeparators(tf, c.field);
        EXPECT_EQ(show(tf), c.after) << c.before << " to " << c.field;
    }
    for (int f : {-1, 0, 63, 128, 160}) EXPECT_EQ(nm_IsT61Field(f), 0) << f;
    for (int f : {64, 127}) EXPECT_EQ(nm_IsT61Field(f), 1) << f;
}

TEST(NameLibrary, CheckFieldBoundsAtAndOnePast) {
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
    struct Case {
        int field;
        const char *value;
        int ok;
    } cases[] = {
        {9, "GB", 1},   {9, "us", 1},  {9, "826", 1},   {9, "G", 0},       {9, "GBR", 0}, {9, "82", 0},
        {9, "G1", 0},   {10, " ", 1},  {8, "A.B (c)+d-e/f:g=h?i'j,k", 1}, {8, "a_b", 0}, {8, "a#b", 0},
        {8, "a\x1F", 0}, {8, "\xC3\xA9", 0}, {12, "12a", 0}, {14, "1 2", 0}, {15, "x", 0}, {64, "x", 0}, {-1, "x", 0},
    };
    for (const auto &c : cases) EXPECT_EQ(nm_CheckField(c.value, c.field), c.ok) << c.field << " '" << show(c.value) << "'";
}

// The same rules for a value of any field, as attribute values are judged;
// markers pass where a typed name admits them.
TEST(NameLibrary, CheckFieldTextOfEveryKindOfField) {
    struct Case {
        int field;
        std::string value;
        int allowMarker, ok;
    } cases[] = {
        {8, "Acme", 0, 1},
        {8, "Ac!me", 0, 0},
        {15, "abcdefgh", 0, 1},                // extension type: the bound alone
        {15, "abcdefghi", 0, 0},
        {16, std::string(128, '#'), 0, 1},
        {16, std::string(129, '#'), 0, 0},
        {64, "M\xC3\xBCller", 0, 1},           // UTF-8 text, counted in characters
        {64, std::string(40, 'x'), 0, 1},
        {64, std::string(41, 'x'), 0, 0},
        {64, [] { std::string s; for (int i = 0; i < 40; ++i) s += "\xC3\xA9"; return s; }(), 0, 1},
        {64, "a\tb", 0, 0},
        {64, "a\x7F", 0, 0},
        {64, "a\xC2\x9F", 0, 0},              // C1 control
        {64, "a\xC2\xA0", 0, 1},              // no-break space
        {99, std::string(500, 'x'), 0, 1},     // a text field without a bound
        {99, "a\x1F", 0, 0},
        {99, "a\x1F", 1, 1},
        {0, "S\x1Fth", 1, 1},                 // markers anywhere in a personal name
        {8, "Acme\x1F", 1, 1},                // at the end of a standard value only
        {8, "Ac\x1Fme", 1, 0},
        {8, "\x1F", 1, 1},
        {35, "\x01anything", 0, 1},           // no rule
        {160, "", 0, 1},
        {8, "", 0, 0},
    };
    for (const auto &c : cases)
        EXPECT_EQ(nm_CheckFieldText(c.value.data(), static_cast<int>(c.value.size()), c.field, c.allowMarker), c.ok)
            << c.field << " '" << show(c.value.c_str()) << "'";
}

// Every field with a rule has the catalogue text of its refusal, which names
// the attribute and states the bound.
TEST(NameLibrary, EveryFieldRuleHasItsCatalogueText) {
    int ruled = 0;
    for (int field = 0; field <= 160; ++field) {
        int max = -1;
        if (nm_FieldRule(field, &max) == NM_CLASS_NONE) continue;
        ++ruled;
        const std::string text = mes_GetAnyErMsg(100, 4800 + field, nullptr, 0);
        EXPECT_NE(text.find(std::string(" ") + da_AttribNumberToLocName(da_nmFieldNum2DANum(field)) + " "),
                  std::string::npos)
            << field << ": " << text;
        if (max > 0 && field != 9) {
            EXPECT_NE(text.find(std::to_string(max)), std::string::npos) << field << ": " << text;
        }
    }
    EXPECT_EQ(ruled, 23 + 64);
}

}  // namespace
