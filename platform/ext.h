/* ext_: the server home, base names, signals, file ownership.
 * "~" is the server home: $QX_HOME, else $HOME/.qx (else /tmp/.qx-<uid>). */
#ifndef EXT_H
#define EXT_H
#include "qx.h"
QX_BEGIN

QX_API const char *ext_HomeDir(void);
/* Writes name with a leading "~" replaced by the home into buf (QX_PATH_MAX
 * bytes) and returns buf; a result that does not fit raises 100/1901. */
QX_API char *ext_GetActualFName(const char *name, char *buf);
QX_API const char *ext_BaseName(const char *path);
typedef void (*ext_SigHandler)(int);
/* Installs handler for sig and returns the previous one. Leaving the
 * handler by siglongjmp leaves the signal unblocked (SA_NODEFER). */
QX_API ext_SigHandler ext_signal(int sig, ext_SigHandler handler);
/* Gives path the owner and group of the home directory. */
QX_API void ext_ChownToGenesis(const char *path);

QX_END
#endif
