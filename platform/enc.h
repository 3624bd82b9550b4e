/* enc_: ascii encoding of values. The encoding writes only printable ASCII
 * and never '/', '=', a backslash or another of "/=*[]%". */
#ifndef ENC_H
#define ENC_H
#include "qx.h"
QX_BEGIN

/* Encodes len bytes of value; the result is valid until the next call. */
QX_API const char *enc_EncodeToAscii(const char *value, int len, int *status);
/* Decodes value; returns the decoded bytes (valid until the next call) with
 * their count in *len; the byte after them may be overwritten. */
QX_API char *enc_DecodeFromAscii(const char *value, int *len);

QX_END
#endif
