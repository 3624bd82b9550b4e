/* go_: character-set conversion on iconv. A len of -1 means the text is
 * NUL-terminated. Results are NUL-terminated and valid until the next
 * conversion call. */
#ifndef GO_H
#define GO_H
#include "qx.h"
QX_BEGIN

/* Converts; a character with no mapping is written as '?' (and counted in
 * the log of conversion losses). */
QX_API const char *go_ConvertStrEscapeLog(const char *text, int len, const char *from, const char *to);
/* Converts, or returns the text unchanged when it cannot be converted. */
QX_API const char *go_ConvertStringOrRetain(const char *text, int len, const char *from, const char *to);

QX_END
#endif
