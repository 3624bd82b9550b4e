// Packed O/R name text and the 161-slot field array; substitute characters;
// command-line text, field arrays and attribute lists into packed text.
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "ccs.h"
#include "cl.h"
#include "da.h"
#include "dr.h"
#include "enc.h"
#include "frame.hpp"
#include "fstr.h"
#include "last_packed.hpp"
#include "name_fields.hpp"
#include "name_parse.hpp"
#include "nm.h"
#include "os.h"
#include "packed.hpp"
#include "packing.hpp"
#include "substitute.hpp"
#include "t61.h"

namespace cl {
namespace {

constexpr const char kSourceFile[] = "cl/cl_CL2TF";

// Field array: unpack (copy_span, cl/name_fields.hpp) and pack (cl/packing.hpp).

// Slots are copied straight from the text, so no field length limit applies
// here.
void unpack(const char *tf, char **slots) {
    walk_fields(tf, [slots](int n, const char *begin, const char *end) { slots[n] = copy_span(begin, end); });
}

// Substitute characters (cl/substitute.hpp).
void map_bytes(char *s, const ByteMap &map) {
    for (; *s; ++s) *s = map_byte(*s, map);
}

}  // namespace
}  // namespace cl

extern "C" {

void cl_UnPackToLargeArray(const char *tf, char ***array) {
    auto **slots = static_cast<char **>(os_malloc(sizeof(char *) * cl::kFieldCount));
    for (int i = 0; i < cl::kFieldCount; ++i) slots[i] = nullptr;
    cl::unpack(tf, slots);
    *array = slots;
}

void cl_ORNArray2Tf(char **array, char *out) { cl::pack(cl::ArraySlots{array}, out); }

// Null slots hold nothing to release (os_free would accept them).
void cl_FreeArray(char **array) {
    if (!array) return;
#pragma GCC unroll 8  // most slots are null: a short step over each
    for (int i = 0; i < cl::kFieldCount; ++i)
        if (array[i]) os_free(array[i]);
    os_free(array);
}

void cl_ConvertToSpecialChar(char *s) {
    cl::Trace t(cl::kTrace19, "cl_ConvertToSpecialChar");
    cl::map_bytes(s, cl::kToSubstitute);
    t.exit();
}

void cl_ConvertSpecialChar(char *s) {
    cl::Trace t(cl::kTrace19, "cl_ConvertSpecialChar");
    cl::map_bytes(s, cl::kFromSubstitute);
    t.exit();
}

}  // extern "C"

// Command-line conversion: a positional name followed by attribute=value
// pairs, through the T.61 transformation, into packed text or an array.

