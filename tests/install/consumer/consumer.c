/* A program that uses each public header and leaves no trace: nothing is switched on. */

#include <ZLNSessionReporting/ZLNHost.h>
#include <ZLNSessionReporting/ZLNLog.h>
#include <ZLNSessionReporting/ZLNSessionReporting.h>
#include <stdio.h>
#include <string.h>

static int linesSeen = 0;

static void countLine(const char* line, void* context) {
  (void)context;
  linesSeen += strstr(line, "ZLN Session: hello from C 7") != NULL;
}

static int fail(const char* what) {
  fprintf(stderr, "wrong: %s\n", what);
  return 1;
}

int main(void) {
  char* description = ZLNGetSessionDescription();
  if (strcmp(description, "[Encountered error]") != 0) return fail(description);
  ZLNReleaseString(description);

  if (ZLNSessionReportingVersionNumber != 7.0) return fail("the version number");
  if (memcmp(ZLNSessionReportingVersionString, "@(#)PROGRAM:", 12) != 0) {
    return fail("the version text");
  }

  ZLNHostSetLogSink(countLine, NULL);
  ZLNLogError("hello from %@ %d", "C", 7);
  if (linesSeen != 1) return fail("the log");
  return 0;
}
