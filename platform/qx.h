/* Common definitions of the server's platform headers. */
#ifndef QX_H
#define QX_H
#if defined(__GNUC__)
#define QX_API __attribute__((visibility("default")))
#define QX_NORETURN __attribute__((noreturn))
#else
#define QX_API
#define QX_NORETURN
#endif
#ifdef __cplusplus
#define QX_BEGIN extern "C" {
#define QX_END }
#else
#define QX_BEGIN
#define QX_END
#endif
/* Longest actual file name, terminator included. */
#define QX_PATH_MAX 256
#endif
