// Command-line conversion: positional part, attribute part, the field
// checks, escapes of every kind (released memory checked by the sanitizer
// build), the wrappers, and the typical request from end to end.
#include <gtest/gtest.h>

#include <string>

#include "ccs.h"
#include "da.h"
#include "nm.h"
#include "testkit.hpp"

namespace {

using testkit::packed;
using testkit::show;

std::string g1(const std::string &fields0to30) {
    // Group 1 written with all its separators, then its closing byte.
    std::string s = fields0to30;
    int seps = 0;
    for (char c : s) seps += c == '|';
    return s + std::string(static_cast<std::size_t>(31 - seps), '|') + "#";
}

struct Conv {
    testkit::Outcome outcome;
    std::string shown;  // the packed result, 0x1D as '|' and 0x17 as '#'
    std::string text;   // the caller's text afterwards
};

struct Options {
    int allowMarker = 0;
    int mailNodeForm = 0;
    const char *charset = "UTF8";
};

Conv conv(const std::string &typed, Options o = {}) {
    Conv r;
    std::string text = typed;
    std::string out(32768, '\xAA');
    ccs_Descriptor cs{};
    EXPECT_EQ(ccs_GetCSDescriptor(o.charset, &cs), 1);
    char *t = text.data();
    char *buf = out.data();
    char *volatile returned = nullptr;
    r.outcome = testkit::run([&] { returned = static_cast<char *>(cl_MainConvCltoORN(t, buf, 0, o.allowMarker, &cs, 0, o.mailNodeForm)); });
    if (!r.outcome.escaped) {
        EXPECT_EQ(returned, buf);
        r.shown = show(out.c_str());
    }
    r.text = text.c_str();
    return r;
}

std::string full_orn(const std::string &typed) {
    std::string text = typed;
    std::string out(8192, '\0');
    int errIndex = 0;
    cl_ParseFullOrn2(text.data(), out.data(), &errIndex, 0);
    return show(out.c_str());
}

TEST(ConvCltoORN, WithoutAttributesTheOutputIsThePositionalParsers) {
    for (const char *typed : {"John Smith/Sales,London", "Smith", "Smith/Sales/val8", "Smith//val8(ref|x)",
                              "J.R. Smith Jr./A,B,C,D"}) {
        Conv r = conv(typed);
        ASSERT_FALSE(r.outcome.escaped) << typed << " " << r.outcome.reason;
        EXPECT_EQ(r.shown, full_orn(typed)) << typed;
    }
    EXPECT_EQ(conv("John Smith/Sales,London").shown, "Smith|John|||Sales|London||");
}

TEST(ConvCltoORN, AttributesFillFurtherFields) {
    struct Case {
        const char *typed;
        std::string expected;
    };
    const Case cases[] = {
        {"John Smith/Sales,London/organization=Acme", "Smith|John|||Sales|London|||Acme"},
        {"title=Head/organization=Acme", g1("||||||||Acme") + "|Head"},  // no positional part
        {"Smith/TITLE=Head", g1("Smith") + "|Head"},                      // names in any case
        {"Smith/133=Head", g1("Smith") + "|Head"},                        // or the number
        {"/Sales/surname=Jones", "Jones||||Sales"},                       // empty positional surname
        {"Smith/title=Head/", g1("Smith") + "|Head"},                     // trailing '/'
        {"Smith/title=a\\/b\\=c\\\\", g1("Smith") + "|a/b=c\\"},          // escaped in a value
        {"Smith/postalAddress=Main St%10", g1("Smith") + "||||||||||||||Main St\\x1810"},
        {"Smith/conversionValue=S:abc", g1("Smith") + "#" + "#" + "#" + "#abc"},
        {"Smith/internetAddress=rfc822=a@b", g1("Smith") + "###||rfc822=a@b"},
        {"Smith/internetAddress=rfc822\\=a@b", g1("Smith") + "###||rfc822=a@b"},
        {"Smith/utf8Surname=Sm\xC3\xA9th", g1("Smith") + "#Sm\xC3\xA9th"},  // character-set field
    };
    for (const Case &c : cases) {
        Conv r = conv(c.typed);
        ASSERT_FALSE(r.outcome.escaped) << c.typed << " " << r.outcome.reason;
        EXPECT_EQ(r.shown, c.expected) << c.typed;
    }
}

TEST(ConvCltoORN, PresentationAddressIsStoredInItsPackedForm) {
    Conv r = conv("Smith/presentationAddress=NS+0102");
    ASSERT_FALSE(r.outcome.escaped) << r.outcome.reason;
    int n = 0;
    EXPECT_EQ(r.shown, g1("Smith") + "|||" + show(da_PSAPConvAttToTF("NS+0102", -1, &n)));
}

TEST(ConvCltoORN, FieldChecksAndTheirReasons) {
    struct Case {
        const char *typed;
        int allowMarker;
        int reason;
    };
    const Case cases[] = {
        {"Smith/nosuch=x", 0, 4634},
        {"Smith/title=a/nosuch=x", 0, 4634},
        {"Smith/surname=Jones", 0, 4635},  // set by the positional part
        {"title=a/TITLE=b", 0, 4635},
        {"title=a/133=b", 0, 4635},
        {"Smith/Sales/organization=Acme", 0, 0},
        {"Smith/Sales/x/organization=Acme", 0, 4635},
        {"Smith/title=a\tb", 0, 4636},
        {"Smith/title=a\x1F", 0, 4636},   // a typed marker byte without allowMarker
        {"Smith/title=a[b]", 0, 4636},    // unescaped brackets
        {"Smith/title=50%", 0, 4636},     // '%' is 0x18 outside the postal address
        {"Smith/title=a=b", 0, 4636},     // a second '=' outside the IA value
        // Values of known fields keep their field's rule, as positional values do.
        {"Ann Lee/Sales,London/ou3=Customer_Relations_and_Support_Europe", 0, 4806},
        {"Smith/country=ZZZZ", 0, 4809},
        {"Smith/country=zz", 0, 0},
        {"Smith/organization=Ac!me", 0, 4808},
        {"Smith/organization=Ac.me (UK)", 0, 0},
        {"Smith/organization=0123456789012345678901234567890123456789012345678901234567890123", 0, 0},
        {"Smith/organization=01234567890123456789012345678901234567890123456789012345678901234", 0, 4808},
        {"Smith/organization=Ac!\tme", 0, 4636},  // the conversion's own reason comes first
        {"Smith/networkAddress=1234567890123456", 0, 0},
        {"Smith/networkAddress=12345678901234567", 0, 4812},
        {"Smith/ext1Type=abcdefghi", 0, 4815},
        {"Smith/utf8Surname=Sm\xC3\xA9th\t", 0, 4864},     // control bytes of character-set text
        {"Smith/utf8Surname=a\xC2\x85", 0, 4864},          // a C1 control character
        {"Smith/utf8Surname=\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9"
         "\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9", 0, 0},  // 20 characters, 40 bytes
        {"Smith/organization=Acme*", 1, 0},   // a trailing marker, as in a positional value
        {"Smith/organization=Ac*me", 1, 4808},
        {"/Sales/surname=S*th", 1, 0},       // markers anywhere in a personal name
        {"Smith/title=a*b", 1, 0},
        {"Smith/title=a\\[b\\]\\%", 0, 0},
        {"Smith/title=", 0, 4653},
        {"Smith/title=x/foo", 0, 4651},
        {"=x", 0, 4652},
        {"Smith/presentationAddress=nonsense", 0, 4671},
        {"Smith, John/title=x", 0, 8011},  // the positional parser's own
        {"", 0, 30002},
        {"Sm\xE9th", 0, 30003},
        {"a\x1E" "b", 0, 30003},
    };
    for (const Case &c : cases) {
        Options o;
        o.allowMarker = c.allowMarker;
        Conv r = conv(c.typed, o);
        if (c.reason == 0) {
            EXPECT_FALSE(r.outcome.escaped) << show(c.typed) << " " << r.outcome.reason;
        } else {
            EXPECT_TRUE(r.outcome.is(100, c.reason)) << show(c.typed) << " gave " << r.outcome.group << "/"
                                                     << r.outcome.reason;
        }
        EXPECT_FALSE(r.outcome.pending_after);
    }
}

// A value of a standard attribute typed positionally and as an attribute:
// both forms are accepted, and store the same value, or both are refused.
// The values are drawn at random (a fixed seed) around the bounds, from
// PrintableString and bytes outside it.
TEST(ConvCltoORN, PositionalAndAttributeFormsAgree) {
    const std::string alphabet = "aZ09 '()+,-./:=?" "@#&~<>*[]%\\\t" "\xC3\xA9";
    unsigned seed = 12345;
    auto next = [&seed](unsigned n) {
        seed = seed * 1103515245u + 12345u;
        return (seed >> 16) % n;
    };
    // The field of the name that typed converts to; "" when it was refused.
    auto converted = [](const std::string &typed, int field, bool *accepted) {
        std::string text = typed, out;
        char *t = text.data();
        char **volatile array = nullptr;
        testkit::Outcome o = testkit::run([&] { array = cl_ConvCltoArray(t, nullptr, 0, 0, nullptr); });
        *accepted = !o.escaped;
        if (o.escaped) return out;
        if (array[field]) out = array[field];
        cl_FreeArray(array);
        return out;
    };
    int accepted = 0, refused = 0;
    for (int i = 0; i < 3000; ++i) {
        const int field = 8 + static_cast<int>(next(7));
        int max = 0;
        nm_FieldRule(field, &max);
        const unsigned length = 1 + next(static_cast<unsigned>(max) + 2);
        std::string value;
        for (unsigned k = 0; k < length; ++k) {
            const bool odd = next(8) == 0;
            value += odd ? alphabet[next(static_cast<unsigned>(alphabet.size()))]
                         : (field == 12 || field == 14 || (field == 9 && length == 3)) ? static_cast<char>('0' + next(10))
                                                                                        : "abcXYZ"[next(6)];
        }
        if (value.front() == '\t') value.front() = 'a';  // a positional value loses white space
        if (value.back() == '\t') value.back() = 'a';    // at its ends
        std::string positional = "Ann Lee/Sales" + std::string(static_cast<std::size_t>(field - 7), '/');
        std::string attribute = "Ann Lee/Sales/" + std::string(da_AttribNumberToLocName(da_nmFieldNum2DANum(field))) + "=";
        for (char c : value) {
            const std::size_t sub = std::string(" ./,()").find(c);
            positional += sub != std::string::npos ? "_!|;{}"[sub] : c;
            if (std::string("=[]%*\\/").find(c) != std::string::npos) {
                positional.insert(positional.size() - 1, 1, '\\');
                attribute += '\\';
            }
            attribute += c;
        }
        bool byPosition = false, byAttribute = false;
        const std::string a = converted(positional, field, &byPosition);
        const std::string b = converted(attribute, field, &byAttribute);
        EXPECT_EQ(byPosition, byAttribute) << show(positional.c_str()) << " / " << show(attribute.c_str());
        if (byPosition && byAttribute) {
            EXPECT_EQ(a, value) << show(positional.c_str());
            EXPECT_EQ(b, value) << show(attribute.c_str());
        }
        (byPosition ? accepted : refused)++;
    }
    EXPECT_GT(accepted, 300);  // both outcomes are well represented
    EXPECT_GT(refused, 300);
}

TEST(ConvCltoORN, MarkerOnlyWithAllowMarker) {
    Options marker;
    marker.allowMarker = 1;
    EXPECT_EQ(conv("Smith/title=a*b", marker).shown, g1("Smith") + "|a\\x1Fb");
    EXPECT_EQ(conv("Smith/title=a*b").shown, g1("Smith") + "|a*b");
    EXPECT_EQ(conv("Smith/title=a\\*b", marker).shown, g1("Smith") + "|a*b");
    EXPECT_EQ(conv("Sm*/title=x", marker).shown, g1("Sm\\x1F") + "|x");
}

TEST(ConvCltoORN, EscapedDelimitersOfTheFirstSegment) {
    Conv comma = conv("Smith\\,John/Sales");
    EXPECT_EQ(comma.shown, "Smith,John||||Sales|||");
    EXPECT_EQ(comma.text, "Smith\\;John/Sales");  // the caller's text keeps the substitute
    EXPECT_EQ(conv("Mary\\ Ann Smith").shown, "Smith|Mary Ann||||||");
    EXPECT_EQ(conv("Smith\\/x/Sales").shown, "Smith/x||||Sales|||");
    Conv equals = conv("a\\=b");
    EXPECT_TRUE(equals.outcome.is(100, 8013));  // '#' reaches the parser
    EXPECT_EQ(equals.text, "a\\#b");
    // Later segments leave the backslash to the transformation: an escaped
    // '=' there is a plain character and starts no attribute part.
    Conv later = conv("Smith/Sales\\=x");
    EXPECT_EQ(later.shown, "Smith||||Sales=x|||");
    EXPECT_EQ(later.text, "Smith/Sales\\=x");
}

TEST(ConvClMntoORN, MailNodeForm) {
    Options mn;
    mn.mailNodeForm = 1;
    EXPECT_EQ(conv("Sales,London//", mn).shown, "||||Sales|London");
    EXPECT_EQ(conv("Sales,London", mn).shown, "||||Sales|London");
    EXPECT_EQ(conv("Sales/x", mn).shown, "||||Sales||||x");
    EXPECT_EQ(conv("Sales,London/organization=Acme", mn).shown, "||||Sales|London|||Acme");
    EXPECT_TRUE(conv("Sales/ou1=x", mn).outcome.is(100, 4635));

    std::string text(4095, 'x');
    ccs_Descriptor cs{};
    ccs_GetCSDescriptor("UTF8", &cs);
    std::string out(8192, '\0');
    cl_ConvClMntoORN(text.data(), out.data(), 0, 0, &cs);
    EXPECT_EQ(std::string(out.c_str()), "\x1D\x1D\x1D\x1D" + std::string(4095, 'x'));
    EXPECT_TRUE(conv(std::string(4096, 'x'), mn).outcome.is(100, 9801));
    // A long attribute name is no positional text.
    EXPECT_TRUE(conv(std::string(5000, 'x') + "=y", mn).outcome.is(100, 4634));
}

struct ArrayResult {
    testkit::Outcome outcome;
    char **array = nullptr;
};

ArrayResult to_array(const std::string &typed) {
    ArrayResult r;
    std::string text = typed;
    char *t = text.data();
    char **volatile array = nullptr;
    r.outcome = testkit::run([&] { array = cl_ConvCltoArray(t, nullptr, 0, 0, nullptr); });
    r.array = array;
    return r;
}

TEST(ConvCltoArray, ArraysOnBothPaths) {
    ArrayResult positional = to_array("John Smith/Sales");
    ASSERT_NE(positional.array, nullptr);
    EXPECT_STREQ(positional.array[0], "Smith");
    EXPECT_STREQ(positional.array[1], "John");
    EXPECT_STREQ(positional.array[4], "Sales");
    EXPECT_EQ(positional.array[2], nullptr);
    cl_FreeArray(positional.array);

    ArrayResult attrs = to_array("Smith/title=Head/conversionValue=S:v");
    ASSERT_NE(attrs.array, nullptr);
    EXPECT_STREQ(attrs.array[0], "Smith");
    EXPECT_STREQ(attrs.array[33], "Head");
    EXPECT_STREQ(attrs.array[160], "v");
    cl_FreeArray(attrs.array);

    EXPECT_TRUE(to_array("Smith/title=a/title=b").outcome.is(100, 4635));
}

std::string to_da(const std::string &typed, int numeric, int mailNodeForm = 0) {
    std::string text = typed;
    std::string out(4096, '\0');
    if (mailNodeForm)
        cl_ConvClMntoDa(text.data(), out.data(), 0, 0, numeric, nullptr);
    else
        cl_ConvCltoDa(text.data(), out.data(), 0, 0, numeric, nullptr);
    return out.c_str();
}

TEST(ConvCltoDa, NamedAndNumericText) {
    EXPECT_EQ(to_da("John Smith/Sales/title=Head", 0), "surname=Smith/givenName=John/ou1=Sales/title=Head");
    EXPECT_EQ(show(to_da("John Smith/Sales/title=Head", 1)),
              "100|Smith\\x1E101|John\\x1E104|Sales\\x1E133|Head");
    EXPECT_EQ(to_da("Sales,London", 0, 1), "ou1=Sales/ou2=London");
    EXPECT_EQ(to_da("Smith/internetAddress=a=b", 0), "surname=Smith/internetAddress=a=b");
}

// The typical request: converted, checked as a new user's name, shown.
TEST(TypicalRequest, ConvertValidateAndShow) {
    std::string text = "John Smith/Sales,London/organization=Acme/utf8Surname=Sm\xC3\xAFth";
    std::string out(4096, '\0');
    ccs_Descriptor cs{};
    ASSERT_EQ(ccs_GetCSDescriptor("UTF8", &cs), 1);
    volatile int mailNode = -1;
    auto outcome = testkit::run([&] {
        cl_ConvCltoORN(text.data(), out.data(), 0, 0, &cs);
        mailNode = cl_ValidateORNFields(out.c_str(), 3);
    });
    ASSERT_FALSE(outcome.escaped) << outcome.group << "/" << outcome.reason;
    EXPECT_EQ(show(out.c_str()), g1("Smith|John|||Sales|London|||Acme") + "#" + "Sm\xC3\xAFth");
    EXPECT_EQ(mailNode, 1);
    EXPECT_STREQ(cl_FormatFullName(out.c_str(), &cs), "John Smith /Sales,London/Acme/utf8Surname=Sm\xC3\xAFth");
    ccs_Descriptor latin1{};
    ASSERT_EQ(ccs_GetCSDescriptor("ISO8859-1", &latin1), 1);
    EXPECT_STREQ(cl_FormatFullName(out.c_str(), &latin1), "John Smith /Sales,London/Acme/utf8Surname=Sm\xEFth");

    // The same name typed on a Latin-1 terminal gives the same packed text.
    std::string typedLatin1 = "John Smith/Sales,London/organization=Acme/utf8Surname=Sm\xEFth";
    std::string out2(4096, '\0');
    cl_ConvCltoORN(typedLatin1.data(), out2.data(), 0, 0, &latin1);
    EXPECT_EQ(std::string(out2.c_str()), std::string(out.c_str()));

    // A name without a mail node is refused for a new user.
    std::string noNode = "John Smith/title=Head";
    auto refused = testkit::run([&] {
        cl_ConvCltoORN(noNode.data(), out.data(), 0, 0, &cs);
        cl_ValidateORNFields(out.c_str(), 3);
    });
    EXPECT_TRUE(refused.is(100, 8119)) << refused.reason;
}

}  // namespace
