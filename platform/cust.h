/* cust_: customisation switches. A switch is present when an environment
 * variable of its name is set, or when <home>/sys/switches has a line
 * NAME=VALUE (the environment wins). It is false when its value is 0,
 * false, no or off, in any case. */
#ifndef CUST_H
#define CUST_H
#include "qx.h"
QX_BEGIN

QX_API int cust_PresentAndFalse(const char *name);

QX_END
#endif
