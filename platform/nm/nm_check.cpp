// The rules of field values: one table of a length bound and a character
// class per field, read by every path that admits a value.
//
//  - The personal name (0 to 3) and the organizational units (4 to 7) keep
//    the bounds of the name parsers; the standard attributes (8 to 14) take
//    the X.400 upper bounds (X.411 ub- values). All of them take
//    PrintableString, but the country takes 2 letters or 3 digits and the
//    network address and numeric user identifier take digits.
//  - The extension attributes (15 to 22) bound only the length, in bytes:
//    their typed form is copied as typed, with no class to keep.
//  - The UTF-8 counterparts (64 to 127) take text without control
//    characters, bounded in characters by their counterpart's bound.
//
// nm_CheckField judges positional values: it refuses every field beyond the
// standard attributes, so that an eighth positional value can never land
// among the extension attributes. nm_CheckFieldText judges a value of any
// field; a field without a rule takes any value.
#include <array>
#include <cstring>
#include <string_view>

#include "nm.h"

namespace qx::nm {
namespace {

constexpr char kMarker = ORN_MARKER;
constexpr int kFirstStandard = ORN_ORGANIZATION;
constexpr int kLastPositional = ORN_NUMERIC_USER_ID;

struct Rule {
    int cls;  // NM_CLASS_*
    int max;  // bytes, or characters for NM_CLASS_TEXT
};

constexpr Rule printable(int max) { return {NM_CLASS_PRINTABLE, max}; }
constexpr Rule digits(int max) { return {NM_CLASS_DIGITS, max}; }
constexpr Rule any(int max) { return {NM_CLASS_ANY, max}; }

constexpr Rule kGroup1[] = {
    printable(40),            // 0 surname
    printable(16),            // 1 given name
    printable(5),             // 2 initials
    printable(3),             // 3 generation qualifier
    printable(32),            // 4 organizational unit 1
    printable(32),            // 5 organizational unit 2
    printable(32),            // 6 organizational unit 3
    printable(32),            // 7 organizational unit 4
    printable(64),            // 8 organization
    {NM_CLASS_COUNTRY, 3},    // 9 country: 2 letters or 3 digits
    printable(16),            // 10 ADMD (a single space is printable)
    printable(16),            // 11 PRMD
    digits(16),               // 12 network address
    printable(24),            // 13 terminal identifier
    digits(32),               // 14 numeric user identifier
    any(8),  any(128),        // 15, 16 extension attribute 1: type, value
    any(8),  any(128),        // 17, 18 extension attribute 2
    any(8),  any(128),        // 19, 20 extension attribute 3
    any(8),  any(128),        // 21, 22 extension attribute 4
};
constexpr int kGroup1Rules = static_cast<int>(sizeof kGroup1 / sizeof kGroup1[0]);
constexpr int kFirstText = ORN_COUNTERPART;  // the UTF-8 counterparts of 0 to 63
constexpr int kLastText = ORN_LAST_TEXT;

constexpr Rule rule_of(int field) {
    if (field >= 0 && field < kGroup1Rules) return kGroup1[field];
    if (field >= kFirstText && field <= kLastText) {
        const int partner = field - kFirstText;
        return {NM_CLASS_TEXT, partner < kGroup1Rules ? kGroup1[partner].max : 0};
    }
    return {NM_CLASS_NONE, 0};
}

// PrintableString with the space.
constexpr std::string_view kPrintable =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789'()+,-./:=? ";

constexpr std::array<bool, 256> make_printable() {
    std::array<bool, 256> table{};
    for (char c : kPrintable) table[static_cast<unsigned char>(c)] = true;
    return table;
}
constexpr std::array<bool, 256> kIsPrintable = make_printable();

constexpr bool is_digit(unsigned char c) { return c >= '0' && c <= '9'; }
constexpr bool is_letter(unsigned char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
constexpr bool is_printable(unsigned char c) { return kIsPrintable[c]; }

// Country: exactly 2 letters or exactly 3 digits.
constexpr bool is_country(std::string_view v) {
    if (v.size() == 2) return is_letter(v[0]) && is_letter(v[1]);
    return v.size() == 3 && is_digit(v[0]) && is_digit(v[1]) && is_digit(v[2]);
}

// UTF-8 text without control characters: no C0 byte, no DEL, no C1
// character (U+0080 to U+009F, bytes C2 80 to C2 9F). Characters are
// counted by their lead bytes.
constexpr bool text_fits(std::string_view v, int max, bool marker_allowed) {
    int chars = 0;
    for (std::size_t i = 0; i < v.size(); ++i) {
        const auto c = static_cast<unsigned char>(v[i]);
        if (c == static_cast<unsigned char>(kMarker) && marker_allowed) {
            ++chars;
            continue;
        }
        if (c < 0x20 || c == 0x7F) return false;
        if (c == 0xC2 && i + 1 < v.size() && (static_cast<unsigned char>(v[i + 1]) & 0xE0) == 0x80) return false;
        if ((c & 0xC0) != 0x80) ++chars;
    }
    return max == 0 || chars <= max;
}

// Whether the class admits every byte of v; the marker byte where it may
// stand in a typed name with markers.
constexpr bool bytes_fit(int cls, std::string_view v, bool marker_allowed) {
    for (char ch : v) {
        const auto c = static_cast<unsigned char>(ch);
        if (ch == kMarker && marker_allowed) continue;
        if (cls == NM_CLASS_DIGITS ? !is_digit(c) : !is_printable(c)) return false;
    }
    return true;
}

// A value of a field. With markers allowed, the marker byte passes where a
// typed name admits it: anywhere in the personal name, the units, the
// extension attributes and the UTF-8 fields, and as the last byte of a
// standard attribute value, which is then judged without it (a value that
// is the marker alone is not judged).
constexpr bool acceptable(std::string_view v, int field, bool markers) {
    const Rule rule = rule_of(field);
    if (rule.cls == NM_CLASS_NONE) return true;
    if (field >= kFirstStandard && field <= kLastPositional) {
        if (markers && !v.empty() && v.back() == kMarker) {
            v.remove_suffix(1);
            if (v.empty()) return true;
        }
        markers = false;
    }
    if (v.empty()) return false;
    switch (rule.cls) {
    case NM_CLASS_COUNTRY: return is_country(v);
    case NM_CLASS_TEXT: return text_fits(v, rule.max, markers);
    case NM_CLASS_ANY: return static_cast<int>(v.size()) <= rule.max;
    default: return static_cast<int>(v.size()) <= rule.max && bytes_fit(rule.cls, v, markers);
    }
}

static_assert(acceptable("GB", 9, false) && acceptable("826", 9, false) && !acceptable("G", 9, false) &&
              !acceptable("82", 9, false) && !acceptable("GBR", 9, false));
static_assert(acceptable(" ", 10, false) && !acceptable("", 8, false) && acceptable("x", 160, false));
static_assert(acceptable("a\x1F", 8, true) && !acceptable("a\x1F", 8, false) && !acceptable("a\x1F" "b", 8, true));
static_assert(acceptable("M\xC3\xBCller", 64, false) && !acceptable("a\x01", 64, false) &&
              !acceptable("a\xC2\x85", 64, false));

}  // namespace
}  // namespace qx::nm

extern "C" {

int nm_FieldRule(int field, int *maxLength) {
    const qx::nm::Rule rule = qx::nm::rule_of(field);
    if (maxLength) *maxLength = rule.max;
    return rule.cls;
}

int nm_CheckFieldText(const char *value, int len, int field, int allowMarker) {
    if (!value || len < 0) return 0;
    return qx::nm::acceptable(std::string_view(value, static_cast<std::size_t>(len)), field, allowMarker != 0);
}

int nm_CheckField(const char *value, int field) {
    if (!value || field < 0 || field > qx::nm::kLastPositional) return 0;
    return qx::nm::acceptable(value, field, false) ? 1 : 0;
}

}  // extern "C"
