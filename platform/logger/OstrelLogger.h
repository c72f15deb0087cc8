// The receiver's logger, stood in for: printf-style messages tagged with a
// module, written by default to standard error one line each with a time
// stamp, or handed to a sink that the embedding application installs.
#ifndef OSTREL_LOGGER_H
#define OSTREL_LOGGER_H

#ifdef __cplusplus
extern "C" {
#endif

// Receives every formatted message (no trailing newline). Runs on the thread
// that logged, serialised with every other delivery to a sink.
typedef void (*ostrel_log_sink_t)(int level, const char* module, const char* message,
                                  void* context);

// Formats the message and delivers it to the sink, or to standard error as
// "YYYY-MM-DD hh:mm:ss.mmm <message>" (the library's messages begin with their
// module: "GingaCommonCore: requestData: ..."). Thread-safe.
void ostrel_log_std_generic(int level, const char* module, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// Redirects every message to sink with context; null restores standard error.
// Once this returns, no delivery to the previous sink is still running.
void ostrel_log_set_sink(ostrel_log_sink_t sink, void* context);

#ifdef __cplusplus
}
#endif

#endif  // OSTREL_LOGGER_H
