// Command-line text into packed text, field arrays and directory-attribute
// text; field arrays into directory-attribute text; attribute lists read
// back; mail nodes into packed text. Released memory on escapes is checked
// by the sanitizer build.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <string>

#include "ccs.h"
#include "da.h"
#include "er.h"
#include "nm.h"
#include "os.h"
#include "testkit.hpp"

namespace {

using testkit::show;

// Group 1 written with all its separators, then its closing byte.
std::string g1(const std::string &fields0to30) {
    return fields0to30 + std::string(31 - std::count(fields0to30.begin(), fields0to30.end(), '|'), '|') + "#";
}

std::string times(int n, const std::string &s) {
    std::string out;
    while (n-- > 0) out += s;
    return out;
}

ccs_Descriptor charset(const char *name) {
    ccs_Descriptor cs{};
    EXPECT_EQ(ccs_GetCSDescriptor(name, &cs), 1) << name;
    return cs;
}

enum Flags { kMarker = 1, kMailNode = 2, kLatin1 = 4, kArray = 8, kDa = 16, kNumeric = 32 };

struct Conv {
    testkit::Outcome outcome;
    std::string shown, text;  // the result, readable; the caller's text afterwards
};

// Converts typed by the entry point that the flags choose. The result shows
// as packed or directory-attribute text, or as the array's set slots.
Conv conv(const std::string &typed, int flags = 0) {
    static char text[16384], out[32768];
    static char *volatile returned;
    static char **volatile array;
    static int f, marker, node;
    static ccs_Descriptor cs;
    cs = charset(flags & kLatin1 ? "ISO8859-1" : "UTF8");
    std::memcpy(text, typed.c_str(), typed.size() + 1);
    std::memset(out, '\xAA', sizeof out - 1);  // the last byte stays NUL
    f = flags, marker = flags & kMarker, node = flags & kMailNode ? 1 : 0;
    returned = out;
    array = nullptr;
    auto outcome = testkit::run([] {
        if (f & kArray)
            array = node ? static_cast<char **>(cl_MainConvCltoORN(text, out, 0, marker, &cs, 1, 1))
                         : cl_ConvCltoArray(text, out, 0, marker, &cs);
        else if (f & kDa)
            (node ? cl_ConvClMntoDa : cl_ConvCltoDa)(text, out, 0, marker, (f & kNumeric) != 0, &cs);
        else
            returned = (node ? cl_ConvClMntoORN : cl_ConvCltoORN)(text, out, 0, marker, &cs);
    });
    Conv r{outcome, outcome.escaped ? "" : show(out), text};
    EXPECT_EQ(returned, out) << show(typed);
    if (array) {
        r.shown.clear();
        for (int i = 0; i < 161; ++i)
            if (array[i]) r.shown += std::to_string(i) + "=" + array[i] + " ";
        cl_FreeArray(array);
    }
    return r;
}

// Each field with a rule refuses a value that breaks it with the field's
// own reason, 4800 + the field: one character too many, or a control
// character where the field takes any length.
TEST(ConvCltoORN, EveryFieldRuleRefusesWithItsOwnReason) {
    int ruled = 0;
    for (int field = 0; field < ORN_FIELDS; ++field) {
        int max = 0;
        const int cls = nm_FieldRule(field, &max);
        if (cls == NM_CLASS_NONE) continue;
        ++ruled;
        const std::string value = max > 0 ? std::string(max + 1, cls == NM_CLASS_DIGITS ? '1' : 'A') : "A\x01";
        const Conv r = conv(std::string(da_AttribNumberToLocName(da_nmFieldNum2DANum(field))) + "=" + value);
        EXPECT_TRUE(r.outcome.is(100, 4800 + field)) << field << ": " << r.outcome.group << "/" << r.outcome.reason;
    }
    EXPECT_EQ(ruled, 87);  // fields 0 to 22 and their counterparts 64 to 127
}

TEST(ConvCltoORN, FieldsOrReason) {
    const std::string utf8e20 = times(20, "\xC3\xA9");  // 20 characters, 40 bytes
    struct Case {
        std::string typed, fields;  // fields empty: refused with reason
        int reason = 0, flags = 0;
    } cases[] = {
        // the positional part alone
        {"John Smith/Sales,London", "Smith|John|||Sales|London||"},
        {"Smith//val8(ref|x)", "Smith||||||||val8|||||||ref|x|"},
        // attributes fill further fields, named in any case or by number, after any positional part
        {"John Smith/Sales,London/organization=Acme", "Smith|John|||Sales|London|||Acme"},
        {"title=Head/organization=Acme", g1("||||||||Acme") + "|Head"}, {"Smith/TITLE=Head", g1("Smith") + "|Head"},
        {"Smith/133=Head", g1("Smith") + "|Head"}, {"/Sales/surname=Jones", "Jones||||Sales"},
        {"Smith/title=Head/", g1("Smith") + "|Head"}, {"Smith/title=a\\/b\\=c\\\\", g1("Smith") + "|a/b=c\\"},
        // the positional text is parsed in place: the bytes that end its name part stay for what follows
        {"John Smith/Sales,London/title=Head", g1("Smith|John|||Sales|London") + "|Head"},
        {"Smith/Sales(ref|x)/title=Head", g1("Smith||||Sales|||||||||||ref|x") + "|Head"},
        {"Smith//val8/title=Head", g1("Smith||||||||val8") + "|Head"},
        {"Smith/postalAddress=Main St%10", g1("Smith") + "||||||||||||||Main St\\x1810"},
        {"Smith/conversionValue=S:abc", g1("Smith") + "####abc"},
        {"Smith/internetAddress=rfc822=a@b", g1("Smith") + "###||rfc822=a@b"},
        {"Smith/internetAddress=rfc822\\=a@b", g1("Smith") + "###||rfc822=a@b"},
        {"Smith/utf8Surname=Sm\xC3\xA9th", g1("Smith") + "#Sm\xC3\xA9th"},
        {"Smith/utf8Surname=Sm\xE9th", g1("Smith") + "#Sm\xC3\xA9th", 0, kLatin1},
        {"Smith/presentationAddress=NS+0102", g1("Smith") + "|||...0102"},
        {"Smith/title=a\\[b\\]\\%", g1("Smith") + "|a[b]%"}, {"Smith/country=zz", "Smith|||||||||zz"},
        {"Smith/organization=Ac.me (UK)", "Smith||||||||Ac.me (UK)"},
        {"Smith/organization=" + std::string(64, 'o'), "Smith||||||||" + std::string(64, 'o')},
        {"Smith/networkAddress=1234567890123456", "Smith||||||||||||1234567890123456"},
        {"Smith/utf8Surname=" + utf8e20, g1("Smith") + "#" + utf8e20},
        // the marker: an unescaped '*' with allowMarker only
        {"Smith/title=a*b", g1("Smith") + "|a\\x1Fb", 0, kMarker}, {"Smith/title=a*b", g1("Smith") + "|a*b"},
        {"Smith/title=a\\*b", g1("Smith") + "|a*b", 0, kMarker}, {"Sm*/title=x", g1("Sm\\x1F") + "|x", 0, kMarker},
        {"Smith/organization=Acme*", "Smith||||||||Acme\\x1F", 0, kMarker},
        {"/Sales/surname=S*th", "S\\x1Fth||||Sales", 0, kMarker},
        // escaped delimiters of the first segment ('=' as '#', which the parser refuses); later ones are plain
        {"Smith\\,John/Sales", "Smith,John||||Sales|||"}, {"Mary\\ Ann Smith", "Smith|Mary Ann||||||"},
        {"Smith\\/x/Sales", "Smith/x||||Sales|||"}, {"Smith/Sales\\=x", "Smith||||Sales=x|||"}, {"a\\=b", "", 8013},
        // the mail-node form; a long attribute name is no positional text
        {"Sales,London//", "||||Sales|London", 0, kMailNode}, {"Sales/x", "||||Sales||||x", 0, kMailNode},
        {"Sales,London/organization=Acme", "||||Sales|London|||Acme", 0, kMailNode},
        {std::string(4095, 'x'), "||||" + std::string(4095, 'x'), 0, kMailNode},
        {"Sales" + times(153, "/x"), "||||Sales|||" + times(153, "|x"), 0, kMailNode},
        {"Sales/ou1=x", "", 4635, kMailNode}, {std::string(4096, 'x'), "", 9801, kMailNode},
        {std::string(5000, 'x') + "=y", "", 4634, kMailNode}, {"Sales" + times(154, "/x"), "", 4673, kMailNode},
        // past what the positional text holds, the attribute part is found all the same
        {"Smith/" + std::string(5000, 'x') + "=y", "", 4634}, {std::string(4096, 'x') + "/a=b", "", 9801},
        // field arrays and directory-attribute text, where plain values are written unchanged
        {"John Smith/Sales", "0=Smith 1=John 4=Sales ", 0, kArray},
        {"Sales,London", "4=Sales 5=London ", 0, kArray | kMailNode},
        {"Smith/title=Head/conversionValue=S:v", "0=Smith 33=Head 160=v ", 0, kArray},
        {"John Smith/Sales/title=Head", "surname=Smith/givenName=John/ou1=Sales/title=Head", 0, kDa},
        {"John Smith/Sales/title=Head", "100|Smith\\x1E101|John\\x1E104|Sales\\x1E133|Head", 0, kDa | kNumeric},
        {"Sales,London", "ou1=Sales/ou2=London", 0, kDa | kMailNode},
        {"Smith/internetAddress=a=b", "surname=Smith/internetAddress=a=b", 0, kDa},
        {"Smith/title=a\\/b\\=c", "surname=Smith/title=a/b=c", 0, kDa},
        {"S/presentationAddress=NS+0102/internetAddress=rfc822=a@b/conversionValue=plain",
         "surname=S/presentationAddress=NS+0102/internetAddress=rfc822=a@b/conversionValue=plain", 0, kDa},
        {"S/presentationAddress=NS+0102/internetAddress=rfc822=a@b/conversionValue=plain",
         "100|S\\x1E28|S:NS+0102\\x1E230|rfc822=a@b\\x1E410|S:plain", 0, kDa | kNumeric},
        // field checks: a field given twice (the positional part counts), a control byte ('%' is 0x18
        // outside the postal address, a second '=' 0x1D outside the IA value), the fields' own rules
        // (after the conversion's); syntax; the positional parser's reasons; the character set
        {"Smith/nosuch=x", "", 4634}, {"Smith/title=a/nosuch=x", "", 4634}, {"Smith/surname=Jones", "", 4635},
        {"title=a/TITLE=b", "", 4635}, {"title=a/133=b", "", 4635}, {"Smith/Sales/x/organization=Acme", "", 4635},
        {"Smith/title=a\tb", "", 4636}, {"Smith/title=a\x1F", "", 4636}, {"Smith/title=a[b]", "", 4636},
        {"Smith/title=50%", "", 4636}, {"Smith/title=a=b", "", 4636},
        {"Ann Lee/Sales,London/ou3=Customer_Relations_and_Support_Europe", "", 4806}, {"Smith/country=ZZZZ", "", 4809},
        {"Smith/organization=Ac!me", "", 4808}, {"Smith/organization=" + std::string(65, 'o'), "", 4808},
        {"Smith/organization=Ac!\tme", "", 4636}, {"Smith/networkAddress=12345678901234567", "", 4812},
        {"Smith/ext1Type=abcdefghi", "", 4815}, {"Smith/utf8Surname=Sm\xC3\xA9th\t", "", 4864},
        {"Smith/utf8Surname=a\xC2\x85", "", 4864}, {"Smith/organization=Ac*me", "", 4808, kMarker},
        {"Smith/title=", "", 4653}, {"Smith/title=x/foo", "", 4651}, {"=x", "", 4652},
        {"Smith/presentationAddress=nonsense", "", 4671}, {"Smith, John/title=x", "", 8011}, {"", "", 30002},
        {"Sm\xE9th", "", 30003}, {"a\x1E" "b", "", 30003},
        // a separator of the packed form never reaches an exempt field
        {"Smith/Sales/postalAddress=a=b", "", 4636}, {"Smith/Sales/utf8Surname=a=b", "", 4864},
        {"Smith/Sales/utf8Surname=a\x17" "b", "", 4864}, {"Smith/Sales/conversionValue=S:a=b", "", 4636},
        {"Smith/Sales/conversionValue=a=b", "", 4636}, {"Smith/Sales(a\x17" "b)", "", 8013},
        {"Smith/Sales" + std::string(161, '/') + "*", "", 9815, kMarker},
    };
    for (const auto &c : cases) {
        Conv r = conv(c.typed, c.flags);
        EXPECT_EQ(r.outcome.escaped ? r.outcome.reason : 0, c.reason) << show(c.typed);
        EXPECT_EQ(r.shown, c.fields) << show(c.typed);
        EXPECT_FALSE(r.outcome.pending_after) << show(c.typed);
    }
}

TEST(ConvCltoORN, CallersTextKeepsTheSubstitutes) {
    EXPECT_EQ(conv("Smith\\,John/Sales").text, "Smith\\;John/Sales");
    EXPECT_EQ(conv("a\\=b").text, "a\\#b");
    EXPECT_EQ(conv("Smith/Sales\\=x").text, "Smith/Sales\\=x");
}

enum Forms { kNative = 1, kAscii = 2, kBoth = 3 };

Conv read_list(Forms form, const std::string &list) {
    static char text[4096], out[65536];
    static Forms f;
    std::memcpy(text, list.c_str(), list.size() + 1);
    std::memset(out, '\xAA', sizeof out - 1);  // the last byte stays NUL
    f = form;
    auto outcome = testkit::run([] { f == kAscii ? cl_AsciiEncodedToTF(text, out) : cl_NativeToTF(text, out); });
    return {outcome, outcome.escaped ? "" : show(out), text};
}

TEST(AttributeLists, FieldsOrReason) {
    struct Case {
        int forms;
        std::string list, fields;  // fields empty: refused with reason
        int reason = 0;
    } cases[] = {
        {kBoth, "", ""}, {kBoth, "surname=Smith/givenName=John", "Smith|John"},
        {kBoth, "surname=Smith/givenName=John/", "Smith|John"},
        // names in any case or by number, up to the longest; others skipped; the later value wins
        {kBoth, "nosuch=1/surname=Smith/nosuch2=2", "Smith"}, {kBoth, "SURNAME=Smith/101=John", "Smith|John"},
        {kBoth, "surname=a/surname=b", "b"},
        {kBoth, "utf8PostalPersonalName=x", g1("") + "#" + std::string(28, '|') + "x"},
        {kBoth, std::string(80, 'n') + "=x/surname=y", "y"},
        // backslashes escape in the ascii-encoded form only; natively the slash ends the entry
        {kAscii, "surname=a\\/b\\=c\\\\d", "a/b=c\\d"}, {kAscii, "sur\\name=x", "x"}, {kAscii, "surname=ab\\", "ab"},
        {kNative, "surname=a\\/givenName=b", "a\\|b"},
        // encoded fields are decoded in the ascii-encoded form only
        {kAscii, "utf8Surname=Sm~C3~A9th/givenName=J~41", g1("|J~41") + "#Sm\xC3\xA9th"},
        {kNative, "utf8Surname=Sm~C3~A9th/givenName=J~41", g1("|J~41") + "#Sm~C3~A9th"},
        {kBoth, "/surname=x", "", 4632}, {kBoth, "surname=x//title=y", "", 4632}, {kBoth, "surname", "", 4633},
        {kBoth, "surname=x/title", "", 4633}, {kBoth, "surname=", "", 4628}, {kBoth, "surname=/title=y", "", 4628},
        {kBoth, "surname=a=b", "", 4629}, {kBoth, "=x", "", 4631}, {kBoth, "surname=x/=y", "", 4631},
        {kAscii, "surname=\\", "", 4628}, {kNative, "surname=a\\/b", "", 4633},
        // a separator of the packed form, typed, escaped or decoded, is refused
        {kBoth, "surname=a\x17" "b/givenName=Jo", "", 4636}, {kBoth, "surname=a\x1D" "b", "", 4636},
        {kAscii, "surname=a\\\x17" "b", "", 4636}, {kAscii, "givenName=Jo/utf8Surname=a~1Db", "", 4636},
    };
    for (const auto &c : cases)
        for (Forms form : {kNative, kAscii})
            if (c.forms & form) {
                Conv r = read_list(form, c.list);
                EXPECT_EQ(r.outcome.escaped ? r.outcome.reason : 0, c.reason) << show(c.list) << " form " << form;
                EXPECT_EQ(r.shown, c.fields) << show(c.list) << " form " << form;
            }
}

// Formatted as an ascii-encoded list and read back: the same packed text.
TEST(AttributeLists, AsciiEncodedRoundTrip) {
    const std::map<int, std::string> names[] = {
        {{0, "Smith"}, {1, "John"}, {4, "Sales"}},
        {{32, "*"}, {33, "a/b=c*[x]%\\ ~_.,()"}, {63, "\\"}},
        {{64, "Sm\xC3\xA9th ~41"}, {100, "\xE2\x82\xAC\xF0\x9F\x98\x80/="}, {160, "~41*"}},
        {{35, "...0102"}, {130, "rfc822=a@b"}, {128, " lead"}, {31, "a b"}, {95, "="}, {159, "*"}},
    };
    for (const auto &fields : names) {
        char *array[161] = {}, tf[4096];
        for (const auto &[field, value] : fields) array[field] = const_cast<char *>(value.c_str());
        cl_ORNArray2Tf(array, tf);
        const std::string list = cl_FormatAsciiEncoded(tf);
        EXPECT_EQ(read_list(kAscii, list).shown, show(tf)) << list;
    }
}

TEST(MailNode, PackedFieldsOrResult) {
    enum Fn { Positional, PlaceHolder, Trim, Name, MNode };
    struct Case {
        Fn fn;
        std::string typed;
        int result;  // Name and MNode: what they return; otherwise the reason of the escape
        std::string fields;  // a refused mail node leaves the buffer untouched
    } cases[] = {
        // '/' words go to fields 8 on; a fifth unit joins the fourth; fields are trimmed (inner spaces kept),
        // then their substitutes mapped
        {Positional, "Sales,London", 0, "||||Sales|London"}, {Positional, "Sales", 0, "||||Sales"},
        {Positional, "Sales/x", 0, "||||Sales||||x"}, {Positional, "Sales,London/x/y", 0, "||||Sales|London|||x|y"},
        {Positional, "A,B,C,D,E", 0, "||||A|B|C|D,E"}, {Positional, "A,B,C,D/x", 0, "||||A|B|C|D|x"},
        {Positional, "", 0, "||||"}, {Positional, " Sales , Lon don ", 0, "||||Sales|Lon don"},
        {Positional, "Sales_Dept,R!D", 0, "||||Sales Dept|R.D"}, {Positional, "Sales_ ,x", 0, "||||Sales |x"},
        {Positional, "a;b,{c}", 0, "||||a,b|(c)"}, {Positional, "Sa\x1Dles", 8013, "untouched"},
        {Positional, "Sa\x17les", 8013, "untouched"}, {Positional, "Sales" + times(154, "/x"), 4673, "untouched"},
        {PlaceHolder, "Sales,London", 0, "S|F|I|G|Sales|London"}, {Trim, "  a  |\tb c\t| |", 0, "a|b c||"},
        {Trim, "", 0, ""}, {Trim, "   ", 0, ""}, {Trim, "a b  c", 0, "a b  c"}, {Trim, "|| x ||", 0, "||x||"},
        {Trim, "\xC3\xA9 ", 0, "\xC3\xA9"}, {Name, "John Smith/Sales,London", 1, "Smith|John|||Sales|London||"},
        // no slash: no mail node; '(' ends it; neither trimmed nor mapped; the surname is required
        {Name, "Smith", 1, "Smith||||"}, {Name, "Smith/", 1, "Smith||||"},
        {Name, "Smith/Sales/x/y", 1, "Smith||||Sales||||x|y"}, {Name, "Smith/A,B,C,D,E", 1, "Smith||||A|B|C|D,E"},
        {Name, "Smith/Sales(ref|x)/y", 1, "Smith||||Sales|||"}, {Name, "Smith/ Sales_x ", 1, "Smith|||| Sales_x |||"},
        {Name, "/Sales", 0, ""}, {Name, "Smith, John/Sales", 0, ""},
        {Name, std::string(5000, ' ') + "Smith/Sales", 0, ""},
        {Name, std::string(4000, ' ') + "Smith/Sales", 1, "Smith||||Sales|||"}, {MNode, "/Sales", 1, "||||Sales|||"},
        {MNode, "Smith,x/Sales", 0, ""},
    };
    for (const auto &c : cases) {
        static char text[8192], out[8192];
        static Fn fn;
        static volatile int result;
        std::strcpy(text, (c.fn == Trim ? testkit::packed(c.typed) : c.typed).c_str());
        std::strcpy(out, "untouched");
        fn = c.fn;
        result = 0;
        auto outcome = testkit::run([] {
            switch (fn) {
                case Positional: cl_PositionalMnToORN(out, text); break;
                case PlaceHolder: cl_MailNodeToPartORName(out, text); break;
                case Trim: cl_RemoveLead_TrailSpaces(text), std::strcpy(out, text); break;
                case Name: result = cl_ConvNameToORN(text, out); break;
                case MNode: result = cl_ConvMNodeToORN(text, out); break;
            }
        });
        EXPECT_EQ(outcome.escaped ? outcome.reason : result, c.result) << show(c.typed);
        EXPECT_EQ(show(out), c.fields) << show(c.typed);
    }
    EXPECT_EQ(er_GetLive(), 0);
}

// A positional part in the plain form (a surname, '/' and units, a lone
// '/') is taken word for word when nothing traces; above level 9 it goes
// through the full-name parser. Around the plain form's edges, both read
// the same fields or refuse with the same reason, with attributes after the
// part or without.
TEST(ConvCltoORN, PlainPositionalPartsReadAsTheParserReadsThem) {
    const std::string surnames[] = {"Smith", std::string(40, 'S'), std::string(41, 'S'), "O'Neil-2", "Sm(th)",
                                    "John Smith", "J.Smith", "", "J Smith", std::string(16, 'G') + " Smith",
                                    std::string(17, 'G') + " Smith", "John " + std::string(41, 'S'), "John  Smith",
                                    " Smith", "John Smith ", "John Q Smith", "John Sm(th"};
    const std::string units[] = {"", "/", "/Sales", "/Sales/", "/Sales,London,Europe,Asia/", "/a,b,c,d,e/",
                                 "/Sales,/", "/,Sales/", "/" + std::string(32, 'u') + "/", "/" + std::string(33, 'u'),
                                 "/Sales//", "/Sales/Acme/", "/Sa les/", "/Sales,/", "/Sa(les/", "/Sales(x)", "/Sales,",
                                 "/Sales,London,"};
    const int saved = er_SubSystemLoggingLevel;
    int taken = 0, refused = 0;
    for (const std::string &surname : surnames)
        for (const std::string &unit : units)
            for (const char *attributes : {"organization=Acme", "surname=Jones", "ou2=Dev", "o.x=1", ""})
                for (int flags : {0, int{kArray}}) {
                    const std::string typed = surname + unit + attributes;
                    er_SubSystemLoggingLevel = 0;
                    const Conv plain = conv(typed, flags);
                    er_SubSystemLoggingLevel = 10;
                    const Conv parsed = conv(typed, flags);
                    EXPECT_EQ(plain.outcome.escaped, parsed.outcome.escaped) << show(typed);
                    EXPECT_EQ(plain.outcome.reason, parsed.outcome.reason) << show(typed);
                    EXPECT_EQ(plain.shown, parsed.shown) << show(typed);
                    ++(plain.outcome.escaped ? refused : taken);
                }
    er_SubSystemLoggingLevel = saved;
    EXPECT_GT(taken, 100);
    EXPECT_GT(refused, 100);
    EXPECT_EQ(conv("Smith/Sales,London/organization=Acme").shown, "Smith||||Sales|London|||Acme");
    EXPECT_TRUE(conv("Smith/Sales/surname=Jones").outcome.is(100, 4635));
}

// The typical request: converted, checked as a new user's name, shown.
TEST(TypicalRequest, ConvertValidateAndShow) {
    Conv r = conv("John Smith/Sales,London/organization=Acme/utf8Surname=Sm\xC3\xAFth");
    const std::string tf = testkit::packed(r.shown);
    EXPECT_EQ(r.shown, g1("Smith|John|||Sales|London|||Acme") + "#Sm\xC3\xAFth");
    EXPECT_EQ(cl_ValidateORNFields(tf.c_str(), 3), 1);
    ccs_Descriptor utf8 = charset("UTF8"), latin1 = charset("ISO8859-1");
    EXPECT_STREQ(cl_FormatFullName(tf.c_str(), &utf8), "John Smith /Sales,London/Acme/utf8Surname=Sm\xC3\xAFth");
    EXPECT_STREQ(cl_FormatFullName(tf.c_str(), &latin1), "John Smith /Sales,London/Acme/utf8Surname=Sm\xEFth");
}

}  // namespace
