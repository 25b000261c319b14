#ifndef ZLNSESSIONREPORTING_ZLNHOST_H
#define ZLNSESSIONREPORTING_ZLNHOST_H

#include <stdint.h>

#include "ZLNSessionReporting/ZLNExport.h"

ZLN_EXTERN_C_BEGIN

/*
 * What a host tells the library where the system does not: who the application is, what happens to
 * it, how much time it has in the background, and where log lines go. All functions may be called
 * from any thread, before and after ZLNInitializeReporting.
 */

/*
 * Names the application: its identifier ("com.example.game") and its version ("1.2.3"). NULL is
 * absent; both are absent until this is called. Call it before ZLNInitializeReporting, because the
 * identifier names the folder in which the library keeps its files. The texts are copied.
 */
ZLN_EXPORT void ZLNHostSetApplicationInfo(const char* bundleIdentifier, const char* shortVersion);

/*
 * Tell what happens to the application. Each returns when everything in the library that follows
 * the event has run: on the calling thread, or on one of the library's when another event is under
 * way. Events never run beside each other. None waits for the network.
 *
 * Start:              DidBecomeActive
 * Overlay or call:    WillResignActive, later DidBecomeActive
 * To the background:  WillResignActive, DidEnterBackground
 * And back:           WillEnterForeground, DidBecomeActive
 * The end:            WillResignActive, DidEnterBackground, WillTerminate
 *
 * They must not be called from a background task hook or a log sink.
 */
ZLN_EXPORT void ZLNHostApplicationWillResignActive(void);
ZLN_EXPORT void ZLNHostApplicationDidBecomeActive(void);
ZLN_EXPORT void ZLNHostApplicationWillEnterForeground(void);
ZLN_EXPORT void ZLNHostApplicationDidEnterBackground(void);
ZLN_EXPORT void ZLNHostApplicationWillTerminate(void);

/*
 * For a host whose system limits the time in the background. Without hooks the library takes that
 * time to be unlimited. The hooks are called on threads of the library and within the events above,
 * several at once, and must return soon; `context` is handed to each as it is.
 */
typedef struct ZLNHostBackgroundTaskHooks {
  /* Asks for time in the background. Returns an identifier, or 0 when there is none to be had. */
  uint64_t (*begin)(void* context);
  /* Says that the task with this identifier is done. */
  void (*end)(uint64_t identifier, void* context);
  /* Returns the seconds of background time left; a very large number while in the foreground. */
  double (*remaining)(void* context);
  void* context;
} ZLNHostBackgroundTaskHooks;

/*
 * Sets the hooks for all later background tasks; NULL takes them away. The structure is copied, its
 * three functions must all be given: a structure that lacks one is ignored and logged as an error.
 */
ZLN_EXPORT void ZLNHostSetBackgroundTaskHooks(const ZLNHostBackgroundTaskHooks* hooks);

/*
 * Says that the time of a background task is about to run out. Returns when the library has
 * reacted, as for the events above. An identifier that is not of a running task is ignored.
 */
ZLN_EXPORT void ZLNHostBackgroundTaskWillExpire(uint64_t identifier);

/*
 * Sends every log line to `sink` in place of the standard error output; NULL takes the sink away. A
 * line is zero-terminated UTF-8 without a line feed at its end and valid during the call; it may
 * hold line feeds. The sink is called on whatever thread logs, several at once, at times in the
 * middle of the library's work: it must not call functions of this library. A line that is being
 * written while this function runs may still reach the old sink.
 */
ZLN_EXPORT void ZLNHostSetLogSink(void (*sink)(const char* line, void* context), void* context);

ZLN_EXTERN_C_END

#endif /* ZLNSESSIONREPORTING_ZLNHOST_H */
