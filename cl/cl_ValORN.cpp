// Whether an O/R name holds the fields that a purpose needs: a mail node, a
// personal name, a new or an existing user. The checks read the field maps
// (which fields are present), and optionally refuse fields that end with a
// space, by the customisation switch CL_ALLOW_TRAILING_SPACE.
#include <cstdint>
#include <cstring>

#include "cl.h"
#include "cust.h"
#include "frame.hpp"
#include "last_packed.hpp"
#include "nm.h"
#include "packed.hpp"

namespace cl {
namespace {

constexpr const char kSourceFile[] = "cl/cl_ValORN";
constexpr int kGroup = 100;

enum Reason : int {
    kPass = 0,
    kTrailingSpace = 8013,
    kNoSurname = 8014,
    kNoMailNode = 8016,
    kNotMailNodeField = 8119,
    kCounterpartMissing = 8120,
    kDomainWithoutCountry = 8121,
    kUnitGap = 8122,
    kNoUnitNorOrganization = 8123,
    kFieldNotAllowed = 8124,
};

// Six words, bit k of word w for field 32w + k.
using Maps = FieldMaps;

constexpr uint32_t bit(int k) { return UINT32_C(1) << k; }
constexpr uint32_t kPersonalBits = 0x00F;  // fields 0-3 (64-67 in word 2)
constexpr uint32_t kNameBits = 0xFFF;      // personal name and mail node, 0-11
constexpr uint32_t kMailNodeBits = 0xFF0;  // units 4-7, standard attributes 8-11
constexpr uint32_t kUnitBits = 0x0F0;
constexpr uint32_t kField32 = bit(0);      // bit 0 of word 1 (field 32; 96 in word 3)
constexpr uint32_t kFirstUnit = bit(4);
constexpr uint32_t kOrganization = bit(8);
constexpr uint32_t kCountry = bit(9);
constexpr uint32_t kDomainBits = bit(9) | bit(10) | bit(11);

// Process-wide: the trailing-space switch is read once, on the first call.
bool g_settings_read = false;
bool g_trailing_spaces_allowed = true;

// Fields outside word 0/2 bits `allowed` and outside field 32/96.
bool has_field_outside(const Maps &w, uint32_t allowed) {
    return (w[1] & ~kField32) || (w[3] & ~kField32) || w[4] || w[5] || ((w[0] | w[2]) & ~allowed);
}

bool counterparts_missing(const Maps &w) { return (w[2] & ~w[0]) || (w[3] & ~w[1]); }

// Units 1 to k and no others: the four unit bits form 0, 1, 3, 7 or 15.
bool units_in_order(uint32_t word0) {
    const uint32_t units = (word0 & kUnitBits) >> 4;
    return (units & (units + 1)) == 0;
}

int cl_CheckMailnodeFields(const Maps &w) {
    Trace t(kTrace19, "cl_CheckMailnodeFields");
    if (w[1] || w[3] || w[4] || w[5] || ((w[0] | w[2]) & ~kMailNodeBits)) return kNotMailNodeField;
    if (!((w[0] | w[2]) & kMailNodeBits)) return kNoMailNode;
    if (!(w[0] & (kFirstUnit | kOrganization))) return kNoUnitNorOrganization;
    if (!units_in_order(w[0])) return kUnitGap;
    if (w[2] & ~w[0]) return kCounterpartMissing;
    if ((w[0] & kDomainBits) && !(w[0] & kCountry)) return kDomainWithoutCountry;
    return t.exit(kPass);
}

int cl_CheckPersonalNameFields(const Maps &w) {
    Trace t(kTrace19, "cl_CheckPersonalNameFields");
    if (has_field_outside(w, kPersonalBits)) return kFieldNotAllowed;
    if (counterparts_missing(w)) return kCounterpartMissing;
    if (!(w[0] & bit(0)) && !(w[1] & kField32)) return kNoSurname;
    return t.exit(kPass);
}

// Only the personal-name fields of a name checked as a personal name.
int check_personal_part(const Maps &w) {
    const Maps personal = {w[0] & kPersonalBits, w[1] & kField32, w[2] & kPersonalBits, w[3] & kField32, 0, 0};
    return cl_CheckPersonalNameFields(personal);
}

// Kind 3 clears the personal-name bits of the caller's maps before checking
// the rest as a mail node.
int cl_CheckNewUserFields(Maps &w) {
    Trace t(kTrace19, "cl_CheckNewUserFields");
    if (const int reason = check_personal_part(w)) return reason;
    w[0] &= ~kPersonalBits;
    w[2] &= ~kPersonalBits;
    w[1] &= ~kField32;
    w[3] &= ~kField32;
    if (const int reason = cl_CheckMailnodeFields(w)) return reason;
    return t.exit(kPass);
}

int cl_CheckOldUserFields(const Maps &w) {
    Trace t(kTrace19, "cl_CheckOldUserFields");
    if (has_field_outside(w, kNameBits)) return kFieldNotAllowed;
    if (!((w[0] | w[2] | w[1] | w[3]) & bit(0))) return kNoSurname;
    return t.exit(kPass);
}

// Traced under the kind-3 checker's name.
int cl_CheckUserNameFields(const Maps &w) {
    Trace t(kTrace19, "cl_CheckNewUserFields");
    if (const int reason = check_personal_part(w)) return reason;
    if (has_field_outside(w, kNameBits)) return kFieldNotAllowed;
    return t.exit(kPass);
}

int run_checker(unsigned kind, Maps &w) {
    switch (kind) {
        case 1: return cl_CheckMailnodeFields(w);
        case 2: return cl_CheckPersonalNameFields(w);
        case 3: return cl_CheckNewUserFields(w);
        case 4: return cl_CheckOldUserFields(w);
        case 5: return cl_CheckUserNameFields(w);
        default: return kPass;
    }
}

void read_settings_once() {
    if (g_settings_read) return;
    if (cust_PresentAndFalse("CL_ALLOW_TRAILING_SPACE")) g_trailing_spaces_allowed = false;
    g_settings_read = true;
}

// A present field whose last byte is a space. The byte is read in place, so
// a field of any length is judged by its real end.
bool some_field_ends_in_space(const char *orn, const nm_ParsedORN &parsed) {
    for (int f = 0; f < kFieldCount; ++f) {
        int len = 0;
        const char *value = nm_GetFieldMemPtr(orn, &parsed, f, &len);
        if (value && len > 0 && value[len - 1] == ' ') return true;
    }
    return false;
}

// The same for a text the conversion has just made, from its record.
bool some_field_ends_in_space(const LastPacked &known) {
    bool found = false;
    each_mapped_field(known.maps, [&](int f) { found = found || known.text[known.end[f] - 1] == ' '; });
    return found;
}

// The field maps come from the conversion's record when the text is the one
// it has just made, and from the name library's parse otherwise.
int validate(const char *orn, unsigned kind, int *reason) {
    Trace t(kTrace19, "cl_ValidateORNFieldsNoEscape");
    *reason = kPass;
    const LastPacked *known = last_packed_for(orn);
    nm_ParsedORN parsed;
    Maps w;
    if (known) {
        std::memcpy(w, known->maps, sizeof w);
    } else {
        int status = 0;
        nm_ParseORN(orn, &parsed, &status);
        nm_GetFieldMaps(&parsed, w);
    }
    read_settings_once();
    if (!g_trailing_spaces_allowed &&
        (known ? some_field_ends_in_space(*known) : some_field_ends_in_space(orn, parsed))) {
        *reason = kTrailingSpace;
        return t.exit(0);
    }
    *reason = run_checker(kind, w);
    return t.exit(((w[0] | w[2]) & kMailNodeBits) ? 1 : 0);
}

int validate_or_escape(const char *orn, unsigned kind) {
    int reason = kPass;
    const int result = validate(orn, kind, &reason);
    if (reason != kPass) CL_RAISE(kGroup, reason);
    return result;
}

}  // namespace
}  // namespace cl

extern "C" {

int cl_ValidateORNFieldsNoEscape(const char *orn, unsigned int kind, int *reason) {
    return cl::validate(orn, kind, reason);
}

int cl_ValidateORNFields(const char *orn, unsigned int kind) { return cl::validate_or_escape(orn, kind); }

}  // extern "C"
