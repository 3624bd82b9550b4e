/* fstr_: growable strings, memory from os_malloc. */
#ifndef FSTR_H
#define FSTR_H
#include "qx.h"
QX_BEGIN

typedef struct fstr_String {
    char *text;       /* NUL-terminated */
    int   length;     /* bytes, terminator excluded */
    int   capacity;   /* bytes allocated */
} fstr_String;

/* Starts a new string holding text; never frees what s held before. */
QX_API void fstr_StrInit(fstr_String *s, const char *text);
QX_API void fstr_FsCsCat(fstr_String *s, const char *text);
/* Sets s to text, reusing its memory (a zeroed string is allocated). */
QX_API void fstr_FsCsCopy(fstr_String *s, const char *text);
QX_API void fstr_StrFree(fstr_String *s);

QX_END
#endif
