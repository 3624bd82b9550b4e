/* mdc_: stdio-like wrappers, time, strpbrk. */
#ifndef MDC_H
#define MDC_H
#include <stdint.h>
#include <stdio.h>
#include "qx.h"
QX_BEGIN

QX_API char *mdc_strpbrk(const char *s, const char *accept);
QX_API void  mdc_free(void *p);                       /* accepts null */
QX_API int   mdc_read(int fd, void *buf, int count);
QX_API void  mdc_close(int fd);
QX_API int   mdc_fputs(const char *s, FILE *stream);
QX_API int   mdc_fflush(FILE *stream);
QX_API void  mdc_time(int32_t *t);                    /* seconds since 1970 */

QX_END
#endif
