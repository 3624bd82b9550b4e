// The typed-name parsers as the full-name parser and the command-line
// conversion call them: with the text's length known and the result's
// length handed back, so that neither is measured again. Each traces under
// the name of the function it implements, as that function does.
#ifndef CL_NAME_PARSE_HPP
#define CL_NAME_PARSE_HPP

#include <cstddef>
#include <cstdint>

#include "orn.h"

namespace cl {

// The first c among the n bytes at text, or null. A byte at a time: the
// texts searched here are short and were written a byte at a time just
// before, and a wide read of bytes still being stored waits for them.
template <class C>
C *first_of(C *text, std::size_t n, char c) {
    for (std::size_t i = 0; i < n; ++i)
        if (text[i] == c) return text + i;
    return nullptr;
}

// Where the non-empty fields of a parser's packed result lie, noted as the
// parser writes them: field at[k].field is the `length` bytes from `begin`.
// Complete when the parser wrote no other non-empty field, so that the
// notes say what a walk of the result would find; otherwise the caller
// walks the result.
struct ParsedFields {
    static constexpr int kMax = 8;  // the personal name and four units
    struct At {
        int field;
        std::uint16_t begin;   // results are at most 200 bytes here
        std::uint16_t length;
    };
    At at[kMax];
    int count = 0;
    bool complete = false;
};

// cl_ParseNameLoclAddr2 of text[0..length) (terminated there). Returns the
// result's length; *mailNode tells whether a mail node was read. With
// `noted`, the result's fields are noted there.
std::size_t parse_name_and_node(char *text, std::size_t length, char *result, bool allowMarker, bool *mailNode,
                                ParsedFields *noted = nullptr);

// Bytes of the conversion's transformed text: an unescaped '/' ends a
// segment as the entry separator, an unescaped '=' separates an
// attribute's name from its value as the value separator.
constexpr char kSegmentEnd = ORN_ENTRY_SEP;
constexpr char kNameValue = ORN_VALUE_SEP;

// Where read_plain_positional found the attributes of a conversion's text.
struct PlainPositional {
    std::size_t attributes;  // where the segment holding the first name-value byte starts
    bool loneSlash;          // the positional part ends in a lone '/'
};

// A conversion's transformed text (segments ended by kSegmentEnd, an
// attribute's name and value separated by kNameValue) with a positional
// part in its plainest form, the one most names are typed in: a surname,
// or a given name, one space and a surname; then optionally one to four
// units joined by ',' and the lone '/' that the full-name parser reads as
// an empty standard attribute; every word
// non-empty, within its bound and of bytes that the scan keeps as they are;
// the attributes after it, in the first segment that holds kNameValue.
// Such a positional part is read without an escape, and its fields are the
// words themselves: they are noted, as offsets into text, where the
// attributes start is put in part, and true returned. Otherwise false, and
// nothing is noted.
bool read_plain_positional(const char *text, ParsedFields &noted, PlainPositional &part);

// cl_ParseFullOrn2 of text[0..length) (terminated there). With `scratch`,
// the caller will not read the text again, so the name part is parsed in
// place instead of in a copy. With `noted`, the result's fields are noted
// there.
int parse_full_orn(char *text, std::size_t length, char *result, int *errIndex, int allowMarker, bool scratch,
                   ParsedFields *noted = nullptr);

}  // namespace cl
#endif
