#include "RequestTrace.h"

#include <sstream>

#include "ScanReport.h"

namespace Ostrel {

RequestTrace::RequestTrace() : m_tpStart(std::chrono::steady_clock::now()) {}

long long RequestTrace::now() const {
  return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() -
                                                               m_tpStart)
      .count();
}

void RequestTrace::add(const std::string& event) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_vecEvents.push_back(event);
}

void RequestTrace::sent(unsigned int requestId, const std::string& name, const std::string& args) {
  std::ostringstream event;
  event << "{\"name\":\"" << ScanReport::escape(name)
        << "\",\"cat\":\"request\",\"ph\":\"b\",\"id\":" << requestId
        << ",\"pid\":1,\"tid\":1,\"ts\":" << now() << ",\"args\":{\"sent\":\""
        << ScanReport::escape(args) << "\"}}";
  add(event.str());
}

void RequestTrace::ended(unsigned int requestId, const std::string& name,
                         const std::string& outcome) {
  std::ostringstream event;
  event << "{\"name\":\"" << ScanReport::escape(name)
        << "\",\"cat\":\"request\",\"ph\":\"e\",\"id\":" << requestId
        << ",\"pid\":1,\"tid\":1,\"ts\":" << now() << ",\"args\":{\"outcome\":\""
        << ScanReport::escape(outcome) << "\"}}";
  add(event.str());
}

void RequestTrace::instant(const std::string& name, const std::string& args) {
  std::ostringstream event;
  event << "{\"name\":\"" << ScanReport::escape(name)
        << "\",\"cat\":\"request\",\"ph\":\"i\",\"s\":\"g\","
        << "\"pid\":1,\"tid\":1,\"ts\":" << now() << ",\"args\":{\"detail\":\""
        << ScanReport::escape(args) << "\"}}";
  add(event.str());
}

std::string RequestTrace::toJson() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  std::string out = "{\"displayTimeUnit\":\"ms\",\"traceEvents\":[\n";
  for (size_t i = 0; i < m_vecEvents.size(); ++i) {
    out += m_vecEvents[i];
    out += i + 1 < m_vecEvents.size() ? ",\n" : "\n";
  }
  out += "]}\n";
  return out;
}

bool RequestTrace::writeTo(const std::string& path) const {
  std::string json = toJson();
  std::FILE* file = std::fopen(path.c_str(), "w");
  if (!file) {
    return false;
  }
  bool ok = std::fwrite(json.data(), 1, json.size(), file) == json.size();
  return std::fclose(file) == 0 && ok;
}

}  // namespace Ostrel
