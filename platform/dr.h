/* dr_: validation of a directory entry (internal entry text of da.h).
 * Refuses malformed entry text, with a catalogued reason: an empty entry
 * text (4650), an entry without 0x1D (4651), an empty attribute name
 * (4652), an empty value (4653). Refuses the value of a known field that
 * breaks the field's rule (nm_CheckFieldText) with 100/(4800 + field).
 * What the conversion checks itself passes here: unknown or repeated
 * attributes, and a control byte in a field not held as character-set
 * text. With allowMarker, the marker byte 0x1F passes where a typed name
 * admits it. */
#ifndef DR_H
#define DR_H
#include "qx.h"
QX_BEGIN

QX_API void dr_ValidateEntry(const char *entry, int a, int allowMarker, int b, int c);

QX_END
#endif
