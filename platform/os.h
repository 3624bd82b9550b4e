/* os_: memory, files, directories, umask, pattern matching.
 * File names may start with "~", the server home (ext_GetActualFName).
 * Failing system calls raise group 1 with errno as the reason, and set
 * er log information slot 1 to the file name. */
#ifndef OS_H
#define OS_H
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <dirent.h>
#include "qx.h"
QX_BEGIN

/* Never returns null: running out of memory raises 1/ENOMEM. */
QX_API void *os_malloc(size_t size);
QX_API char *os_strdup(const char *s);
QX_API void  os_free(void *p);

QX_API int     os_open(const char *name, int flags, int mode);
QX_API int64_t os_lseek(int fd, int64_t offset, int whence);  /* -1 on failure */
QX_API int     os_read(int fd, void *buf, int count);          /* bytes read, -1 on failure */
QX_API int     os_write(int fd, const void *buf, int count);   /* bytes written, -1 on failure */
QX_API void    os_close(int fd);                               /* raises on failure */
QX_API int     os_umask(int mask);
QX_API int     os_fexists(const char *name);
QX_API FILE   *os_fopen(const char *name, const char *mode);   /* raises on failure */
QX_API void    os_fclose(FILE *stream);
/* A missing directory reads as an empty one (null handle, no entries). */
QX_API DIR    *os_opendir(const char *name);
QX_API struct dirent *os_readdir(DIR *dir);
QX_API void    os_closedir(DIR *dir);
/* 1 when name matches pattern; byte 0x1F in the pattern matches any run. */
QX_API int     os_USPatternMatch(const char *name, const char *pattern);

QX_END
#endif
