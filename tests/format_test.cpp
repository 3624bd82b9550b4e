// The formatters (packed text -> display text): the unpacked field table,
// group 1, attribute entries and attribute lists, converted entries, full
// and personal names; their static buffers and bounds; and the short cuts
// they take when nothing traces, against the traced general path.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <random>
#include <string>

#include "ccs.h"
#include "nm.h"
#include "os.h"
#include "testkit.hpp"

namespace {

using Fields = std::map<int, std::string>;

// The packed text of a name with these fields (the packer is tested on its own).
std::string tf(const Fields &fields) {
    char **slots = nullptr;
    cl_UnPackToLargeArray("", &slots);
    std::size_t total = 162;
    for (const auto &[field, value] : fields) {
        slots[field] = os_strdup(value.c_str());
        total += value.size();
    }
    std::string out(total, '\0');
    cl_ORNArray2Tf(slots, out.data());
    cl_FreeArray(slots);
    return out.c_str();
}

Fields with(Fields base, const Fields &extra) {
    base.insert(extra.begin(), extra.end());
    return base;
}

// An unpacked field table of packed text.
struct Table {
    char **t = nullptr;
    Table(const std::string &text, int count, int length = -1) {
        nm_ParsedORN parsed;
        nm_ParseORN(text.c_str(), &parsed, nullptr);
        cl_UnpackFullORN(text.c_str(), &t, &parsed, count, length < 0 ? static_cast<int>(text.size()) : length);
    }
    ~Table() { cl_FreeORN(t); }
};

ccs_Descriptor charset(const char *name) {
    ccs_Descriptor d{};
    EXPECT_EQ(ccs_GetCSDescriptor(name, &d), 1) << name;
    return d;
}

bool valid_utf8(const std::string &s) {
    for (std::size_t i = 0; i < s.size();) {
        auto c = static_cast<unsigned char>(s[i]);
        std::size_t n = c < 0x80 ? 1 : c >= 0xC2 && c <= 0xDF ? 2 : c >= 0xE0 && c <= 0xEF ? 3 : 4;
        if (i + n > s.size()) return false;
        for (std::size_t k = 1; k < n; ++k)
            if ((static_cast<unsigned char>(s[i + k]) & 0xC0) != 0x80) return false;
        i += n;
    }
    return true;
}

const Fields john = {{0, "Smith"}, {1, "John"}};

TEST(FieldTable, OneBlockInFieldOrderWithinTheGivenLength) {
    Table names(tf(john), 23);
    EXPECT_STREQ(names.t[1], "John");
    EXPECT_EQ(names.t[1], names.t[0] + 6);
    EXPECT_EQ(names.t[23], names.t[22] + 1);
    EXPECT_STREQ(names.t[23], "");
    Table feeds(testkit::packed("Sales\n|\n|a\nb|x"), 5);  // a closing line feed is dropped in place
    EXPECT_STREQ(feeds.t[0], "Sales");
    EXPECT_EQ(feeds.t[1], feeds.t[0] + 6);
    EXPECT_STREQ(feeds.t[1], "");
    EXPECT_STREQ(feeds.t[2], "a\nb");
    EXPECT_STREQ(feeds.t[3], "x");
    EXPECT_STREQ(Table(tf(john), 0).t[0], "");
    Table cut(tf({{0, std::string(300, 's')}, {1, "John"}, {160, std::string(300, 'v')}}), 161, 10);
    std::size_t used = 0;  // the block holds 161 + 10 + 1 bytes
    for (int i = 0; i < 161; ++i) used += std::strlen(cut.t[i]) + 1;
    EXPECT_LE(used, 171u);
    EXPECT_EQ(std::string(cut.t[0]), std::string(10, 's'));
}

TEST(Group1, PersonalNameFullAndMailNodeForms) {
    struct Case {
        Fields fields;
        const char *personal, *full, *mail_node;
    } cases[] = {
        {john, "John Smith ", "John Smith ", ""},
        {with(john, {{4, "Sales"}, {5, "Europe"}}), "John Smith ", "John Smith /Sales,Europe", "Sales,Europe"},
        {with(john, {{4, "Sales"}, {5, "Europe"}, {8, "x"}, {10, "z"}}), "John Smith ", "John Smith /Sales,Europe/x//z",
         "Sales,Europe/x//z"},
        {with(john, {{15, "T1"}, {16, "blue"}}), "John Smith ", "John Smith / (T1|blue) ", " (T1|blue) "},
        {with(john, {{8, "x"}}), "John Smith ", "John Smith //x", "/x"},
        {{{4, "Sales"}, {18, "red"}}, "", "/Sales (|) (|red) ", "Sales (|) (|red) "},
        {{{4, "Sales"}, {8, "x"}}, "", "/Sales/x", "Sales/x"},
        {{{4, "A"}, {14, "w"}}, "", "/A///////w", "A///////w"},
        {{{4, "A"}, {7, "D"}}, "", "/A,,,D", "A,,,D"},
        {{{6, "C"}}, "", "/,,C", ",,C"},
        {{{5, "B"}, {7, "D"}}, "", "/,B,,D", ",B,,D"},
        {{{4, "A"}, {19, "t"}, {20, "a b/c"}}, "", "/A (|) (|) (t|a b/c) ", "A (|) (|) (t|a b/c) "},
        {{{0, "van Dyke"}, {4, "Sales (EU)"}, {9, "a/b"}}, "van_Dyke ", "van_Dyke /Sales_{EU}//a|b", "Sales_{EU}//a|b"},
        {{{0, "O.Neil"}, {1, "Mary Ann"}}, "Mary_Ann O!Neil ", "Mary_Ann O!Neil ", ""},
        {{{0, "Smith"}, {1, "John"}, {2, "JR"}, {3, "Jr"}}, "John J.R. Smith Jr. ", "John J.R. Smith Jr. ", ""},
        {{{2, "J"}}, "J. ", "J. ", ""},
        {{{3, "Jr"}}, "Jr. ", "Jr. ", ""},
        {{}, "", "", ""},
    };
    for (const Case &c : cases) {
        Table table(tf(c.fields), 23);
        EXPECT_STREQ(cl_FrmtGroup1PNPP(table.t), c.personal) << c.full;
        EXPECT_STREQ(cl_FrmtGroup1PP(table.t, 0), c.full);
        EXPECT_STREQ(cl_FrmtGroup1PP(table.t, 1), c.mail_node) << c.full;
    }
}

TEST(Group1, FromPackedTextAndInPlace) {
    std::string text = tf({{0, "Smith"}, {1, "John"}, {4, "Sales"}, {23, "never"}, {32, "JS"}});
    const char *shown = cl_FormatGroup1(text.c_str());
    EXPECT_STREQ(shown, "John Smith /Sales");
    Table table(text, 23);
    EXPECT_EQ(cl_FrmtGroup1PP(table.t, 0), shown);  // the same static buffer
    std::string buf(4097, '\0');
    std::memcpy(buf.data(), text.c_str(), text.size() + 1);
    cl_FormatName(buf.data());
    EXPECT_STREQ(buf.c_str(), "John Smith /Sales");
}

TEST(Entries, Group2EscapedAndJoined) {
    EXPECT_EQ(cl_ShouldAsciiEncode(34) + cl_ShouldAsciiEncode(63) + cl_ShouldAsciiEncode(128) +
                  cl_ShouldAsciiEncode(130) + cl_ShouldAsciiEncode(-1),
              0);
    EXPECT_EQ(cl_ShouldAsciiEncode(35) + cl_ShouldAsciiEncode(64) + cl_ShouldAsciiEncode(127) +
                  cl_ShouldAsciiEncode(131) + cl_ShouldAsciiEncode(1000),
              5);
    struct Case {
        Fields fields;
        int first, last;
        const char *text;
    } cases[] = {
        {{{33, "Engineer"}}, 32, 63, "title=Engineer"},
        {{{33, "a"}, {40, "b"}}, 32, 63, "title=a/pager=b"},
        {{{32, "*"}}, 32, 63, "commonName=*"},
        {{{32, "a*b"}}, 32, 63, "commonName=a\\*b"},
        {{{32, "**"}}, 32, 63, "commonName=\\*\\*"},
        {{{32, " *"}}, 32, 63, "commonName= \\*"},
        {{{33, "x/y=z[1]%\\"}}, 32, 63, "title=x\\/y\\=z\\[1\\]\\%\\\\"},
        {{{46, "Main St\x18" "10% off"}}, 32, 63, "postalAddress=Main St%10\\% off"},
        {{{35, "...4900A1"}}, 32, 63, "presentationAddress=NS+4900A1"},
        {{{35, "\"a\"/NS+12"}}, 32, 63, "presentationAddress=\"a\"\\/NS+12"},  // not packed: as stored
        {{}, 32, 63, ""},
        {{{33, "a"}}, 40, 33, ""},
        {{{33, "a"}, {34, "b"}}, 34, 34, "description=b"},
        {{{0, "x"}, {160, "y"}}, -5, 500, "surname=x/conversionValue=y"},
    };
    for (const Case &c : cases) EXPECT_STREQ(cl_FrmtGroup2PP(Table(tf(c.fields), 161).t, c.first, c.last, 0), c.text);
    EXPECT_STREQ(cl_FormatPostalAddress("a\x18" "b\x18"), "a%b%");
    EXPECT_STREQ(cl_FormatPostalAddress(""), "");
    EXPECT_STREQ(cl_FormatSpecialEntry("410\x1DS:a/b"), "conversionValue=a\\/b");
}

TEST(Entries, NativeAndAsciiEncodedAttributeLists) {
    struct Case {
        Fields fields;
        const char *native, *ascii;
    } cases[] = {
        {john, "surname=Smith/givenName=John", "surname=Smith/givenName=John"},
        {{}, "", ""},
        {{{0, "a/b"}, {35, "...4900"}, {46, "x\x18y"}, {64, "\xC3\xA9/"}, {130, "u=v"}, {131, "x y"}, {32, "*"}},
         "surname=a\\/b/commonName=*/presentationAddress=NS+4900/postalAddress=x%y/utf8Surname=\xC3\xA9\\//"
         "internetAddress=u\\=v/field131=x y",
         "surname=a\\/b/commonName=*/presentationAddress=...4900/postalAddress=x%y/utf8Surname=~C3~A9~2F/"
         "internetAddress=u\\=v/field131=x~20y"},
    };
    for (const Case &c : cases) {
        std::string text = tf(c.fields);
        EXPECT_STREQ(cl_FormatNative(text.c_str()), c.native);
        EXPECT_STREQ(cl_FormatAsciiEncoded(text.c_str()), c.ascii);
    }
    // Both forms are read back, so a text over 4096 characters is refused,
    // where the group 2 entries are cut.
    Fields big;
    for (int i = 32; i < 64; ++i) big[i] = std::string(200, 'v');
    std::string text = tf(big);
    EXPECT_TRUE(testkit::run([&] { cl_FormatNative(text.c_str()); }).is(100, 4670));
    EXPECT_TRUE(testkit::run([&] { cl_FormatAsciiEncoded(text.c_str()); }).is(100, 4670));
    EXPECT_EQ(std::strlen(cl_FrmtGroup2PP(Table(text, 161).t, 32, 63, 0)), 4096u);
}

TEST(Entries, ConvertedForTheCallersSet) {
    const std::string e_acute = "\xC3\xA9";
    struct Case {
        const char *set;
        Fields fields;
        int first, last, separator;
        std::string text;
    } cases[] = {
        {"UTF8", {{64, "a"}, {70, "b"}}, 64, 127, 0, "utf8Surname=a/utf8Ou3=b"},
        {"UTF8", {{64, "a"}, {70, "b"}}, 64, 127, 1, "/utf8Surname=a/utf8Ou3=b"},
        {"UTF8", {{64, "a"}, {70, "b"}}, 71, 127, 1, ""},
        {"UTF8", {{64, "a"}, {70, "b"}}, 70, 64, 0, ""},
        {"UTF8", {{66, e_acute + "/x"}}, 66, 66, 0, "utf8Initials=" + e_acute + "\\/x"},
        {"ISO8859-1", {{66, e_acute + "/x"}}, 66, 66, 0, "utf8Initials=\xE9\\/x"},    // converted, then escaped
        {"ISO8859-1", {{66, "\xE2\x82\xAC="}}, 66, 66, 0, "utf8Initials=?\\="},        // no mapping: '?'
        {"T61", {{66, e_acute}}, 66, 66, 0, "utf8Initials=\xC2" "e"},                  // diacritic first
        {"IA5", {{66, "a" + e_acute}}, 66, 66, 0, "utf8Initials=a?"},
        {"VIDEOTEX", {{66, "a/b"}}, 66, 66, 0, "utf8Initials=a\\/b"},                  // no mapping: escaped, IA5
        {"VIDEOTEX", {{66, e_acute + "*"}}, 66, 66, 0, "utf8Initials=" + e_acute + "\\*"},  // IA5 cannot: kept
        {"ISO8859-1", {{130, "a/b=c%" + e_acute}}, 130, 130, 1, "/internetAddress=a/b=c%" + e_acute},  // as stored
        {"UTF8", {{0, "x"}, {160, "y"}}, -1, 999, 0, "surname=x/conversionValue=y"},
    };
    testkit::TempHome home;  // losses are logged
    for (const Case &c : cases) {
        ccs_Descriptor d = charset(c.set);
        EXPECT_EQ(cl_FrmtGroup345PP(Table(tf(c.fields), 161).t, &d, c.first, c.last, c.separator), c.text) << c.set;
    }
}

enum Form { kFull, kFullIa, kUtf8Ia, kNode, kNodeExt, kPersonal, kPersonalIa, kG1Personal };

const char *format(Form form, const char *text, ccs_Descriptor *cs) {
    switch (form) {
    case kFull: return cl_FormatFullName(text, cs);
    case kFullIa: return cl_FormatFullNameIa(text, cs);
    case kUtf8Ia: return cl_formatORNtoUtf8withIA(text);
    case kNode: return cl_FormatMailNode(text, cs, 0);
    case kNodeExt: return cl_FormatMailNode(text, cs, 1);
    case kPersonal: return cl_FormatPersonalName(text, cs);
    case kPersonalIa: return cl_FormatPersonalNameIa(text, cs);
    case kG1Personal: return cl_FormatG1PersonalName(text);
    }
    return nullptr;
}

TEST(FullName, PartsInOrderForEveryWrapper) {
    const Fields f = with(john, {{4, "Sales"}, {32, "JS"}, {70, "x"}});
    const Fields all = with(john, {{4, "U"}, {33, "t"}, {64, "s"}, {100, "d"}, {128, "n"}, {129, "alt"},
                                   {130, "i"}, {160, "cv"}, {23, "no"}, {140, "no"}});
    const char *all_text =
        "John Smith /U/title=t/utf8Surname=s/utf8Telephone=d/displayName=n/alternateName=alt/conversionValue=cv";
    const std::string all_ia = std::string(all_text) + "/internetAddress=i";
    const Fields person = with(john, {{2, "J"}, {3, "Jr"}, {4, "U"}, {32, "c"}, {64, "a"}, {65, "b"}, {66, "c"},
                                      {67, "d"}, {96, "e"}, {68, "f"}, {97, "g"}});
    struct Case {
        Form form;
        bool utf8;  // else no character set
        Fields fields;
        std::string text;
    } cases[] = {
        {kFull, true, f, "John Smith /Sales/commonName=JS/utf8Ou3=x"},
        {kFull, false, f, "John Smith /Sales/commonName=JS"},
        {kNodeExt, true, f, "Sales/utf8Ou3=x"},
        {kNode, true, f, "Sales"},
        {kNodeExt, false, f, "Sales"},
        {kFull, true, all, all_text},
        {kFullIa, true, all, all_ia},
        {kUtf8Ia, true, all, all_ia},
        {kFull, true, {{33, "t"}}, "title=t"},  // no leading '/'
        {kFull, true, {{4, "U"}}, "/U"},
        {kFull, true, {{128, "n"}}, "/displayName=n"},  // always after a '/'
        {kFull, true, {{129, "a"}}, "alternateName=a"},
        {kFull, true, {{160, "v/w"}}, "conversionValue=v\\/w"},
        {kFull, false, {{160, "v"}}, ""},
        {kFull, true, {{130, "a/b"}}, ""},
        {kFullIa, true, {{130, "a/b"}}, "internetAddress=a/b"},
        {kFullIa, false, {{130, "x"}}, "internetAddress=x"},
        {kNodeExt, true, person, "U/utf8Ou1=f/utf8Title=g"},  // no personal name, 32 or 64 to 67, 96
        {kNodeExt, true, {{4, "U"}, {97, "g"}}, "U/utf8Title=g"},
        {kNodeExt, true, {{33, "t"}, {97, "g"}}, "title=t/utf8Title=g"},
        {kPersonal, true, john, "John Smith "},
        {kPersonal, true, with(john, {{32, "JS"}, {66, "x"}}), "John Smith /commonName=JS/utf8Initials=x"},
        {kPersonal, true, with(john, {{66, "x"}}), "John Smith /utf8Initials=x"},
        {kPersonal, true, {{96, "y"}}, "/utf8CommonName=y"},
        {kPersonal, true, {{64, "s"}}, "/utf8Surname=s"},
        {kPersonal, true, with(john, {{4, "U"}, {8, "o"}, {15, "t"}, {33, "d"}, {68, "q"}, {130, "ia"}}), "John Smith "},
        {kPersonalIa, true, with(john, {{130, "a=b"}}), "John Smith /internetAddress=a=b"},
        {kPersonalIa, true, {{130, "a"}}, "internetAddress=a"},
        {kG1Personal, true, with(john, {{32, "c"}, {64, "s"}, {96, "y"}, {130, "i"}}), "John Smith "},
    };
    ccs_Descriptor utf8 = charset("UTF8");
    for (const Case &c : cases)
        EXPECT_EQ(format(c.form, tf(c.fields).c_str(), c.utf8 ? &utf8 : nullptr), c.text) << c.form;
    for (Form form : {kFull, kFullIa, kUtf8Ia, kNodeExt, kPersonal, kG1Personal})
        EXPECT_STREQ(format(form, "", &utf8), "") << form;
}

TEST(FullName, StaticBufferRules) {
    ccs_Descriptor utf8 = charset("UTF8");
    std::string a = tf(with(john, {{4, "A"}}));
    std::string b = tf({{0, "Jones"}, {4, "B"}});
    // One result text for every full-name wrapper.
    char *first = cl_FormatFullName(a.c_str(), &utf8);
    EXPECT_EQ(cl_FormatMailNode(b.c_str(), &utf8, 1), first);
    EXPECT_STREQ(first, "B");
    // The group 1 personal-name copy is overwritten only by its own function.
    char *copy = cl_FormatG1PersonalName(a.c_str());
    cl_FormatPersonalName(b.c_str(), &utf8);
    cl_FormatFullName(b.c_str(), &utf8);
    EXPECT_STREQ(copy, "John Smith ");
    // The personal-name text of group 1 is shared by every path that makes it.
    char *pn = cl_FrmtGroup1PNPP(Table(tf(john), 23).t);
    cl_FormatPersonalName(b.c_str(), &utf8);
    EXPECT_STREQ(pn, "Jones ");
    cl_FormatG1PersonalName(a.c_str());
    EXPECT_STREQ(pn, "John Smith ");
    // The attribute lists return the group 2 entry buffer.
    char *entries = cl_FrmtGroup2PP(Table(tf({{33, "t"}}), 161).t, 32, 63, 0);
    EXPECT_EQ(cl_FormatNative(tf({{0, "x"}}).c_str()), entries);
}

// Every field at its largest packed size (4079 bytes), of UTF-8 text full
// of key characters, so that escaping doubles it: no formatter writes past
// its buffer (the sanitizer build checks), and each text is cut at its
// bound on a character boundary.
TEST(FullName, MaximumSizeFieldsAreCutAtTheBounds) {
    std::string value = "a";
    while (value.size() + 3 <= 4079) value += "\xC3\xA9/";
    Fields all;
    for (int i = 0; i <= 160; ++i) all[i] = value;
    all[2] = std::string(4079, 'J');  // initials are written byte by byte
    all[35] = "..." + std::string(4076, 'A');
    std::string text = tf(all);
    ccs_Descriptor utf8 = charset("UTF8"), latin1 = charset("ISO8859-1");
    testkit::TempHome home;  // conversion losses are logged
    struct Result {
        std::string text;
        std::size_t bound;
    } results[] = {
        {cl_FormatFullName(text.c_str(), &utf8), 4079},       {cl_FormatFullNameIa(text.c_str(), &utf8), 4079},
        {cl_formatORNtoUtf8withIA(text.c_str()), 4079},       {cl_FormatMailNode(text.c_str(), &utf8, 1), 4079},
        {cl_FormatPersonalName(text.c_str(), &utf8), 4079},   {cl_FormatPersonalNameIa(text.c_str(), &utf8), 4079},
        {cl_FormatG1PersonalName(text.c_str()), 4079},        {cl_FormatGroup1(text.c_str()), 4096},
        {cl_FrmtGroup1PNPP(Table(text, 23).t), 4096},         {cl_FrmtGroup1PP(Table(text, 23).t, 1), 4096},
    };
    for (const Result &r : results) {
        EXPECT_LE(r.text.size(), r.bound) << r.text.substr(0, 40);
        EXPECT_GE(r.text.size(), r.bound - 3) << r.text.substr(0, 40);
        EXPECT_TRUE(valid_utf8(r.text)) << r.text.substr(0, 40);
    }
    std::string latin = cl_FormatFullName(text.c_str(), &latin1);
    EXPECT_LE(latin.size(), 4079u);
    EXPECT_EQ(latin.compare(0, 4, "a\xC3\xA9|"), 0);  // group 1 stays UTF-8; '/' written '|'
    EXPECT_TRUE(testkit::run([&] { cl_FormatAsciiEncoded(text.c_str()); }).is(100, 4670));
    Table table(text, 161);
    EXPECT_EQ(std::strlen(cl_FrmtGroup345PP(table.t, &latin1, 64, 160, 1)), 8193u);
    EXPECT_EQ(std::strlen(cl_FrmtGroup2PP(table.t, 0, 160, 1)), 4096u);
    std::string buf(text.size() + 1, '\0');
    std::memcpy(buf.data(), text.c_str(), text.size() + 1);
    cl_FormatName(buf.data());
    EXPECT_EQ(std::strlen(buf.c_str()), 4096u);
}

// Random packed text: fields of assorted texts (line feeds, UTF-8, long
// ones) joined by 0x1D and 0x17, so that groups close early and group 1
// overflows into group 2; every third text is longer than the formatters'
// own table holds.
std::string random_packed(std::mt19937 &random, int round) {
    const std::string texts[] = {"", "", "a", "Smith", "x\n", "\n", "a\nb", "\xC3\xA9t\xC3\xA9", "q r.s/(t)",
                                 std::string(300, 'w')};
    std::string text = round % 3 == 0 ? std::string(4100, 'L') : "";
    int n = 0;
    for (int k = static_cast<int>(random() % 60); k > 0; --k) {
        int next = random() % 5 == 0 ? (n / 32 + 1) * 32 : n + 1;
        if (next > 150) break;
        text += next == n + 1 ? '\x1D' : '\x17';
        n = next;
        text += texts[random() % (sizeof texts / sizeof *texts)];
    }
    return text;
}

// Above trace level 9 the formatters unpack into a table of their own and
// group 1 maps each field in a work area (the general path); at 9 they may
// take their short cuts. Both give the same text, or the same refusal.
TEST(FastPath, TracedAndUntracedFormattersAgree) {
    std::mt19937 random(11);
    ccs_Descriptor utf8 = charset("UTF8");
    testkit::TraceCapture quiet;
    const int saved = er_SubSystemLoggingLevel;
    for (int round = 0; round < 600; ++round) {
        const std::string text = random_packed(random, round);
        const char *p = text.c_str();
        std::string results[2][6];
        for (int level : {9, 10}) {
            er_SubSystemLoggingLevel = level;
            std::string *r = results[level - 9];
            const char *out[4] = {};
            testkit::Outcome o = testkit::run([&] { out[0] = cl_FormatNative(p); });
            r[0] = o.escaped ? "refused" : out[0];
            r[1] = cl_FormatFullName(p, &utf8);
            r[2] = cl_FormatGroup1(p);
            r[3] = cl_FormatPersonalName(p, &utf8);
            Table table(text, 23);
            r[4] = cl_FrmtGroup1PP(table.t, 0);
            r[5] = cl_FrmtGroup1PP(table.t, 1);
        }
        for (int k = 0; k < 6; ++k) EXPECT_EQ(results[0][k], results[1][k]) << round << ' ' << testkit::show(text);
    }
    er_SubSystemLoggingLevel = saved;
}

}  // namespace
