// Attribute entries 'name=value' joined by '/', with the key characters of
// values escaped: group 2 of the display texts, and every field of a name in
// the native and ascii-encoded attribute-list forms.
#include "cl.h"
#include "enc.h"
#include "fmt_buffer.hpp"
#include "frame.hpp"

namespace cl {
namespace {

constexpr const char kSourceFile[] = "cl/cl_FmtGroup2";


constexpr char kPostalSeparator = '\x18';
constexpr int kListTooLong = 4670;  // catalogue: attribute-list form over 4096 characters

// Bound: 4096 characters (fmt::kGroup2Size).
fmt::Text g_entries{fmt::kGroup2Size};
// Refilled by every cl_FormatPostalAddress; zero at load.
fstr_String g_postal{};

bool ascii_encoded(int field) {
    return field == ORN_PSAP || (field >= ORN_COUNTERPART && field <= ORN_LAST_TEXT) || field > ORN_IA;
}

const char *postal_address(const char *value) {
    fstr_FsCsCopy(&g_postal, value);
    for (int i = 0; i < g_postal.length; ++i)
        if (g_postal.text[i] == kPostalSeparator) g_postal.text[i] = '%';
    return g_postal.text;
}

void append_value(fmt::Text &out, int field, const char *value, bool asciiEncode) {
    int status = 0;
    if (asciiEncode && ascii_encoded(field)) {
        out.append(enc_EncodeToAscii(value, static_cast<int>(std::strlen(value)), &status));
        return;
    }
    const char *escaped = da_EscapeKeyCharsAscii(value, fmt::kKeyChars, &status);
    if (field == ORN_POSTAL_ADDRESS)
        out.append(postal_address(escaped));
    else if (field == ORN_COMMON_NAME && std::strcmp(value, "*") == 0)
        out.append(value);
    else
        out.append(escaped);
}

// The PSAP address as the special entry with attribute number "28".
void append_psap(fmt::Text &out, const char *value) {
    int status = 0;
    fstr_String entry{};
    const char *att = da_PSAPConvTFToAtt(value, static_cast<int>(std::strlen(value)), &status);
    out.append(fmt::special_entry(entry, "28", att));
    fstr_StrFree(&entry);
}

// The entries from the present field i to last, into the emptied out.
// Kept out of line: most ranges hold no field, and their calls need not
// set up this loop.
__attribute__((noinline)) void write_entries(fmt::Text &out, char **table, int i, int last, bool asciiEncode) {
    bool written = false;
    for (; i <= last; i = fmt::next_present(table, i + 1, last)) {
        const char *value = table[i];
        if (written) out.append('/');
        written = true;
        if (!asciiEncode && i == ORN_PSAP) {
            append_psap(out, value);
            continue;
        }
        out.append(fmt::display_name(i));
        out.append('=');
        append_value(out, i, value, asciiEncode);
    }
}

fmt::Text &entries(char **table, int first, int last, bool asciiEncode) {
    fmt::Text &out = g_entries;
    out.begin();
    if (first < 0) first = 0;
    if (last > kFieldCount - 1) last = kFieldCount - 1;
    const int i = fmt::next_present(table, first, last);
    if (i <= last) write_entries(out, table, i, last, asciiEncode);
    return out;
}

// A whole name as attribute entries. These forms are read back, so a text
// that does not fit is refused rather than cut.
char *attribute_list(const char *tf, bool asciiEncode) {
    fmt::LocalTable local;
    char **table = fmt::unpack(tf, kFieldCount, local);
    fmt::Text &out = entries(table, 0, kFieldCount - 1, asciiEncode);
    fmt::release(table, local);
    if (out.full()) CL_RAISE(100, kListTooLong);
    return out.data();
}

}  // namespace

char *fmt::empty_entries() { return g_entries.begin(); }

}  // namespace cl

extern "C" {

char *cl_FrmtGroup2PP(char **table, int first, int last, int asciiEncode) {
    cl::Trace t(cl::kTrace19, "cl_FrmtGroup2PP");
    return t.exit(cl::entries(table, first, last, asciiEncode != 0).data());
}

int cl_ShouldAsciiEncode(int field) {
    cl::Trace t(cl::kTrace19, "cl_ShouldAsciiEncode");
    return t.exit(cl::ascii_encoded(field) ? 1 : 0);
}

const char *cl_FormatSpecialEntry(const char *entry) { return da_FormatAttribEntry(entry, 0, 0, 0, 0); }

char *cl_FormatPostalAddress(const char *value) { return const_cast<char *>(cl::postal_address(value)); }

char *cl_FormatNative(const char *tf) { return cl::attribute_list(tf, false); }

char *cl_FormatAsciiEncoded(const char *tf) { return cl::attribute_list(tf, true); }

}  // extern "C"
