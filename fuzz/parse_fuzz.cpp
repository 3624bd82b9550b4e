// The typed-name parsers: the full O/R name (cl_ParseFullOrn2), the personal
// name (cl_ParseORN), the name with a mail node (cl_ParseNameLoclAddr2) and
// the local address (cl_ParseLoclAddr).
//
// Flags: bits 0-1 the parser, bit 2 allowMarker, bit 3 surnameRequired.
// Result buffers have exactly the sizes the parsers document. A name that
// parses is shown again as group 1 display text, which reads as it would be
// typed: parsing that text again must give the same fields.
#include <cctype>

#include "fuzz_support.hpp"

namespace {

using fuzz::Fields;

enum Parser : unsigned { kFull, kPersonal, kLocal, kNameNode };

constexpr std::size_t kPersonalResult = 69;  // four fields of at most 40+16+5+3, four separators
constexpr std::size_t kNameResult = 200;     // eight fields: the personal name and four units

// Upper bounds of the fields the parsers write: personal name, units,
// standard values; extension values are the longest of the rest.
constexpr std::size_t kBound[15] = {40, 16, 5, 3, 32, 32, 32, 32, 64, 64, 64, 64, 64, 64, 64};
constexpr std::size_t kExtensionValueMax = 128;

std::size_t full_result_size(const std::string &text) {
    std::size_t slashes = 0;
    for (char c : text) slashes += c == '/';
    return kNameResult + 65 * slashes + 138 * 4 + 8;  // name, standard values, extensions, padding
}

struct Outcome {
    testkit::Outcome escape;
    int result = 0;
    std::string tf;
};

// Runs one parser on a copy of text, with a result buffer of its size.
Outcome parse(Parser which, const std::string &text, unsigned flags) {
    const int marker = (flags >> 2) & 1;
    const int surname = (flags >> 3) & 1;
    std::size_t size = which == kFull ? full_result_size(text) : which == kPersonal ? kPersonalResult : kNameResult;
    auto typed = fuzz::buffer(text);
    auto result = fuzz::buffer("", size);
    Outcome o;
    int ret = 0;
    int errIndex = -7;
    o.escape = testkit::run([&] {
        switch (which) {
            case kFull:
                ret = cl_ParseFullOrn2(typed.data(), result.data(), &errIndex, marker);
                break;
            case kPersonal:
                cl_ParseORN(typed.data(), result.data(), surname);
                break;
            case kLocal:
                cl_ParseLoclAddr(typed.data(), result.data());
                break;
            case kNameNode:
                ret = cl_ParseNameLoclAddr2(typed.data(), result.data(), marker);
                break;
        }
    });
    o.result = ret;
    o.tf.assign(result.data());
    return o;
}

bool has_control_bytes(const std::string &text) {
    for (unsigned char c : text)
        if (c < 0x1F) return true;
    return false;
}

// 1 when non-blank text follows the first '/'.
int text_after_first_slash(const std::string &text) {
    auto slash = text.find('/');
    if (slash == std::string::npos) return 0;
    for (std::size_t i = slash + 1; i < text.size(); ++i)
        if (!std::isspace(static_cast<unsigned char>(text[i]))) return 1;
    return 0;
}

void check_shape(Parser which, const Outcome &o, const std::string &text, unsigned flags, Fields &f) {
    fuzz::expect(fuzz::fields_of(o.tf, f), "a parser wrote text outside the packed form", o.tf);
    for (int i = 0; i < fuzz::kFields; ++i) {
        std::size_t bound = i < 15 ? kBound[i] : kExtensionValueMax;
        fuzz::expect(f[static_cast<std::size_t>(i)].size() <= bound, "a parsed field exceeds its upper bound", o.tf);
    }
    switch (which) {
        case kPersonal:
            fuzz::expect(o.tf.size() >= 4 && o.tf.back() == fuzz::kSep, "a personal name lacks its last separator",
                         o.tf);
            if (flags & 8) fuzz::expect(!f[0].empty(), "an empty surname passed with surnameRequired", o.tf);
            break;
        case kLocal:
            fuzz::expect(!f[4].empty(), "a local address without its first unit passed", o.tf);
            break;
        case kNameNode:
            // A mail node whose first two units are empty counts as absent, even
            // when a later unit holds text ('Smith/,,Dev').
            fuzz::expect(o.result == 1 ? !f[4].empty() : f[4].empty() && f[5].empty(),
                         "the mail-node result disagrees with the units", o.tf);
            break;
        case kFull:
            fuzz::expect(o.result == text_after_first_slash(text), "the result disagrees with the text after '/'",
                         text);
            break;
    }
}

// The display text that shows what the parser read, in the syntax it reads.
std::string display(Parser which, const std::string &tf) {
    const char *text = nullptr;
    testkit::Outcome e = testkit::run([&] { text = cl_FormatGroup1(tf.c_str()); });
    fuzz::expect(!e.escaped, "a parsed name cannot be shown", tf);
    std::string shown = text;
    if (which == kLocal) {
        fuzz::expect(!shown.empty() && shown[0] == '/', "a local address is not shown after '/'", shown);
        shown.erase(0, 1);
    }
    return shown;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::Input in = fuzz::split(data, size);
    if (!in.ok) return -1;
    auto which = static_cast<Parser>(in.flags & 3);
    Outcome first = parse(which, in.text, in.flags);
    if (first.escape.escaped) return 0;

    Fields f;
    check_shape(which, first, in.text, in.flags, f);
    // Bytes the extension attributes copy as typed, and standard values that
    // run on past field 22, are not shown in group 1.
    if (has_control_bytes(in.text)) return 0;
    for (int i = 23; i < fuzz::kFields; ++i)
        if (!f[static_cast<std::size_t>(i)].empty()) return 0;
    // Group 1 text puts a space before the extension attributes, and the
    // parser counts it against the 64 characters of the standard value
    // before it: a value of exactly 64 followed by them does not read back.
    bool extensions = false;
    for (std::size_t i = 15; i <= 22; ++i) extensions |= !f[i].empty();
    for (std::size_t i = 8; i <= 14 && extensions; ++i)
        if (f[i].size() == kBound[8]) return 0;

    std::string shown = display(which, first.tf);
    Outcome again = parse(which, shown, in.flags);
    if (again.escape.escaped) fuzz::fail("the display text of a parsed name does not parse", in.text, shown);
    Fields g;
    fuzz::expect(fuzz::fields_of(again.tf, g), "a parser wrote text outside the packed form", again.tf);
    fuzz::expect_same_name(f, g, "the display text parses to another name");
    if (which != kFull) fuzz::expect(again.result == first.result, "the display text gives another result", shown);
    return 0;
}
