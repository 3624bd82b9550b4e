// The name library over packed text: parsing, field maps, reading and
// rewriting single fields in place, separators and field checks.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "testkit.hpp"

namespace {

using testkit::packed;
using testkit::show;

// A packed name in a buffer with room to grow, and its parsed form.
struct Name {
    char text[4096];
    nm_ParsedORN parsed;
    explicit Name(const std::string &readable) {
        std::strcpy(text, packed(readable).c_str());
        int status = -1;
        nm_ParseORN(text, &parsed, &status);
        EXPECT_EQ(status, 0);
    }
    std::string field(int f) {
        char buf[64];
        const char *s = nm_GetFieldStr(text, &parsed, f, buf, sizeof buf);
        return s ? s : "(absent)";
    }
    void put(int f, const std::string &value) { nm_PutFieldMem(text, &parsed, f, value.data(), static_cast<int>(value.size())); }
    std::string readable() const { return show(text); }
};

TEST(NameLibrary, ParseLocatesFieldsByPosition) {
    Name n("Smith|Jo|||u1#cn#|#x");
    EXPECT_EQ(n.parsed.length, static_cast<int>(std::strlen(n.text)));
    EXPECT_EQ(n.field(0), "Smith");
    EXPECT_EQ(n.field(1), "Jo");
    EXPECT_EQ(n.field(4), "u1");
    EXPECT_EQ(n.field(5), "(absent)");
    EXPECT_EQ(n.field(32), "cn");
    EXPECT_EQ(n.field(65), "(absent)");
    EXPECT_EQ(n.field(96), "x");
    EXPECT_EQ(n.parsed.start[5], -1);   // skipped by the group closing
    EXPECT_EQ(n.parsed.start[64], n.parsed.start[65] - 1);

    std::string overflow;
    for (int i = 0; i < 33; ++i) overflow += "f" + std::to_string(i) + (i < 32 ? "|" : "");
    Name spill(overflow + "#x");
    EXPECT_EQ(spill.field(32), "f32");
    EXPECT_EQ(spill.field(64), "x");

    std::string beyond = std::string(31, '|') + "#####|";  // field 161
    auto empty_beyond = testkit::run([&] { Name ignored(beyond); });
    EXPECT_FALSE(empty_beyond.escaped);
    static std::string full_beyond;
    full_beyond = packed(beyond + "x");  // built before the call that escapes
    auto refused = testkit::run([] {
        nm_ParsedORN parsed;
        nm_ParseORN(full_beyond.c_str(), &parsed, nullptr);
    });
    EXPECT_TRUE(refused.is(100, 1701));
}

TEST(NameLibrary, FieldMapsAndBits) {
    Name n("Smith||init||||||org#cn#|#x##z");
    uint32_t maps[6];
    nm_GetFieldMaps(&n.parsed, maps);
    EXPECT_EQ(maps[0], (1u << 0) | (1u << 2) | (1u << 8));
    EXPECT_EQ(maps[1], 1u);
    EXPECT_EQ(maps[2], 0u);
    EXPECT_EQ(maps[3], 1u);
    EXPECT_EQ(maps[4], 0u);
    EXPECT_EQ(maps[5], 1u);
    EXPECT_EQ(nm_CheckBit(8, maps), 1);
    EXPECT_EQ(nm_CheckBit(1, maps), 0);
    EXPECT_EQ(nm_CheckBit(160, maps), 1);
    EXPECT_EQ(nm_CheckBit(161, maps), 0);
    EXPECT_EQ(nm_CheckBit(-1, maps), 0);
}

TEST(NameLibrary, GetFieldStrIsBoundedAndNullForAbsent) {
    Name n("Smithson|Jo");
    char buf[6];
    EXPECT_STREQ(nm_GetFieldStr(n.text, &n.parsed, 0, buf, sizeof buf), "Smith");
    EXPECT_EQ(nm_GetFieldStr(n.text, &n.parsed, 2, buf, sizeof buf), nullptr);
    EXPECT_EQ(nm_GetFieldStr(n.text, &n.parsed, 161, buf, sizeof buf), nullptr);
    int len = -1;
    EXPECT_EQ(nm_GetFieldMemPtr(n.text, &n.parsed, 1, &len), n.text + 9);
    EXPECT_EQ(len, 2);
}

TEST(NameLibrary, PutFieldRewritesInPlace) {
    struct Case {
        const char *before;
        int field;
        const char *value;
        const char *after;
    } cases[] = {
        {"Smith|Jo", 1, "John", "Smith|John"},              // grow
        {"Smith|Johnathan|x", 1, "Jo", "Smith|Jo|x"},        // shrink
        {"Smith|Jo|x", 1, "", "Smith||x"},                   // removal keeps the separators
        {"Smith", 3, "Jr", "Smith|||Jr"},                    // not reached, same group
        {"", 0, "Smith", "Smith"},
        {"Smith", 33, "t", "Smith#|t"},                      // not reached, a later group
        {"Smith", 96, "x", "Smith###x"},
        {"Smith||a#cn", 5, "u", "Smith||a|||u#cn"},          // before a group closing
        {"Smith#cn", 40, "v", "Smith#cn||||||||v"},
        {"a#b##c", 64, "m", "a#b#m#c"},                      // a lone closing reached
        {"a#b##c", 70, "m", "a#b#||||||m#c"},
        {"Smith", 2, "", "Smith"},                           // removing an absent field
        {"Smith", 160, "cv", "Smith#####cv"},
    };
    for (const auto &c : cases) {
        Name n(c.before);
        n.put(c.field, c.value);
        EXPECT_EQ(n.readable(), c.after) << c.before << " field " << c.field;
        // The parsed form follows the text.
        EXPECT_EQ(n.field(c.field), *c.value ? c.value : "(absent)") << c.before;
        EXPECT_EQ(n.parsed.length, static_cast<int>(std::strlen(n.text)));
    }
    Name n("Smith");
    nm_PutFieldStr(n.text, &n.parsed, 8, "org");
    EXPECT_EQ(n.readable(), "Smith||||||||org");
    auto refused = testkit::run([&] { nm_PutFieldMem(n.text, &n.parsed, 161, "x", 1); });
    EXPECT_TRUE(refused.is(100, 1702));
}

TEST(NameLibrary, InitAndSeparators) {
    Name n("Smith|Jo");
    nm_InitORN(n.text, &n.parsed);
    EXPECT_STREQ(n.text, "");
    EXPECT_EQ(n.parsed.length, 0);
    EXPECT_EQ(n.field(0), "(absent)");

    struct Case {
        const char *before;
        int field;
        const char *after;
    } cases[] = {
        {"a|b", 8, "a|b|||||||"}, {"a||||||||o|", 15, "a||||||||o|||||||"}, {"a|||||||||||||||t", 15, "a|||||||||||||||t"},
        {"a", 0, "a"},           {"a", 33, "a#|"},
    };
    for (const auto &c : cases) {
        char tf[256];
        std::strcpy(tf, packed(c.before).c_str());
        nm_AddSeparators(tf, c.field);
        EXPECT_EQ(show(tf), c.after) << c.before << " to " << c.field;
    }
}

TEST(NameLibrary, T61FieldsAreTheUtf8Counterparts) {
    for (int f : {-1, 0, 63, 128, 160}) EXPECT_EQ(nm_IsT61Field(f), 0) << f;
    for (int f : {64, 100, 127}) EXPECT_EQ(nm_IsT61Field(f), 1) << f;
}

TEST(NameLibrary, CheckFieldBoundsAtAndOnePast) {
    struct Bound {
        int field, max;
        char fill;
    } bounds[] = {
        {0, 40, 's'}, {1, 16, 'g'}, {2, 5, 'I'}, {3, 3, 'J'}, {4, 32, 'u'}, {7, 32, 'u'}, {8, 64, 'o'},
        {10, 16, 'a'}, {11, 16, 'p'}, {12, 15, '1'}, {13, 24, 't'}, {14, 32, '2'},
    };
    for (const auto &b : bounds) {
        EXPECT_EQ(nm_CheckField(std::string(static_cast<std::size_t>(b.max), b.fill).c_str(), b.field), 1) << b.field;
        EXPECT_EQ(nm_CheckField(std::string(static_cast<std::size_t>(b.max) + 1, b.fill).c_str(), b.field), 0) << b.field;
        EXPECT_EQ(nm_CheckField("", b.field), 0) << b.field;
    }
    struct Case {
        int field;
        const char *value;
        int ok;
    } cases[] = {
        {9, "GB", 1},  {9, "us", 1},   {9, "826", 1},   {9, "G", 0},    {9, "GBR", 0}, {9, "82", 0},
        {9, "8260", 0}, {9, "G1", 0},  {10, " ", 1},    {8, "A.B (c)+d-e/f:g=h?i'j,k", 1},
        {8, "a_b", 0}, {8, "a#b", 0},  {8, "a\x1F", 0}, {8, "\xC3\xA9", 0}, {12, "12a", 0},
        {14, "1 2", 0}, {15, "x", 0},  {22, "x", 0},    {64, "x", 0},   {-1, "x", 0},
    };
    for (const auto &c : cases) EXPECT_EQ(nm_CheckField(c.value, c.field), c.ok) << c.field << " '" << show(c.value) << "'";
}

}  // namespace
