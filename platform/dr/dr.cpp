// Validation of a directory entry in the internal entry text: entries
// separated by 0x1E, each an attribute tag, 0x1D and a value.
#include <cstring>
#include <string_view>

#include "dr.h"
#include "er.h"

namespace dr {
namespace {

constexpr const char kSourceFile[] = "platform/dr";
constexpr char kEntrySep = '\x1E';
constexpr char kValueSep = '\x1D';

enum Reason : int {
    kEmptyText = 4650,
    kNoValueSeparator = 4651,
    kEmptyName = 4652,
    kEmptyValue = 4653,
};

[[noreturn]] void refuse(int reason, int line) { er_TracedEscape(100, reason, kSourceFile, line); }

// One entry: a tag, 0x1D, a non-empty value. What the value holds (a
// further 0x1D, control bytes) is the caller's to judge.
void check_entry(std::string_view entry) {
    std::size_t sep = entry.find(kValueSep);
    if (sep == std::string_view::npos) refuse(kNoValueSeparator, __LINE__);
    if (sep == 0) refuse(kEmptyName, __LINE__);
    if (sep + 1 == entry.size()) refuse(kEmptyValue, __LINE__);
}

// The text may end with one 0x1E after its last entry (a typed trailing
// '/'); an empty entry anywhere else has no separator and is refused.
void check_text(std::string_view text) {
    if (text.empty()) refuse(kEmptyText, __LINE__);
    std::size_t begin = 0;
    for (;;) {
        std::size_t end = text.find(kEntrySep, begin);
        if (end == std::string_view::npos) end = text.size();
        bool trailing = end == text.size() && begin == end && begin > 0;
        if (!trailing) check_entry(text.substr(begin, end - begin));
        if (end == text.size()) return;
        begin = end + 1;
    }
}

}  // namespace
}  // namespace dr

extern "C" {

// The flags are those of the server's entry validation; this stand-in
// checks the form alone, whatever they say (allowMarker included: the
// marker byte is the caller's to accept or refuse).
void dr_ValidateEntry(const char *entry, int, int, int, int) { dr::check_text(entry ? entry : ""); }

}  // extern "C"
