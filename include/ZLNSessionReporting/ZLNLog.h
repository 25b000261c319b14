#ifndef ZLNSESSIONREPORTING_ZLNLOG_H
#define ZLNSESSIONREPORTING_ZLNLOG_H

#include <stdint.h>

#include "ZLNSessionReporting/ZLNExport.h"

ZLN_EXTERN_C_BEGIN

/*
 * The library's log. Every line begins with "ZLN Session: " and goes to the sink that was set with
 * ZLNHostSetLogSink, else to the standard error output. All functions may be called at any time,
 * also before ZLNInitializeReporting, and from any thread; none of them fails.
 *
 * A line of a level is written while the process-wide threshold is at least that level. The
 * threshold is 0 (errors only) at the start of every process.
 *
 * The functions that take a format know all conversions of printf with their flags, widths,
 * precisions, lengths and "%1$..." positions, and "%@", which takes a zero-terminated UTF-8
 * const char * and shows NULL as "(null)". Numbers never follow the locale: the decimal point is
 * always a point. "%n" takes its argument and stores nothing. A conversion that is not known is
 * shown as it stands. A NULL format writes nothing. Text that is not valid UTF-8 is shown with
 * U+FFFD in its place. The arguments are read during the call and nothing of them is kept.
 */

/* The levels and their numbers. */
enum {
  ZLNLogLevelError = 0,
  ZLNLogLevelWarn = 1,
  ZLNLogLevelInfo = 2,
  ZLNLogLevelDebug = 3,
  ZLNLogLevelVerbose = 4,
  ZLNLogLevelSuperVerbose = 5
};

/* Sets the threshold, as it is given: a level above 5 lets every line through. */
ZLN_EXPORT void ZLNLogSetLevel(uint64_t level);

/* Always written. */
ZLN_EXPORT void ZLNLogError(const char* format, ...);
/* Written when the threshold is not 0. */
ZLN_EXPORT void ZLNLogWarn(const char* format, ...);
/* Written when the threshold is 2 or higher. */
ZLN_EXPORT void ZLNLogInfo(const char* format, ...);
/* Written when the threshold is 3 or higher. */
ZLN_EXPORT void ZLNLogDebug(const char* format, ...);
/* Written when the threshold is 4 or higher. */
ZLN_EXPORT void ZLNLogVerbose(const char* format, ...);
/* Written when the threshold is 5 or higher. */
ZLN_EXPORT void ZLNLogSuperVerbose(const char* format, ...);

/* Writes a finished message when the threshold is at least `level`. NULL is shown as "(null)". */
ZLN_EXPORT void internalLog(const char* message, uint64_t level);

ZLN_EXTERN_C_END

#endif /* ZLNSESSIONREPORTING_ZLNLOG_H */
