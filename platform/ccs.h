/* ccs_: character-set descriptors and names. Known sets: "UTF8",
 * "ISO8859-1", "IA5" (and the others ccs_GetCSDescriptor accepts).
 * A null descriptor stands for UTF8 wherever one is accepted. */
#ifndef CCS_H
#define CCS_H
#include "qx.h"
QX_BEGIN

typedef struct ccs_Descriptor {
    int  id;          /* the set's identifier, as str_strncat takes it */
    char name[16];    /* the set's name, e.g. "UTF8" */
} ccs_Descriptor;

/* 1 and *out filled when name is a known set; 0 otherwise. */
QX_API int ccs_GetCSDescriptor(const char *name, ccs_Descriptor *out);
QX_API const char *ccs_GetCSName(const ccs_Descriptor *cs);
/* The internal set name for a set name (selector 2: the set that text of
 * that name is converted to); at most 14 characters. */
QX_API const char *ccs_GetInternalCharset(const char *name, int selector);
/* The iconv name of a known set name, null when unknown. */
QX_API const char *ccs_IconvName(const char *name);

QX_END
#endif
