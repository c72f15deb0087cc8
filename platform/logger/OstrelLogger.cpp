#include "OstrelLogger.h"

#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/time.h>
#include <time.h>

namespace {

// Guards the sink and serialises deliveries, so that a sink being replaced is
// never called after ostrel_log_set_sink returns. Recursive: a sink may log.
pthread_mutex_t s_sinkMutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
ostrel_log_sink_t s_pfSink = NULL;
void* s_pSinkContext = NULL;

// The message begins with its module already (the library's convention), so
// the line is the time stamp and the message alone.
void writeToStandardError(const char* message) {
  struct timeval now;
  gettimeofday(&now, NULL);
  time_t seconds = now.tv_sec;
  struct tm parts;
  localtime_r(&seconds, &parts);
  char stamp[32];
  strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &parts);
  fprintf(stderr, "%s.%03ld %s\n", stamp, static_cast<long>(now.tv_usec / 1000), message);
}

void deliver(int level, const char* module, const char* message) {
  pthread_mutex_lock(&s_sinkMutex);
  if (s_pfSink) {
    s_pfSink(level, module, message, s_pSinkContext);
  } else {
    writeToStandardError(message);
  }
  pthread_mutex_unlock(&s_sinkMutex);
}

}  // namespace

extern "C" void ostrel_log_std_generic(int level, const char* module, const char* format, ...) {
  char small[256];
  va_list args;
  va_start(args, format);
  int needed = vsnprintf(small, sizeof small, format, args);
  va_end(args);
  if (needed < 0) {
    return;
  }
  if (static_cast<size_t>(needed) < sizeof small) {
    deliver(level, module, small);
    return;
  }
  char* large = static_cast<char*>(malloc(static_cast<size_t>(needed) + 1));
  if (!large) {
    deliver(level, module, small);  // truncated rather than lost
    return;
  }
  va_start(args, format);
  vsnprintf(large, static_cast<size_t>(needed) + 1, format, args);
  va_end(args);
  deliver(level, module, large);
  free(large);
}

extern "C" void ostrel_log_set_sink(ostrel_log_sink_t sink, void* context) {
  pthread_mutex_lock(&s_sinkMutex);
  s_pfSink = sink;
  s_pSinkContext = context;
  pthread_mutex_unlock(&s_sinkMutex);
}
