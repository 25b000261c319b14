#ifndef TESTS_HOST_CATCH_INVALID_ARGUMENT_H
#define TESTS_HOST_CATCH_INVALID_ARGUMENT_H

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Records a banner attempt; true when std::invalid_argument comes out of it. */
bool bannerIsRefused(const char* network);

#ifdef __cplusplus
}
#endif

#endif
