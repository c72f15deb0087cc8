#ifndef OSTREL_TESTS_LOG_CAPTURE_H
#define OSTREL_TESTS_LOG_CAPTURE_H

#include <mutex>
#include <string>
#include <vector>

#include "OstrelLogger.h"

namespace OstrelTest {

struct LogLine {
  int level;
  std::string module;
  std::string message;
};

// Captures every logged message while it lives; restores standard error after.
// Not copyable (its mutex is not).
class LogCapture {
 public:
  LogCapture() { ostrel_log_set_sink(&LogCapture::sink, this); }
  ~LogCapture() { ostrel_log_set_sink(nullptr, nullptr); }

  std::vector<LogLine> lines() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
  }
  std::vector<std::string> messages() const {
    std::vector<std::string> out;
    for (const LogLine& line : lines())
      out.push_back(line.message);
    return out;
  }
  // How many captured messages equal message exactly.
  int count(const std::string& message) const {
    int n = 0;
    for (const LogLine& line : lines())
      n += line.message == message;
    return n;
  }
  void clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
  }

 private:
  static void sink(int level, const char* module, const char* message, void* context) {
    auto* self = static_cast<LogCapture*>(context);
    std::lock_guard<std::mutex> lock(self->m_mutex);
    self->m_lines.push_back(LogLine{level, module ? module : "", message});
  }

  mutable std::mutex m_mutex;
  std::vector<LogLine> m_lines;
};

}  // namespace OstrelTest

#endif
