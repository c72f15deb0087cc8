#include "LogCapture.h"

#include "OstrelLogger.h"

namespace OstrelTest {

LogCapture::LogCapture() {
  ostrel_log_set_sink(&LogCapture::sink, this);
}

LogCapture::~LogCapture() {
  ostrel_log_set_sink(nullptr, nullptr);
}

void LogCapture::sink(int level, const char* module, const char* message, void* context) {
  auto* self = static_cast<LogCapture*>(context);
  std::lock_guard<std::mutex> lock(self->m_mutex);
  self->m_lines.push_back(LogLine{level, module ? module : "", message});
}

std::vector<LogLine> LogCapture::lines() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_lines;
}

std::vector<std::string> LogCapture::messages() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  std::vector<std::string> out;
  for (const auto& line : m_lines)
    out.push_back(line.message);
  return out;
}

int LogCapture::count(const std::string& message) const {
  std::lock_guard<std::mutex> lock(m_mutex);
  int n = 0;
  for (const auto& line : m_lines)
    n += line.message == message;
  return n;
}

void LogCapture::clear() {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_lines.clear();
}

}  // namespace OstrelTest
