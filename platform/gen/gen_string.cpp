// Lengths of text without its surrounding blanks.
#include <cctype>

#include "gen.h"

namespace qx::gen {
namespace {

// Blanks are the C library's white-space class.
bool blank(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

// text[0..len), shortened at an earlier terminator.
int stripped_length(const char *text, int len) {
    if (!text || len <= 0) return 0;
    int end = 0;
    while (end < len && text[end] != '\0') ++end;
    int begin = 0;
    while (begin < end && blank(text[begin])) ++begin;
    while (end > begin && blank(text[end - 1])) --end;
    return end - begin;
}

}  // namespace
}  // namespace qx::gen

extern "C" int gen_StrippedStrLen(const char *text, int len) { return qx::gen::stripped_length(text, len); }
