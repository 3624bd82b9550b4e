/* str_: concatenation of text in a character set. */
#ifndef STR_H
#define STR_H
#include "ccs.h"
QX_BEGIN

/* Appends src to dst like strcat; the caller guarantees the room. */
QX_API char *str_strcat(char *dst, const char *src, ccs_Descriptor *cs);
/* Appends at most n bytes of src to dst like strncat, never cutting a
 * UTF-8 character in two, whatever the set identifier. */
QX_API char *str_strncat(char *dst, const char *src, int n, int csId);

QX_END
#endif
