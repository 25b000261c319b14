#ifndef ZLNSESSIONREPORTING_ZLNLOG_H
#define ZLNSESSIONREPORTING_ZLNLOG_H

#include <stdint.h>

#include "ZLNSessionReporting/ZLNExport.h"

ZLN_EXTERN_C_BEGIN

/*
 * The library's log. Every line begins with "ZLN Session: " and goes to the sink that was set with
 * ZLNHostSetLogSink, else to the standard error output. All functions may be called at any time,
 * also before ZLNInitializeReporting, and from any thread, but not from a log sink or a signal
 * handler. None of them fails.
 *
 * A line of a level is written while the process-wide threshold is at least that level. The
 * threshold is 0 (errors only) at the start of every process.
 *
 * Formats are those of printf, and the line is always formatted, even when it is then filtered out:
 *   conversions  d i o u x X, f F e E g G a A, c C s S, p, n, %, and @, which takes a
 * zero-terminated UTF-8 const char *; @, s and S show NULL as "(null)"; n stores nothing flags - +
 * space # 0; ' is ignored width        up to 4096, precision of numbers up to 4096 (larger ones are
 * cut); * is allowed lengths      hh h l ll q j z t L positions    1$ to 64$, also as *1$ Numbers
 * never follow the locale. "%Lf" and its like show a long double with the precision of a double. An
 * unknown conversion, or one whose position is out of range, is shown as it is in the format and
 * uses no argument. Invalid UTF-8 is replaced by U+FFFD. A NULL format writes nothing. Nothing of
 * the arguments is kept after the call.
 *
 * Arguments that do not match the format are undefined behavior. The declarations do not have the
 * compiler's format attribute, because no compiler accepts "%@" with a C string.
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
