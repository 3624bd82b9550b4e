/* dr_: validation of a directory entry (internal entry text of da.h).
 * Refuses only malformed entry text, with a catalogued reason: an empty
 * entry text, an entry without 0x1D, an empty attribute name, an empty
 * value. What the conversion checks itself (unknown or repeated attributes,
 * control bytes, a further 0x1D inside a value) passes here. */
#ifndef DR_H
#define DR_H
#include "qx.h"
QX_BEGIN

QX_API void dr_ValidateEntry(const char *entry, int a, int allowMarker, int b, int c);

QX_END
#endif
