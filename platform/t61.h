/* t61_: the T.61 input transformation of typed text. */
#ifndef T61_H
#define T61_H
#include "qx.h"
QX_BEGIN

/* Transforms typed text (len -1: NUL-terminated) in the named set: each
 * unescaped character of specials becomes its replacement string (same
 * position in replacements), a backslash (escChar) before any character
 * yields that character literally and is dropped. Never writes into text.
 * The result is owned by the library, valid until the next call, and may
 * be modified by the caller; its length goes to *outLen. Returns null when
 * the text cannot be transformed. */
QX_API char *t61_TransformTInputStr2(const char *text, int len, const char *charset,
                                     const char *specials, const char *const *replacements,
                                     const char *delims, int escChar, int flag, int *outLen);

QX_END
#endif
