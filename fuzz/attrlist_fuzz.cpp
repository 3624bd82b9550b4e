// The two attribute-list readers, cl_AsciiEncodedToTF and cl_NativeToTF.
//
// Flags: bit 0 reads the text as ascii-encoded. A name the ascii-encoded
// reader makes is written again with cl_FormatAsciiEncoded and must read
// back to itself. Text without a backslash and without an entry for an
// encoded field reads the same in both variants.
#include "fuzz_support.hpp"

namespace {

// The output holds at most the input's bytes (decoding never lengthens a
// value) and a separator per field.
std::size_t out_size(const std::string &text) { return text.size() + fuzz::kFields + 1; }

// The entries as the readers see them: name and value, a backslash making
// the next character literal in the ascii-encoded variant.
struct Entry {
    std::string name, value;
    int field = -1;
};

std::vector<Entry> entries_of(const std::string &text, bool ascii) {
    std::vector<Entry> entries(1);
    bool in_value = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (ascii && c == '\\') {
            if (++i == text.size()) break;
            c = text[i];
        } else if (c == '=' && !in_value) {
            in_value = true;
            continue;
        } else if (c == '/' && in_value) {
            entries.emplace_back();
            in_value = false;
            continue;
        }
        (in_value ? entries.back().value : entries.back().name) += c;
    }
    for (Entry &e : entries) {
        const char *tag = da_FindAttribIntName(e.name.c_str());
        e.field = da_AttIdToORNIndex(tag, static_cast<int>(std::strlen(tag)));
    }
    return entries;
}

// True when some entry names a field whose values the ascii-encoded variant
// decodes. Text with a backslash has its own reading; call only without.
bool names_an_encoded_field(const std::string &text) {
    for (const Entry &e : entries_of(text, false))
        if (e.field >= 0 && cl_ShouldAsciiEncode(e.field)) return true;
    return false;
}

struct Read {
    testkit::Outcome escape;
    std::string tf;
};

Read read(const std::string &text, bool ascii) {
    auto out = fuzz::buffer("", out_size(text));
    Read r;
    r.escape = testkit::run([&] {
        if (ascii)
            cl_AsciiEncodedToTF(text.c_str(), out.data());
        else
            cl_NativeToTF(text.c_str(), out.data());
    });
    if (!r.escape.escaped) r.tf.assign(out.data());
    return r;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::Input in = fuzz::split(data, size);
    const bool ascii = in.flags & 1;
    if (!in.ok) return -1;

    Read r = read(in.text, ascii);
    fuzz::Fields name;
    if (!r.escape.escaped)
        fuzz::expect(fuzz::fields_of(r.tf, name, fuzz::kAnyLength), "a reader wrote text outside the packed form",
                     r.tf);

    if (in.text.find('\\') == std::string::npos && !names_an_encoded_field(in.text)) {
        Read other = read(in.text, !ascii);
        fuzz::expect(r.escape.escaped == other.escape.escaped && r.escape.reason == other.escape.reason,
                     "the two readers fail differently on plain text", in.text);
        fuzz::expect(r.tf == other.tf, "the two readers read plain text differently", r.tf, other.tf);
    }
    if (ascii && !r.escape.escaped) fuzz::check_ascii_round_trip(r.tf.c_str());
    return 0;
}
