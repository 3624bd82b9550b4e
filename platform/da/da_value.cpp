// Attribute values: escaping of key characters, the special values (PSAP,
// IA, CV) and the display of special entries.
//
// PSAP (presentation address). The attribute form is the string form of
// RFC 1278, limited to two selector spellings and NSAPs in hex:
//     [[[ P "/" ] S "/" ] T "/" ] NS+<hex> { "_" NS+<hex> }
// where a selector is "text" (printable ASCII without '"') or '<hex>'H.
// Leading empty selectors are left out. The packed form is the canonical
// hex of every part, P.S.T.N1[.N2...] (selectors may be empty), so two
// spellings of one address pack to the same bytes, and the packed form holds
// nothing but hex digits and '.'. Packing then unpacking gives the canonical
// spelling; unpacking then packing gives back the packed value exactly.
#include <array>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "ccs.h"
#include "da.h"
#include "er.h"
#include "fstr.h"
#include "orn.h"

namespace da {
namespace {

constexpr const char kSourceFile[] = "platform/da/da_value";
constexpr int kBadPSAP = 4671;  // catalogue: the presentation address is not valid
constexpr const char kDefaultKeys[] = "/=*[]%";
constexpr char kHex[] = "0123456789ABCDEF";

// Results: two alternating growable strings per function, so a function may
// be given its own previous result.
struct Result {
    std::array<fstr_String, 2> text;
    int current;
    fstr_String &fresh() {
        current ^= 1;
        fstr_FsCsCopy(&text[static_cast<std::size_t>(current)], "");
        return text[static_cast<std::size_t>(current)];
    }
};

void cat_bytes(fstr_String &s, const char *p, std::size_t n) {
    char chunk[256];
    while (n > 0) {
        std::size_t k = n < sizeof chunk - 1 ? n : sizeof chunk - 1;
        std::memcpy(chunk, p, k);
        chunk[k] = '\0';
        fstr_FsCsCat(&s, chunk);
        p += k;
        n -= k;
    }
}

void cat_char(fstr_String &s, char c) {
    char one[2] = {c, '\0'};
    fstr_FsCsCat(&s, one);
}

std::size_t length_of(const char *value, int len) {
    return len < 0 ? std::strlen(value) : static_cast<std::size_t>(len);
}

// Escaping.

enum class Coding { kSingleByte, kUtf8, kT61 };

Coding coding_of(const char *charset) {
    ccs_Descriptor d;
    if (!charset || !ccs_GetCSDescriptor(charset, &d)) return Coding::kUtf8;
    std::string_view name = d.name;
    if (name == "UTF8") return Coding::kUtf8;
    if (name == "T61") return Coding::kT61;
    return Coding::kSingleByte;
}

bool continuation(unsigned char c) { return (c & 0xC0) == 0x80; }

// Bytes of the character that starts at p (p[0] is not NUL).
std::size_t char_length(const unsigned char *p, Coding coding) {
    if (coding == Coding::kUtf8) {
        std::size_t n = *p >= 0xC2 && *p <= 0xDF ? 2 : *p >= 0xE0 && *p <= 0xEF ? 3 : *p >= 0xF0 && *p <= 0xF4 ? 4 : 1;
        for (std::size_t i = 1; i < n; ++i)
            if (!continuation(p[i])) return 1;
        return n;
    }
    if (coding == Coding::kT61) {
        // A non-spacing diacritical mark (0xC1 to 0xCF) and the letter it marks.
        bool letter = (p[1] >= 'A' && p[1] <= 'Z') || (p[1] >= 'a' && p[1] <= 'z');
        return *p >= 0xC1 && *p <= 0xCF && letter ? 2 : 1;
    }
    return 1;
}

// Each key character and the backslash at a character start is preceded by
// a backslash; multi-byte characters are copied whole.
void escape(fstr_String &out, const char *text, const char *keys, Coding coding) {
    std::string_view key_set = keys ? keys : kDefaultKeys;
    const auto *p = reinterpret_cast<const unsigned char *>(text);
    while (*p) {
        std::size_t n = char_length(p, coding);
        if (n == 1 && (*p == '\\' || key_set.find(static_cast<char>(*p)) != std::string_view::npos))
            cat_char(out, '\\');
        cat_bytes(out, reinterpret_cast<const char *>(p), n);
        p += n;
    }
}

// PSAP. Every part is held as canonical (upper-case) hex, so selectors may
// hold any byte, 0x00 included.

struct PSAPView {
    static constexpr int kSelectors = 3;  // P, S, T
    std::array<fstr_String, kSelectors> selector;
    fstr_String nsaps;  // the NSAPs joined by '.'
};

int hex_value(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

bool is_hex(std::string_view s, bool upper_only) {
    for (char c : s)
        if (hex_value(c) < 0 || (upper_only && c >= 'a')) return false;
    return s.size() % 2 == 0;
}

void cat_upper_hex(fstr_String &out, std::string_view hex) {
    for (char c : hex) cat_char(out, kHex[hex_value(c)]);
}

std::string_view view_of(const fstr_String &s) { return {s.text, static_cast<std::size_t>(s.length)}; }

// The bytes a selector's hex stands for, as "text" when they are printable
// ASCII without '"', else as '<hex>'H.
void write_selector(fstr_String &out, std::string_view hex) {
    bool printable = true;
    for (std::size_t i = 0; i < hex.size(); i += 2) {
        int c = hex_value(hex[i]) << 4 | hex_value(hex[i + 1]);
        printable = printable && c >= 0x20 && c <= 0x7E && c != '"';
    }
    if (!printable) {
        cat_char(out, '\'');
        fstr_FsCsCat(&out, hex.data());
        fstr_FsCsCat(&out, "'H");
        return;
    }
    cat_char(out, '"');
    for (std::size_t i = 0; i < hex.size(); i += 2) cat_char(out, static_cast<char>(hex_value(hex[i]) << 4 | hex_value(hex[i + 1])));
    cat_char(out, '"');
}

bool read_selector(std::string_view token, fstr_String &out) {
    if (token.size() >= 2 && token.front() == '"' && token.back() == '"') {
        for (char c : token.substr(1, token.size() - 2)) {
            if (c < 0x20 || c > 0x7E || c == '"') return false;
            char two[3] = {kHex[static_cast<unsigned char>(c) >> 4], kHex[c & 0x0F], '\0'};
            fstr_FsCsCat(&out, two);
        }
        return true;
    }
    if (token.size() < 3 || token.front() != '\'' || token.substr(token.size() - 2) != "'H") return false;
    std::string_view hex = token.substr(1, token.size() - 3);
    if (!is_hex(hex, false)) return false;
    cat_upper_hex(out, hex);
    return true;
}

// NS+<hex>{_NS+<hex>}.
bool read_nsaps(std::string_view list, fstr_String &out) {
    for (bool first = true;; first = false) {
        std::size_t end = list.find('_');
        std::string_view one = list.substr(0, end);
        if (one.size() < 5 || (one[0] != 'N' && one[0] != 'n') || (one[1] != 'S' && one[1] != 's') ||
            one[2] != '+' || !is_hex(one.substr(3), false))
            return false;
        if (!first) cat_char(out, '.');
        cat_upper_hex(out, one.substr(3));
        if (end == std::string_view::npos) return true;
        list.remove_prefix(end + 1);
    }
}

// The attribute form, split on '/' outside quotes; the selectors given are
// the last ones (T, then S, then P).
bool read_attribute_form(std::string_view text, PSAPView &v) {
    std::array<std::string_view, PSAPView::kSelectors + 1> token{};
    std::size_t count = 0;
    std::size_t start = 0;
    bool quoted = false;
    for (std::size_t i = 0; i <= text.size(); ++i) {
        if (i < text.size() && text[i] == '"') quoted = !quoted;
        if (i < text.size() && (quoted || text[i] != '/')) continue;
        if (count == token.size()) return false;
        token[count++] = text.substr(start, i - start);
        start = i + 1;
    }
    if (quoted) return false;
    std::size_t given = count - 1;
    for (std::size_t k = 0; k < given; ++k)
        if (!read_selector(token[k], v.selector[PSAPView::kSelectors - given + k])) return false;
    return read_nsaps(token[count - 1], v.nsaps);
}

// The packed form P.S.T.N1[.N2...], canonical hex only.
bool read_packed_form(std::string_view text, PSAPView &v) {
    for (fstr_String &selector : v.selector) {
        std::size_t dot = text.find('.');
        if (dot == std::string_view::npos || !is_hex(text.substr(0, dot), true)) return false;
        cat_upper_hex(selector, text.substr(0, dot));
        text.remove_prefix(dot + 1);
    }
    for (std::size_t start = 0;;) {
        std::size_t dot = text.find('.', start);
        std::string_view one = text.substr(start, dot == std::string_view::npos ? dot : dot - start);
        if (one.empty() || !is_hex(one, true)) return false;
        if (dot == std::string_view::npos) break;
        start = dot + 1;
    }
    cat_bytes(v.nsaps, text.data(), text.size());
    return true;
}

void write_packed_form(fstr_String &out, const PSAPView &v) {
    for (const fstr_String &s : v.selector) {
        fstr_FsCsCat(&out, s.text);
        cat_char(out, '.');
    }
    fstr_FsCsCat(&out, v.nsaps.text);
}

void write_attribute_form(fstr_String &out, const PSAPView &v) {
    int first = 0;
    while (first < PSAPView::kSelectors && v.selector[static_cast<std::size_t>(first)].length == 0) ++first;
    for (int k = first; k < PSAPView::kSelectors; ++k) {
        write_selector(out, view_of(v.selector[static_cast<std::size_t>(k)]));
        cat_char(out, '/');
    }
    std::string_view nsaps = view_of(v.nsaps);
    for (std::size_t start = 0;;) {
        std::size_t dot = nsaps.find('.', start);
        fstr_FsCsCat(&out, "NS+");
        std::string_view one = nsaps.substr(start, dot == std::string_view::npos ? dot : dot - start);
        cat_bytes(out, one.data(), one.size());
        if (dot == std::string_view::npos) break;
        cat_char(out, '_');
        start = dot + 1;
    }
}

void view_init(PSAPView &v) {
    for (fstr_String &s : v.selector) fstr_StrInit(&s, "");
    fstr_StrInit(&v.nsaps, "");
}

void view_free(PSAPView &v) {
    for (fstr_String &s : v.selector) fstr_StrFree(&s);
    fstr_StrFree(&v.nsaps);
}

// Reads one form into a view and, when it is valid, writes the other to out.
bool convert_psap(std::string_view text, fstr_String &out, bool (*read)(std::string_view, PSAPView &),
                  void (*write)(fstr_String &, const PSAPView &)) {
    PSAPView v;
    view_init(v);
    bool ok = read(text, v);
    if (ok) write(out, v);
    view_free(v);
    return ok;
}

// CV.

constexpr std::string_view kSimpleCV = "S:";

std::string_view simple_value(std::string_view cv) {
    if (cv.substr(0, kSimpleCV.size()) == kSimpleCV) cv.remove_prefix(kSimpleCV.size());
    return cv;
}

Result g_escaped_ascii{};
Result g_escaped_tx{};
Result g_psap_att{};
Result g_psap_tf{};
Result g_ia_att{};
Result g_ia_tf{};
Result g_cv{};
Result g_shown_value{};
Result g_entry{};

}  // namespace
}  // namespace da

extern "C" {

const char *da_EscapeKeyCharsAscii(const char *value, const char *keys, int *status) {
    if (status) *status = 0;
    fstr_String &out = da::g_escaped_ascii.fresh();
    da::escape(out, value, keys, da::Coding::kSingleByte);
    return out.text;
}

const char *da_EscapeKeyCharsTx(const char *text, const char *charsetName, const char *keys) {
    fstr_String &out = da::g_escaped_tx.fresh();
    da::escape(out, text, keys, da::coding_of(charsetName));
    return out.text;
}

// A value that is not a packed PSAP is returned as it stands, *status 1.
const char *da_PSAPConvTFToAtt(const char *value, int len, int *status) {
    std::string_view text(value, da::length_of(value, len));
    fstr_String &out = da::g_psap_att.fresh();
    bool ok = da::convert_psap(text, out, da::read_packed_form, da::write_attribute_form);
    if (!ok) da::cat_bytes(out, text.data(), text.size());
    if (status) *status = ok ? 0 : 1;
    return out.text;
}

// An attribute text that is not a presentation address raises 100/4671.
const char *da_PSAPConvAttToTF(const char *value, int len, int *outLen) {
    std::string_view text(value, da::length_of(value, len));
    fstr_String &out = da::g_psap_tf.fresh();
    if (!da::convert_psap(text, out, da::read_attribute_form, da::write_packed_form))
        er_TracedEscape(100, da::kBadPSAP, da::kSourceFile, __LINE__);
    if (outLen) *outLen = out.length;
    return out.text;
}

// The attribute form keeps '=' as it is, so that it can be shown and stored
// in entry text (whose parser splits at the first 0x1D only). The flags are
// reserved.
const char *da_IAConvTFToAtt(const char *value, int len, int /*flags*/) {
    fstr_String &out = da::g_ia_att.fresh();
    da::cat_bytes(out, value, da::length_of(value, len));
    return out.text;
}

// Typed text arrives with '=' turned into 0x1D; the packed form holds '='.
const char *da_IAConvAttToTF(const char *value, int len, int /*flags*/) {
    fstr_String &out = da::g_ia_tf.fresh();
    da::cat_bytes(out, value, da::length_of(value, len));
    for (int i = 0; i < out.length; ++i)
        if (out.text[i] == ORN_VALUE_SEP) out.text[i] = '=';
    return out.text;
}

const char *da_ConvEntryToCV(const char *value) {
    fstr_String &out = da::g_cv.fresh();
    fstr_FsCsCat(&out, da::kSimpleCV.data());
    fstr_FsCsCat(&out, value);
    return out.text;
}

void da_AdjustCVToSimple(const char **text, int *len) {
    std::string_view cv(*text, da::length_of(*text, *len));
    std::string_view simple = da::simple_value(cv);
    *text = simple.data();
    *len = static_cast<int>(simple.size());
}

const char *da_FormatValue(const char *cv) {
    fstr_String &out = da::g_shown_value.fresh();
    std::string_view simple = da::simple_value(cv);
    da::cat_bytes(out, simple.data(), simple.size());
    return out.text;
}

// The value is shown with its key characters escaped, like every other
// attribute entry of a display text. An entry that is not "<number>" 0x1D
// "<CV>" is returned as it stands. The four flags are reserved.
const char *da_FormatAttribEntry(const char *entry, int, int, int, int) {
    fstr_String &out = da::g_entry.fresh();
    std::string_view text = entry;
    std::size_t sep = text.find(ORN_VALUE_SEP);
    std::string_view number = text.substr(0, sep);
    bool digits = sep != std::string_view::npos && !number.empty() && number.size() < 8 &&
                  number.find_first_not_of("0123456789") == std::string_view::npos;
    if (!digits) {
        fstr_FsCsCat(&out, entry);
        return out.text;
    }
    char tag[8];
    std::memcpy(tag, number.data(), number.size());
    tag[number.size()] = '\0';
    const char *name = da_AttribNumberToLocName(std::atoi(tag));
    fstr_FsCsCat(&out, *name ? name : tag);
    da::cat_char(out, '=');
    std::string_view simple = da::simple_value(text.substr(sep + 1));
    fstr_String shown;
    fstr_StrInit(&shown, "");
    da::cat_bytes(shown, simple.data(), simple.size());
    da::escape(out, shown.text, da::kDefaultKeys, da::Coding::kSingleByte);
    fstr_StrFree(&shown);
    return out.text;
}

}  // extern "C"
