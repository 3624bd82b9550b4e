// Typed names and mail nodes: converted by the library and checked as it
// checks a user's name, so that what the programs store reads back.
#include <cstring>

#include "nm.h"
#include "qxadm.hpp"

namespace qxadm {
namespace {

constexpr const char kSourceFile[] = "programs/names";

// Copies a typed argument into text (kTextMax + 1 bytes): the conversion
// rewrites its text in place, and argv is not ours to rewrite.
void copy_typed(const char *typed, char *text) {
    std::size_t n = std::strlen(typed);
    if (n > kTextMax) QX_RAISE(kNameTooLong);
    std::memcpy(text, typed, n + 1);
}

// The stored form of a name: unpacked and packed again, so that every typing
// of one name (a trailing '/', attributes in another order) gives one key.
void canonical(const char *packed, char *key) {
    char **array = nullptr;
    cl_UnPackToLargeArray(packed, &array);
    cl_ORNArray2Tf(array, key);
    cl_FreeArray(array);
}

// The units typed in the first segment of a mail node, judged as a user's
// mail node is. text is the caller's copy after the conversion, which has
// rewritten each escaped character of that segment into its substitute with
// the backslash left before it, so the segment ends at the first '/' or '='.
// A segment with '=' is an attribute, not units; an empty one (the mail node
// given by later fields alone) has no units to judge. A backslash keeps the
// character after it, as the conversion's transformation does.
void check_typed_units(const char *text) {
    const std::size_t end = std::strcspn(text, "/=");
    if (text[end] == '=' || end == 0) return;
    char units[kTextMax + 1];
    std::size_t n = 0;
    for (std::size_t i = 0; i < end; ++i) {
        if (text[i] == '\\') {
            if (++i == end) break;
        }
        units[n++] = text[i];
    }
    units[n] = '\0';
    char parsed[kParsedSize];
    cl_ParseLoclAddr(units, parsed);
}

// Whether every field present in the packed text keeps its field's rule
// (length bound and characters).
bool fields_keep_rules(const char *packed) {
    nm_ParsedORN parsed;
    int status = 0;
    nm_ParseORN(packed, &parsed, &status);
    for (int field = 0; field < NM_FIELDS; ++field) {
        int len = 0;
        const char *value = nm_GetFieldMemPtr(packed, &parsed, field, &len);
        if (value && !nm_CheckFieldText(value, len, field, 0)) return false;
    }
    return true;
}

void copy_display(const char *text, char *out) {
    std::snprintf(out, kDisplaySize, "%s", text);
}

}  // namespace

// The programs read and write UTF-8.
ccs_Descriptor *charset() {
    static ccs_Descriptor utf8;
    static bool ready = false;
    if (!ready) ready = ccs_GetCSDescriptor("UTF8", &utf8) == 1;
    return ready ? &utf8 : nullptr;
}

// 'Given Surname/Unit,Unit[/attribute=value...]' into its key (kPackedSize
// bytes).
void user_key(const char *typed, char *key) {
    char text[kTextMax + 1];
    char packed[kPackedSize];
    copy_typed(typed, text);
    cl_ConvCltoORN(text, packed, 0, 0, charset());
    canonical(packed, key);
}

// A user's listing names the user again: its display text, typed back,
// gives the same key. So every line that qx-userlist shows is accepted by
// qx-usershow, qx-userdel and qx-import, and two users never list alike.
void check_listable(const char *display, const char *key) {
    char again[kPackedSize];
    if (fails([&] { user_key(display, again); }) || std::strcmp(again, key) != 0) QX_RAISE(kNotListable);
}

// A new user's name, as qx-useradd and qx-import take it: converted from
// the typed form or read from the attribute-list form, then checked as a
// new user's name (kind 3) and shown.
void new_user(const char *text, NameForm form, char *key, char *display) {
    if (form == NameForm::kTyped) {
        user_key(text, key);
    } else {
        if (std::strlen(text) > kTextMax) QX_RAISE(kNameTooLong);
        char packed[kPackedSize];
        cl_AsciiEncodedToTF(text, packed);
        canonical(packed, key);
    }
    cl_ValidateORNFields(key, 3);
    copy_display(cl_FormatFullName(key, charset()), display);
    check_listable(display, key);
}

// 'Unit,Unit[/attribute=value...]' into its key, checked as a mail node:
// its typed units as a user's are, its fields by kind 1 and their rules.
void mail_node_key(const char *typed, char *key) {
    char text[kTextMax + 1];
    char packed[kPackedSize];
    copy_typed(typed, text);
    cl_ConvClMntoORN(text, packed, 0, 0, charset());
    check_typed_units(text);
    canonical(packed, key);
    cl_ValidateORNFields(key, 1);
    if (!fields_keep_rules(key)) QX_RAISE(kFieldNotValid);
}

// Whether a packed text read from a file of the home is a sound mail node:
// it parses, passes kind 1, and each field keeps its rule.
bool sound_mail_node(const char *packed) {
    bool sound = false;
    bool escaped = fails([&] {
        int reason = 0;
        cl_ValidateORNFieldsNoEscape(packed, 1, &reason);
        sound = reason == 0 && fields_keep_rules(packed);
    });
    return sound && !escaped;
}

void show_mail_node(const char *label, const char *packed) {
    const char *text = *packed ? cl_FormatMailNode(packed, charset(), 1) : "";
    std::printf("%s: %s\n", label, *text ? text : "(none)");
}

}  // namespace qxadm
