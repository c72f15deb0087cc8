#include "RequestTrace.h"

#include <cstdio>
#include <sstream>

namespace Ostrel {

RequestTrace::RequestTrace() : m_tpStart(std::chrono::steady_clock::now()) {}

long long RequestTrace::now() const {
  return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() -
                                                               m_tpStart)
      .count();
}

std::string RequestTrace::escape(const std::string& text) {
  std::string out;
  for (std::string::const_iterator it = text.begin(); it != text.end(); ++it) {
    unsigned char c = static_cast<unsigned char>(*it);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c < 0x20) {
      char code[8];
      std::snprintf(code, sizeof(code), "\\u%04x", c);
      out += code;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out;
}

void RequestTrace::add(const std::string& event) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_vecEvents.push_back(event);
}

void RequestTrace::sent(unsigned int requestId, const std::string& name, const std::string& args) {
  std::ostringstream event;
  event << "{\"name\":\"" << escape(name)
        << "\",\"cat\":\"request\",\"ph\":\"b\",\"id\":" << requestId
        << ",\"pid\":1,\"tid\":1,\"ts\":" << now() << ",\"args\":{\"sent\":\"" << escape(args)
        << "\"}}";
  add(event.str());
}

void RequestTrace::ended(unsigned int requestId, const std::string& name,
                         const std::string& outcome) {
  std::ostringstream event;
  event << "{\"name\":\"" << escape(name)
        << "\",\"cat\":\"request\",\"ph\":\"e\",\"id\":" << requestId
        << ",\"pid\":1,\"tid\":1,\"ts\":" << now() << ",\"args\":{\"outcome\":\"" << escape(outcome)
        << "\"}}";
  add(event.str());
}

void RequestTrace::instant(const std::string& name, const std::string& args) {
  std::ostringstream event;
  event << "{\"name\":\"" << escape(name) << "\",\"cat\":\"request\",\"ph\":\"i\",\"s\":\"g\","
        << "\"pid\":1,\"tid\":1,\"ts\":" << now() << ",\"args\":{\"detail\":\"" << escape(args)
        << "\"}}";
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