namespace cl {
namespace {

// Bytes of the transformed text besides kSegmentEnd and kNameValue.
constexpr char kRepeatedDelimiter = '\x05';   // ',' when positional, 0x1D in attributes
constexpr char kEscape = '\\';

constexpr int kIAField = ORN_IA;
constexpr int kPSAPField = ORN_PSAP;
constexpr int kPostalField = ORN_POSTAL_ADDRESS;
constexpr int kCVField = ORN_CV;

// An escaped delimiter of the first segment becomes its substitute.
constexpr char kEscapable[] = " ./,()=";
constexpr char kEscapeSubstitute[] = "_!|;{}#";
static_assert(sizeof kEscapable == sizeof kEscapeSubstitute);

// The special characters handed to the transformation, with their
// replacement strings in the same order.
struct SpecialSet {
    const char *chars;
    const char *const *replacements;
};
constexpr char kSegmentEndText[] = {kSegmentEnd, '\0'};
constexpr char kNameValueText[] = {kNameValue, '\0'};
constexpr char kMarkerText[] = {kMarker, '\0'};
constexpr const char *kWithMarker[] = {kSegmentEndText, kNameValueText, kMarkerText, "\x1A[", "\x1A]", "\x18"};
constexpr const char *kWithoutMarker[] = {kSegmentEndText, kNameValueText, "\x1A[", "\x1A]", "\x18"};
constexpr SpecialSet kSpecialsWithMarker{"/=*[]%", kWithMarker};
constexpr SpecialSet kSpecialsWithoutMarker{"/=[]%", kWithoutMarker};

// Working storage bounds. The positional text holds 4095 characters (a
// longer one is refused with 100/9801, like the name part of a full name);
// the internal set name 14. The positional packed text needs at most the
// prefix, the text and three padding separators (mail-node form: 4103
// bytes); the full-name parser's own limits keep its text far below that.
constexpr std::size_t kPositionalMax = 4095;
constexpr std::size_t kPackedSize = 8192;
constexpr std::size_t kCharsetNameSize = 15;

void substitute_escaped_delimiters(char *text) {
    for (char *p = text; *p && *p != '/' && *p != '='; ++p) {
        if (*p != kEscape) continue;
        if (!p[1]) return;
        if (const char *k = std::strchr(kEscapable, p[1])) p[1] = kEscapeSubstitute[k - kEscapable];
        ++p;
    }
}

// The transformed text, or an escape: 30002 for an empty text, 30003 for
// one that cannot be read in the caller's set.
char *transform(const char *text, int allowMarker, ccs_Descriptor *charset) {
    const char *internal = ccs_GetInternalCharset(ccs_GetCSName(charset), 2);
    char *t = nullptr;
    if (internal && std::strlen(internal) < kCharsetNameSize) {
        char name[kCharsetNameSize];
        std::strcpy(name, internal);
        const SpecialSet &sp = allowMarker ? kSpecialsWithMarker : kSpecialsWithoutMarker;
        int len = 0;
        t = t61_TransformTInputStr2(text, -1, name, sp.chars, sp.replacements, "/=", kEscape, 1, &len);
    }
    if (!t) CL_RAISE(100, text[0] ? 30003 : 30002);
    return t;
}

// Collects the positional part of t into pos ('/' between segments, ','
// for 0x05) and returns where the attribute part starts: at the segment
// holding the first '=', or at the end. One pass, a byte at a time: t has
// just been written. A text longer than pos holds is measured again in
// full, since its positional part may still be short.
std::size_t split_positional(const char *t, char (&pos)[kPositionalMax + 1]) {
    std::size_t segment = 0;  // where the segment being read starts
    std::size_t k = 0;
    for (; k <= kPositionalMax; ++k) {
        const char c = t[k];
        if (c == '\0' || c == kNameValue) break;
        pos[k] = c == kSegmentEnd ? '/' : c == kRepeatedDelimiter ? ',' : c;
        segment = c == kSegmentEnd ? k + 1 : segment;
    }
    std::size_t i = t[k] == kNameValue ? segment : k;  // that segment is an attribute name
    if (k > kPositionalMax) {
        const char kNameValueSet[] = {kNameValue, '\0'};
        i = std::strcspn(t, kNameValueSet);
        if (t[i] == kNameValue) {
            const void *segmentEnd = memrchr(t, kSegmentEnd, i);
            i = segmentEnd ? static_cast<std::size_t>(static_cast<const char *>(segmentEnd) - t) + 1 : 0;
        }
        if (i > kPositionalMax) CL_RAISE(100, 9801);
    }
    pos[i] = '\0';
    return i;
}

// pos holds n bytes; it is not read again, so the parser may work in it.
void parse_positional(char *pos, std::size_t n, char *packed, int allowMarker, int mailNodeForm,
                      ParsedFields &noted) {
    if (mailNodeForm) {
        while (n > 0 && pos[n - 1] == '/') pos[--n] = '\0';
        cl_PositionalMnToORN(packed, pos);
        noted.complete = false;  // its fields are found by a walk
    } else {
        int errIndex = 0;  // the failing extension attribute: not needed here
        parse_full_orn(pos, n, packed, &errIndex, allowMarker, true, &noted);
    }
}

// When attributes follow, the positional part's packed text only carries
// its fields to them. A plain part (read_plain_positional) hands over its
// words instead, as they lie in t, neither copied, parsed nor packed, when
// the parse would leave no trace record but the one of
// cl_ParseExternalAttribs2, which reads a lone '/' and always traces: that
// record is left all the same. Returns where the attributes start, or 0.
std::size_t plain_fields(const char *t, ParsedFields &noted) {
    PlainPositional part;
    if (!shortcut_allowed() || !read_plain_positional(t, noted, part)) return 0;
    if (part.loneSlash) Trace(kTrace17, "cl_ParseExternalAttribs2").exit();
    return part.attributes;
}

bool control_allowed(int field, unsigned char b, int allowMarker) {
    return (b == static_cast<unsigned char>(kNameValue) && field == kIAField) ||
           (b == static_cast<unsigned char>(kMarker) && allowMarker);
}

// A value bound for an ordinary field holds no control byte.
void check_controls(int field, const char *value, int len, int allowMarker) {
    for (int k = 0; k < len; ++k) {
        auto b = static_cast<unsigned char>(value[k]);
        if (b >= 0x01 && b <= 0x1F && !control_allowed(field, b, allowMarker)) CL_RAISE(100, 4636);
    }
}

// The entry copy: the encoded attribute part, which the directory libraries
// read and in which values are cut in place. The buffer is kept from one
// conversion to the next and grows to the longest entry seen, so a
// conversion allocates nothing for it and an escape leaves nothing of it to
// release.
struct EntryCopy {
    char *text = nullptr;
    std::size_t size = 0;  // bytes of text, terminator included
};
EntryCopy g_entry;

char *copy_entry(const char *entry) {
    const std::size_t n = std::strlen(entry) + 1;
    if (n > g_entry.size) {
        os_free(g_entry.text);
        g_entry = EntryCopy{};
        g_entry.text = static_cast<char *>(os_malloc(n));
        g_entry.size = n;
    }
    std::memcpy(g_entry.text, entry, n);
    return g_entry.text;
}

// Stores an attribute value in its field, in packed form; t61: the field
// holds T.61 text.
void store_value(NameFields &fields, int field, bool t61, char *value, int len) {
    if (t61) return fields.set_text(field, value);
    switch (field) {
    case kIAField:
        return fields.set_copy(field, da_IAConvAttToTF(value, -1, 0));
    case kCVField: {
        const char *simple = value;
        int n = len;
        da_AdjustCVToSimple(&simple, &n);
        value[simple - value + n] = '\0';
        return fields.set_text(field, simple);
    }
    case kPSAPField: {
        int n = 0;
        return fields.set_copy(field, da_PSAPConvAttToTF(value, len, &n));
    }
    default:
        return fields.set_text(field, value);
    }
}

void store_attribute(NameFields &fields, int field, char *value, int len, int allowMarker) {
    if (field < 0 || field > kLastField) CL_RAISE(100, 4634);
    if (fields.is_set(field)) CL_RAISE(100, 4635);
    const bool t61 = nm_IsT61Field(field) != 0;
    const bool exempt = field == kCVField || field == kPSAPField || field == kPostalField || t61;
    if (!exempt) check_controls(field, value, len, allowMarker);
    // Whatever the field, a separator of the packed form would move the
    // fields after it (field 130 turns 0x1D into '=' itself).
    else if (holds_separator(value, len)) CL_RAISE(100, 4636);
    store_value(fields, field, t61, value, len);
    // What is stored may differ from what was checked: a converted value,
    // or a value the library terminated past its length.
    const Piece &stored = fields.slots[field];
    if (holds_separator(stored.text, static_cast<long>(stored.len))) fields.clean = false;
}

// The positional fields, filled from the attribute part (which is
// rewritten). On an escape the converted values are released before the
// escape goes on; otherwise the caller releases them once it has taken the
// fields.
void fill_from_attributes(char *attrs, const char *positionalTF, const ParsedFields &noted, int tagMapping,
                          int allowMarker, NameFields &fields) {
    fields.start(positionalTF, noted);
    pass_on_block(
        CL_HERE,
        [&] {
            for (char *p = attrs; (p = std::strchr(p, kRepeatedDelimiter)) != nullptr; ++p) *p = kNameValue;
            char *entry = copy_entry(da_EncodeEntryIA(da_MapToInternalTags(attrs, tagMapping, 1)));
            dr_ValidateEntry(entry, 0, allowMarker, 0, 1);
            da_AttrCursor cursor;
            da_ParseAttribList(entry, &cursor);
            char *name = nullptr;
            char *value = nullptr;
            int len = 0;
            while (da_GetAttrib(entry, &cursor, 0, &name, &value, &len)) {
                int field = da_AttIdToORNIndex(name, static_cast<int>(std::strlen(name)));
                store_attribute(fields, field, value, len, allowMarker);
            }
        },
        [&] { fields.release(); });
}

// Packs the fields into out and keeps the conversion's record of the text,
// noted while it is written when the fields allow, else by walking it.
void pack_and_record(const NameFields &fields, char *out) {
    if (!fields.clean) {
        remember_packed(out, pack(fields, out));
        return;
    }
    start_record();
    finish_record(out, pack(fields, out, [](int n, std::size_t offset, std::size_t length) {
                      note_field(n, offset, length);
                  }));
}

// The positional part as the general reading takes it: split off into pos,
// then parsed into packed text. Static, as one conversion runs at a time:
// 12 KiB in the converting frame would set the frames it calls three pages
// below it, where their first lines would compete with the caller's for
// the same lines of the data cache.
struct PositionalWork {
    char pos[kPositionalMax + 1];
    char packed[kPackedSize];
};
PositionalWork g_positional;

// The result of a text without attributes: its positional part's packed
// text, or the field array made from it.
void *positional_only(const char *packed, char *out, int arrayResult) {
    if (!arrayResult) {
        const std::size_t n = std::strlen(packed);
        std::memcpy(out, packed, n + 1);
        remember_packed(out, n);
        return out;
    }
    char **array = nullptr;
    cl_UnPackToLargeArray(packed, &array);
    return array;
}

void *main_conv(char *text, char *out, int tagMapping, int allowMarker, ccs_Descriptor *charset, int arrayResult,
                int mailNodeForm) {
    substitute_escaped_delimiters(text);
    char *t = transform(text, allowMarker, charset);
    ParsedFields noted;
    noted.complete = true;  // an empty positional text has no fields
    // A plain positional part's fields stay where they lie in t: the
    // transformation's result holds until its next call, which comes with
    // the next conversion, after these fields are packed.
    std::size_t i = mailNodeForm ? 0 : plain_fields(t, noted);
    const char *positional = t;  // the text the notes point into
    if (i == 0) {
        char *const packed = g_positional.packed;
        packed[0] = '\0';
        positional = packed;
        if ((i = split_positional(t, g_positional.pos)) != 0) {
            parse_positional(g_positional.pos, i, packed, allowMarker, mailNodeForm, noted);
            if (t[i] == '\0') return positional_only(packed, out, arrayResult);
        }
    }
    NameFields fields;
    fill_from_attributes(t + i, positional, noted, tagMapping, allowMarker, fields);
    void *result = out;
    if (arrayResult)
        result = fields.to_array();
    else
        pack_and_record(fields, out);
    fields.release();
    return result;
}

void conv_to_da(char *text, char *out, int tagMapping, int allowMarker, int numeric, ccs_Descriptor *charset,
                int mailNodeForm) {
    char unused[1] = "";
    auto **array = static_cast<char **>(main_conv(text, unused, tagMapping, allowMarker, charset, 1, mailNodeForm));
    char *da = cl_ArrayToDA(array, numeric);
    std::strcpy(out, da);
    os_free(da);
    cl_FreeArray(array);
}

// Field array to directory-attribute text.

fstr_String g_daText;  // restarted by every call; its text becomes the caller's

const char *da_value(int field, const char *value, bool named) {
    int len = static_cast<int>(std::strlen(value));
    switch (field) {
    case kIAField:
        return da_IAConvTFToAtt(value, len, 0);
    case kCVField: {
        const char *cv = da_ConvEntryToCV(value);
        return named ? da_FormatValue(cv) : cv;
    }
    case kPSAPField: {
        int status = 0;
        const char *cv = da_ConvEntryToCV(da_PSAPConvTFToAtt(value, len, &status));
        return named ? da_FormatValue(cv) : cv;
    }
    default:
        return value;
    }
}

char *array_to_da(char **array, int numeric) {
    Trace t(kTrace21, "cl_ArrayToDA");
    const bool named = numeric == 0;
    fstr_StrInit(&g_daText, "");
    bool first = true;
    for (int i = 0; i < kFieldCount; ++i) {
        if (!array[i]) continue;
        if (!first) fstr_FsCsCat(&g_daText, named ? "/" : kEntrySepText);
        int number = da_nmFieldNum2DANum(i);
        if (named) {
            fstr_FsCsCat(&g_daText, da_AttribNumberToLocName(number));
        } else {
            char digits[20];  // any int in decimal
            std::snprintf(digits, sizeof digits, "%d", number);
            fstr_FsCsCat(&g_daText, digits);
        }
        fstr_FsCsCat(&g_daText, named ? "=" : kValueSepText);
        fstr_FsCsCat(&g_daText, da_value(i, array[i], named));
        first = false;
    }
    return t.exit(g_daText.text);
}

// Attribute lists ('name=value' joined by '/') into packed text.

enum class ListForm { kNative, kAsciiEncoded };

// Names typed longer than this are no attribute's (the longest local name
// has 22 characters) and their entries are skipped.
constexpr std::size_t kListNameSize = 64;

struct Span {
    const char *begin;
    const char *end;
};

// Copies a span into out, dropping each escaping backslash (a backslash at
// the very end is dropped too). Returns the length written.
std::size_t unescape(Span s, bool escapes, char *out) {
    char *o = out;
    for (const char *p = s.begin; p < s.end; ++p) {
        if (escapes && *p == kEscape && ++p == s.end) break;
        *o++ = *p;
    }
    *o = '\0';
    return static_cast<std::size_t>(o - out);
}

int list_field(Span name, bool escapes) {
    if (static_cast<std::size_t>(name.end - name.begin) >= kListNameSize) return DA_NO_FIELD;
    char typed[kListNameSize];
    unescape(name, escapes, typed);
    const char *internal = da_FindAttribIntName(typed);
    return da_AttIdToORNIndex(internal, static_cast<int>(std::strlen(internal)));
}

// Stores one entry. The copy belongs to the array from the start, so an
// escape on the way (a decoded value holding a separator of the packed
// form, 4636) releases it with the array.
void store_list_entry(char **array, Span name, Span value, ListForm form) {
    const bool escapes = form == ListForm::kAsciiEncoded;
    int field = list_field(name, escapes);
    if (field == DA_NO_FIELD) return;
    auto *copy = static_cast<char *>(os_malloc(static_cast<std::size_t>(value.end - value.begin) + 1));
    unescape(value, escapes, copy);
    os_free(array[field]);
    array[field] = copy;
    if (escapes && cl_ShouldAsciiEncode(field)) {
        int n = 0;
        char *decoded = enc_DecodeFromAscii(copy, &n);
        if (holds_separator(decoded, n)) CL_RAISE(100, 4636);
        decoded[n] = '\0';
        array[field] = os_strdup(decoded);
        os_free(copy);
    }
}

// One reader for both forms. With a null array it checks the syntax alone,
// so that a refused text is refused before anything is allocated.
void read_list(const char *text, ListForm form, char **array) {
    const bool escapes = form == ListForm::kAsciiEncoded;
    bool inValue = false;
    int nameChars = 0;
    int valueChars = 0;
    Span name{text, text};
    Span value{text, text};
    const char *p = text;
    for (; *p; ++p) {
        if (escapes && *p == kEscape) {  // the next character, if any, is literal
            if (!p[1]) continue;
            ++p;
            if (*p == kFieldSep || *p == kGroupEnd) CL_RAISE(100, 4636);
            ++(inValue ? valueChars : nameChars);
            continue;
        }
        if (*p == '=') {
            if (inValue) CL_RAISE(100, 4629);
            if (nameChars == 0) CL_RAISE(100, 4631);
            name.end = p;
            value.begin = p + 1;
            inValue = true;
        } else if (*p == '/') {
            if (!inValue) CL_RAISE(100, 4632);
            if (valueChars == 0) CL_RAISE(100, 4628);
            value.end = p;
            if (array) store_list_entry(array, name, value, form);
            name = Span{p + 1, p + 1};
            inValue = false;
            nameChars = valueChars = 0;
        } else {
            if (*p == kFieldSep || *p == kGroupEnd) CL_RAISE(100, 4636);
            ++(inValue ? valueChars : nameChars);
        }
    }
    if (!inValue) {
        if (nameChars != 0) CL_RAISE(100, 4633);
        return;
    }
    if (valueChars == 0) CL_RAISE(100, 4628);
    value.end = p;
    if (array) store_list_entry(array, name, value, form);
}

// The syntax is checked before anything is allocated; the second reading
// stores, and releases the array if a value is refused on the way.
void list_to_tf(const char *text, char *out, ListForm form) {
    read_list(text, form, nullptr);
    char **volatile array = nullptr;
    pass_on_block(
        CL_HERE,
        [&] {
            char **fresh = nullptr;
            cl_UnPackToLargeArray("", &fresh);
            array = fresh;
            read_list(text, form, fresh);
        },
        [&] { cl_FreeArray(array); });
    cl_ORNArray2Tf(array, out);
    cl_FreeArray(array);
}

}  // namespace
}  // namespace cl

