#include "RecordingServer.h"

#include <tuple>

#include "GingaDataDestination.h"

#include "TDataRequestCommand.h"
#include "TNotifyStatusChange.h"
#include "TReleaseKeyCommand.h"
#include "TReserveKeyCommand.h"
#include "TSyncDataRequestCommand.h"
#include "TVideoCommand.h"

using namespace Ostrel;

namespace OstrelTest {

namespace {

RecordedCommand snapshot(TCommand* command) {
  RecordedCommand r;
  r.code = command->getCode();
  r.endPoint = command->getEndPoint();
  if (auto* key = dynamic_cast<TTableKeyCommand*>(command)) {
    std::tie(r.tunerId, r.pid, r.tableId, r.tableIdExt) =
        std::make_tuple(key->getTunerId(), key->getPid(), key->getTableId(), key->getTableIdExt());
  }
  if (auto* data = dynamic_cast<TDataRequestCommand*>(command)) {
    std::tie(r.open, r.timeOut, r.requestCounter) =
        std::make_tuple(data->getOpen(), data->getTimeOut(), data->getRequestCounter());
  }
  if (auto* reserve = dynamic_cast<TReserveKeyCommand*>(command)) {
    std::tie(r.keyCode, r.listenerId) =
        std::make_tuple(reserve->getKeyCode(), reserve->getListenerId());
  }
  if (auto* release = dynamic_cast<TReleaseKeyCommand*>(command))
    r.keyCode = release->getKeyCode();
  if (auto* app = dynamic_cast<TAppCommand*>(command))
    r.appId = app->getAppId();
  if (auto* status = dynamic_cast<TNotifyStatusChange*>(command)) {
    r.notificationCode = status->getNotificationCode();
  }
  if (auto* v = dynamic_cast<TVideoCommand*>(command)) {
    std::tie(r.tsId, r.layerId, r.sx, r.sy, r.sw, r.sh, r.dx, r.dy, r.dw, r.dh) =
        std::make_tuple(v->getTsId(), v->getLayerId(), v->getSx(), v->getSy(), v->getSw(),
                        v->getSh(), v->getDx(), v->getDy(), v->getDw(), v->getDh());
  }
  return r;
}

}  // namespace

int RecordingServer::execute(TCommand* command, TCommand** response) {
  ExecuteHook hook;
  int result = 1;
  AnswerMaker makeAnswer;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_quiet)
      m_commands.push_back(snapshot(command));
    hook = m_hook;
    auto r = m_results.find(command->getCode());
    if (r != m_results.end())
      result = r->second;
    auto a = m_answers.find(command->getCode());
    if (a != m_answers.end())
      makeAnswer = a->second;
  }
  if (hook) {
    const int decided = hook(command);
    if (decided != kConfigured)
      result = decided;
  }
  if (makeAnswer && response)
    *response = makeAnswer();
  auto* request = dynamic_cast<TDataRequestCommand*>(command);
  if (m_close && result && request && request->getOpen())
    closeOpenRequest(request);
  return result;
}

int RecordingServer::deliver(int tunerId, short pid, short tableId, short tableIdExt,
                             std::vector<unsigned char> section) {
  GingaDataDestination* destination = getDataDestination();
  if (!destination)
    return 0;
  return destination->injectData(tunerId, pid, tableId, tableIdExt, nullptr,
                                 section.empty() ? nullptr : section.data(),
                                 static_cast<unsigned int>(section.size()));
}

void RecordingServer::waitBusyCommands() {
  std::lock_guard<std::mutex> lock(m_mutex);
  ++m_waits;
}

void RecordingServer::setResult(unsigned short code, int result) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_results[code] = result;
}

void RecordingServer::setAnswer(unsigned short code, AnswerMaker makeAnswer) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_answers[code] = std::move(makeAnswer);
}

void RecordingServer::setExecuteHook(ExecuteHook hook) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_hook = std::move(hook);
}

std::vector<RecordedCommand> RecordingServer::commands() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_commands;
}

size_t RecordingServer::commandCount() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_commands.size();
}

RecordedCommand RecordingServer::last() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_commands.empty() ? RecordedCommand() : m_commands.back();
}

int RecordingServer::waitCount() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_waits;
}

}  // namespace OstrelTest
