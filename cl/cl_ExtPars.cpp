// Full typed O/R names: the name and mail node, positional standard
// attributes after them, and up to four bracketed extension attributes.
//
// The standard attributes fill fields 8 to 14 in order; extension attribute
// k fills fields 13 + 2k (type) and 14 + 2k (value). A failing attribute is
// located by the error index, which the full-name parser turns into a
// reason of the attribute's own field.
#include <cctype>
#include <cstring>
#include <string_view>

#include "cl.h"
#include "frame.hpp"
#include "gen.h"
#include "mdc.h"
#include "name_parse.hpp"
#include "nm.h"
#include "packed.hpp"

namespace cl {
namespace {

constexpr const char kSourceFile[] = "cl/cl_ExtPars";
constexpr int kGroup = 100;

enum Reason : int {
    kNamePartTooLong = 9801,
    kValueTooLong = 9803,
    kValueRefused = 9804,
    kBadAttributeStart = 9805,
    kTooManyExtensions = 9806,
    kSecondBar = 9832,
    kTypeTooLong = 9833,
    kUnclosedExtension = 9834,
    kExtensionValueTooLong = 9835,
    kIllegalCharacter = 8013,
};

constexpr int kNamePartMax = 4095;    // private copy of the name part
constexpr int kStandardValueMax = 64;
constexpr int kFirstStandardField = 8;
constexpr int kLastStandardField = 14;
constexpr int kFirstExtensionField = 15;
constexpr int kExtensionsMax = 4;
constexpr int kTypeMax = 8;
constexpr int kExtensionValueMax = 128;

// Types given to extension attributes with a value but no type, by position.
constexpr const char *kDefaultTypes[kExtensionsMax] = {"KVNEXT1", "KVNEXT2", "KVNEXT3", "KVNEXT4"};

// Reasons of a bad standard value, by the field it was meant for.
struct FieldReason {
    int field;
    int reason;
};
constexpr FieldReason kFieldReasons[] = {
    {8, 9811}, {9, 9812}, {10, 9816}, {11, 9813}, {12, 9817}, {13, 9814}, {14, 9818},
};
constexpr int kOtherFieldReason = 9815;

constexpr int reason_for_field(int field) {
    for (const auto &fr : kFieldReasons)
        if (fr.field == field) return fr.reason;
    return kOtherFieldReason;
}

constexpr bool is_located_in_value(int reason) { return reason == kValueTooLong || reason == kValueRefused; }
constexpr bool is_located_in_extension(int reason) { return reason >= kSecondBar && reason <= kExtensionValueTooLong; }

bool white(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

template <class C>
C *skip_white(C *p) {
    while (*p && white(*p)) ++p;
    return p;
}

const char *end_of(const char *text) { return text + std::strlen(text); }

// The end of the packed text being extended, whose caller guarantees the
// room; found once, then kept.
struct PackedEnd {
    char *end;
    explicit PackedEnd(char *tf, char *known_end = nullptr) : end(known_end ? known_end : tf + std::strlen(tf)) {}
    void append(std::string_view s) {
        std::memcpy(end, s.data(), s.size());
        end += s.size();
        *end = '\0';
    }
    void append_sep() {
        *end++ = kFieldSep;
        *end = '\0';
    }
};

// Extension types and values are copied as typed, but a separator byte in
// them would move every later field of the packed text: refused.
constexpr char kSeparators[] = {kFieldSep, kGroupEnd};
void append_typed(PackedEnd &tf, std::string_view s) {
    if (s.find_first_of(std::string_view(kSeparators, 2)) != std::string_view::npos) CL_RAISE(kGroup, kIllegalCharacter);
    tf.append(s);
}

// Checks a standard value for its field. A marker at its end (an unescaped
// '*' typed with allowMarker) is not part of what is checked; the marker
// alone fits any standard field, and no field past them.
bool value_acceptable(char *value, int field, bool allow_marker) {
    std::size_t n = std::strlen(value);
    if (allow_marker && value[n - 1] == kMarker) {
        if (n == 1) return field <= kLastStandardField;
        value[n - 1] = '\0';
        const bool ok = nm_CheckField(value, field) != 0;
        value[n - 1] = kMarker;
        return ok;
    }
    return nm_CheckField(value, field) != 0;
}

// Standard values: '/' value, each into the next field from 8 on. Returns
// the cursor: on a '(' when extension attributes follow, at the end else.
const char *parse_standard(PackedEnd &tf, const char *cursor, volatile int &field, bool allow_marker) {
    while (*cursor == '/') {
        ++cursor;
        const char *end = mdc_strpbrk(cursor, "/(");
        if (!end) end = end_of(cursor);
        cursor = skip_white(cursor);
        const auto n = static_cast<std::size_t>(end - cursor);
        if (n > static_cast<std::size_t>(kStandardValueMax)) CL_RAISE(kGroup, kValueTooLong);
        char value[kStandardValueMax + 1];  // checked just above
        std::memcpy(value, cursor, n);
        std::size_t len = n;
        while (len > 0 && white(value[len - 1])) --len;
        value[len] = '\0';
        cl_ConvertSpecialChar(value);
        if (len > 0 && !value_acceptable(value, field, allow_marker)) CL_RAISE(kGroup, kValueRefused);
        tf.append(std::string_view(value, len));
        tf.append_sep();
        field = field + 1;
        cursor = end;
    }
    if (*cursor != '\0' && *cursor != '(') CL_RAISE(kGroup, kBadAttributeStart);
    return cursor;
}

// One extension attribute, the cursor on its '('. Returns the position after
// its ')'.
const char *parse_extension(PackedEnd &tf, const char *cursor, int number) {
    const char *stop = mdc_strpbrk(cursor + 1, "|)");
    if (!stop) CL_RAISE(kGroup, kUnclosedExtension);
    cursor = skip_white(cursor + 1);
    const char *default_type = kDefaultTypes[number - 1];
    if (*stop == ')') {
        if (cursor != stop) tf.append(default_type);
    } else {
        const auto stretch = static_cast<int>(stop - cursor);
        if (gen_StrippedStrLen(cursor, stretch) > 0) {
            if (stretch > kTypeMax) CL_RAISE(kGroup, kTypeTooLong);
            append_typed(tf, std::string_view(cursor, static_cast<std::size_t>(stretch)));
            cursor = skip_white(stop + 1);
        } else {
            cursor = skip_white(stop + 1);
            if (*cursor != ')' && *cursor != '|') tf.append(default_type);
        }
        stop = mdc_strpbrk(cursor, "|)");
        if (!stop) CL_RAISE(kGroup, kUnclosedExtension);
        if (*stop == '|') CL_RAISE(kGroup, kSecondBar);
    }
    tf.append_sep();
    const auto n = static_cast<std::size_t>(stop - cursor);
    if (n > static_cast<std::size_t>(kExtensionValueMax)) CL_RAISE(kGroup, kExtensionValueTooLong);
    append_typed(tf, std::string_view(cursor, n));
    tf.append_sep();
    return stop + 1;
}

// Both phases. `field` and `number` locate the attribute being read when an
// escape leaves; they live in the caller's frame and are volatile. With
// `joined`, tf is the name and mail node as cl_ParseNameLoclAddr2 wrote
// them: fields 0 to 7 joined by seven separators (no field of it holds a
// separator byte), so field 7 is open at its end and one separator closes
// it; the name library is asked only about a text of the caller's.
void parse_attributes(char *tf, const char *attrs, volatile int &field, volatile int &number, bool allow_marker,
                      bool joined) {
    if (!joined) nm_AddSeparators(tf, kFirstStandardField);
    PackedEnd standard(tf);
    if (joined) standard.append_sep();
    const char *cursor = parse_standard(standard, attrs, field, allow_marker);
    if (*cursor != '(') return;
    // Empty standard values beyond field 14 would push the extension
    // attributes out of their fields: refused as a standard value too many.
    if (field > kFirstExtensionField) {
        field = field - 1;
        CL_RAISE(kGroup, kValueRefused);
    }
    nm_AddSeparators(tf, kFirstExtensionField);
    PackedEnd extensions(tf);
    for (int count = 0;; ++count) {
        if (count == kExtensionsMax) CL_RAISE(kGroup, kTooManyExtensions);
        number = count + 1;
        cursor = skip_white(parse_extension(extensions, cursor, number));
        if (*cursor == '\0') return;
        cursor = std::strchr(cursor, '(');  // text between ')' and '(' is ignored
        if (!cursor) return;
    }
}

// Whether reading attrs after a joined name and mail node can raise no
// escape: a lone '/', one empty standard value, which is what the
// command-line conversion hands over after a positional part that
// attributes follow. Such a reading needs no protected block, and unless
// cl_ConvertSpecialChar would trace on the empty value, it is written at
// once: field 7 closed, field 8 empty and closed.
bool reads_without_escape(const char *attrs, bool joined) { return joined && attrs[0] == '/' && attrs[1] == '\0'; }

// tf_end, when known, is where tf ends.
void parse_external_attribs(char *tf, char *attrs, volatile int *err_index, int allow_marker, bool joined = false,
                            char *tf_end = nullptr) {
    Trace t(kTrace17, "cl_ParseExternalAttribs2");
    *err_index = 0;
    volatile int field = kFirstStandardField;
    volatile int number = 0;
    if (reads_without_escape(attrs, joined)) {
        if (!shortcut_allowed()) {
            parse_attributes(tf, attrs, field, number, allow_marker != 0, joined);
            return t.exit();
        }
        PackedEnd standard(tf, tf_end);
        standard.append_sep();
        standard.append_sep();
        return t.exit();
    }
    protect(
        CL_HERE, [&] { parse_attributes(tf, attrs, field, number, allow_marker != 0, joined); },
        [&] {
            if (er_GetGroup() != kGroup) return;
            if (is_located_in_value(er_GetReason()))
                *err_index = field;
            else if (is_located_in_extension(er_GetReason()))
                *err_index = number;
        });
    t.exit();
}

void check_name_part(std::size_t n) {
    if (n > static_cast<std::size_t>(kNamePartMax)) CL_RAISE(kGroup, kNamePartTooLong);
}

// The name part text[0..n) parsed in a copy of its own (kNamePartMax + 1
// bytes). A frame of its own, so that the parse in place (below) does not
// run a page below its caller.
__attribute__((noinline)) char *parse_name_part_copy(const char *text, std::size_t n, char *result,
                                                     bool allow_marker, ParsedFields *noted) {
    char part[kNamePartMax + 1];  // bounded by check_name_part
    std::memcpy(part, text, n);
    part[n] = '\0';
    bool mail_node = false;
    return result + parse_name_and_node(part, n, result, allow_marker, &mail_node, noted);
}

// The name part text[0..n), in a copy, or in place when the text is the
// caller's scratch: terminated there for the parse, then given its byte
// back.
char *parse_name_part(char *text, std::size_t n, bool scratch, char *result, bool allow_marker, ParsedFields *noted) {
    check_name_part(n);
    if (!scratch) return parse_name_part_copy(text, n, result, allow_marker, noted);
    bool mail_node = false;
    const char kept = text[n];
    text[n] = '\0';
    const std::size_t length = parse_name_and_node(text, n, result, allow_marker, &mail_node, noted);
    text[n] = kept;
    return result + length;
}

}  // namespace

int parse_full_orn(char *text, std::size_t length, char *result, int *err_index, int allow_marker, bool scratch,
                   ParsedFields *noted) {
    Trace t(kTrace19, "cl_ParseFullOrn2");
    result[0] = '\0';
    // The name part runs to the end, to the first '/' when the mail node is
    // empty ('Smith//val8'), or to where the attributes start. A name and
    // mail node without attributes are parsed in the caller's text itself.
    char *const slash = first_of(text, length, '/');
    char *name_end = slash ? slash : text + length;
    char *attrs = nullptr;
    bool in_place = false;
    int more = 0;
    if (slash) {
        char *const rest = skip_white(slash + 1);
        more = *rest != '\0' ? 1 : 0;
        char *const attr_start = mdc_strpbrk(rest, "/(");
        if (*rest == '/') {
            name_end = slash;
            attrs = rest;
        } else if (attr_start) {
            name_end = attr_start;
            attrs = attr_start;
        } else {
            in_place = true;
        }
    }
    char *result_end = nullptr;
    if (in_place) {
        bool mail_node = false;
        parse_name_and_node(text, length, result, allow_marker != 0, &mail_node, noted);
    } else {
        result_end = parse_name_part(text, static_cast<std::size_t>(name_end - text), scratch, result,
                                     allow_marker != 0, noted);
    }
    // A lone '/' adds an empty field; other attributes may add more.
    if (noted && attrs && !reads_without_escape(attrs, true)) noted->complete = false;
    if (attrs && reads_without_escape(attrs, true)) {
        int index = 0;
        parse_external_attribs(result, attrs, &index, allow_marker, true, result_end);
    } else if (attrs) {
        volatile int index = 0;
        protect(
            CL_HERE, [&] { parse_external_attribs(result, attrs, &index, allow_marker, true, result_end); },
            [&] {
                if (er_GetGroup() != kGroup) return;
                const int reason = er_GetReason();
                if (is_located_in_value(reason)) {
                    er_Clear();
                    CL_RAISE(kGroup, reason_for_field(index));
                }
                if (is_located_in_extension(reason)) *err_index = index;
            });
    }
    return t.exit(more);
}

}  // namespace cl

extern "C" {

int cl_ParseFullOrn2(char *text, char *result, int *errIndex, int allowMarker) {
    return cl::parse_full_orn(text, std::strlen(text), result, errIndex, allowMarker, false);
}

int cl_ParseFullOrn(char *text, char *result, int *errIndex) {
    cl::Trace t(cl::kTrace19, "cl_ParseFullOrn");
    return t.exit(cl_ParseFullOrn2(text, result, errIndex, 0));
}

void cl_ParseExternalAttribs2(char *tf, char *attrs, int *errIndex, int allowMarker) {
    cl::parse_external_attribs(tf, attrs, errIndex, allowMarker);
}

void cl_ParseExternalAttribs(char *tf, char *attrs, int *errIndex) {
    cl::Trace t(cl::kTrace17, "cl_ParseExternalAttribs");
    cl_ParseExternalAttribs2(tf, attrs, errIndex, 0);
    t.exit();
}

}  // extern "C"
