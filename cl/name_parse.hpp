// The typed-name parsers as the full-name parser and the command-line
// conversion call them: with the text's length known and the result's
// length handed back, so that neither is measured again. Each traces under
// the name of the function it implements, as that function does.
#ifndef CL_NAME_PARSE_HPP
#define CL_NAME_PARSE_HPP

#include <cstddef>

namespace cl {

// cl_ParseNameLoclAddr2 of text[0..length) (terminated there). Returns the
// result's length; *mailNode tells whether a mail node was read.
std::size_t parse_name_and_node(char *text, std::size_t length, char *result, bool allowMarker, bool *mailNode);

// cl_ParseFullOrn2 of text[0..length) (terminated there). With `scratch`,
// the caller will not read the text again, so the name part is parsed in
// place instead of in a copy.
int parse_full_orn(char *text, std::size_t length, char *result, int *errIndex, int allowMarker, bool scratch);

}  // namespace cl
#endif
