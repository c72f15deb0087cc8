#ifndef OSTREL_TESTS_RECORDING_SERVER_H
#define OSTREL_TESTS_RECORDING_SERVER_H

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "GingaServer.h"
#include "TCommand.h"
#include "TISDBTTable.h"

namespace OstrelTest {

// Everything a command carried when it reached the server.
struct RecordedCommand {
  unsigned short code = 0;
  Ostrel::GingaEndPoint* endPoint = nullptr;
  // table requests
  int tunerId = 0;
  short pid = 0, tableId = 0, tableIdExt = 0;
  int open = 0;
  unsigned int timeOut = 0;
  unsigned char requestCounter = 0;
  // keys and status
  unsigned int keyCode = 0;
  std::string listenerId, appId;
  unsigned char notificationCode = 0;
  // video
  unsigned short tsId = 0, layerId = 0;
  short sx = 0, sy = 0, dx = 0, dy = 0;
  unsigned short sw = 0, sh = 0, dw = 0, dh = 0;
};

// A server that records each command, then answers with the result and the
// answer object configured for its code (default: success, no answer). Open
// data requests stay held by the base server until it is destroyed, unless a
// test closes them or closeOpenRequests is set. Thread-safe. Tests, benchmarks,
// fuzz targets, tools and examples all use it as their server.
class RecordingServer : public Ostrel::GingaServer {
 public:
  using AnswerMaker = std::function<Ostrel::TCommand*()>;
  // Returns the result of execute, or kConfigured for the one set by setResult.
  using ExecuteHook = std::function<int(Ostrel::TCommand*)>;
  static const int kConfigured = -1;

  // quiet: records nothing (for loops of millions); closeOpenRequests: an open
  // data request is closed (deleted) as soon as it has been executed.
  explicit RecordingServer(bool quiet = false, bool closeOpenRequests = false)
      : m_quiet(quiet), m_close(closeOpenRequests) {}

  int execute(Ostrel::TCommand* command, Ostrel::TCommand** response) override;
  void waitBusyCommands() override;

  void setResult(unsigned short code, int result);
  void setAnswer(unsigned short code, AnswerMaker makeAnswer);
  // Runs after recording, before answering, on the sending thread.
  void setExecuteHook(ExecuteHook hook);
  // Delivers a section to the data destination, as the server's filter does.
  int deliver(int tunerId, short pid, short tableId, short tableIdExt,
              std::vector<unsigned char> section);

  std::vector<RecordedCommand> commands() const;
  size_t commandCount() const;
  RecordedCommand last() const;
  int waitCount() const;

 private:
  mutable std::mutex m_mutex;
  std::vector<RecordedCommand> m_commands;
  std::map<unsigned short, int> m_results;
  std::map<unsigned short, AnswerMaker> m_answers;
  ExecuteHook m_hook;
  int m_waits = 0;
  const bool m_quiet;
  const bool m_close;
};

}  // namespace OstrelTest

#endif
