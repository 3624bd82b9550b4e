// Packed O/R name text and the 161-slot field array; substitute characters.
#include <array>
#include <cstring>

#include "cl.h"
#include "frame.hpp"
#include "os.h"
#include "packed.hpp"

namespace cl {
namespace {

constexpr const char kSourceFile[] = "cl/cl_CL2TF";

// Field array: unpack and pack.

char *copy_span(const char *begin, const char *end) {
    auto n = static_cast<std::size_t>(end - begin);
    char *copy = static_cast<char *>(os_malloc(n + 1));
    std::memcpy(copy, begin, n);
    copy[n] = '\0';
    return copy;
}

// Slots are copied straight from the text, so no field length limit applies
// here; fields the text would place beyond 160 are not stored.
void unpack(const char *tf, char **slots) {
    int n = 0;
    const char *start = tf;
    const char *p = tf;
    for (; *p; ++p) {
        if (*p != kFieldSep && *p != kGroupEnd) continue;
        if (n <= kLastField) slots[n] = p > start ? copy_span(start, p) : nullptr;
        ++n;
        if (*p == kGroupEnd) n = ((n - 1) / kGroupSize + 1) * kGroupSize;
        start = p + 1;
    }
    if (p > start && n <= kLastField) slots[n] = copy_span(start, p);
}

void pack(char *const *slots, char *out) {
    char *p = out;
    for (int i = 0; i < kFieldCount; ++i) {
        if (const char *s = slots[i]) {
            std::size_t n = std::strlen(s);
            std::memcpy(p, s, n);
            p += n;
        }
        if (i % kGroupSize == kGroupSize - 1) {
            if (i != kGroupSize - 1)
                while (p > out && p[-1] == kFieldSep) --p;
            *p++ = kGroupEnd;
        } else {
            *p++ = kFieldSep;
        }
    }
    *--p = '\0';  // the separator written after field 160
    while (p > out && (p[-1] == kFieldSep || p[-1] == kGroupEnd)) *--p = '\0';
}

// Substitute characters: space . / , ( ) are written _ ! | ; { }.

constexpr char kReal[] = " ./,()";
constexpr char kSubstitute[] = "_!|;{}";

using ByteMap = std::array<unsigned char, 256>;

constexpr ByteMap make_map(const char *from, const char *to) {
    ByteMap map{};
    for (int c = 0; c < 256; ++c) map[c] = static_cast<unsigned char>(c);
    for (int i = 0; from[i]; ++i) map[static_cast<unsigned char>(from[i])] = static_cast<unsigned char>(to[i]);
    return map;
}

constexpr ByteMap kToSubstitute = make_map(kReal, kSubstitute);
constexpr ByteMap kFromSubstitute = make_map(kSubstitute, kReal);

void map_bytes(char *s, const ByteMap &map) {
    for (; *s; ++s) *s = static_cast<char>(map[static_cast<unsigned char>(*s)]);
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

void cl_ORNArray2Tf(char **array, char *out) { cl::pack(array, out); }

void cl_FreeArray(char **array) {
    if (!array) return;
    for (int i = 0; i < cl::kFieldCount; ++i) os_free(array[i]);
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
