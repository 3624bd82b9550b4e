// In-place tidying of mail nodes and O/R names: the display form of a mail
// node, wildcard resolution between a field and its counterpart, and the
// removal of the counterpart fields.
#include <cstdint>
#include <cstring>
#include <string_view>

#include "cl.h"
#include "frame.hpp"
#include "nm.h"

namespace cl {
namespace {

constexpr const char kSourceFile[] = "cl/cl_MnDisplay";

// Display form of a mail node: 'units,...[/rest]' without trailing commas
// in the units and without trailing slashes in the rest. The work buffer
// bounds the text at 4095 characters; a longer text is cut there.
constexpr std::size_t kNodeWork = 4096;

void set_node_for_display(char *text) {
    Trace t(kTrace19, "cl_SetNodeForDisplay");
    const std::string_view whole(text, strnlen(text, kNodeWork - 1));
    const std::size_t slash = whole.find('/');
    const std::string_view units = whole.substr(0, slash);
    const std::size_t kept_units = units.find_last_not_of(',') + 1;  // npos + 1 == 0

    char work[kNodeWork];
    std::size_t n = units.copy(work, kept_units);
    if (slash != std::string_view::npos) {
        const std::string_view rest = whole.substr(slash);
        const std::size_t kept_rest = rest.find_last_not_of('/') + 1;
        n += rest.copy(work + n, kept_rest);
    }
    work[n] = '\0';
    std::memcpy(text, work, n + 1);
    t.exit();
}

// Field i (0 to 63) and field i + 64 are counterparts.
constexpr int kPairs = ORN_COUNTERPART;
constexpr int kCounterpart = ORN_COUNTERPART;
constexpr int kSurname = ORN_SURNAME;
constexpr int kRestOfPersonalName[] = {ORN_GIVEN_NAME, ORN_INITIALS, ORN_GENERATION};
constexpr int kFirstRemoved = ORN_COUNTERPART;  // removed by cl_RemoveTxTFields: 64 to 115
constexpr int kLastRemoved = 115;
constexpr int kAlsoRemoved = ORN_DISPLAY_NAME;  // and field 128

// The name being rewritten with its parsed form, kept in step.
struct Name {
    char *text;
    nm_ParsedORN parsed;
    std::uint32_t maps[6];

    explicit Name(char *orn) : text(orn) {
        int status = 0;
        nm_ParseORN(text, &parsed, &status);
        take_maps();
    }
    void take_maps() { nm_GetFieldMaps(&parsed, maps); }
    bool present(int field) const { return nm_CheckBit(field, maps) != 0; }
    // Only the first byte decides whether a field is the wildcard.
    bool wildcard(int field) const {
        int len = 0;
        const char *p = nm_GetFieldMemPtr(text, &parsed, field, &len);
        return len > 0 && p[0] == '*';
    }
    void remove(int field) { nm_PutFieldMem(text, &parsed, field, "", 0); }
};

void simplify_route(char *orn) {
    Trace t(kTrace17, "cl_SimplifyRoute");
    Name name(orn);
    // Every pair is decided on the field maps taken before the loop.
    for (int i = 0; i < kPairs; ++i) {
        const int j = i + kCounterpart;
        if (!name.present(i) || !name.present(j)) continue;
        if (name.wildcard(j)) {
            name.remove(j);
        } else if (name.wildcard(i)) {
            name.remove(i);
        }
    }
    name.take_maps();
    if (name.present(kSurname) && name.wildcard(kSurname))
        for (int field : kRestOfPersonalName) name.remove(field);
    t.exit();
}

void remove_text_fields(char *orn) {
    Trace t(kTrace17, "cl_RemoveTxTFields");
    Name name(orn);
    for (int field = kFirstRemoved; field <= kLastRemoved; ++field) name.remove(field);
    name.remove(kAlsoRemoved);
    t.exit();
}

}  // namespace
}  // namespace cl

extern "C" {
void cl_SetNodeForDisplay(char *text) { cl::set_node_for_display(text); }
void cl_SimplifyRoute(char *orn) { cl::simplify_route(orn); }
void cl_RemoveTxTFields(char *orn) { cl::remove_text_fields(orn); }
}
