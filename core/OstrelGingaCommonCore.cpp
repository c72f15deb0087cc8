// The core object: singleton, server and callback binding, and the dispatch
// sequence shared by every command operation.
#include "OstrelGingaCommonCore.h"

#include "CommandDispatch.h"
#include "GingaServer.h"
#include "OstrelLogger.h"
#include "ScopedLock.h"

namespace Ostrel {

std::atomic<OstrelGingaCommonCore*> OstrelGingaCommonCore::s_pInstance(NULL);
pthread_mutex_t OstrelGingaCommonCore::s_pSingMutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;

const char* const CommandDispatch::kModule = "GingaCommonCore";

void CommandDispatch::log(const char* format) {
  ostrel_log_std_generic(4, kModule, format, kModule);
}

GingaEndPoint* CommandDispatch::endPoint(GingaServer* server) {
  return server;
}

OstrelGingaCommonCore::OstrelGingaCommonCore() : m_pServer(NULL), m_pNotificationCallback(NULL) {}

OstrelGingaCommonCore::~OstrelGingaCommonCore() {}

OstrelGingaCommonCore* OstrelGingaCommonCore::getInstance() {
  OstrelGingaCommonCore* instance = s_pInstance.load(std::memory_order_acquire);
  if (instance) {
    return instance;
  }
  ScopedLock lock(&s_pSingMutex);  // released even when the allocator throws
  instance = s_pInstance.load(std::memory_order_relaxed);
  if (!instance) {
    instance = new OstrelGingaCommonCore();
    s_pInstance.store(instance, std::memory_order_release);
  }
  return instance;
}

int OstrelGingaCommonCore::setServer(GingaServer* server) {
  if (!server) {
    return 0;
  }
  m_pServer.store(server, std::memory_order_release);
  return 1;
}

int OstrelGingaCommonCore::setRequestNotificationCallback(RequestNotificationCallback callback) {
  m_pNotificationCallback.store(callback, std::memory_order_release);
  return 1;
}

int OstrelGingaCommonCore::waitBusyCommands(short* errorCode) {
  GingaServer* server = getServer();
  if (!server) {
    return 0;
  }
  server->waitBusyCommands();
  CommandDispatch::setErrorCode(errorCode, 0);
  return 1;
}

}  // namespace Ostrel
