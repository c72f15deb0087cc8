#ifndef OSTREL_SIM_REQUEST_TRACE_H
#define OSTREL_SIM_REQUEST_TRACE_H

#include <chrono>
#include <mutex>
#include <string>
#include <vector>

namespace Ostrel {

// The life of table requests as Chrome trace events (the JSON that
// chrome://tracing and Perfetto open): each request is an asynchronous span
// from "sent" to its answer or time-out, with instant events for answers
// from the cache. Times are microseconds since the trace was made.
// Thread-safe.
class RequestTrace {
 public:
  RequestTrace();

  // A request went out; name says what (e.g. "PMT 0xE760").
  void sent(unsigned int requestId, const std::string& name, const std::string& args);
  // It ended: outcome is "delivered", "from cache", "timed out" or "failed".
  void ended(unsigned int requestId, const std::string& name, const std::string& outcome);
  // Something worth a mark of its own (e.g. "cache hit").
  void instant(const std::string& name, const std::string& args);

  // Every event so far as one JSON document.
  std::string toJson() const;
  // Writes toJson() to path; false when the file cannot be written.
  bool writeTo(const std::string& path) const;

  // Escapes text for a JSON string.

 private:
  void add(const std::string& event);
  long long now() const;

  const std::chrono::steady_clock::time_point m_tpStart;
  mutable std::mutex m_mutex;
  std::vector<std::string> m_vecEvents;
};

}  // namespace Ostrel

#endif  // OSTREL_SIM_REQUEST_TRACE_H
