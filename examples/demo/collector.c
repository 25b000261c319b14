#define _POSIX_C_SOURCE 200809L

#include "collector.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

static unsigned short collectorPort;

bool collectorIsAt(const char* port) {
  char* end;
  const long number = strtol(port, &end, 10);
  if (*port == '\0' || *end != '\0' || number < 1 || number > 65535) return false;
  collectorPort = (unsigned short)number;
  return true;
}

/* The socket, or -1. */
static int connectToCollector(void) {
  const struct sockaddr_in address = {.sin_family = AF_INET,
                                      .sin_port = htons(collectorPort),
                                      .sin_addr = {htonl(INADDR_LOOPBACK)}};
  const struct timeval patience = {5, 0};
  const int collector = socket(AF_INET, SOCK_STREAM, 0);
  setsockopt(collector, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  if (connect(collector, (const struct sockaddr*)&address, sizeof address) == 0) return collector;
  close(collector);
  return -1;
}

/* Sends the request and reads what comes until the collector closes. */
static void ask(int collector, const char* request, char* reply, size_t size) {
  size_t length = 0;
  ssize_t count = send(collector, request, strlen(request), MSG_NOSIGNAL);
  while (count > 0 && length < size - 1) {
    count = recv(collector, reply + length, size - 1 - length, 0);
    if (count > 0) length += (size_t)count;
  }
  reply[length] = '\0';
}

long collectorReportCount(void) {
  static const char request[] =
      "GET /api/status HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n";
  static const char key[] = "\"reports\":";
  char reply[8192];
  const int collector = connectToCollector();
  if (collector < 0) return -1;
  ask(collector, request, reply, sizeof reply);
  close(collector);
  const char* member = strstr(reply, key);
  return member == NULL ? -1 : strtol(member + strlen(key), NULL, 10);
}
