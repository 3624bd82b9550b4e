// Shared pieces of the fuzz harnesses: failing loudly on a broken
// invariant, a reference reading and writing of packed text, and the
// ascii-encoded round trip. Targets run under testkit::run, the tests'
// protected block: an escape is a valid outcome, cleared there.
//
// Every harness takes its first input byte as flags and the rest as text.
// Inputs outside a function's documented limits are the caller's fault, not
// the library's: harnesses refuse them (return -1) so a report is a fault.
#ifndef CL_FUZZ_SUPPORT_HPP
#define CL_FUZZ_SUPPORT_HPP

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "cl.h"
#include "da.h"
#include "orn.h"
#include "testkit.hpp"

namespace fuzz {

// Limits of the packed form (orn.h): at most 4079 bytes a field.
constexpr int kFields = ORN_FIELDS;
constexpr std::size_t kFieldMax = 4079;
constexpr char kSep = ORN_FIELD_SEP;
constexpr char kClose = ORN_GROUP_END;

struct Input {
    unsigned flags = 0;
    std::string text;  // no NUL inside
    bool ok = false;
};

inline Input split(const std::uint8_t *data, std::size_t size) {
    Input in;
    if (size == 0) return in;
    in.flags = data[0];
    in.text.assign(reinterpret_cast<const char *>(data + 1), size - 1);
    in.ok = in.text.find('\0') == std::string::npos;
    return in;
}

[[noreturn]] inline void fail(const char *what, std::string_view a = {}, std::string_view b = {}) {
    std::fprintf(stderr, "INVARIANT BROKEN: %s\n", what);
    if (!a.empty()) std::fprintf(stderr, "  first:  '%s'\n", testkit::show(std::string(a)).c_str());
    if (!b.empty()) std::fprintf(stderr, "  second: '%s'\n", testkit::show(std::string(b)).c_str());
    std::abort();
}

inline void expect(bool holds, const char *what, std::string_view a = {}, std::string_view b = {}) {
    if (!holds) fail(what, a, b);
}

// Reference reading of packed text: the fields by number. False when the
// text places a non-empty field beyond 160, or a field over fieldMax bytes:
// 4079 is the limit of packed text handed to the library; text the library
// makes from values of unbounded length is checked with kAnyLength.
using Fields = std::array<std::string, kFields>;
constexpr std::size_t kAnyLength = ~std::size_t{0};

inline bool fields_of(std::string_view tf, Fields &out, std::size_t fieldMax = kFieldMax) {
    for (auto &f : out) f.clear();
    int n = 0;
    std::size_t start = 0;
    auto close = [&](std::size_t end) {
        if (end - start > fieldMax) return false;
        if (n < kFields) {
            out[static_cast<std::size_t>(n)].assign(tf.substr(start, end - start));
        } else if (end > start) {
            return false;
        }
        return true;
    };
    for (std::size_t p = 0; p < tf.size(); ++p) {
        if (tf[p] != kSep && tf[p] != kClose) continue;
        if (!close(p)) return false;
        n = tf[p] == kClose ? (n / 32 + 1) * 32 : n + 1;
        start = p + 1;
    }
    return close(tf.size());
}

// Reference writing: group 1 in full when anything follows it, groups 2 to
// 5 without their trailing empty fields, nothing after the last field.
inline std::string pack_fields(const Fields &f) {
    std::string out;
    for (int i = 0; i < kFields; ++i) {
        out += f[static_cast<std::size_t>(i)];
        if (i % 32 == 31) {
            if (i != 31)
                while (!out.empty() && out.back() == kSep) out.pop_back();
            out += kClose;
        } else {
            out += kSep;
        }
    }
    while (!out.empty() && (out.back() == kSep || out.back() == kClose)) out.pop_back();
    return out;
}

inline std::size_t field_bytes(const Fields &f) {
    std::size_t n = 0;
    for (const auto &s : f) n += s.size();
    return n;
}

inline std::string describe(const Fields &f) {
    std::string out;
    for (int i = 0; i < kFields; ++i) {
        const auto &s = f[static_cast<std::size_t>(i)];
        if (s.empty()) continue;
        out += std::to_string(i) + "=" + s + ";";
    }
    return out;
}

// Fields equal, or a report naming both texts.
inline void expect_same_name(const Fields &a, const Fields &b, const char *what) {
    if (a != b) fail(what, describe(a), describe(b));
}

// Character sets the harnesses choose among; null stands for UTF8.
inline ccs_Descriptor *charset(unsigned selector) {
    static ccs_Descriptor sets[3];
    static bool made = false;
    if (!made) {
        ccs_GetCSDescriptor("UTF8", &sets[0]);
        ccs_GetCSDescriptor("ISO8859-1", &sets[1]);
        ccs_GetCSDescriptor("IA5", &sets[2]);
        made = true;
    }
    return selector % 4 == 3 ? nullptr : &sets[selector % 4];
}

// A copy of text in a buffer of exactly `size` bytes (at least the text and
// its terminator), so that a write past a documented size is a heap overflow.
inline std::vector<char> buffer(std::string_view text, std::size_t size = 0) {
    std::vector<char> b(size > text.size() ? size : text.size() + 1, '\0');
    std::memcpy(b.data(), text.data(), text.size());
    return b;
}

// The attribute-list forms: at most 4096 characters (a longer name is
// refused with 100/4670). Their readers take any value length and skip an
// entry whose name is longer than 63 characters (docs/decisions.md).
constexpr std::size_t kEntryText = 4096;

// What cl_FormatAsciiEncoded writes, cl_AsciiEncodedToTF reads back to the
// same name. Checked for names that hold nothing the two forms cannot
// carry: a line feed ending a field (the unpacked table drops it) and the
// byte 0x18 in the postal address (shown as '%', which reads back as '%').
// A name too long for the form is refused by the formatter, not cut.
inline void check_ascii_round_trip(const char *tf) {
    Fields before;
    if (!fields_of(tf, before, kAnyLength)) return;
    for (int i = 0; i < kFields; ++i) {
        const std::string &v = before[static_cast<std::size_t>(i)];
        if (!v.empty() && (v.back() == '\n' || (i == 46 && v.find('\x18') != std::string::npos))) return;
    }

    const char *text = nullptr;
    testkit::Outcome refused = testkit::run([&] { text = cl_FormatAsciiEncoded(tf); });
    if (refused.escaped) {
        expect(refused.group == 100 && refused.reason == 4670, "the ascii-encoded form escaped otherwise", tf);
        return;
    }
    std::string written = text;
    expect(written.size() <= kEntryText, "the ascii-encoded form overflows its text", written);
    auto out = buffer("", field_bytes(before) + kFields);
    testkit::Outcome e = testkit::run([&] { cl_AsciiEncodedToTF(written.c_str(), out.data()); });
    if (e.escaped) fail("the ascii-encoded text of a name does not read back", written);
    Fields after;
    expect(fields_of(out.data(), after, kAnyLength), "reading back gives text outside the packed form", out.data());
    if (before != after) fail("ascii-encoded text reads back to another name", describe(before), describe(after));
}

}  // namespace fuzz

#endif  // CL_FUZZ_SUPPORT_HPP
