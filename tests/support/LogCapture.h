#ifndef OSTREL_TESTS_LOG_CAPTURE_H
#define OSTREL_TESTS_LOG_CAPTURE_H

#include <mutex>
#include <string>
#include <vector>

namespace OstrelTest {

struct LogLine {
  int level;
  std::string module;
  std::string message;
};

// Captures every logged message while it lives; restores standard error after.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<LogLine> lines() const;
  std::vector<std::string> messages() const;
  // How many captured messages equal message exactly.
  int count(const std::string& message) const;
  void clear();

 private:
  static void sink(int level, const char* module, const char* message, void* context);

  mutable std::mutex m_mutex;
  std::vector<LogLine> m_lines;
};

}  // namespace OstrelTest

#endif
