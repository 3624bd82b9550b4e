// The substitute characters of typed names: space . / , ( ) are written
// _ ! | ; { }. Two byte maps, one each way; every other byte maps to itself.
#ifndef CL_SUBSTITUTE_HPP
#define CL_SUBSTITUTE_HPP

#include <array>

namespace cl {

constexpr char kRealChars[] = " ./,()";
constexpr char kSubstituteChars[] = "_!|;{}";

using ByteMap = std::array<unsigned char, 256>;

constexpr ByteMap make_byte_map(const char *from, const char *to) {
    ByteMap map{};
    for (int c = 0; c < 256; ++c) map[c] = static_cast<unsigned char>(c);
    for (int i = 0; from[i]; ++i) map[static_cast<unsigned char>(from[i])] = static_cast<unsigned char>(to[i]);
    return map;
}

constexpr ByteMap kToSubstitute = make_byte_map(kRealChars, kSubstituteChars);
constexpr ByteMap kFromSubstitute = make_byte_map(kSubstituteChars, kRealChars);

inline char map_byte(char c, const ByteMap &map) {
    return static_cast<char>(map[static_cast<unsigned char>(c)]);
}

}  // namespace cl
#endif  // CL_SUBSTITUTE_HPP
