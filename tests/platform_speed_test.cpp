// The platform stand-ins' short cuts: the T.61 transformation (tables kept
// between calls, UTF-8 checked while transforming, sixteen bytes classed at
// a time) against its own general walk and literal results, the attribute
// entry functions (names folded and looked up in one walk) against literal
// results, and the name library's parse (separators found a block at a
// time, fields past the text marked in wide stores) against what the
// library's packer wrote.
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "ccs.h"
#include "da.h"
#include "nm.h"
#include "os.h"
#include "t61.h"
#include "testkit.hpp"

namespace {

using testkit::show;

// ---- T.61 -------------------------------------------------------------

std::optional<std::string> library_transform(const std::string &typed, int len, const char *charset,
                                             const char *specials, const char *const *reps, const char *delims,
                                             char esc, int flag) {
    int outLen = -1;
    const char *out = t61_TransformTInputStr2(typed.c_str(), len, charset, specials, reps, delims, esc, flag, &outLen);
    if (!out) return std::nullopt;
    EXPECT_EQ(outLen, static_cast<int>(std::strlen(out)));
    return std::string(out);
}

const char *const kReps[] = {"\x1E", "\x1D", "\x1F", "\x1A[", "\x1A]", "\x18"};
const char *const kRepsNoMarker[] = {"\x1E", "\x1D", "\x1A[", "\x1A]", "\x18"};
const char *const kOddReps[] = {"", "\x01long replacement", "\xC3\xA9"};
// Five specials that the random texts never hold: added to a set, they
// change no result but take the transformation off its block walk, which
// watches at most eight printable bytes.
constexpr char kUnused[] = "~^`!$";
const char *const kUnusedReps[] = {"?", "?", "?", "?", "?"};

std::string random_typed(std::mt19937 &random) {
    static const char *const pieces[] = {
        "a", "Smith", "John Q", " ", "/", "=", "*", "[", "]", "%", "\\", ",", "\x05", "\x1E", "\x1D", "\x1F",
        "\x1A", "\x18", "\x01", "\t", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\x80", "\xC3", "\xED\xA0\x80",
        "\xFF", "\xE9", "organization=Acme", "0123456789abcdef"};
    std::string text;
    int count = static_cast<int>(random() % 24);
    for (int k = 0; k < count; ++k) {
        text += pieces[random() % (sizeof pieces / sizeof *pieces)];
    }
    return text;
}

// The block walk gives what the general walk gives, over random text in
// every character set, with and without the name/value rule.
TEST(PlatformSpeed, T61BlockWalkGivesWhatTheGeneralWalkGives) {
    struct Set {
        const char *specials;
        const char *const *reps;
        char esc;
    };
    const Set sets[] = {{"/=*[]%", kReps, '\\'}, {"/=[]%", kRepsNoMarker, '\\'}, {"a/\xC3", kOddReps, '\\'},
                        {"/=*[]%", kReps, '\xC3'}, {"/=*[]%", kReps, '\0'}};
    const char *charsets[] = {"UTF8", "ISO8859-1", "IA5", nullptr};
    const char *delims[] = {"/=", nullptr, "", "=/"};
    std::mt19937 random(17);
    int accepted = 0;
    for (int round = 0; round < 20000; ++round) {
        const Set &set = sets[random() % (sizeof sets / sizeof *sets)];
        const std::string wide = std::string(set.specials) + kUnused;
        std::vector<const char *> wideReps(set.reps, set.reps + std::strlen(set.specials));
        wideReps.insert(wideReps.end(), std::begin(kUnusedReps), std::end(kUnusedReps));
        const char *charset = charsets[random() % 4];
        const char *delim = delims[random() % 4];
        int flag = static_cast<int>(random() % 2);
        std::string typed = random_typed(random);
        int len = random() % 4 == 0 ? static_cast<int>(random() % (typed.size() + 2)) : -1;
        auto general = library_transform(typed, len, charset, wide.c_str(), wideReps.data(), delim, set.esc, flag);
        auto block = library_transform(typed, len, charset, set.specials, set.reps, delim, set.esc, flag);
        ASSERT_EQ(block.has_value(), general.has_value()) << show(typed) << ' ' << (charset ? charset : "-");
        if (block) {
            EXPECT_EQ(show(*block), show(*general)) << show(typed);
            ++accepted;
        }
    }
    EXPECT_GT(accepted, 2000);
}

// What the transformation makes of typed text, byte for byte.
TEST(PlatformSpeed, T61TransformsTypedText) {
    struct Case {
        const char *typed;
        const char *charset;
        const char *expected;  // null: refused
    } cases[] = {
        {"a/b=c", "UTF8", "a\\x1Eb|c"},
        {"a=b=c/d=e", "UTF8", "a|b\\x05c\\x1Ed|e"},  // a second '=' in one segment
        {"a\\/b\\=c\\\\", "UTF8", "a/b=c\\"},      // escaped: literal
        {"x*[y]%", "UTF8", "x\\x1F\\x1A[y\\x1A]\\x18"},
        {"Sm\xC3\xA9th", "UTF8", "Sm\xC3\xA9th"},
        {"Sm\xE9th", "ISO8859-1", "Sm\xC3\xA9th"},      // converted to UTF-8
        {"Sm\xE9th", "UTF8", nullptr},                 // not UTF-8
        {"\xED\xA0\x80", "UTF8", nullptr},             // a surrogate
        {"a\x1E" "b", "UTF8", nullptr},                   // a reserved byte typed
        {"a\x05", "UTF8", nullptr},
        {"", "UTF8", nullptr},
        {"a\\", "UTF8", "a"},                        // a final backslash escapes nothing
    };
    for (const Case &c : cases) {
        auto got = library_transform(c.typed, -1, c.charset, "/=*[]%", kReps, "/=", '\\', 1);
        if (!c.expected) {
            EXPECT_FALSE(got.has_value()) << show(c.typed);
        } else {
            ASSERT_TRUE(got.has_value()) << show(c.typed);
            EXPECT_EQ(show(*got), c.expected) << show(c.typed);
        }
    }
}

// The kept tables follow what the arrays hold, not where they are.
TEST(PlatformSpeed, T61TablesFollowTheTextsBehindThePointers) {
    char specials[8] = "/=";
    char slash[4] = "\x1E";
    char equals[4] = "\x1D";
    const char *reps[] = {slash, equals};
    auto run = [&](const std::string &typed) {
        return library_transform(typed, -1, "UTF8", specials, reps, "/=", '\\', 1).value_or("(null)");
    };
    EXPECT_EQ(show(run("a/b=c")), "a\\x1Eb|c");
    std::strcpy(slash, "::");  // same pointers, other texts
    EXPECT_EQ(show(run("a/b=c")), "a::b|c");
    std::strcpy(specials, "=");
    EXPECT_EQ(show(run("a/b=c")), "a/b::c");  // '=' now has the first replacement
    std::strcpy(equals, "\x02");                 // a control byte: reserved now, wherever typed
    std::strcpy(specials, "/=");
    EXPECT_EQ(run("a\x02"), "(null)");
    std::strcpy(specials, "/=*");  // a third special, read from a third replacement
    const char *three[] = {slash, equals, "+"};
    EXPECT_EQ(show(library_transform("a*/", -1, "UTF8", specials, three, "/=", '\\', 1).value_or("-")), "a+::");
    // More sets than are kept, in turn, and the first again.
    for (int round = 0; round < 3; ++round) {
        for (const char *s : {"/", "=", "*", "[", "]", "%"}) {
            const char *one[] = {"!"};
            std::string typed = std::string("x") + s + "y";
            EXPECT_EQ(library_transform(typed, -1, "UTF8", s, one, "/=", '\\', 1).value_or("-"), "x!y") << s;
        }
    }
    // A set too large to keep is transformed all the same.
    std::string many(40, 'a');
    for (int k = 0; k < 40; ++k) many[static_cast<std::size_t>(k)] = static_cast<char>('0' + k);
    std::vector<const char *> manyReps(40, "_");
    manyReps[39] = "\x1E";
    EXPECT_EQ(show(library_transform("0x" + many.substr(39, 1), -1, "UTF8", many.c_str(), manyReps.data(), "/=",
                                     '\\', 1)
                       .value_or("-")),
              "_x\\x1E");
}

// ---- Attribute entries ------------------------------------------------------

// Name, value and length of each attribute the cursor delivers.
std::string attributes_of(const std::string &text) {
    std::vector<char> entry(text.begin(), text.end());
    entry.push_back('\0');
    da_AttrCursor cursor;
    da_ParseAttribList(entry.data(), &cursor);
    std::string out;
    char *name = nullptr;
    char *value = nullptr;
    int len = 0;
    while (da_GetAttrib(entry.data(), &cursor, 0, &name, &value, &len))
        out += std::string(name) + "|" + value + "|" + std::to_string(len) + ";";
    return out;
}

// Entry text through the tag mapping, the IA encoding and the cursor; the
// shown forms write 0x1D as '|' and 0x1E as \x1E.
TEST(PlatformSpeed, AttributeEntriesMappedEncodedAndRead) {
    struct Case {
        const char *text, *mapped, *encoded, *attributes;
    } cases[] = {
        {"organization\x1D" "Acme", "108|Acme", "organization|Acme", "organization|Acme|4;"},
        {"ORGANIZATION\x1D" "Acme\x1E" "Country\x1D" "GB", "108|Acme\\x1E109|GB",
         "ORGANIZATION|Acme\\x1ECountry|GB", "ORGANIZATION|Acme|4;Country|GB|2;"},
        {"utf8postalpersonalnamE\x1Dx", "192|x", "utf8postalpersonalnamE|x", "utf8postalpersonalnamE|x|1;"},
        {"108\x1D" "a", "108|a", "108|a", "108|a|1;"},                                   // a tag stays
        {"28\x1Dx\x1E" "028\x1Dy", "28|x\\x1E028|y", "28|x\\x1E028|y", "28|x|1;028|y|1;"},  // not tags
        {"unknown\x1Dx\x1E" "1O8\x1Dy", "unknown|x\\x1E1O8|y", "unknown|x\\x1E1O8|y", "unknown|x|1;1O8|y|1;"},
        {"230\x1D" "a=b=c", "230|a=b=c", "230|a|b|c", "230|a=b=c|5;"},                  // the IA value's '='
        {"internetAddress\x1D" "a=b", "230|a=b", "internetAddress|a=b", "internetAddress|a=b|3;"},
        {"ou1\x1Dx\x1Dy", "104|x|y", "ou1|x|y", "ou1|x|y|3;"},                          // a further 0x1D
        {"\x1E\x1E" "ou1\x1Dx\x1E", "\\x1E\\x1E104|x\\x1E", "\\x1E\\x1Eou1|x\\x1E", "ou1|x|1;"},  // empty entries
        {"ou1", "104", "ou1", "ou1||0;"},                                                  // no value
        {"aVeryLongNameThatIsNoAttributeAtAll\x1Dv", "aVeryLongNameThatIsNoAttributeAtAll|v",
         "aVeryLongNameThatIsNoAttributeAtAll|v", "aVeryLongNameThatIsNoAttributeAtAll|v|1;"},
        {"", "", "", ""},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(show(da_MapToInternalTags(c.text, 0, 1)), c.mapped) << show(c.text);
        EXPECT_EQ(show(da_EncodeEntryIA(c.text)), c.encoded) << show(c.text);
        EXPECT_EQ(show(attributes_of(c.text)), c.attributes) << show(c.text);
    }
    EXPECT_STREQ(da_FindAttribIntName("Country"), "109");
    EXPECT_STREQ(da_FindAttribIntName("109"), "109");
    EXPECT_STREQ(da_FindAttribIntName("nosuch"), "nosuch");
    // Each function may be given its own result.
    const char *mapped = da_MapToInternalTags("Country\x1DGB\x1Eorganization\x1D" "Acme", 0, 1);
    EXPECT_EQ(show(da_MapToInternalTags(mapped + 0, 0, 1)), "109|GB\\x1E108|Acme");
    EXPECT_EQ(show(da_MapToInternalTags(mapped + 7, 0, 1)), "108|Acme");
    const char *encoded = da_EncodeEntryIA("230\x1D" "a=b");
    EXPECT_EQ(show(da_EncodeEntryIA(encoded)), "230|a|b");
}

// ---- Name library ------------------------------------------------------------

// Random field arrays packed by the library's packer and parsed again: the
// parse finds every field where the packer put it, the field maps say which
// are present, and separators added after the text lead to the next field.
TEST(PlatformSpeed, NameParseFindsWhatThePackerWrote) {
    static const char *const texts[] = {"a", "Smith", "Sales", "0123456789abcdefXYZ", "\xC3\xA9",
                                        "0123456789abcdef0123456789abcdefg"};
    std::mt19937 random(29);
    for (int round = 0; round < 5000; ++round) {
        char **array = nullptr;
        cl_UnPackToLargeArray("", &array);
        const int count = static_cast<int>(random() % 24);
        const int span = 1 + static_cast<int>(random() % 161);  // fields close together or spread out
        for (int k = 0; k < count; ++k) {
            const int f = static_cast<int>(random() % static_cast<unsigned>(span));
            os_free(array[f]);
            array[f] = os_strdup(texts[random() % (sizeof texts / sizeof *texts)]);
        }
        std::string text(8192, '\0');
        cl_ORNArray2Tf(array, text.data());
        text.resize(std::strlen(text.c_str()));
        nm_ParsedORN parsed;
        std::memset(&parsed, 0x5A, sizeof parsed);  // nothing left from before
        int status = -1;
        nm_ParseORN(text.c_str(), &parsed, &status);
        EXPECT_EQ(status, 0);
        ASSERT_EQ(parsed.length, static_cast<int>(text.size()));
        uint32_t maps[6] = {};
        for (int f = 0; f < NM_FIELDS; ++f) {
            int len = -1;
            const char *p = nm_GetFieldMemPtr(text.c_str(), &parsed, f, &len);
            const std::string want = array[f] ? array[f] : "";
            ASSERT_EQ(std::string(p ? p : "", static_cast<std::size_t>(len)), want) << f << ' ' << show(text.c_str());
            if (!want.empty()) maps[f / 32] |= 1u << (f % 32);
        }
        for (int w = 0; w < 6; ++w) EXPECT_EQ(parsed.maps[w], maps[w]) << w << ' ' << show(text.c_str());
        // The field open at the end of the text is the last one reached.
        const int open = parsed.reached - 1;
        if (open < 160) {
            std::string grown = text;
            grown.resize(text.size() + 8, '\0');
            nm_AddSeparators(grown.data(), open + 1);
            EXPECT_EQ(show(grown.c_str()), show((text + ((open + 1) % 32 == 0 ? "\x17" : "\x1D")).c_str()))
                << show(text.c_str());
        }
        cl_FreeArray(array);
    }
}

// Where the parse stops: the fields it reaches, and a field beyond 160.
TEST(PlatformSpeed, NameParseReachAndTheLastField) {
    struct Case {
        std::string text;
        int reached;  // -1: refused with 100/1701
    } cases[] = {
        {"", 1},
        {"a", 1},
        {"a\x1D", 2},
        {"a\x17", 33},
        {"\x17\x17\x17\x17\x17", 161},                         // the text reaches field 160
        {"\x17\x17\x17\x17\x17x", 161},                        // field 160 set
        {"\x17\x17\x17\x17\x17\x1D", 161},                    // an empty field after 160
        {"\x17\x17\x17\x17\x17\x1Dx", -1},                    // a non-empty one
        {"\x17\x17\x17\x17\x17\x17x", -1},
    };
    for (const Case &c : cases) {
        nm_ParsedORN parsed;
        testkit::Outcome o = testkit::run([&] { nm_ParseORN(c.text.c_str(), &parsed, nullptr); });
        if (c.reached < 0) {
            EXPECT_TRUE(o.is(100, 1701)) << show(c.text.c_str());
            continue;
        }
        ASSERT_FALSE(o.escaped) << show(c.text.c_str());
        EXPECT_EQ(parsed.reached, c.reached) << show(c.text.c_str());
    }
}

}  // namespace
