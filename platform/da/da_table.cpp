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
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>
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

// Built once, on first use; read only afterwards.
struct Table {
    std::array<Attribute, kFields> attrs{};
    Table() {
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

const char *da_FindAttribIntName(const char *typedName) {
    for (const Attribute &a : table().attrs)
        if (strcasecmp(a.name, typedName) == 0 || std::strcmp(a.tag, typedName) == 0) return a.tag;
    return typedName;
}

int da_AttIdToORNIndex(const char *name, int len) {
    if (len <= 0 || len >= 8) return DA_NO_FIELD;
    for (int i = 0; i < len; ++i)
        if (name[i] < '0' || name[i] > '9') return DA_NO_FIELD;
    char digits[8];
    std::memcpy(digits, name, static_cast<std::size_t>(len));
    digits[len] = '\0';
    const Attribute *a = by_number(std::atoi(digits));
    return a && std::strcmp(a->tag, digits) == 0 ? field_of(a) : DA_NO_FIELD;
}

}  // extern "C"
