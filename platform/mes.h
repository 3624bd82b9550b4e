/* mes_: the message catalogue. */
#ifndef MES_H
#define MES_H
#include "qx.h"
QX_BEGIN

/* With buf: copies the text into buf, at most size bytes including the
 * terminator, and returns buf. With a null buf: returns the catalogue's own
 * text, valid until the next call. Unknown codes get a generic text. */
QX_API const char *mes_GetAnyErMsg(int group, int reason, char *buf, int size);
QX_API const char *mes_GetErrMsgPrefix(int group, int reason);

QX_END
#endif
