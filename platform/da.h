/* da_: directory attributes.
 *
 * Every O/R name field 0 to 160 maps to one attribute with a number, an
 * internal tag (the number in decimal) and a distinct local (display) name.
 * Local names are accepted in any case wherever a person types an attribute
 * name; internal tags are accepted too.
 *
 * Entry text (internal form): entries separated by 0x1E, each an internal
 * tag, 0x1D, and the value.
 *
 * Special values:
 *  - CV (field 160): a CV text is "S:" followed by the simple value.
 *  - PSAP (field 35): the attribute form is printable text; the packed
 *    form holds no 0x00, 0x17 or 0x1D; the two conversions are inverse.
 *  - IA (field 130): the attribute form may hold 0x1D for '='; the packed
 *    form holds '=' instead.
 * Returned texts belong to the library and are valid until its next call
 * of the same function unless said otherwise. */
#ifndef DA_H
#define DA_H
#include "qx.h"
QX_BEGIN

#define DA_NO_FIELD (-1)

/* Attribute table. */
QX_API int da_nmFieldNum2DANum(int field);                    /* -1 outside 0..160 */
QX_API const char *da_AttribNumberToLocName(int attrNum);     /* "" when unknown */
QX_API const char *da_AttribNumberToIntName(int attrNum);     /* "" when unknown */
/* Internal name of a typed attribute name (local name in any case, or an
 * internal tag); the typed name itself when it is unknown. */
QX_API const char *da_FindAttribIntName(const char *typedName);
/* Field number of an internal tag of len bytes; -1 when it has none. */
QX_API int da_AttIdToORNIndex(const char *name, int len);

/* Escaping of key characters: each byte of keys, and the backslash, is
 * preceded by a backslash. The Tx form works on text in the named set and
 * never splits a multi-byte character. */
QX_API const char *da_EscapeKeyCharsAscii(const char *value, const char *keys, int *status);
QX_API const char *da_EscapeKeyCharsTx(const char *text, const char *charsetName, const char *keys);

/* Special values. */
QX_API const char *da_PSAPConvTFToAtt(const char *value, int len, int *status);
QX_API const char *da_PSAPConvAttToTF(const char *value, int len, int *outLen);
QX_API const char *da_IAConvTFToAtt(const char *value, int len, int flags);
QX_API const char *da_IAConvAttToTF(const char *value, int len, int flags);
QX_API const char *da_ConvEntryToCV(const char *value);
QX_API void da_AdjustCVToSimple(const char **text, int *len);
QX_API const char *da_FormatValue(const char *cv);
/* Display text of a special entry "<attribute number>" 0x1D "<CV>":
 * "<local name>=<value shown>". */
QX_API const char *da_FormatAttribEntry(const char *entry, int a, int b, int c, int d);

/* Entry text of a command line's attribute part. */
/* Attribute names (between 0x1E and 0x1D) replaced by internal tags; a
 * name with no attribute is left as typed. */
QX_API const char *da_MapToInternalTags(const char *attrs, int tagMapping, int flag);
QX_API const char *da_EncodeEntryIA(const char *entry);
typedef struct da_AttrCursor { char *pos; } da_AttrCursor;
QX_API void da_ParseAttribList(char *entry, da_AttrCursor *cursor);
/* Next attribute: name and value NUL-terminated in place inside entry,
 * the value's length in *len. Returns 0 when none is left. */
QX_API int  da_GetAttrib(char *entry, da_AttrCursor *cursor, int flags,
                         char **name, char **value, int *len);

QX_END
#endif
