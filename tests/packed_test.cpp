// Packed text and the 161-slot field array: unpacking, packing, the name
// library's reading of what the packer wrote, and the substitute characters.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <random>
#include <string>

#include "ccs.h"
#include "da.h"
#include "nm.h"
#include "os.h"
#include "testkit.hpp"

namespace {

using testkit::packed;
using testkit::show;
using Fields = std::map<int, std::string>;

Fields unpack(const std::string &text) {
    char **slots = nullptr;
    cl_UnPackToLargeArray(text.c_str(), &slots);
    Fields out;
    for (int i = 0; i < 161; ++i)
        if (slots[i]) out[i] = slots[i];
    cl_FreeArray(slots);
    return out;
}

std::string pack(char **slots) {
    std::string out(200000, '\xAA');
    cl_ORNArray2Tf(slots, out.data());
    return out.c_str();
}

std::string pack(const Fields &fields) {
    char **slots = nullptr;
    cl_UnPackToLargeArray("", &slots);
    for (const auto &[field, value] : fields) slots[field] = os_strdup(value.c_str());
    std::string out = pack(slots);
    cl_FreeArray(slots);
    return out;
}

const std::string kGroup1Close = std::string(31, '|') + "#";

TEST(Packed, UnpackFillsTheSlotsOfNonEmptyFields) {
    std::string spill;  // 33 fields before the first group end: the last spills into group 2
    Fields spilled = {{64, "x"}};
    for (int i = 0; i < 33; ++i) {
        spill += "f" + std::to_string(i) + (i < 32 ? "|" : "");
        spilled[i] = "f" + std::to_string(i);
    }
    struct Case {
        std::string text;
        Fields fields;
    } cases[] = {
        {"", {}},
        {"a||b", {{0, "a"}, {2, "b"}}},
        {"a#b", {{0, "a"}, {32, "b"}}},
        {"####a|b", {{128, "a"}, {129, "b"}}},
        {"#####a|b|c", {{160, "a"}}},  // fields beyond 160 are not stored
        {spill + "#x", spilled},
    };
    for (const Case &c : cases) EXPECT_EQ(unpack(packed(c.text)), c.fields) << c.text;
}

// Separators only before set slots; group 1 keeps all of its own, later
// groups drop those after their last slot (and a slot's own trailing 0x1D);
// the text ends at its last non-empty field.
TEST(Packed, PackWritesTheCanonicalSeparators) {
    struct Case {
        Fields fields;
        std::string text;
    } cases[] = {
        {{}, ""},
        {{{0, ""}, {40, ""}}, ""},
        {{{0, "Smith"}}, "Smith"},
        {{{160, "v"}}, kGroup1Close + "####v"},
        {{{32, "x"}, {64, "y"}}, kGroup1Close + "x#y"},
        {{{0, "Smith"}, {1, "Jo"}, {33, "x"}}, "Smith|Jo" + std::string(30, '|') + "#|x"},
        {{{0, "a|b"}}, "a|b"},
        {{{31, "x|"}}, std::string(31, '|') + "x"},
        {{{40, "p||"}, {64, "y"}}, kGroup1Close + "||||||||p#y"},
        {{{33, "z#"}}, kGroup1Close + "|z"},
        {{{33, "z#"}, {64, "y"}}, kGroup1Close + "|z##y"},
        {{{64, "|y"}}, kGroup1Close + "#|y"},
        {{{32, "|"}, {33, "|"}, {96, "w"}}, kGroup1Close + "##w"},
    };
    for (const Case &c : cases) {
        Fields readable;
        for (const auto &[field, value] : c.fields) readable[field] = packed(value);
        EXPECT_EQ(show(pack(readable)), c.text) << show(pack(readable));
    }
}

// Random arrays of values, packed: unpacking gives them back, packing
// again gives the same text, and the name library finds every field where
// the packer put it, with its field maps, and continues the text at the
// field after the one open at its end.
TEST(Packed, GeneratedArraysRoundTrip) {
    std::mt19937 random(29);
    for (int round = 0; round < 3000; ++round) {
        Fields fields;
        const int span = 1 + static_cast<int>(random() % 161);  // fields close together or spread out
        for (int k = static_cast<int>(random() % 24); k > 0; --k) {
            std::string value(1 + random() % (round % 2 ? 4 : 40), '\0');
            for (char &c : value) c = static_cast<char>(0x20 + random() % 0xE0);
            fields[static_cast<int>(random() % static_cast<unsigned>(span))] = value;
        }
        const std::string text = pack(fields);
        ASSERT_EQ(unpack(text), fields) << show(text);
        EXPECT_EQ(pack(unpack(text)), text);
        nm_ParsedORN parsed;
        std::memset(&parsed, 0x5A, sizeof parsed);  // nothing left from before
        int status = -1;
        nm_ParseORN(text.c_str(), &parsed, &status);
        EXPECT_EQ(status, 0);
        ASSERT_EQ(parsed.length, static_cast<int>(text.size()));
        uint32_t maps[6] = {}, got[6];
        for (int f = 0; f < NM_FIELDS; ++f) {
            int len = -1;
            const char *p = nm_GetFieldMemPtr(text.c_str(), &parsed, f, &len);
            const auto it = fields.find(f);
            const std::string want = it == fields.end() ? "" : it->second;
            ASSERT_EQ(std::string(p ? p : "", static_cast<std::size_t>(len)), want) << f << ' ' << show(text);
            if (!want.empty()) maps[f / 32] |= 1u << (f % 32);
        }
        nm_GetFieldMaps(&parsed, got);
        for (int w = 0; w < 6; ++w) EXPECT_EQ(got[w], maps[w]) << w << ' ' << show(text);
        const int open = parsed.reached - 1;
        if (open < 160) {
            std::string grown = text + std::string(8, '\0');
            nm_AddSeparators(grown.data(), open + 1);
            EXPECT_EQ(show(grown.c_str()), show(text + packed((open + 1) % 32 == 0 ? "#" : "|"))) << show(text);
        }
    }
}

// A random command-line argument: sometimes a positional part, then
// attributes of random fields (the special ones among them, and repeats).
std::string random_argument(std::mt19937 &random) {
    const char *positional[] = {"", "Smith/", "John Smith/Sales,London/", "J.R.R. Gruteda/R/", "/Sales/"};
    const char *values[] = {"a", "Acme", "x y", "\xC3\xA9t\xC3\xA9", "*", "p\\/q", "a\\=b", "1",
                            "SIMPLE:abc", "'0101'H/NS+12345"};
    const int special[] = {0, 1, 8, 9, 35, 46, 64, 96, 128, 130, 160};
    std::string text = positional[random() % 5];
    for (int k = 1 + static_cast<int>(random() % 5); k > 0; --k) {
        int field = random() % 2 ? special[random() % 11] : static_cast<int>(random() % 161);
        text += std::string(da_AttribNumberToLocName(da_nmFieldNum2DANum(field))) + "=" + values[random() % 10];
        if (k > 1) text += '/';
    }
    return text;
}

// The conversion writes its packed result from the fields as it fills them,
// without the field array: the text is what packing the array of the same
// argument gives, and both ways refuse the same arguments.
TEST(Packed, ConversionPacksWhatItsArrayPacks) {
    std::mt19937 random(5);
    ccs_Descriptor utf8;
    ASSERT_EQ(ccs_GetCSDescriptor("UTF8", &utf8), 1);
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

TEST(Packed, SubstituteCharactersBothWays) {
    char text[] = "a b.c/d,e(f)g=h#_\xC3\xA9";
    cl_ConvertToSpecialChar(text);
    EXPECT_STREQ(text, "a_b!c|d;e{f}g=h#_\xC3\xA9");
    cl_ConvertSpecialChar(text);
    EXPECT_STREQ(text, "a b.c/d,e(f)g=h# \xC3\xA9");  // a real '_' comes back as a space
    char empty[] = "";
    cl_ConvertToSpecialChar(empty);
    EXPECT_STREQ(empty, "");
}

}  // namespace
