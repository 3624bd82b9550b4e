/* cvc_: conversion availability. */
#ifndef CVC_H
#define CVC_H
#include "qx.h"
QX_BEGIN

/* Non-zero when text in set from can be converted to set to. */
QX_API int cvc_IsMappingAvail(const char *from, const char *to);

QX_END
#endif
