// Packed text and what is made of it: the field array (unpacking, packing,
// the name library's reading of what the packer wrote, the conversion's
// packed result against its array), the substitute characters, and the
// formatters (packed text -> display text): the unpacked field table, group
// 1, attribute entries and lists, converted entries, full and personal
// names, their static buffers and bounds, and the short cuts they take when
// nothing traces, against the traced general path.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <random>
#include <string>
#include <tuple>

#include "ccs.h"
#include "da.h"
#include "nm.h"
#include "os.h"
#include "testkit.hpp"

namespace {

using testkit::packed;
using testkit::show;
using Fields = std::map<int, std::string>;

// The packed text of a name with these fields, and the fields of a packed text.
std::string tf(const Fields &fields) {
    char **slots = nullptr;
    cl_UnPackToLargeArray("", &slots);
    std::string out(162, '\0');
    for (const auto &[field, value] : fields) out.append(value.size(), '\0'), slots[field] = os_strdup(value.c_str());
    cl_ORNArray2Tf(slots, out.data());
    cl_FreeArray(slots);
    return out.c_str();
}

Fields unpack(const std::string &text) {
    char **slots = nullptr;
    cl_UnPackToLargeArray(text.c_str(), &slots);
    Fields out;
    for (int i = 0; i < 161; ++i)
        if (slots[i]) out[i] = slots[i];
    cl_FreeArray(slots);
    return out;
}

Fields with(Fields base, const Fields &extra) { return base.insert(extra.begin(), extra.end()), base; }

// An unpacked field table of packed text.
struct Table {
    char **t = nullptr;
    nm_ParsedORN parsed;
    Table(const std::string &text, int count, int length = -1) {
        nm_ParseORN(text.c_str(), &parsed, nullptr);
        cl_UnpackFullORN(text.c_str(), &t, &parsed, count, length < 0 ? static_cast<int>(text.size()) : length);
    }
    ~Table() { cl_FreeORN(t); }
};

ccs_Descriptor charset(const char *name) {
    ccs_Descriptor d{};
    return ccs_GetCSDescriptor(name, &d), d;
}

const Fields john = {{0, "Smith"}, {1, "John"}};

TEST(FieldTable, OneBlockInFieldOrderWithinTheGivenLength) {
    Table feeds(packed("Sales\n|\n|a\nb|x"), 5);  // a closing line feed is dropped in place
    EXPECT_EQ(std::string(feeds.t[0]) + "|" + feeds.t[1] + "|" + feeds.t[2] + "|" + feeds.t[3], "Sales||a\nb|x");
    EXPECT_EQ(feeds.t[1], feeds.t[0] + 6);
    Table cut(tf({{0, std::string(300, 's')}, {1, "John"}, {160, std::string(300, 'v')}}), 161, 10);
    EXPECT_EQ(std::string(cut.t[0]) + cut.t[1] + cut.t[160], std::string(10, 's'));  // a block of 161 + 10 + 1 bytes
    EXPECT_EQ(cut.t[161], cut.t[0] + 171);
}

TEST(Group1, PersonalNameFullAndMailNodeForms) {
    const std::tuple<Fields, std::string, std::string, std::string> cases[] = {  // personal name, full, mail node
        {john, "John Smith ", "John Smith ", ""}, {with(john, {{8, "x"}}), "John Smith ", "John Smith //x", "/x"},
        {with(john, {{4, "Sales"}, {5, "Europe"}}), "John Smith ", "John Smith /Sales,Europe", "Sales,Europe"},
        {with(john, {{4, "Sales"}, {5, "Europe"}, {8, "x"}, {10, "z"}}), "John Smith ", "John Smith /Sales,Europe/x//z",
         "Sales,Europe/x//z"},
        {with(john, {{15, "T1"}, {16, "blue"}}), "John Smith ", "John Smith / (T1|blue) ", " (T1|blue) "},
        {{{4, "Sales"}, {18, "red"}}, "", "/Sales (|) (|red) ", "Sales (|) (|red) "},
        {{{4, "Sales"}, {8, "x"}}, "", "/Sales/x", "Sales/x"}, {{{4, "A"}, {14, "w"}}, "", "/A///////w", "A///////w"},
        {{{4, "A"}, {7, "D"}}, "", "/A,,,D", "A,,,D"}, {{{6, "C"}}, "", "/,,C", ",,C"},
        {{{5, "B"}, {7, "D"}}, "", "/,B,,D", ",B,,D"}, {{}, "", "", ""},
        {{{4, "A"}, {19, "t"}, {20, "a b/c"}}, "", "/A (|) (|) (t|a b/c) ", "A (|) (|) (t|a b/c) "},
        {{{0, "van Dyke"}, {4, "Sales (EU)"}, {9, "a/b"}}, "van_Dyke ", "van_Dyke /Sales_{EU}//a|b", "Sales_{EU}//a|b"},
        {{{0, "O.Neil"}, {1, "Mary Ann"}}, "Mary_Ann O!Neil ", "Mary_Ann O!Neil ", ""},
        {{{0, "Smith"}, {1, "John"}, {2, "JR"}, {3, "Jr"}}, "John J.R. Smith Jr. ", "John J.R. Smith Jr. ", ""},
        {{{2, "J"}}, "J. ", "J. ", ""}, {{{3, "Jr"}}, "Jr. ", "Jr. ", ""}};
    for (const auto &[fields, personal, full, mail_node] : cases) {
        Table table(tf(fields), 23);
        std::string got = cl_FrmtGroup1PNPP(table.t);  // one call a statement: the buffers are shared
        got += "~" + std::string(cl_FrmtGroup1PP(table.t, 0));
        EXPECT_EQ(got + "~" + cl_FrmtGroup1PP(table.t, 1), personal + "~" + full + "~" + mail_node);
    }
}

TEST(Packed, UnpackAndPackByTheRulesOfTheForm) {
    std::string spill;  // 33 fields before the first group end: the last spills into group 2
    Fields spilled = {{64, "x"}};
    for (int i = 0; i < 33; ++i) spill += (spilled[i] = "f" + std::to_string(i)) + (i < 32 ? "|" : "#x");
    const std::pair<std::string, Fields> unpacked[] = {
        {"", {}}, {"a||b", {{0, "a"}, {2, "b"}}}, {"a#b", {{0, "a"}, {32, "b"}}},
        {"####a|b", {{128, "a"}, {129, "b"}}}, {"#####a|b|c", {{160, "a"}}} /* none beyond 160 */, {spill, spilled}};
    for (const auto &[text, fields] : unpacked) EXPECT_EQ(unpack(packed(text)), fields) << text;
    // Separators only before set slots; group 1 keeps all of its own, later
    // groups drop those after their last slot (and a slot's own trailing
    // 0x1D); the text ends at its last non-empty field.
    const std::string g1 = std::string(31, '|') + "#";
    const std::pair<Fields, std::string> cases[] = {
        {{}, ""}, {{{0, ""}, {40, ""}}, ""}, {{{0, "Smith"}}, "Smith"}, {{{160, "v"}}, g1 + "####v"},
        {{{32, "x"}, {64, "y"}}, g1 + "x#y"}, {{{0, "Smith"}, {1, "Jo"}, {33, "x"}}, "Smith|Jo" + g1.substr(1) + "|x"},
        {{{0, "a|b"}}, "a|b"}, {{{31, "x|"}}, g1.substr(0, 31) + "x"}, {{{40, "p||"}, {64, "y"}}, g1 + "||||||||p#y"},
        {{{33, "z#"}}, g1 + "|z"}, {{{33, "z#"}, {64, "y"}}, g1 + "|z##y"}, {{{64, "|y"}}, g1 + "#|y"},
        {{{32, "|"}, {33, "|"}, {96, "w"}}, g1 + "##w"}};
    for (const auto &[fields, text] : cases) {
        Fields readable;
        for (const auto &[field, value] : fields) readable[field] = packed(value);
        EXPECT_EQ(show(tf(readable)), text);
    }
}

// Random arrays of values, packed: unpacking gives them back, packing again
// gives the same text, and the name library finds every field where the
// packer put it, with its field maps.
TEST(Packed, GeneratedArraysRoundTrip) {
    std::mt19937 random(29);
    for (int round = 0; round < 3000; ++round) {
        Fields fields;
        const auto span = 1 + random() % 161;  // fields close together or spread out
        for (int k = static_cast<int>(random() % 24); k > 0; --k) {
            std::string value(1 + random() % (round % 2 ? 4 : 40), '\0');
            for (char &c : value) c = static_cast<char>(0x20 + random() % 0xE0);
            fields[static_cast<int>(random() % span)] = value;
        }
        const std::string text = tf(fields);
        ASSERT_EQ(unpack(text), fields) << show(text);
        EXPECT_EQ(tf(unpack(text)), text);
        nm_ParsedORN parsed;
        std::memset(&parsed, 0x5A, sizeof parsed);  // nothing left from before
        nm_ParseORN(text.c_str(), &parsed, nullptr);
        ASSERT_EQ(parsed.length, static_cast<int>(text.size()));
        uint32_t maps[6] = {}, got[6];
        for (int f = 0; f < NM_FIELDS; ++f) {
            int len = -1;
            const char *p = nm_GetFieldMemPtr(text.c_str(), &parsed, f, &len);
            const std::string want = fields.count(f) ? fields[f] : "";
            ASSERT_EQ(std::string(p ? p : "", static_cast<std::size_t>(len)), want) << f << ' ' << show(text);
            maps[f / 32] |= want.empty() ? 0 : 1u << (f % 32);
        }
        nm_GetFieldMaps(&parsed, got);
        EXPECT_EQ(std::memcmp(got, maps, sizeof maps), 0) << show(text);
    }
}

// A random command-line argument: a positional part, then one to five
// attributes of assorted fields (the special ones often) and values.
std::string random_argument(std::mt19937 &random) {
    const char *positional[] = {"", "Smith/", "John Smith/Sales,London/", "J.R.R. Gruteda/R/", "/Sales/"};
    const char *values[] = {"a", "Acme", "x y", "\xC3\xA9t\xC3\xA9", "*", "p\\/q", "a\\=b", "1", "SIMPLE:abc",
                            "'0101'H/NS+12345", "Acme ", "a\nb", "line\n"};
    const int special[] = {0, 1, 8, 9, 35, 46, 64, 96, 128, 130, 160};
    std::string argument = positional[random() % 5];
    for (int k = 1 + static_cast<int>(random() % 5); k > 0; --k) {
        int field = random() % 2 ? special[random() % 11] : static_cast<int>(random() % 161);
        argument += std::string(da_AttribNumberToLocName(da_nmFieldNum2DANum(field))) + "=" + values[random() % 13];
        argument += k > 1 ? "/" : "";
    }
    return argument;
}

// The conversion writes its packed result from the fields as it fills them,
// without the field array: the text is what packing the array of the same
// random argument gives, and both ways refuse the same arguments.
TEST(Packed, ConversionPacksWhatItsArrayPacks) {
    std::mt19937 random(5);
    ccs_Descriptor utf8 = charset("UTF8");
    int accepted = 0;
    for (int round = 0; round < 2000; ++round) {
        const std::string argument = random_argument(random);
        static char typed[4096], out[8192], viaArray[8192];
        const int marker = round % 2;
        std::memcpy(typed, argument.c_str(), argument.size() + 1);
        testkit::Outcome direct = testkit::run([&] { cl_ConvCltoORN(typed, out, 0, marker, &utf8); });
        std::memcpy(typed, argument.c_str(), argument.size() + 1);
        testkit::Outcome array = testkit::run([&] {
            char **slots = cl_ConvCltoArray(typed, viaArray, 0, marker, &utf8);
            cl_ORNArray2Tf(slots, viaArray);
            cl_FreeArray(slots);
        });
        ASSERT_EQ(direct.reason, array.reason) << argument;
        EXPECT_EQ(direct.escaped ? "" : show(out), direct.escaped ? "" : show(viaArray)) << argument;
        accepted += !direct.escaped;
    }
    EXPECT_GT(accepted, 500);  // most arguments convert
}

// What validation (every kind) and the formatters make of a packed text,
// one call a statement: their result buffers are shared.
std::string readings(const char *text, ccs_Descriptor *cs) {
    std::string r;
    for (unsigned kind = 0; kind <= 5; ++kind) {
        int reason = -1;
        const int found = cl_ValidateORNFieldsNoEscape(text, kind, &reason);
        r += std::to_string(found) + ":" + std::to_string(reason) + " ";
    }
    const char *native = nullptr;
    r += testkit::run([&] { native = cl_FormatNative(text); }).escaped ? "refused" : native;
    r += std::string("~") + cl_FormatAsciiEncoded(text);
    r += std::string("~") + cl_FormatFullName(text, cs);
    r += std::string("~") + cl_FormatFullNameIa(text, cs);
    r += std::string("~") + cl_FormatMailNode(text, cs, 1);
    r += std::string("~") + cl_FormatGroup1(text);
    r += std::string("~") + cl_FormatPersonalName(text, cs);
    r += std::string("~") + cl_FormatG1PersonalName(text);
    return r;
}

// Validation and the formatters read the text the conversion has just made
// from the conversion's own record of it; a copy read after another
// conversion is parsed by the name library. Both readings agree on random
// arguments (line feeds and trailing spaces in values among them).
TEST(Packed, TheConversionsRecordReadsAsItsText) {
    std::mt19937 random(17);
    ccs_Descriptor utf8 = charset("UTF8");
    int compared = 0;
    int lineFeeds = 0;
    for (int round = 0; round < 1000; ++round) {
        static char typed[4096], out[8192], other[8192];
        // Every fourth a positional name alone: its text is the parser's own.
        const char *positional[] = {"Smith", "John Smith/Sales,London", "J.R.R. Gruteda/R/val8//val10(ref|A-17)(x)",
                                    "John Q. Smith Jr./Sales,London,Europe/Acme/GB/Mail"};
        const std::string argument = round % 4 ? random_argument(random) : positional[round / 4 % 4];
        std::memcpy(typed, argument.c_str(), argument.size() + 1);
        if (testkit::run([&] { cl_ConvCltoORN(typed, out, 0, round % 2, &utf8); }).escaped) continue;
        const std::string fresh = readings(out, &utf8);
        const std::string made = out;
        std::strcpy(typed, "Jones/Research/organization=Other");
        cl_ConvCltoORN(typed, other, 0, 0, &utf8);
        EXPECT_EQ(fresh, readings(made.c_str(), &utf8)) << argument << ' ' << show(made);
        ++compared;
        lineFeeds += made.find('\n') != std::string::npos;
    }
    EXPECT_GT(compared, 200);
    EXPECT_GT(lineFeeds, 10);
}

// The record is of the bytes the conversion wrote: a caller that changes
// its buffer afterwards is answered for what the buffer holds now, as a
// copy of it read after another conversion is.
TEST(Packed, AChangedResultIsReadAsItNowStands) {
    ccs_Descriptor utf8 = charset("UTF8");
    char typed[64] = "Smith/Sales/organization=Acme";
    char out[256], other[256];
    cl_ConvCltoORN(typed, out, 0, 0, &utf8);
    int reason = -1;
    EXPECT_EQ(cl_ValidateORNFieldsNoEscape(out, 3, &reason), 1);
    EXPECT_EQ(reason, 0);
    std::memmove(out, out + 5, std::strlen(out + 5) + 1);  // the surname gone
    EXPECT_EQ(cl_ValidateORNFieldsNoEscape(out, 3, &reason), 1);
    EXPECT_EQ(reason, 8014);
    const std::string changed = readings(out, &utf8);
    EXPECT_EQ(changed.find("Smith"), std::string::npos) << changed;
    const std::string copy = out;
    std::strcpy(typed, "Jones/Research/organization=Other");
    cl_ConvCltoORN(typed, other, 0, 0, &utf8);
    EXPECT_EQ(changed, readings(copy.c_str(), &utf8));
}

TEST(Packed, SubstituteCharactersBothWays) {
    char text[] = "a b.c/d,e(f)g=h#_\xC3\xA9";
    EXPECT_STREQ((cl_ConvertToSpecialChar(text), text), "a_b!c|d;e{f}g=h#_\xC3\xA9");
    cl_ConvertSpecialChar(text);
    EXPECT_STREQ(text, "a b.c/d,e(f)g=h# \xC3\xA9");  // a real '_' comes back as a space
}

enum Form { kG2, kG345, kNative, kAscii, kFull, kFullIa, kUtf8Ia, kNode, kNodeExt, kPersonal, kPersonalIa, kG1Person };

// A formatter's text for a name; set: the caller's character set (null: none).
struct Row {
    Form form;
    Fields fields;
    std::string text;
    const char *set = "UTF8";
    int first = 32, last = 63, separator = 0;  // of the group formatters
};

std::string format(const Row &r) {
    const std::string tf_text = tf(r.fields);
    const char *text = tf_text.c_str();
    ccs_Descriptor d = charset(r.set ? r.set : "UTF8"), *cs = r.set ? &d : nullptr;
    switch (r.form) {
    case kG2: return cl_FrmtGroup2PP(Table(tf_text, 161).t, r.first, r.last, 0);
    case kG345: return cl_FrmtGroup345PP(Table(tf_text, 161).t, cs, r.first, r.last, r.separator);
    case kNative: return cl_FormatNative(text);
    case kAscii: return cl_FormatAsciiEncoded(text);
    case kFull: return cl_FormatFullName(text, cs);
    case kFullIa: return cl_FormatFullNameIa(text, cs);
    case kUtf8Ia: return cl_formatORNtoUtf8withIA(text);
    case kNode: return cl_FormatMailNode(text, cs, 0);
    case kNodeExt: return cl_FormatMailNode(text, cs, 1);
    case kPersonal: return cl_FormatPersonalName(text, cs);
    case kPersonalIa: return cl_FormatPersonalNameIa(text, cs);
    case kG1Person: return cl_FormatG1PersonalName(text);
    }
    return "?";
}

// Attribute entries 'name=value' joined by '/' with the key characters of
// values escaped (group 2, the attribute lists), converted for the caller's
// set (groups 3 to 5), and the full and personal names in their fixed order.
TEST(Formatters, EveryFormatterByRows) {
    const std::string e = "\xC3\xA9";  // é
    const Fields f = with(john, {{4, "Sales"}, {32, "JS"}, {70, "x"}}), ab = {{64, "a"}, {70, "b"}};
    const Fields all = with(john, {{4, "U"}, {33, "t"}, {64, "s"}, {100, "d"}, {128, "n"}, {129, "alt"},
                                   {130, "i"}, {160, "cv"}, {23, "no"}, {140, "no"}});
    const std::string all_text =
        "John Smith /U/title=t/utf8Surname=s/utf8Telephone=d/displayName=n/alternateName=alt/conversionValue=cv";
    const Fields person = with(john, {{2, "J"}, {3, "Jr"}, {4, "U"}, {32, "c"}, {64, "a"}, {65, "b"}, {66, "c"},
                                      {67, "d"}, {96, "e"}, {68, "f"}, {97, "g"}});
    const Fields mixed = {{0, "a/b"}, {35, "...4900"}, {46, "x\x18y"}, {64, e + "/"}, {130, "u=v"}, {131, "x y"},
                          {32, "*"}};
    const Row rows[] = {
        {kG2, {{33, "a"}, {40, "b"}}, "title=a/pager=b"}, {kG2, {{32, "*"}}, "commonName=*"},
        {kG2, {{32, "a*b"}}, "commonName=a\\*b"}, {kG2, {{32, "**"}}, "commonName=\\*\\*"},
        {kG2, {{32, " *"}}, "commonName= \\*"}, {kG2, {}, ""}, {kG2, {{33, "a"}}, "", "", 40, 33},
        {kG2, {{33, "x/y=z[1]%\\"}}, "title=x\\/y\\=z\\[1\\]\\%\\\\"},
        {kG2, {{46, "Main St\x18" "10% off"}}, "postalAddress=Main St%10\\% off"},
        {kG2, {{35, "...4900A1"}}, "presentationAddress=NS+4900A1"},
        {kG2, {{35, "\"a\"/NS+12"}}, "presentationAddress=\"a\"\\/NS+12"},  // not packed: as stored
        {kG2, {{33, "a"}, {34, "b"}}, "description=b", "", 34, 34},
        {kG2, {{0, "x"}, {160, "y"}}, "surname=x/conversionValue=y", "", -5, 500},
        {kNative, john, "surname=Smith/givenName=John"}, {kNative, {}, ""}, {kAscii, {}, ""},
        {kNative, mixed, "surname=a\\/b/commonName=*/presentationAddress=NS+4900/postalAddress=x%y/utf8Surname=" + e +
                             "\\//internetAddress=u\\=v/field131=x y"},
        {kAscii, mixed, "surname=a\\/b/commonName=*/presentationAddress=...4900/postalAddress=x%y/"
                        "utf8Surname=~C3~A9~2F/internetAddress=u\\=v/field131=x~20y"},
        {kG345, ab, "utf8Surname=a/utf8Ou3=b", "UTF8", 64, 127}, {kG345, ab, "/utf8Surname=a/utf8Ou3=b", "UTF8", 64, 127, 1},
        {kG345, ab, "", "UTF8", 71, 127, 1}, {kG345, ab, "", "UTF8", 70, 64},
        {kG345, {{0, "x"}, {160, "y"}}, "surname=x/conversionValue=y", "UTF8", -1, 999},
        {kG345, {{66, e + "/x"}}, "utf8Initials=" + e + "\\/x", "UTF8", 66, 66},
        {kG345, {{66, e + "/x"}}, "utf8Initials=\xE9\\/x", "ISO8859-1", 66, 66},  // converted, then escaped
        {kG345, {{66, "\xE2\x82\xAC="}}, "utf8Initials=?\\=", "ISO8859-1", 66, 66},  // no mapping: '?'
        {kG345, {{66, e}}, "utf8Initials=\xC2" "e", "T61", 66, 66},                 // the diacritic first
        {kG345, {{66, "a" + e}}, "utf8Initials=a?", "IA5", 66, 66},
        {kG345, {{66, "a/b"}}, "utf8Initials=a\\/b", "VIDEOTEX", 66, 66},  // no mapping: escaped, then IA5
        {kG345, {{66, e + "*"}}, "utf8Initials=" + e + "\\*", "VIDEOTEX", 66, 66},  // IA5 cannot: kept
        {kG345, {{130, "a/b=c%" + e}}, "/internetAddress=a/b=c%" + e, "ISO8859-1", 130, 130, 1},  // as stored
        {kFull, f, "John Smith /Sales/commonName=JS/utf8Ou3=x"}, {kFull, f, "John Smith /Sales/commonName=JS", nullptr},
        {kNodeExt, f, "Sales/utf8Ou3=x"}, {kNode, f, "Sales"}, {kNodeExt, f, "Sales", nullptr},
        {kFull, all, all_text}, {kFullIa, all, all_text + "/internetAddress=i"},
        {kUtf8Ia, all, all_text + "/internetAddress=i"}, {kFull, {}, ""}, {kUtf8Ia, {}, ""}, {kNodeExt, {}, ""},
        {kFull, {{33, "t"}}, "title=t"}, {kFull, {{4, "U"}}, "/U"},  // a '/' only after something
        {kFull, {{128, "n"}}, "/displayName=n"}, {kFull, {{129, "a"}}, "alternateName=a"},
        {kFull, {{160, "v/w"}}, "conversionValue=v\\/w"}, {kFull, {{160, "v"}}, "", nullptr},
        {kFull, {{130, "a/b"}}, ""}, {kFullIa, {{130, "a/b"}}, "internetAddress=a/b"},
        {kFullIa, {{130, "x"}}, "internetAddress=x", nullptr},
        {kNodeExt, person, "U/utf8Ou1=f/utf8Title=g"},  // no personal name, 32 or 64 to 67, 96
        {kNodeExt, {{4, "U"}, {97, "g"}}, "U/utf8Title=g"}, {kNodeExt, {{33, "t"}, {97, "g"}}, "title=t/utf8Title=g"},
        {kPersonal, john, "John Smith "}, {kPersonal, {}, ""},
        {kPersonal, with(john, {{32, "JS"}, {66, "x"}}), "John Smith /commonName=JS/utf8Initials=x"},
        {kPersonal, with(john, {{66, "x"}}), "John Smith /utf8Initials=x"},
        {kPersonal, {{96, "y"}}, "/utf8CommonName=y"}, {kPersonal, {{64, "s"}}, "/utf8Surname=s"},
        {kPersonal, with(john, {{4, "U"}, {8, "o"}, {15, "t"}, {33, "d"}, {68, "q"}, {130, "ia"}}), "John Smith "},
        {kPersonalIa, with(john, {{130, "a=b"}}), "John Smith /internetAddress=a=b"},
        {kPersonalIa, {{130, "a"}}, "internetAddress=a"}, {kG1Person, {}, ""},
        {kG1Person, with(john, {{32, "c"}, {64, "s"}, {96, "y"}, {130, "i"}}), "John Smith "}};
    testkit::TempHome home;  // conversion losses are logged
    for (const Row &r : rows) EXPECT_EQ(format(r), r.text) << r.form << ' ' << (r.set ? r.set : "-");
    std::string encoded;  // the fields whose values the ascii-encoded list encodes
    for (int field : {-1, 34, 35, 36, 63, 64, 127, 128, 130, 131, 1000}) encoded += cl_ShouldAsciiEncode(field) ? "1" : "0";
    EXPECT_EQ(encoded, "00100110011");
    EXPECT_STREQ(cl_FormatPostalAddress("a\x18" "b\x18"), "a%b%");
}

TEST(FullName, StaticBufferRules) {
    ccs_Descriptor utf8 = charset("UTF8");
    const std::string a = tf(with(john, {{4, "A"}})), b = tf({{0, "Jones"}, {4, "B"}});
    // One result text for every full-name wrapper.
    char *first = cl_FormatFullName(a.c_str(), &utf8);
    EXPECT_TRUE(cl_FormatMailNode(b.c_str(), &utf8, 1) == first && std::strcmp(first, "B") == 0);
    // The group 1 personal-name copy is overwritten only by its own function.
    char *copy = cl_FormatG1PersonalName(a.c_str());
    EXPECT_STREQ((cl_FormatPersonalName(b.c_str(), &utf8), cl_FormatFullName(b.c_str(), &utf8), copy), "John Smith ");
    // The personal-name text of group 1 is shared by every path that makes it.
    char *pn = cl_FrmtGroup1PNPP(Table(tf(john), 23).t);
    EXPECT_STREQ((cl_FormatPersonalName(b.c_str(), &utf8), pn), "Jones ");
    EXPECT_STREQ((cl_FormatG1PersonalName(a.c_str()), pn), "John Smith ");
    // The attribute lists return the group 2 entry buffer, group 1 from packed text its own.
    char *entries = cl_FrmtGroup2PP(Table(tf({{33, "t"}}), 161).t, 32, 63, 0);
    EXPECT_EQ(cl_FormatNative(tf({{0, "x"}}).c_str()), entries);
    // The full name empties them for its empty ranges, whether or not it calls them.
    char *converted = cl_FrmtGroup345PP(Table(tf({{64, "s"}}), 161).t, &utf8, 64, 127, 0);
    EXPECT_STREQ((cl_FormatFullName(a.c_str(), &utf8), entries), "");
    EXPECT_STREQ(converted, "");
    const std::string text = tf({{0, "Smith"}, {1, "John"}, {4, "Sales"}, {23, "never"}, {32, "JS"}});
    const char *shown = cl_FormatGroup1(text.c_str());
    EXPECT_EQ(cl_FrmtGroup1PP(Table(text, 23).t, 0), shown);
    std::string buf = text + std::string(4097, '\0');  // cl_FormatName: in place
    cl_FormatName(buf.data());
    EXPECT_EQ(std::string(shown) + "~" + buf.c_str(), "John Smith /Sales~John Smith /Sales");
}

// Every field at its largest packed size (4079 bytes), of UTF-8 text full
// of key characters, so that escaping doubles it: no formatter writes past
// its buffer (the sanitizer build checks), and each text is cut at its
// bound on a character boundary (never after the C3 of an é, its only
// multi-byte character).
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
    const std::pair<std::string, std::size_t> results[] = {
        {cl_FormatFullName(text.c_str(), &utf8), 4079},     {cl_FormatFullNameIa(text.c_str(), &utf8), 4079},
        {cl_formatORNtoUtf8withIA(text.c_str()), 4079},     {cl_FormatMailNode(text.c_str(), &utf8, 1), 4079},
        {cl_FormatPersonalName(text.c_str(), &utf8), 4079}, {cl_FormatPersonalNameIa(text.c_str(), &utf8), 4079},
        {cl_FormatG1PersonalName(text.c_str()), 4079},      {cl_FormatGroup1(text.c_str()), 4096},
        {cl_FrmtGroup1PNPP(Table(text, 23).t), 4096},       {cl_FrmtGroup1PP(Table(text, 23).t, 1), 4096}};
    for (const auto &[shown, bound] : results)
        EXPECT_TRUE(shown.size() <= bound && shown.size() + 3 >= bound && shown.back() != '\xC3') << shown.size();
    const std::string latin = cl_FormatFullName(text.c_str(), &latin1);  // group 1 stays UTF-8; '/' written '|'
    EXPECT_TRUE(latin.size() <= 4079 && latin.compare(0, 4, "a\xC3\xA9|") == 0);
    // The attribute lists are read back: over 4096 characters they are refused, where group 2 is cut.
    EXPECT_TRUE(testkit::run([&] { cl_FormatNative(text.c_str()); }).is(100, 4670));
    EXPECT_TRUE(testkit::run([&] { cl_FormatAsciiEncoded(text.c_str()); }).is(100, 4670));
    Table table(text, 161);
    EXPECT_EQ(std::strlen(cl_FrmtGroup345PP(table.t, &latin1, 64, 160, 1)), 8193u);
    EXPECT_EQ(std::strlen(cl_FrmtGroup2PP(table.t, 0, 160, 1)) + std::strlen(cl_FrmtGroup2PP(table.t, 32, 63, 0)), 8192u);
}

