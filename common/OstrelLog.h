#ifndef OSTREL_LOG_H
#define OSTREL_LOG_H

#include "OstrelLogger.h"

namespace Ostrel {

// Every message of the library: level 4, the class's module tag both as the
// module and as the argument of the format's leading "%s". Internal.
inline void ostrelLog(const char* module, const char* format) {
  ostrel_log_std_generic(4, module, format, module);
}

}  // namespace Ostrel

#endif  // OSTREL_LOG_H
