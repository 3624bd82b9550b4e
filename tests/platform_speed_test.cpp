// The platform stand-ins' short cuts give what plain implementations of
// their contracts give: the T.61 transformation (tables kept between calls,
// UTF-8 checked while transforming, sixteen bytes classed at a time), the
// attribute entry functions (names folded and looked up in one walk) and
// the name library's parse (separators found a block at a time, fields past
// the text marked in wide stores).
#include <gtest/gtest.h>
#include <iconv.h>
#include <strings.h>

#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "ccs.h"
#include "da.h"
#include "nm.h"
#include "t61.h"
#include "testkit.hpp"

namespace {

using testkit::show;

// ---- T.61 -------------------------------------------------------------

// The transformation as its contract states it, a byte at a time after
// iconv: null when the text is empty, cannot be converted or types a
// reserved byte.
std::optional<std::string> plain_transform(const std::string &typed, int len, const char *charset,
                                           const char *specials, const char *const *reps, const char *delims,
                                           char esc, int flag) {
    std::size_t n = len < 0 ? typed.size() : std::min(typed.size(), static_cast<std::size_t>(len));
    n = strnlen(typed.c_str(), n);
    if (n == 0) return std::nullopt;
    const char *iconvName = ccs_IconvName(charset ? charset : "UTF8");
    if (!iconvName) return std::nullopt;
    iconv_t cd = iconv_open("UTF-8", iconvName);
    if (cd == reinterpret_cast<iconv_t>(-1)) return std::nullopt;
    std::string utf8(n * 4 + 8, '\0');
    char *in = const_cast<char *>(typed.data());
    char *out = utf8.data();
    std::size_t inLeft = n, outLeft = utf8.size();
    std::size_t rc = iconv(cd, &in, &inLeft, &out, &outLeft);
    iconv_close(cd);
    if (rc == static_cast<std::size_t>(-1)) return std::nullopt;
    utf8.resize(utf8.size() - outLeft);

    const std::string chars = specials ? specials : "";
    auto reserved = [&](unsigned char c) {
        if (c == 0x05) return true;
        for (std::size_t k = 0; k < chars.size(); ++k)
            for (const char *r = reps[k]; *r; ++r)
                if (static_cast<unsigned char>(*r) < 32 && *r == static_cast<char>(c)) return true;
        return false;
    };
    const bool rule = flag && delims && delims[0] && delims[1];
    bool valueSeen = false;
    std::string result;
    for (std::size_t i = 0; i < utf8.size(); ++i) {
        char c = utf8[i];
        if (reserved(static_cast<unsigned char>(c))) return std::nullopt;
        if (c == esc && c != '\0') {
            if (++i == utf8.size()) break;
            if (reserved(static_cast<unsigned char>(utf8[i]))) return std::nullopt;
            result += utf8[i];
            continue;
        }
        std::size_t k = chars.find(c);
        if (c == '\0' || k == std::string::npos) {
            result += c;
            continue;
        }
        if (rule && c == delims[0]) valueSeen = false;
        if (rule && c == delims[1]) {
            if (valueSeen) {
                result += '\x05';
                continue;
            }
            valueSeen = true;
        }
        result += reps[k];
    }
    return result;
}

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
const char *const kTenReps[] = {"#", "#", "#", "#", "#", "#", "#", "#", "#", "#"};  // too many for the block walk
const char *const kOddReps[] = {"", "\x01long replacement", "\xC3\xA9"};

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

TEST(PlatformSpeed, T61GivesWhatThePlainTransformationGives) {
    struct Set {
        const char *specials;
        const char *const *reps;
        char esc;
    };
    const Set sets[] = {{"/=*[]%", kReps, '\\'}, {"/=[]%", kRepsNoMarker, '\\'}, {"abcdefghij", kTenReps, '\\'},
                        {"a/\xC3", kOddReps, '\\'}, {"/=*[]%", kReps, '\xC3'}, {"", nullptr, '\\'},
                        {"/=*[]%", kReps, '\0'}};
    const char *charsets[] = {"UTF8", "ISO8859-1", "IA5", nullptr};
    const char *delims[] = {"/=", nullptr, "", "=/"};
    std::mt19937 random(17);
    int accepted = 0;
    for (int round = 0; round < 20000; ++round) {
        const Set &set = sets[random() % (sizeof sets / sizeof *sets)];
        const char *charset = charsets[random() % 4];
        const char *delim = delims[random() % 4];
        int flag = static_cast<int>(random() % 2);
        std::string typed = random_typed(random);
        int len = random() % 4 == 0 ? static_cast<int>(random() % (typed.size() + 2)) : -1;
        auto expected = plain_transform(typed, len, charset, set.specials, set.reps, delim, set.esc, flag);
        auto got = library_transform(typed, len, charset, set.specials, set.reps, delim, set.esc, flag);
        ASSERT_EQ(got.has_value(), expected.has_value()) << show(typed) << ' ' << (charset ? charset : "-");
        if (got) {
            EXPECT_EQ(show(*got), show(*expected)) << show(typed);
            ++accepted;
        }
    }
    EXPECT_GT(accepted, 3000);
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

std::string plain_int_name(const std::string &typed) {
    for (int f = 0; f <= 160; ++f) {
        int number = da_nmFieldNum2DANum(f);
        if (strcasecmp(da_AttribNumberToLocName(number), typed.c_str()) == 0 || typed == da_AttribNumberToIntName(number))
            return da_AttribNumberToIntName(number);
    }
    return typed;
}

std::vector<std::string> split(const std::string &text, char sep) {
    std::vector<std::string> parts(1);
    for (char c : text) {
        if (c == sep)
            parts.emplace_back();
        else
            parts.back() += c;
    }
    return parts;
}

std::string plain_map(const std::string &text) {
    std::string out;
    std::vector<std::string> entries = split(text, '\x1E');
    for (std::size_t k = 0; k < entries.size(); ++k) {
        const std::string &e = entries[k];
        std::size_t nameLen = std::min(e.find('\x1D'), e.size());
        std::string name = e.substr(0, nameLen);
        std::string tag = name.empty() || name.size() >= 64 ? name : plain_int_name(name);
        out += (tag.size() > name.size() ? name : tag) + e.substr(nameLen);
        if (k + 1 < entries.size()) out += '\x1E';
    }
    return out;
}

std::string plain_encode(const std::string &text) {
    std::string out;
    std::vector<std::string> entries = split(text, '\x1E');
    for (std::size_t k = 0; k < entries.size(); ++k) {
        std::string e = entries[k];
        std::size_t sep = e.find('\x1D');
        if (sep != std::string::npos && e.substr(0, sep) == "230")
            for (std::size_t i = sep + 1; i < e.size(); ++i)
                if (e[i] == '=') e[i] = '\x1D';
        out += e;
        if (k + 1 < entries.size()) out += '\x1E';
    }
    return out;
}

// Name, value and length of each non-empty entry.
std::string plain_attributes(const std::string &text) {
    std::string out;
    for (const std::string &e : split(text, '\x1E')) {
        if (e.empty()) continue;
        std::size_t sep = e.find('\x1D');
        std::string value = sep == std::string::npos ? "" : e.substr(sep + 1);
        out += e.substr(0, sep) + "|" + value + "|" + std::to_string(value.size()) + ";";
    }
    return out;
}

std::string library_attributes(const std::string &text) {
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

std::string random_entry_text(std::mt19937 &random) {
    static const char *const names[] = {"organization", "ORGANIZATION", "Country", "utf8PostalPersonalName",
                                        "utf8postalpersonalnamE", "internetAddress", "108", "230", "028", "28",
                                        "410", "1O8", "unknown", "", "field131", "ou1", "ou", "x",
                                        "aVeryLongNameThatIsNoAttributeAtAll", "postalCode", "\xC3\xA9t\xC3\xA9"};
    static const char *const values[] = {"Acme", "GB", "a=b=c", "=", "", "x\x1Dy", "\xC3\xA9"};
    std::string text;
    int count = static_cast<int>(random() % 5);
    for (int k = 0; k < count; ++k) {
        if (k > 0) text += '\x1E';
        if (random() % 8 == 0) continue;  // an empty entry
        text += names[random() % (sizeof names / sizeof *names)];
        if (random() % 6 != 0) text += std::string("\x1D") + values[random() % (sizeof values / sizeof *values)];
    }
    return text;
}

TEST(PlatformSpeed, AttributeEntriesAreWhatThePlainFunctionsMake) {
    std::mt19937 random(23);
    for (int round = 0; round < 5000; ++round) {
        std::string text = random_entry_text(random);
        std::string mapped = da_MapToInternalTags(text.c_str(), 0, 1);
        ASSERT_EQ(show(mapped), show(plain_map(text))) << show(text);
        EXPECT_EQ(show(da_EncodeEntryIA(text.c_str())), show(plain_encode(text))) << show(text);
        EXPECT_EQ(show(library_attributes(text)), show(plain_attributes(text))) << show(text);
        std::string name = text.substr(0, text.find_first_of("\x1D\x1E"));
        EXPECT_STREQ(da_FindAttribIntName(name.c_str()), plain_int_name(name).c_str()) << name;
    }
    // Each function may be given its own result.
    const char *mapped = da_MapToInternalTags("Country\x1DGB\x1Eorganization\x1D" "Acme", 0, 1);
    EXPECT_EQ(show(da_MapToInternalTags(mapped + 0, 0, 1)), "109|GB\\x1E108|Acme");
    EXPECT_EQ(show(da_MapToInternalTags(mapped + 7, 0, 1)), "108|Acme");
    const char *encoded = da_EncodeEntryIA("230\x1D" "a=b");
    EXPECT_EQ(show(da_EncodeEntryIA(encoded)), "230|a|b");
}

// ---- Name library ------------------------------------------------------------

// The parse as the packed form defines it: every slot not reached first,
// then the fields the walk reaches; *open is the field open at the end.
// False where a non-empty field lies beyond 160.
bool plain_parse(const std::string &text, nm_ParsedORN &p, int *open) {
    std::memset(&p, 0, sizeof p);
    for (int &s : p.start) s = -1;
    p.length = static_cast<int>(text.size());
    int n = 0;
    std::size_t start = 0;
    for (std::size_t i = 0; i <= text.size(); ++i) {
        char c = i < text.size() ? text[i] : '\0';
        if (c != '\x1D' && c != '\x17' && c != '\0') continue;
        int len = static_cast<int>(i - start);
        if (n <= 160) {
            p.start[n] = static_cast<int>(start);
            p.len[n] = len;
            if (len > 0) p.maps[n / 32] |= 1u << (n % 32);
        } else if (len > 0) {
            return false;
        }
        if (c == '\0') break;
        n = c == '\x17' ? (n / 32 + 1) * 32 : n + 1;
        start = i + 1;
    }
    *open = n;
    return true;
}

std::string random_packed(std::mt19937 &random) {
    static const char *const texts[] = {"", "", "a", "Smith", "Sales", "0123456789abcdefXYZ", "\xC3\xA9"};
    std::string text;
    int pieces = static_cast<int>(random() % 90);
    for (int k = 0; k < pieces; ++k) {
        if (k > 0) text += random() % 6 == 0 ? '\x17' : '\x1D';
        text += texts[random() % (sizeof texts / sizeof *texts)];
    }
    return text;
}

TEST(PlatformSpeed, NameParseIsThePlainWalk) {
    std::mt19937 random(29);
    int escaped = 0;
    for (int round = 0; round < 20000; ++round) {
        std::string text = random_packed(random);
        nm_ParsedORN expected;
        int open = 0;
        bool fits = plain_parse(text, expected, &open);
        nm_ParsedORN got;
        std::memset(&got, 0x5A, sizeof got);  // nothing left from before
        testkit::Outcome o = testkit::run([&] { nm_ParseORN(text.c_str(), &got, nullptr); });
        ASSERT_EQ(o.escaped, !fits) << show(text);
        if (o.escaped) {
            EXPECT_TRUE(o.is(100, 1701));
            ++escaped;
            continue;
        }
        ASSERT_EQ(got.length, expected.length);
        // Fields up to the one open at the end are described; none after it.
        ASSERT_EQ(got.reached, open < NM_FIELDS ? open + 1 : NM_FIELDS) << show(text);
        for (int f = 0; f < got.reached; ++f) {
            ASSERT_EQ(got.start[f], expected.start[f]) << f << ' ' << show(text);
            ASSERT_EQ(got.len[f], expected.len[f]) << f << ' ' << show(text);
        }
        for (int f = got.reached; f < NM_FIELDS; ++f) ASSERT_EQ(expected.start[f], -1) << f << ' ' << show(text);
        for (int f = 0; f < NM_FIELDS; ++f) {  // what the name library's readers give
            int len = -1;
            const char *p = nm_GetFieldMemPtr(text.c_str(), &got, f, &len);
            ASSERT_EQ(len, expected.len[f]) << f << ' ' << show(text);
            ASSERT_EQ(p, expected.len[f] ? text.c_str() + expected.start[f] : nullptr) << f << ' ' << show(text);
        }
        for (int w = 0; w < 6; ++w) EXPECT_EQ(got.maps[w], expected.maps[w]) << w;
        // A separator after the text leads to the next field, as the walk counts.
        if (open < 160) {
            std::string grown = text;
            grown.resize(text.size() + 8, '\0');
            nm_AddSeparators(grown.data(), open + 1);
            EXPECT_EQ(show(grown.c_str()), show(text + ((open + 1) % 32 == 0 ? "\x17" : "\x1D"))) << show(text);
        }
    }
    EXPECT_GT(escaped, 100);
}

}  // namespace