// Above trace level 9 the formatters unpack into a table of their own and
// group 1 maps each field in a work area (the general path); at 9 they may
// take their short cuts. Both give the same text, or the same refusal, for
// random packed text: assorted fields (line feeds, UTF-8, long ones) joined
// by 0x1D and 0x17, so that groups close early and group 1 overflows into
// group 2; every third text longer than the formatters' own table holds.
TEST(FastPath, TracedAndUntracedFormattersAgree) {
    const std::string texts[] = {"", "", "a", "Smith", "x\n", "\n", "a\nb", "\xC3\xA9t\xC3\xA9", "q r.s/(t)",
                                 std::string(300, 'w')};
    std::mt19937 random(11);
    ccs_Descriptor utf8 = charset("UTF8");
    testkit::TraceCapture quiet;
    const int saved = er_SubSystemLoggingLevel;
    for (int round = 0; round < 600; ++round) {
        std::string text = round % 3 == 0 ? std::string(4100, 'L') : "";
        for (int k = static_cast<int>(random() % 60), n = 0; k > 0 && n < 120; --k) {
            const bool close = random() % 5 == 0;
            n = close ? (n / 32 + 1) * 32 : n + 1;
            text += (close ? "\x17" : "\x1D") + texts[random() % 10];
        }
        std::string results[2];
        for (int level : {9, 10}) {
            er_SubSystemLoggingLevel = level;
            const char *native = nullptr;
            const bool refused = testkit::run([&] { native = cl_FormatNative(text.c_str()); }).escaped;
            Table table(text, 23);
            std::string &r = results[level - 9];  // one call a statement: the buffers are shared
            r = refused ? "refused" : native;
            r += std::string("~") + cl_FormatFullName(text.c_str(), &utf8);
            r += std::string("~") + cl_FormatGroup1(text.c_str());
            r += std::string("~") + cl_FormatPersonalName(text.c_str(), &utf8);
            r += std::string("~") + cl_FrmtGroup1PP(table.t, 0);
            r += std::string("~") + cl_FrmtGroup1PP(table.t, 1);
        }
        EXPECT_EQ(results[0], results[1]) << round << ' ' << show(text);
    }
    er_SubSystemLoggingLevel = saved;
}


