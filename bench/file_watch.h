#ifndef BENCH_FILE_WATCH_H
#define BENCH_FILE_WATCH_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* What the programs of the benchmarks see of themselves and of a file from outside. */

/* Nanoseconds of a clock that only goes forward. */
uint64_t nowNs(void);
void sleepMs(unsigned milliseconds);

/* Microseconds of processor time that this process has used, its own and the kernel's for it. */
uint64_t processorUs(void);

/* Kilobytes of memory that this process has in use; 0 when the kernel does not say. */
long residentKb(void);

/* How many threads this process has. */
long threadCount(void);

/* The length of a file, or -1. */
long long fileSize(const char* path);

typedef struct StillFile {
  uint64_t lastChangeNs; /* when the last change was seen */
  uint64_t processorUs;  /* what the process had used by then */
  long mostThreads;      /* the most that this process was seen to have */
} StillFile;

/* Looks at a file every `stepUs` until nothing has replaced or changed it for `restMs`. */
StillFile waitUntilStill(const char* path, unsigned stepUs, unsigned restMs);

#ifdef __cplusplus
}
#endif

#endif /* BENCH_FILE_WATCH_H */
