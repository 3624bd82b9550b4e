// Field values against the X.400 upper bounds (X.411 ub- values) and
// character sets of the fields that have a fixed position: the personal
// name (0 to 3), the organizational units (4 to 7) and the standard
// attributes (8 to 14). Every other field is refused, so that a value can
// never be placed beyond the standard attributes.
#include <array>
#include <cstring>
#include <string_view>

#include "nm.h"

namespace qx::nm {
namespace {

enum class Set { Printable, Digits, Letters };

// A value of [min, max] characters from one set; max 0: no such form.
struct Form {
    Set set;
    int min;
    int max;
};
// A field takes one form or, where given, the other (the country).
struct Rule {
    Form form;
    Form other;
};

constexpr Form kNoForm{Set::Printable, 0, 0};
constexpr Form printable(int max) { return {Set::Printable, 1, max}; }
constexpr Form digits(int max) { return {Set::Digits, 1, max}; }

constexpr Rule kRules[] = {
    {printable(40), kNoForm},                          // 0 surname
    {printable(16), kNoForm},                          // 1 given name
    {printable(5), kNoForm},                           // 2 initials
    {printable(3), kNoForm},                           // 3 generation qualifier
    {printable(32), kNoForm},                          // 4 organizational unit 1
    {printable(32), kNoForm},                          // 5 organizational unit 2
    {printable(32), kNoForm},                          // 6 organizational unit 3
    {printable(32), kNoForm},                          // 7 organizational unit 4
    {printable(64), kNoForm},                          // 8 organization
    {{Set::Letters, 2, 2}, {Set::Digits, 3, 3}},       // 9 country: alpha-2 or numeric
    {printable(16), kNoForm},                          // 10 ADMD (a single space is printable)
    {printable(16), kNoForm},                          // 11 PRMD
    {digits(15), kNoForm},                             // 12 network address
    {printable(24), kNoForm},                          // 13 terminal identifier
    {digits(32), kNoForm},                             // 14 numeric user identifier
};
constexpr int kRuleCount = static_cast<int>(sizeof kRules / sizeof kRules[0]);

// PrintableString with the space.
constexpr std::string_view kPrintable =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789'()+,-./:=? ";

constexpr bool in_set(Set set, char c) {
    switch (set) {
        case Set::Digits: return c >= '0' && c <= '9';
        case Set::Letters: return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        case Set::Printable: return kPrintable.find(c) != std::string_view::npos;
    }
    return false;
}

constexpr bool fits(const Form &form, std::string_view value) {
    const auto n = static_cast<int>(value.size());
    if (form.max == 0 || n < form.min || n > form.max) return false;
    for (char c : value)
        if (!in_set(form.set, c)) return false;
    return true;
}

constexpr bool acceptable(std::string_view value, int field) {
    if (field < 0 || field >= kRuleCount) return false;
    const Rule &rule = kRules[field];
    return fits(rule.form, value) || fits(rule.other, value);
}

static_assert(acceptable("GB", 9) && acceptable("826", 9) && !acceptable("G", 9) && !acceptable("82", 9));
static_assert(acceptable(" ", 10) && !acceptable("", 8) && !acceptable("x", 15));

}  // namespace
}  // namespace qx::nm

extern "C" int nm_CheckField(const char *value, int field) {
    if (!value) return 0;
    return qx::nm::acceptable(value, field) ? 1 : 0;
}
