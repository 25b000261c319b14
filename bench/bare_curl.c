/* What a process needs that has done no more with libcurl than to come to know it. */
#include <curl/curl.h>
#include <stdio.h>

#include "bench/file_watch.h"

int main(void) {
  if (curl_global_init(CURL_GLOBAL_ALL) != CURLE_OK) return 1;
  CURL* easy = curl_easy_init();
  if (easy == NULL) return 1;
  curl_easy_cleanup(easy);
  printf("resident_kb %ld\n", residentKb());
  return 0;
}