extern "C" {

void *cl_MainConvCltoORN(char *text, char *out, int tagMapping, int allowMarker, ccs_Descriptor *charset,
                         int arrayResult, int mailNodeForm) {
    return cl::main_conv(text, out, tagMapping, allowMarker, charset, arrayResult, mailNodeForm);
}

char *cl_ConvCltoORN(char *text, char *out, int tagMapping, int allowMarker, ccs_Descriptor *charset) {
    return static_cast<char *>(cl::main_conv(text, out, tagMapping, allowMarker, charset, 0, 0));
}

char *cl_ConvClMntoORN(char *text, char *out, int tagMapping, int allowMarker, ccs_Descriptor *charset) {
    return static_cast<char *>(cl::main_conv(text, out, tagMapping, allowMarker, charset, 0, 1));
}

char **cl_ConvCltoArray(char *text, char *out, int tagMapping, int allowMarker, ccs_Descriptor *charset) {
    return static_cast<char **>(cl::main_conv(text, out, tagMapping, allowMarker, charset, 1, 0));
}

void cl_ConvCltoDa(char *text, char *out, int tagMapping, int allowMarker, int numeric, ccs_Descriptor *charset) {
    cl::conv_to_da(text, out, tagMapping, allowMarker, numeric, charset, 0);
}

void cl_ConvClMntoDa(char *text, char *out, int tagMapping, int allowMarker, int numeric, ccs_Descriptor *charset) {
    cl::conv_to_da(text, out, tagMapping, allowMarker, numeric, charset, 1);
}

char *cl_ArrayToDA(char **array, int numeric) { return cl::array_to_da(array, numeric); }

void cl_AsciiEncodedToTF(const char *text, char *out) { cl::list_to_tf(text, out, cl::ListForm::kAsciiEncoded); }

void cl_NativeToTF(const char *text, char *out) { cl::list_to_tf(text, out, cl::ListForm::kNative); }

}  // extern "C"
