#ifndef EXAMPLES_DEMO_COLLECTOR_H_
#define EXAMPLES_DEMO_COLLECTOR_H_

#include <stdbool.h>

/* What the collector on this machine tells programs. One thread at a time. */

/* Says on which port of 127.0.0.1 its page and its interface for programs are. False when the text
 * is no port. */
bool collectorIsAt(const char* port);

/* How many reports it has received; -1 when it does not answer within five seconds. */
long collectorReportCount(void);

#endif /* EXAMPLES_DEMO_COLLECTOR_H_ */
