// The attribute of every O/R name field 0 to 160: its number, internal tag
// (the number in decimal) and local display name.
//
// Group 1 follows X.400 (X.402): personal name, organizational units, the
// positional standard attributes and the extension attributes. Fields 64 to
// 127 are the UTF-8 counterparts of 0 to 63 and take the name of their
// partner with the prefix "utf8". Attribute numbers are 100 + field, except
// the PSAP address (28) and the CV value (410), whose numbers the special
// entries carry.
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "da.h"

namespace {

constexpr int kFields = 161;

constexpr std::array<std::string_view, 64> kBaseNames = {
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

struct Attribute {
    int number;
    char tag[8];    // decimal number
    char name[40];  // local name; the longest is "utf8" + "PostalPersonalName"
};

int number_of(int field) {
    if (field == 35) return 28;
    if (field == 160) return 410;
    return 100 + field;
}

// Local names in any case, by ASCII letters (as strcasecmp compares them
// in the C locale).
constexpr unsigned char fold(char c) {
    auto u = static_cast<unsigned char>(c);
    return u >= 'A' && u <= 'Z' ? static_cast<unsigned char>(u + ('a' - 'A')) : u;
}

bool same_name(const char *a, const char *b) {
    for (; fold(*a) == fold(*b); ++a, ++b)
        if (*a == '\0') return true;
    return false;
}

// FNV-1a of the folded name: names equal in any case hash alike.
std::uint32_t name_hash(const char *name) {
    std::uint32_t h = 2166136261U;
    for (; *name; ++name) h = (h ^ fold(*name)) * 16777619U;
    return h;
}

// The hashed index of local names: open addressing with linear probing, in
// four times as many slots as names, so a probe ends after a slot or two.
constexpr std::size_t kSlots = 1024;
static_assert(kSlots >= 4 * kFields && (kSlots & (kSlots - 1)) == 0);
constexpr short kEmptySlot = -1;

// Built once, on first use; read only afterwards. by_name holds field
// numbers, kEmptySlot where none.
struct Table {
    std::array<Attribute, kFields> attrs{};
    std::array<short, kSlots> by_name{};
    Table() {
        by_name.fill(kEmptySlot);
        for (int f = 0; f < kFields; ++f) {
            Attribute &a = attrs[static_cast<std::size_t>(f)];
            a.number = number_of(f);
            std::snprintf(a.tag, sizeof a.tag, "%d", a.number);
            if (f < 64) {
                std::snprintf(a.name, sizeof a.name, "%.*s", static_cast<int>(kBaseNames[f].size()),
                              kBaseNames[f].data());
            } else if (f < 128) {
                std::string_view base = kBaseNames[static_cast<std::size_t>(f - 64)];
                std::snprintf(a.name, sizeof a.name, "utf8%c%.*s", base[0] - 'a' + 'A',
                              static_cast<int>(base.size() - 1), base.data() + 1);
            } else if (f == 128) {
                std::snprintf(a.name, sizeof a.name, "displayName");
            } else if (f == 129) {
                std::snprintf(a.name, sizeof a.name, "alternateName");
            } else if (f == 130) {
                std::snprintf(a.name, sizeof a.name, "internetAddress");
            } else if (f == 160) {
                std::snprintf(a.name, sizeof a.name, "conversionValue");
            } else {
                std::snprintf(a.name, sizeof a.name, "field%d", f);
            }
            std::size_t slot = name_hash(a.name) % kSlots;
            while (by_name[slot] != kEmptySlot) slot = (slot + 1) % kSlots;
            by_name[slot] = static_cast<short>(f);
        }
    }
};

const Table &table() {
    static const Table t;
    return t;
}

const Attribute *by_number(int number) {
    int field = number == 28 ? 35 : number == 410 ? 160 : number - 100;
    if (field < 0 || field >= kFields || (field == 35 && number != 28) || (field == 160 && number != 410))
        return nullptr;
    return &table().attrs[static_cast<std::size_t>(field)];
}

int field_of(const Attribute *a) { return static_cast<int>(a - table().attrs.data()); }

// The attribute whose local name is typed, in any case; null when none.
// Local names are distinct in any case, so at most one matches.
const Attribute *by_local_name(const char *typed) {
    const Table &t = table();
    for (std::size_t slot = name_hash(typed) % kSlots; t.by_name[slot] != kEmptySlot; slot = (slot + 1) % kSlots) {
        const Attribute &a = t.attrs[static_cast<std::size_t>(t.by_name[slot])];
        if (same_name(a.name, typed)) return &a;
    }
    return nullptr;
}

// The attribute whose internal tag is exactly the typed text (decimal, no
// sign, no leading zero); null when none.
const Attribute *by_tag(const char *typed, std::size_t len) {
    constexpr std::size_t kTagMax = sizeof Attribute{}.tag - 1;
    if (len == 0 || len > kTagMax) return nullptr;
    int number = 0;
    for (std::size_t i = 0; i < len; ++i) {
        if (typed[i] < '0' || typed[i] > '9') return nullptr;
        number = number * 10 + (typed[i] - '0');
    }
    const Attribute *a = by_number(number);
    return a && std::strncmp(a->tag, typed, len) == 0 && a->tag[len] == '\0' ? a : nullptr;
}

}  // namespace

extern "C" {

int da_nmFieldNum2DANum(int field) {
    if (field < 0 || field >= kFields) return -1;
    return table().attrs[static_cast<std::size_t>(field)].number;
}

const char *da_AttribNumberToLocName(int attrNum) {
    const Attribute *a = by_number(attrNum);
    return a ? a->name : "";
}

const char *da_AttribNumberToIntName(int attrNum) {
    const Attribute *a = by_number(attrNum);
    return a ? a->tag : "";
}

// Local names begin with a letter and tags are digits, so a typed name is
// either or neither.
const char *da_FindAttribIntName(const char *typedName) {
    const Attribute *a = by_local_name(typedName);
    if (!a) a = by_tag(typedName, std::strlen(typedName));
    return a ? a->tag : typedName;
}

int da_AttIdToORNIndex(const char *name, int len) {
    const Attribute *a = len > 0 ? by_tag(name, static_cast<std::size_t>(len)) : nullptr;
    return a ? field_of(a) : DA_NO_FIELD;
}

}  // extern "C"
