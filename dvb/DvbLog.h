#ifndef OSTREL_DVB_LOG_H
#define OSTREL_DVB_LOG_H

#include <cstdarg>
#include <cstdio>

#include "OstrelLogger.h"

namespace Ostrel {

// Every message of the DVB server: level 4, module "DvbServer", which is also
// the argument of the format's leading "%s" as in the rest of the library.
// Internal.
inline void dvbLog(const char* format, ...) __attribute__((format(printf, 1, 2)));

inline void dvbLog(const char* format, ...) {
  char text[512];
  va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof(text), format, args);
  va_end(args);
  ostrel_log_std_generic(4, "DvbServer", "%s: %s", "DvbServer", text);
}

}  // namespace Ostrel

#endif  // OSTREL_DVB_LOG_H
