// The two attribute-list readers, cl_AsciiEncodedToTF and cl_NativeToTF.
//
// Flags: bit 0 reads the text as ascii-encoded. A name the ascii-encoded
// reader makes is written again with cl_FormatAsciiEncoded and must read
// back to itself. Text without a backslash and without an entry for an
// encoded field reads the same in both variants.
#include "fuzz_support.hpp"

namespace {

// The documented bound of the output: every field at most one value long.
constexpr std::size_t kOutSize = fuzz::kReaderValue * fuzz::kFields + fuzz::kFields;

// The readers hold a name of at most 20 and a value of at most 835
// characters; longer ones must not reach them. Counts as they read: a
// backslash (ascii variant) makes the next character literal.
bool within_reader_limits(const std::string &text, bool ascii) {
    std::size_t name = 0;
    std::size_t value = 0;
    bool in_value = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (ascii && c == '\\') {
            if (++i == text.size()) break;
        } else if (c == '=') {
            if (in_value) return true;  // refused here; nothing more is read
            in_value = true;
            continue;
        } else if (c == '/') {
            if (!in_value) return true;
            in_value = false;
            name = value = 0;
            continue;
        }
        if (++(in_value ? value : name) > (in_value ? fuzz::kReaderValue : fuzz::kReaderName)) return false;
    }
    return true;
}

// True when some entry names a field whose values the ascii-encoded variant
// decodes. Text with a backslash has its own reading; call only without.
bool names_an_encoded_field(const std::string &text) {
    std::size_t start = 0;
    while (start <= text.size()) {
        std::size_t end = text.find('/', start);
        if (end == std::string::npos) end = text.size();
        std::string entry = text.substr(start, end - start);
        std::size_t eq = entry.find('=');
        if (eq != std::string::npos) {
            std::string name = entry.substr(0, eq);
            const char *tag = da_FindAttribIntName(name.c_str());
            int field = da_AttIdToORNIndex(tag, static_cast<int>(std::strlen(tag)));
            if (field >= 0 && cl_ShouldAsciiEncode(field)) return true;
        }
        start = end + 1;
    }
    return false;
}

struct Read {
    fuzz::Escape escape;
    std::string tf;
};

Read read(const std::string &text, bool ascii) {
    auto out = fuzz::buffer("", kOutSize);
    Read r;
    r.escape = fuzz::run([&] {
        if (ascii)
            cl_AsciiEncodedToTF(text.c_str(), out.data());
        else
            cl_NativeToTF(text.c_str(), out.data());
    });
    if (!r.escape.raised) r.tf.assign(out.data());
    return r;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::Input in = fuzz::split(data, size);
    const bool ascii = in.flags & 1;
    if (!in.ok || !within_reader_limits(in.text, ascii)) return -1;

    Read r = read(in.text, ascii);
    fuzz::Fields name;
    if (!r.escape.raised) fuzz::expect(fuzz::fields_of(r.tf, name), "a reader wrote text outside the packed form", r.tf);

    if (in.text.find('\\') == std::string::npos && !names_an_encoded_field(in.text)) {
        Read other = read(in.text, !ascii);
        fuzz::expect(r.escape.raised == other.escape.raised && r.escape.reason == other.escape.reason,
                     "the two readers fail differently on plain text", in.text);
        fuzz::expect(r.tf == other.tf, "the two readers read plain text differently", r.tf, other.tf);
    }
    if (ascii && !r.escape.raised) fuzz::check_ascii_round_trip(r.tf.c_str());
    return 0;
}
