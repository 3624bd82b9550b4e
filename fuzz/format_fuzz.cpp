// The formatters and the field validation over arbitrary packed text that
// the name library accepts.
//
// Flags: bits 0-1 the character set, bits 2-4 the flags of
// cl_RealFormatFullName, bits 5-7 the kind of check. Every text stays
// within its static buffer; the wrappers agree with each other as their
// contracts say; validation escapes with exactly the reason it reports;
// the ascii-encoded text reads back to the name.
#include <optional>

#include "fuzz_support.hpp"

namespace {

constexpr std::size_t kEntryText = 4096;  // group 1 and attribute-entry texts
constexpr std::size_t kNameText = 4079;   // full-name and personal-name texts

// The text a formatter returns, copied before the next call overwrites it;
// none when it escaped.
template <class Call>
std::optional<std::string> format(const char *what, std::size_t bound, Call &&call) {
    const char *text = nullptr;
    if (testkit::run([&] { text = call(); }).escaped) return std::nullopt;
    fuzz::expect(text != nullptr, what);
    std::string copy = text;
    fuzz::expect(copy.size() <= bound, what, copy);
    return copy;
}

// Both texts made, and the first begins with the second.
void expect_prefix(const std::optional<std::string> &s, const std::optional<std::string> &prefix, const char *what) {
    if (s && prefix) fuzz::expect(s->compare(0, prefix->size(), *prefix) == 0, what, *s, *prefix);
}

void check_validation(const char *tf, unsigned kind) {
    int reason = -1;
    int found = -1;
    testkit::Outcome e = testkit::run([&] { found = cl_ValidateORNFieldsNoEscape(tf, kind, &reason); });
    if (e.escaped) return;
    fuzz::expect(found == 0 || found == 1, "validation returned neither 0 nor 1", tf);
    int again = -1;
    e = testkit::run([&] { again = cl_ValidateORNFields(tf, kind); });
    if (reason == 0)
        fuzz::expect(!e.escaped && again == found, "validation escaped or changed its result on a valid name", tf);
    else
        fuzz::expect(e.escaped && e.group == 100 && e.reason == reason, "validation escaped otherwise than it reports",
                     tf);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::Input in = fuzz::split(data, size);
    fuzz::Fields f;
    if (!in.ok || !fuzz::fields_of(in.text, f)) return -1;
    const char *tf = in.text.c_str();
    nm_ParsedORN parsed;
    int status = 0;
    if (testkit::run([&] { nm_ParseORN(tf, &parsed, &status); }).escaped) return -1;

    ccs_Descriptor *cs = fuzz::charset(in.flags);
    const int mailNodeOnly = (in.flags >> 2) & 1;
    const int extended = (in.flags >> 3) & 1;
    const int ia = (in.flags >> 4) & 1;

    auto group1 = format("group 1 text", kEntryText, [&] { return cl_FormatGroup1(tf); });
    auto inPlace = fuzz::buffer(in.text, kEntryText + 1);  // the room cl_FormatName documents
    testkit::Outcome e = testkit::run([&] { cl_FormatName(inPlace.data()); });
    if (!e.escaped && group1)
        fuzz::expect(*group1 == inPlace.data(), "cl_FormatName writes other than cl_FormatGroup1", *group1);

    format("ascii-encoded attribute list", kEntryText, [&] { return cl_FormatAsciiEncoded(tf); });
    format("full name", kNameText, [&] { return cl_RealFormatFullName(tf, cs, mailNodeOnly, extended, ia); });
    auto full = format("full name", kNameText, [&] { return cl_FormatFullName(tf, cs); });
    auto fullIa = format("full name with IA", kNameText, [&] { return cl_FormatFullNameIa(tf, cs); });
    expect_prefix(fullIa, full, "the full name with IA does not extend the full name");
    format("UTF-8 full name", kNameText, [&] { return cl_formatORNtoUtf8withIA(tf); });
    format("mail node", kNameText, [&] { return cl_FormatMailNode(tf, cs, extended); });

    auto g1pn = format("group 1 personal name", kNameText, [&] { return cl_FormatG1PersonalName(tf); });
    if (g1pn && g1pn->size() < kNameText && group1 && group1->size() < kEntryText)
        expect_prefix(group1, g1pn, "group 1 does not start with its personal name");
    if (cs) {
        format("personal name", kNameText, [&] { return cl_RealFormatPersonalName(tf, cs, ia); });
        auto pn = format("personal name", kNameText, [&] { return cl_FormatPersonalName(tf, cs); });
        auto pnIa = format("personal name with IA", kNameText, [&] { return cl_FormatPersonalNameIa(tf, cs); });
        expect_prefix(pnIa, pn, "the personal name with IA does not extend it");
    }
    if (!f[46].empty())
        format("postal address", ~std::size_t{0}, [&] { return cl_FormatPostalAddress(f[46].c_str()); });

    // Above level 9 the entry points unpack through cl_UnpackFullORN rather
    // than into their own table: the same fields, so the same texts.
    auto native = format("native attribute list", kEntryText, [&] { return cl_FormatNative(tf); });
    int level = er_SubSystemLoggingLevel;
    er_SubSystemLoggingLevel = 10;
    auto nativeTraced = format("native attribute list", kEntryText, [&] { return cl_FormatNative(tf); });
    auto fullTraced = format("full name", kNameText, [&] { return cl_FormatFullName(tf, cs); });
    er_SubSystemLoggingLevel = level;
    fuzz::expect(native == nativeTraced && full == fullTraced, "the formatters' own table reads other fields", tf);

    check_validation(tf, (in.flags >> 5) % 7);
    fuzz::check_ascii_round_trip(tf);
    return 0;
}
