/* The packed O/R name's vocabulary, for the library and every platform
 * library alike: the bytes between its fields, the bounds of its groups,
 * its field count, and the numbers of the fields that code addresses by
 * meaning. Nothing else defines these values.
 *
 * A packed name is text: fields in field-number order, ORN_FIELD_SEP after
 * a field when the next field of its group follows, ORN_GROUP_END after a
 * field to close its group (the next byte begins the next group), NUL at the
 * end. Fields 0 to 159 lie in five groups of ORN_GROUP_SIZE; field 160 lies
 * alone after them. */
#ifndef QX_ORN_H
#define QX_ORN_H

/* Bytes of the packed text. */
#define ORN_FIELD_SEP '\x1D' /* ends a field; the next field of the group follows */
#define ORN_GROUP_END '\x17' /* ends a field and closes its group */
#define ORN_MARKER    '\x1F' /* an unescaped '*' of a typed name that admits one */

#define ORN_FIELDS           161  /* fields 0 to 160 */
#define ORN_LAST_FIELD       160
#define ORN_GROUP_SIZE       32   /* fields of groups 1 to 5 */

/* Group 1: the personal name, the mail node's units, the positional
 * standard attributes and the extension attributes. */
#define ORN_SURNAME          0
#define ORN_GIVEN_NAME       1
#define ORN_INITIALS         2
#define ORN_GENERATION       3
#define ORN_UNIT1            4    /* units 1 to 4: fields 4 to 7 */
#define ORN_UNITS            4
#define ORN_ORGANIZATION     8    /* the standard attributes: fields 8 to 14 */
#define ORN_COUNTRY          9
#define ORN_ADMD             10
#define ORN_PRMD             11
#define ORN_NETWORK_ADDRESS  12
#define ORN_TERMINAL_ID      13
#define ORN_NUMERIC_USER_ID  14
#define ORN_EXTENSION1       15   /* extension attributes 1 to 4: type, value: fields 15 to 22 */
#define ORN_LAST_EXTENSION   22

/* Group 2. */
#define ORN_COMMON_NAME      32
#define ORN_PSAP             35   /* the presentation address */
#define ORN_POSTAL_ADDRESS   46
#define ORN_LAST_GROUP2      63

/* Groups 3 and 4: field i + ORN_COUNTERPART is the character-set text
 * of field i, for i from 0 to 63. */
#define ORN_COUNTERPART      64
#define ORN_LAST_TEXT        127

/* Group 5 and the last field. */
#define ORN_DISPLAY_NAME     128
#define ORN_ALTERNATE_NAME   129
#define ORN_IA               130  /* the internet address */
#define ORN_CV               160

/* The directory-attribute text made of a name's fields: entries separated
 * by ORN_ENTRY_SEP, each an attribute tag, ORN_VALUE_SEP and the value. The
 * value separator is the field separator's byte, so a value never holds it
 * as packed text. */
#define ORN_ENTRY_SEP '\x1E'
#define ORN_VALUE_SEP ORN_FIELD_SEP

#endif
