/* gen_: the inter-process locks and blank-stripped lengths.
 * Lock 0 is held by a process: gen_GetLock(0, 6) raises 100/1813 when
 * another process holds it, mode 2 waits; gen_FreeLock(0) raises 100/1812
 * when this process does not hold it; gen_TestLock(0) is 1 exactly when
 * this process holds it. A forked child does not inherit the lock; a process
 * that ends releases it. The lock file is <home>/sys/.lock<N>. */
#ifndef GEN_H
#define GEN_H
#include "qx.h"
QX_BEGIN

QX_API int  gen_GetLock(int lock, int mode);
QX_API int  gen_TestLock(int lock);
QX_API void gen_FreeLock(int lock);
/* Length of text[0..len) without leading and trailing blanks; 0 if blank. */
QX_API int  gen_StrippedStrLen(const char *text, int len);

QX_END
#endif
