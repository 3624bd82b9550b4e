// The attribute of every O/R name field 0 to 160: its number, internal tag
// (the number in decimal) and local display name.
//
// Group 1 follows X.400 (X.402): personal name, organizational units, the
// positional standard attributes and the extension attributes. Fields 64 to
// 127 are the UTF-8 counterparts of 0 to 63 and take the name of their
// partner with the prefix "utf8". Attribute numbers are 100 + field, except
// the PSAP address (28) and the CV value (410), whose numbers the special
// entries carry.
//
// The table and its hashed index of local names are built at compile time.
// Short cut: a name is found through the index; the plain behaviour it
// stands for is a case-insensitive comparison with every name in field order.
#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "da.h"
#include "da_internal.hpp"

namespace da {
namespace {

constexpr int kFields = ORN_FIELDS;

constexpr std::array<std::string_view, ORN_COUNTERPART> kBaseNames = {
    // 0 - 31: group 1
    "surname", "givenName", "initials", "generation", "ou1", "ou2", "ou3", "ou4",
    "organization", "country", "admd", "prmd", "networkAddress", "terminalId", "numericUserId",
    "ext1Type", "ext1Value", "ext2Type", "ext2Value", "ext3Type", "ext3Value", "ext4Type", "ext4Value",
    "terminalType", "pdsName", "postalCode", "postalCountry", "postalOrganization",
    "postalPersonalName", "postOfficeName", "postOfficeNumber", "streetAddress",
    // 32 - 63: group 2
    "commonName", "title", "description", "presentationAddress", "telephone", "fax", "telex",
    "mobile", "pager", "room", "employeeNumber", "employeeType", "department", "location",
    "postalAddress", "postOfficeBox", "street", "city", "state", "zipCode", "secretary", "manager",
    "homePhone", "homeAddress", "nickname", "preferredLanguage", "userClass", "businessCategory",
    "seeAlso", "note1", "note2", "note3"};

// Bytes a local name and its terminator fit in; the longest is "utf8" +
// "PostalPersonalName" (22). A typed name this long or longer is none.
constexpr std::size_t kNameBytes = 24;
constexpr std::size_t kNameWords = kNameBytes / 8;

struct Attribute {
    int number;
    char tag[8];              // decimal number
    std::size_t tagLength;
    char name[kNameBytes];    // local name, NUL-padded
    char folded[kNameBytes];  // the local name folded to lower case, NUL-padded
};

constexpr int number_of(int field) {
    if (field == ORN_PSAP) return 28;
    if (field == ORN_CV) return 410;
    return 100 + field;
}

// Local names in any case, by ASCII letters (as strcasecmp compares them
// in the C locale).
constexpr unsigned char fold(char c) {
    auto u = static_cast<unsigned char>(c);
    return u >= 'A' && u <= 'Z' ? static_cast<unsigned char>(u + ('a' - 'A')) : u;
}

constexpr std::array<char, 256> make_fold_table() {
    std::array<char, 256> t{};
    for (int b = 0; b < 256; ++b) t[static_cast<std::size_t>(b)] = static_cast<char>(fold(static_cast<char>(b)));
    return t;
}
constexpr std::array<char, 256> kFold = make_fold_table();

// A folded name as words, read in the machine's byte order so that the
// words the table was built with are the words read at run time.
constexpr std::uint64_t word_at(const char *bytes, std::size_t w) {
    std::uint64_t v = 0;
    for (std::size_t i = 0; i < 8; ++i) {
        auto b = static_cast<std::uint64_t>(static_cast<unsigned char>(bytes[w * 8 + i]));
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
        v |= b << (8 * (7 - i));
#else
        v |= b << (8 * i);
#endif
    }
    return v;
}

// The hashed index of local names: open addressing with linear probing, in
// more than six times as many slots as names, so a probe ends after a slot
// or two. The hash mixes the words of the folded name.
constexpr std::size_t kSlots = 1024;
constexpr int kSlotBits = 10;
static_assert(kSlots >= 4 * kFields && kSlots == std::size_t{1} << kSlotBits);
constexpr short kEmptySlot = -1;

constexpr std::size_t slot_of(std::uint64_t w0, std::uint64_t w1, std::uint64_t w2) {
    std::uint64_t h = (w0 * 0x9E3779B97F4A7C15ULL) ^ (w1 * 0xC2B2AE3D27D4EB4FULL) ^ (w2 * 0x165667B19E3779F9ULL);
    return static_cast<std::size_t>((h ^ (h >> 29)) * 0xBF58476D1CE4E5B9ULL >> (64 - kSlotBits));
}
static_assert(kNameWords == 3, "slot_of mixes three words");

struct Table {
    Attribute attrs[kFields]{};
    short by_name[kSlots]{};
};

constexpr void put(char *to, std::size_t &at, std::string_view text) {
    for (char c : text) to[at++] = c;
}

constexpr void put_number(char *to, std::size_t &at, int n) {
    char digits[8]{};
    std::size_t count = 0;
    do {
        digits[count++] = static_cast<char>('0' + n % 10);
        n /= 10;
    } while (n > 0);
    while (count > 0) to[at++] = digits[--count];
}

constexpr Table make_table() {
    Table t{};
    for (short &s : t.by_name) s = kEmptySlot;
    for (int f = 0; f < kFields; ++f) {
        Attribute &a = t.attrs[f];
        a.number = number_of(f);
        std::size_t at = 0;
        put_number(a.tag, at, a.number);
        a.tagLength = at;
        at = 0;
        if (f < ORN_COUNTERPART) {
            put(a.name, at, kBaseNames[static_cast<std::size_t>(f)]);
        } else if (f <= ORN_LAST_TEXT) {
            std::string_view base = kBaseNames[static_cast<std::size_t>(f - ORN_COUNTERPART)];
            put(a.name, at, "utf8");
            a.name[at++] = static_cast<char>(base[0] - 'a' + 'A');
            put(a.name, at, base.substr(1));
        } else if (f == ORN_DISPLAY_NAME) {
            put(a.name, at, "displayName");
        } else if (f == ORN_ALTERNATE_NAME) {
            put(a.name, at, "alternateName");
        } else if (f == ORN_IA) {
            put(a.name, at, "internetAddress");
        } else if (f == ORN_CV) {
            put(a.name, at, "conversionValue");
        } else {
            put(a.name, at, "field");
            put_number(a.name, at, f);
        }
        for (std::size_t i = 0; i < kNameBytes; ++i) a.folded[i] = kFold[static_cast<unsigned char>(a.name[i])];
        std::size_t slot = slot_of(word_at(a.folded, 0), word_at(a.folded, 1), word_at(a.folded, 2));
        while (t.by_name[slot] != kEmptySlot) slot = (slot + 1) % kSlots;
        t.by_name[slot] = static_cast<short>(f);
    }
    return t;
}

constexpr Table kTable = make_table();

// Every local name fits its bytes with a terminator and begins with a
// letter (so no typed name is both a local name and a tag), and no two
// are equal in any case.
constexpr bool names_are_sound() {
    for (int f = 0; f < kFields; ++f) {
        const Attribute &a = kTable.attrs[f];
        if (a.name[kNameBytes - 1] != '\0' || fold(a.name[0]) < 'a' || fold(a.name[0]) > 'z') return false;
        for (int g = 0; g < f; ++g) {
            bool same = true;
            for (std::size_t w = 0; w < kNameWords; ++w)
                same = same && word_at(kTable.attrs[g].folded, w) == word_at(a.folded, w);
            if (same) return false;
        }
    }
    return true;
}
static_assert(names_are_sound());

const Attribute *by_number(int number) {
    int field = number == 28 ? ORN_PSAP : number == 410 ? ORN_CV : number - 100;
    if (field < 0 || field >= kFields || (field == ORN_PSAP && number != 28) || (field == ORN_CV && number != 410))
        return nullptr;
    return &kTable.attrs[field];
}

int field_of(const Attribute *a) { return static_cast<int>(a - kTable.attrs); }

std::uint64_t load_word(const char *bytes) {
    std::uint64_t w;
    std::memcpy(&w, bytes, sizeof w);
    return w;
}

// The attribute whose local name, folded, is in folded (NUL-padded); null
// when none. Local names are distinct in any case, so at most one matches.
const Attribute *by_folded_name(const char (&folded)[kNameBytes]) {
    const std::uint64_t w0 = load_word(folded), w1 = load_word(folded + 8), w2 = load_word(folded + 16);
    for (std::size_t slot = slot_of(w0, w1, w2); kTable.by_name[slot] != kEmptySlot; slot = (slot + 1) % kSlots) {
        const Attribute &a = kTable.attrs[kTable.by_name[slot]];
        if (load_word(a.folded) == w0 && load_word(a.folded + 8) == w1 && load_word(a.folded + 16) == w2) return &a;
    }
    return nullptr;
}

// The attribute whose local name is typed (len bytes, none of them NUL), in
// any case; null when none.
const Attribute *by_local_name(const char *typed, std::size_t len) {
    if (len == 0 || len >= kNameBytes) return nullptr;
    alignas(8) char folded[kNameBytes] = {};
    for (std::size_t i = 0; i < len; ++i) folded[i] = kFold[static_cast<unsigned char>(typed[i])];
    return by_folded_name(folded);
}

// The attribute whose internal tag is exactly the typed text (decimal, no
// sign, no leading zero); null when none. Every tag is the decimal of its
// attribute's number, so digits without a leading zero that name a number
// are its tag.
const Attribute *by_tag(const char *typed, std::size_t len) {
    constexpr std::size_t kTagMax = sizeof Attribute{}.tag - 1;
    if (len == 0 || len > kTagMax || typed[0] == '0') return nullptr;
    int number = 0;
    for (std::size_t i = 0; i < len; ++i) {
        if (typed[i] < '0' || typed[i] > '9') return nullptr;
        number = number * 10 + (typed[i] - '0');
    }
    return by_number(number);
}

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// The bytes that end the name of an entry.
constexpr std::array<bool, 256> make_name_ends() {
    std::array<bool, 256> e{};
    e[0] = e[static_cast<unsigned char>(ORN_VALUE_SEP)] = e[static_cast<unsigned char>(ORN_ENTRY_SEP)] = true;
    return e;
}
constexpr std::array<bool, 256> kNameEnds = make_name_ends();

}  // namespace


std::string_view internal_tag(const char *typed, std::size_t len) {
    const Attribute *a = len > 0 && is_digit(typed[0]) ? by_tag(typed, len) : by_local_name(typed, len);
    return a ? std::string_view(a->tag, a->tagLength) : std::string_view();
}

EntryName entry_name_tag(const char *name) {
    // The name folded as it is read, while it may still be a local name.
    alignas(8) char folded[kNameBytes] = {};
    std::size_t len = 0;
    while (len < kNameBytes - 1 && !kNameEnds[static_cast<unsigned char>(name[len])]) {
        folded[len] = kFold[static_cast<unsigned char>(name[len])];
        ++len;
    }
    const char *p = name + len;
    while (!kNameEnds[static_cast<unsigned char>(*p)]) ++p;  // longer than any local name or tag
    const Attribute *a = nullptr;
    if (p == name + len && len > 0) a = is_digit(name[0]) ? by_tag(name, len) : by_folded_name(folded);
    return {a ? std::string_view(a->tag, a->tagLength) : std::string_view(), p};
}

std::string_view ia_tag() {
    const Attribute &a = kTable.attrs[kIAField];
    return {a.tag, a.tagLength};
}

}  // namespace da

extern "C" {

int da_nmFieldNum2DANum(int field) {
    if (field < 0 || field >= da::kFields) return -1;
    return da::kTable.attrs[field].number;
}

const char *da_AttribNumberToLocName(int attrNum) {
    const da::Attribute *a = da::by_number(attrNum);
    return a ? a->name : "";
}

const char *da_AttribNumberToIntName(int attrNum) {
    const da::Attribute *a = da::by_number(attrNum);
    return a ? a->tag : "";
}

// Local names begin with a letter and tags are digits, so a typed name is
// either or neither.
const char *da_FindAttribIntName(const char *typedName) {
    std::string_view tag = da::internal_tag(typedName, std::strlen(typedName));
    return tag.empty() ? typedName : tag.data();
}

int da_AttIdToORNIndex(const char *name, int len) {
    const da::Attribute *a = len > 0 ? da::by_tag(name, static_cast<std::size_t>(len)) : nullptr;
    return a ? da::field_of(a) : DA_NO_FIELD;
}

}  // extern "C"
