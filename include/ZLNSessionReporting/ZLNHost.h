#ifndef ZLNSESSIONREPORTING_ZLNHOST_H
#define ZLNSESSIONREPORTING_ZLNHOST_H

#include <stdint.h>

#include "ZLNSessionReporting/ZLNExport.h"

ZLN_EXTERN_C_BEGIN

/*
 * What a host tells the library where the system does not: who the application is, what happens to
 * it, how much time it has in the background, and where log lines go. All functions may be called
 * from any thread, before and after ZLNInitializeReporting, but not from a signal handler.
 */

/*
 * Names the application: its identifier ("com.example.game") and its version ("1.2.3"). NULL is
 * absent; both are absent until this is called. The strings are copied.
 *
 * Call it before ZLNInitializeReporting: the identifier, or the executable's name when there is
 * none, names the folder and the user defaults file in which the library keeps its data, and that
 * name then stays. A later call with another identifier only changes what new sessions and reports
 * carry; an error that names the folder is logged.
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
 * They must not be called from a background task hook or a log sink; they would deadlock.
 */
ZLN_EXPORT void ZLNHostApplicationWillResignActive(void);
ZLN_EXPORT void ZLNHostApplicationDidBecomeActive(void);
ZLN_EXPORT void ZLNHostApplicationWillEnterForeground(void);
ZLN_EXPORT void ZLNHostApplicationDidEnterBackground(void);
ZLN_EXPORT void ZLNHostApplicationWillTerminate(void);

/*
 * For a host whose system limits the time in the background. Without hooks the library takes that
 * time to be unlimited. The hooks are called on threads of the library and within the functions
 * that report events or send reports, several at once, and must return soon. Of this library they
 * may call the log functions only.
 *
 * `context` is passed to each hook as it is. A task ends through the hooks that began it, even when
 * others have been set since: the context must live until each of its tasks has ended or expired.
 */
typedef struct ZLNHostBackgroundTaskHooks {
  /* Asks for time in the background. Returns an identifier, or 0 when there is none to be had. */
  uint64_t (*begin)(void* context);
  /* Says that the task with this identifier is done. Not called for a task that has expired. */
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
 * reacted, as for the events above. The task is over then: its `end` is not called, and `begin` may
 * return its identifier again. An identifier that is not of a running task is ignored.
 */
ZLN_EXPORT void ZLNHostBackgroundTaskWillExpire(uint64_t identifier);

/*
 * Sends every log line to `sink` in place of the standard error output; NULL takes the sink away. A
 * line is zero-terminated UTF-8 without a line feed at its end and valid during the call; it may
 * hold line feeds. The sink is called on whatever thread logs, several at once, at times in the
 * middle of the library's work: it must not call functions of this library, not even to log. A line
 * that is being written while this function runs may still reach the old sink, so the old `context`
 * must stay valid for as long as the process has threads that may log.
 */
ZLN_EXPORT void ZLNHostSetLogSink(void (*sink)(const char* line, void* context), void* context);

ZLN_EXTERN_C_END

#endif /* ZLNSESSIONREPORTING_ZLNHOST_H */
