// Shared between the attribute library's sources.
#ifndef QX_DA_INTERNAL_HPP
#define QX_DA_INTERNAL_HPP
#include <cstddef>
#include <string_view>

#include "orn.h"

namespace da {

constexpr int kIAField = ORN_IA;  // the internet address

// The internal tag of a typed attribute name of len bytes, none of them
// NUL (a local name in any case, or a tag); empty when it has none. It
// views a terminated tag of the table.
std::string_view internal_tag(const char *typed, std::size_t len);
// The same for the name of an entry, which ends at the first 0x1D, 0x1E or
// NUL from name on, with where it ends.
struct EntryName {
    std::string_view tag;
    const char *end;
};
EntryName entry_name_tag(const char *name);
// The internal tag of the IA field's attribute.
std::string_view ia_tag();

}  // namespace da
#endif
