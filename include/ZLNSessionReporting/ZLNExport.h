#ifndef ZLNSESSIONREPORTING_ZLNEXPORT_H
#define ZLNSESSIONREPORTING_ZLNEXPORT_H

/* ZLN_EXPORT marks the functions and data that a game may use. */
#if defined(_WIN32)
#define ZLN_EXPORT
#else
#define ZLN_EXPORT __attribute__((visibility("default")))
#endif

/* ZLN_EXTERN_C_BEGIN and ZLN_EXTERN_C_END enclose declarations that C and C++ share. */
#ifdef __cplusplus
#define ZLN_EXTERN_C_BEGIN extern "C" {
#define ZLN_EXTERN_C_END }
#else
#define ZLN_EXTERN_C_BEGIN
#define ZLN_EXTERN_C_END
#endif

#endif /* ZLNSESSIONREPORTING_ZLNEXPORT_H */
