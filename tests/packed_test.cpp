// Packed text, the field array and the substitute characters.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "testkit.hpp"

namespace {

using testkit::packed;
using testkit::show;

struct Array {
    char **slots = nullptr;
    explicit Array(const std::string &tf) { cl_UnPackToLargeArray(tf.c_str(), &slots); }
    ~Array() { cl_FreeArray(slots); }
    const char *operator[](int i) const { return slots[i]; }
    int count() const {
        int n = 0;
        for (int i = 0; i < 161; ++i) n += slots[i] != nullptr;
        return n;
    }
};

std::string pack(char **slots) {
    std::string out(200000, '\xAA');
    cl_ORNArray2Tf(slots, out.data());
    return out.c_str();
}

TEST(Unpack, EmptyTextGivesAllNullAndPacksBackEmpty) {
    Array a("");
    EXPECT_EQ(a.count(), 0);
    EXPECT_EQ(pack(a.slots), "");
}

TEST(Unpack, EmptyFieldsStayNull) {
    Array a(packed("a||b"));
    EXPECT_STREQ(a[0], "a");
    EXPECT_EQ(a[1], nullptr);
    EXPECT_STREQ(a[2], "b");
    EXPECT_EQ(a.count(), 2);
}

TEST(Unpack, GroupCloseJumpsToTheNextGroup) {
    Array a(packed("a#b"));
    EXPECT_STREQ(a[0], "a");
    EXPECT_STREQ(a[32], "b");
    EXPECT_EQ(a.count(), 2);
}

TEST(Unpack, ThirtyThreeFieldsBeforeTheCloseSpillIntoGroupTwo) {
    std::string text;
    for (int i = 0; i < 33; ++i) text += "f" + std::to_string(i) + (i < 32 ? "|" : "");
    text += "#x";
    Array a(packed(text));
    EXPECT_STREQ(a[31], "f31");
    EXPECT_STREQ(a[32], "f32");
    EXPECT_STREQ(a[64], "x");
    EXPECT_EQ(a.count(), 34);
}

TEST(Unpack, FieldsBeyond160AreNotStored) {
    Array a(packed("####a|b"));
    EXPECT_STREQ(a[128], "a");
    EXPECT_STREQ(a[129], "b");
    Array beyond(packed("#####a|b|c"));
    EXPECT_STREQ(beyond[160], "a");
    EXPECT_EQ(beyond.count(), 1);
}

TEST(Pack, SlotsWrittenWithTheCanonicalSeparators) {
    Array a("");
    a.slots[160] = strdup("v");
    EXPECT_EQ(show(pack(a.slots)), std::string(31, '|') + "#####v");

    Array b("");
    b.slots[32] = strdup("x");
    b.slots[64] = strdup("y");
    EXPECT_EQ(show(pack(b.slots)), std::string(31, '|') + "#x#y");

    Array c("");
    c.slots[0] = strdup("Smith");
    c.slots[1] = strdup("Jo");
    c.slots[33] = strdup("x");
    EXPECT_EQ(show(pack(c.slots)), "Smith|Jo" + std::string(30, '|') + "#|x");

    Array d("");
    d.slots[0] = strdup("Smith");
    EXPECT_EQ(pack(d.slots), "Smith");
}

TEST(Pack, SpilledSeparatorsInASlotAreWrittenAsTheyStand) {
    Array a("");
    a.slots[0] = strdup("a\x1D" "b");
    Array back(pack(a.slots));
    EXPECT_STREQ(back[0], "a");
    EXPECT_STREQ(back[1], "b");
}

// Random arrays of printable values survive packing and unpacking.
TEST(Pack, RoundTripOverGeneratedArrays) {
    std::mt19937 rng(20261122);
    std::uniform_int_distribution<int> field(0, 160), length(1, 40), byte(0x20, 0xFF), count(0, 30);
    for (int round = 0; round < 2000; ++round) {
        Array a("");
        int n = count(rng);
        for (int k = 0; k < n; ++k) {
            int f = field(rng);
            std::string value;
            for (int i = length(rng); i > 0; --i) value += static_cast<char>(byte(rng));
            free(a.slots[f]);
            a.slots[f] = strdup(value.c_str());
        }
        std::string tf = pack(a.slots);
        Array back(tf);
        for (int i = 0; i < 161; ++i) {
            if (a[i]) {
                ASSERT_NE(back[i], nullptr) << "field " << i << " of round " << round;
                ASSERT_STREQ(back[i], a[i]);
            } else {
                ASSERT_EQ(back[i], nullptr) << "field " << i << " of round " << round;
            }
        }
        EXPECT_EQ(pack(back.slots), tf);  // packing is stable
    }
}

TEST(SpecialChar, MapsBothWaysAndLeavesOtherBytes) {
    char text[] = "a b.c/d,e(f)g=h#\xC3\xA9";
    cl_ConvertToSpecialChar(text);
    EXPECT_STREQ(text, "a_b!c|d;e{f}g=h#\xC3\xA9");
    cl_ConvertSpecialChar(text);
    EXPECT_STREQ(text, "a b.c/d,e(f)g=h#\xC3\xA9");
}

TEST(SpecialChar, RealUnderscoreBecomesASpaceAndEmptyStaysEmpty) {
    char text[] = "a_b";
    cl_ConvertSpecialChar(text);
    EXPECT_STREQ(text, "a b");
    char empty[] = "";
    cl_ConvertToSpecialChar(empty);
    EXPECT_STREQ(empty, "");
}

}  // namespace
