/* nm_: the O/R name in its packed text form (orn.h): fields in
 * field-number order, separators between fields, group ends, NUL at the end. */
#ifndef NM_H
#define NM_H
#include <stdint.h>
#include "orn.h"
#include "qx.h"
QX_BEGIN

#define NM_FIELDS ORN_FIELDS /* entries of the parsed form's arrays */
typedef struct nm_ParsedORN {
    int length;                 /* bytes of the text */
    int reached;                /* fields 0 to reached - 1 are described below; later ones are not reached */
    int start[NM_FIELDS];       /* offset of each field; -1 when the text passes it by (a group end) */
    int len[NM_FIELDS];         /* its length in bytes */
    uint32_t maps[6];           /* the field maps, as nm_GetFieldMaps gives them */
} nm_ParsedORN;

/* Parses the packed text; a text that places a field beyond 160 raises
 * 100/1701. *status is set to 0. */
QX_API void nm_ParseORN(const char *orn, nm_ParsedORN *parsed, int *status);
/* Six words: bit k of word w is set when field 32w + k is non-empty. */
QX_API void nm_GetFieldMaps(const nm_ParsedORN *parsed, uint32_t maps[6]);
QX_API int  nm_CheckBit(int field, const uint32_t maps[6]);
/* Pointer to the field's bytes inside orn (not terminated), length in *len;
 * null and 0 for an absent or empty field. */
QX_API const char *nm_GetFieldMemPtr(const char *orn, const nm_ParsedORN *parsed, int field, int *len);
/* Copies the field into buf (at most size - 1 bytes, terminated) and
 * returns buf; null when the field is absent or empty. */
QX_API char *nm_GetFieldStr(const char *orn, const nm_ParsedORN *parsed, int field, char *buf, int size);
/* Replace a field in place, adding separators when the text does not reach
 * it yet; len 0 empties it. The parsed form is kept in step. The caller
 * guarantees room for the grown text. */
QX_API void nm_PutFieldMem(char *orn, nm_ParsedORN *parsed, int field, const char *value, int len);
QX_API void nm_PutFieldStr(char *orn, nm_ParsedORN *parsed, int field, const char *value);
/* Makes orn the empty name (no fields). */
QX_API void nm_InitORN(char *orn, nm_ParsedORN *parsed);
/* Appends separators to tf so that text appended next begins field. */
QX_API void nm_AddSeparators(char *tf, int field);
/* Field rules: one length bound and character class per field.
 * nm_FieldRule returns the class of field (NM_CLASS_NONE: no rule, any
 * value) and stores its bound in *maxLength (bytes; characters for
 * NM_CLASS_TEXT; 0: unbounded). */
#define NM_CLASS_NONE      0  /* no rule */
#define NM_CLASS_PRINTABLE 1  /* PrintableString with the space */
#define NM_CLASS_DIGITS    2  /* decimal digits */
#define NM_CLASS_COUNTRY   3  /* 2 letters or 3 digits */
#define NM_CLASS_ANY       4  /* any bytes: the bound alone */
#define NM_CLASS_TEXT      5  /* UTF-8 text without control characters */
QX_API int  nm_FieldRule(int field, int *maxLength);
/* 1 when the value (len bytes) keeps the rule of field, 0 when it breaks
 * it; an empty value breaks every rule. With allowMarker, the marker byte
 * 0x1F passes where a typed name admits it (see docs/decisions.md). */
QX_API int  nm_CheckFieldText(const char *value, int len, int field, int allowMarker);
/* 1 when value is acceptable as the positional value of field (0 to 14):
 * the field's rule; 0 for every other field. */
QX_API int  nm_CheckField(const char *value, int field);
/* 1 for fields 64 to 127 (character-set text), 0 for every other field. */
QX_API int  nm_IsT61Field(int field);

QX_END
#endif