// Group 1 near its bound: random fields of group 1, some of them long
// (the initials among them, written twice as long), so that the text fits
// whole in one name and is cut in the next. Written at level 9 (whole,
// when it fits) and at 10 (every append bounded), the texts agree, and so
// do the full names in each kind of set; both cases are met often.
TEST(FastPath, GroupOneWholeOrCutAlike) {
    const std::string pieces[] = {"a", "Smith", "q r.s/(t),u", "\xC3\xA9", "x\n"};
    std::mt19937 random(23);
    ccs_Descriptor utf8 = charset("UTF8"), latin1 = charset("ISO8859-1");
    testkit::TraceCapture quiet;
    const int saved = er_SubSystemLoggingLevel;
    int cut = 0, whole = 0;
    for (int round = 0; round < 800; ++round) {
        Fields fields;
        for (int n = 0; n < 23; ++n) {
            if (random() % 3) continue;
            std::string value;
            const std::size_t length = random() % 4 ? random() % 12 : 600 + random() % 1600;
            while (value.size() < length) value += pieces[random() % 5];
            fields[n] = value;
        }
        const std::string text = tf(fields);
        std::string results[2];
        for (int level : {9, 10}) {
            er_SubSystemLoggingLevel = level;
            Table table(text, 23);
            std::string &r = results[level - 9];  // one call a statement: the buffers are shared
            r = cl_FrmtGroup1PNPP(table.t);
            r += std::string("~") + cl_FrmtGroup1PP(table.t, 0);
            r += std::string("~") + cl_FrmtGroup1PP(table.t, 1);
            r += std::string("~") + cl_FormatGroup1(text.c_str());
            r += std::string("~") + cl_FormatG1PersonalName(text.c_str());
            for (ccs_Descriptor *cs : {&utf8, &latin1, static_cast<ccs_Descriptor *>(nullptr)})
                r += std::string("~") + cl_FormatFullName(text.c_str(), cs);
        }
        EXPECT_EQ(results[0], results[1]) << round << ' ' << show(text);
        (std::strlen(cl_FormatGroup1(text.c_str())) >= 4000 ? cut : whole)++;
    }
    er_SubSystemLoggingLevel = saved;
    EXPECT_GT(cut, 100);
    EXPECT_GT(whole, 100);
}

}  // namespace
