// Field arrays as directory-attribute text, and attribute lists (native and
// ascii-encoded) read back into packed text, with the round trip through
// the ascii-encoded formatter for many generated names.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "da.h"
#include "os.h"
#include "testkit.hpp"

namespace {

using testkit::show;

struct Array {
    char **slots = nullptr;
    Array() { cl_UnPackToLargeArray("", &slots); }
    ~Array() { cl_FreeArray(slots); }
    void set(int field, const std::string &value) {
        os_free(slots[field]);
        slots[field] = os_strdup(value.c_str());
    }
    std::string packed() const {
        std::string out(65536, '\0');
        cl_ORNArray2Tf(slots, out.data());
        return out.c_str();
    }
};

std::string array_to_da(const Array &a, int numeric) {
    char *text = cl_ArrayToDA(a.slots, numeric);
    std::string copy = text;
    os_free(text);
    return copy;
}

std::string local_name(int field) { return da_AttribNumberToLocName(da_nmFieldNum2DANum(field)); }

TEST(ArrayToDA, NamedAndNumericForms) {
    Array empty;
    EXPECT_EQ(array_to_da(empty, 0), "");
    EXPECT_EQ(array_to_da(empty, 1), "");

    Array a;
    a.set(0, "Smith");
    EXPECT_EQ(array_to_da(a, 0), local_name(0) + "=Smith");
    EXPECT_EQ(show(array_to_da(a, 1)), "100|Smith");
    a.set(33, "a/b=c");  // written unchanged
    EXPECT_EQ(array_to_da(a, 0), "surname=Smith/title=a/b=c");
    EXPECT_EQ(show(array_to_da(a, 1)), "100|Smith\\x1E133|a/b=c");
}

TEST(ArrayToDA, SpecialValuesAreConverted) {
    Array a;
    a.set(130, "rfc822=a@b");
    a.set(160, "plain");
    int n = 0;
    std::string psap = da_PSAPConvAttToTF("NS+0102", -1, &n);
    a.set(35, psap);
    EXPECT_EQ(array_to_da(a, 0), "presentationAddress=NS+0102/internetAddress=rfc822=a@b/conversionValue=plain");
    EXPECT_EQ(show(array_to_da(a, 1)), "28|S:NS+0102\\x1E230|rfc822=a@b\\x1E410|S:plain");
}

TEST(ArrayToDA, TheCallersTextSurvivesTheNextCall) {
    Array a;
    a.set(1, "John");
    char *first = cl_ArrayToDA(a.slots, 0);
    a.set(2, "Q");
    char *second = cl_ArrayToDA(a.slots, 0);
    EXPECT_STREQ(first, "givenName=John");
    EXPECT_STREQ(second, "givenName=John/initials=Q");
    os_free(first);
    os_free(second);
}

struct Read {
    testkit::Outcome outcome;
    std::string shown;
};

Read read_list(void (*fn)(const char *, char *), const std::string &text) {
    Read r;
    std::string out(65536, '\xAA');
    const char *t = text.c_str();
    char *o = out.data();
    r.outcome = testkit::run([&] { fn(t, o); });
    if (!r.outcome.escaped) r.shown = show(out.c_str());
    return r;
}

TEST(AttributeLists, SyntaxErrorsInBothForms) {
    struct Case {
        const char *text;
        int reason;
    };
    const Case cases[] = {
        {"/surname=x", 4632}, {"surname=x//title=y", 4632}, {"surname", 4633}, {"surname=x/title", 4633},
        {"surname=", 4628},   {"surname=/title=y", 4628},   {"surname=a=b", 4629}, {"=x", 4631},
        {"surname=x/=y", 4631},
    };
    for (auto fn : {cl_NativeToTF, cl_AsciiEncodedToTF})
        for (const Case &c : cases) EXPECT_TRUE(read_list(fn, c.text).outcome.is(100, c.reason)) << c.text;
    EXPECT_TRUE(read_list(cl_AsciiEncodedToTF, "surname=\\").outcome.is(100, 4628));
}

TEST(AttributeLists, EntriesIntoFields) {
    struct Case {
        const char *text;
        const char *expected;
    };
    const Case cases[] = {
        {"", ""},
        {"surname=Smith/givenName=John", "Smith|John"},
        {"surname=Smith/givenName=John/", "Smith|John"},
        {"nosuch=1/surname=Smith/nosuch2=2", "Smith"},    // unknown names are skipped
        {"SURNAME=Smith/101=John", "Smith|John"},          // any case, or the number
        {"surname=a/surname=b", "b"},                      // the later value wins
    };
    for (auto fn : {cl_NativeToTF, cl_AsciiEncodedToTF}) {
        for (const Case &c : cases) {
            Read r = read_list(fn, c.text);
            ASSERT_FALSE(r.outcome.escaped) << c.text << " " << r.outcome.reason;
            EXPECT_EQ(r.shown, c.expected) << c.text;
        }
        // The longest local name is read; one over the name storage is
        // unknown and skipped.
        Array expected;
        expected.set(92, "x");
        EXPECT_EQ(read_list(fn, local_name(92) + "=x").shown, show(expected.packed()));
        EXPECT_EQ(read_list(fn, std::string(80, 'n') + "=x/surname=y").shown, "y");
    }
}

TEST(AttributeLists, BackslashOnlyInTheAsciiEncodedForm) {
    EXPECT_EQ(read_list(cl_AsciiEncodedToTF, "surname=a\\/b\\=c\\\\d").shown, "a/b=c\\d");
    EXPECT_EQ(read_list(cl_AsciiEncodedToTF, "sur\\name=x").shown, "x");
    EXPECT_EQ(read_list(cl_AsciiEncodedToTF, "surname=ab\\").shown, "ab");
    // Natively the slash ends the entry, and what follows is a new entry.
    EXPECT_EQ(read_list(cl_NativeToTF, "surname=a\\/givenName=b").shown, "a\\|b");
    EXPECT_TRUE(read_list(cl_NativeToTF, "surname=a\\/b").outcome.is(100, 4633));
}

TEST(AttributeLists, EncodedFieldsAreDecodedOnlyInTheAsciiEncodedForm) {
    const std::string text = local_name(64) + "=Sm~C3~A9th/" + local_name(1) + "=J~41";
    Array expected;
    expected.set(64, "Sm\xC3\xA9th");
    expected.set(1, "J~41");  // field 1 is not encoded
    EXPECT_EQ(read_list(cl_AsciiEncodedToTF, text).shown, show(expected.packed()));
    expected.set(64, "Sm~C3~A9th");
    EXPECT_EQ(read_list(cl_NativeToTF, text).shown, show(expected.packed()));
}

// Values with key characters, backslashes, spaces and UTF-8.
std::string random_value(std::mt19937 &rng) {
    static const char *const pieces[] = {"a", "Z", "0", " ", "/", "=", "*", "[", "]", "%", "\\", "~", "_",
                                         ".", ",", "(", ")", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "~41"};
    std::uniform_int_distribution<int> count(1, 12);
    std::uniform_int_distribution<int> pick(0, static_cast<int>(std::size(pieces)) - 1);
    std::string v;
    for (int k = count(rng); k > 0; --k) v += pieces[pick(rng)];
    return v;
}

TEST(AttributeLists, AsciiEncodedRoundTrip) {
    std::mt19937 rng(20261122);
    std::uniform_int_distribution<int> field(0, 160);
    std::uniform_int_distribution<int> fields(1, 10);
    for (int round = 0; round < 500; ++round) {
        Array a;
        for (int k = fields(rng); k > 0; --k) {
            int f = field(rng);
            if (f == 46) continue;  // the postal address writes its part separators as '%'
            a.set(f, f == 32 && k == 1 ? "*" : random_value(rng));
        }
        const std::string tf = a.packed();
        const std::string list = cl_FormatAsciiEncoded(tf.c_str());
        Read r = read_list(cl_AsciiEncodedToTF, list);
        ASSERT_FALSE(r.outcome.escaped) << list << " " << r.outcome.reason;
        ASSERT_EQ(r.shown, show(tf)) << list;
    }
}

}  // namespace
