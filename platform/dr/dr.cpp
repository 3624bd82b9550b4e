// Validation of a directory entry in the internal entry text: entries
// separated by 0x1E, each an attribute tag, 0x1D and a value. Besides the
// form of the text, the value of every attribute of a known field keeps
// that field's rule, the same rule the name parsers apply to positional
// values (nm_CheckFieldText), so a name is valid or not whichever way it is
// typed.
#include <cstring>
#include <string_view>

#include "da.h"
#include "dr.h"
#include "er.h"
#include "nm.h"

namespace dr {
namespace {

constexpr const char kSourceFile[] = "platform/dr/dr";
constexpr char kEntrySep = ORN_ENTRY_SEP;
constexpr char kValueSep = ORN_VALUE_SEP;

enum Reason : int {
    kEmptyText = 4650,
    kNoValueSeparator = 4651,
    kEmptyName = 4652,
    kEmptyValue = 4653,
    kBadValueOfField = 4800,  // + the field number: the value breaks its rule
};

[[noreturn]] void refuse(int reason, int line) { er_TracedEscape(100, reason, kSourceFile, line); }

// Whether the conversion refuses the value itself: a control byte in a
// field that is not held as character-set text (the marker byte aside where
// markers are allowed). Such a value is left to it, so that it keeps its
// own reason.
bool left_to_conversion(std::string_view value, int field, bool markers) {
    if (nm_IsT61Field(field)) return false;
    for (char c : value)
        if (c > 0 && c < 0x20 && !(markers && c == ORN_MARKER)) return true;
    return false;
}

// The value of a known field keeps the field's rule (a field without one
// takes any value); an unknown attribute is the conversion's to refuse.
void check_value(std::string_view tag, std::string_view value, bool markers, int line) {
    const int field = da_AttIdToORNIndex(tag.data(), static_cast<int>(tag.size()));
    if (field < 0 || left_to_conversion(value, field, markers)) return;
    if (!nm_CheckFieldText(value.data(), static_cast<int>(value.size()), field, markers))
        refuse(kBadValueOfField + field, line);
}

// One entry: a tag, 0x1D, a non-empty value that keeps its field's rule.
// A further 0x1D belongs to the value.
void check_entry(std::string_view entry, bool markers) {
    std::size_t sep = entry.find(kValueSep);
    if (sep == std::string_view::npos) refuse(kNoValueSeparator, __LINE__);
    if (sep == 0) refuse(kEmptyName, __LINE__);
    if (sep + 1 == entry.size()) refuse(kEmptyValue, __LINE__);
    check_value(entry.substr(0, sep), entry.substr(sep + 1), markers, __LINE__);
}

// The text may end with one 0x1E after its last entry (a typed trailing
// '/'); an empty entry anywhere else has no separator and is refused.
void check_text(std::string_view text, bool markers) {
    if (text.empty()) refuse(kEmptyText, __LINE__);
    std::size_t begin = 0;
    for (;;) {
        std::size_t end = text.find(kEntrySep, begin);
        if (end == std::string_view::npos) end = text.size();
        bool trailing = end == text.size() && begin == end && begin > 0;
        if (!trailing) check_entry(text.substr(begin, end - begin), markers);
        if (end == text.size()) return;
        begin = end + 1;
    }
}

}  // namespace
}  // namespace dr

extern "C" {

// The other flags are those of the server's entry validation; this
// stand-in checks the form and the field rules whatever they say.
void dr_ValidateEntry(const char *entry, int, int allowMarker, int, int) {
    dr::check_text(entry ? entry : "", allowMarker != 0);
}

}  // extern "C"
