// The core object: singleton, server and callback binding, and the dispatch
// sequence shared by every command operation.
#include "OstrelGingaCommonCore.h"

#include "CommandDispatch.h"
#include "GingaServer.h"
#include "ScopedLock.h"

namespace Ostrel {

OstrelGingaCommonCore* OstrelGingaCommonCore::s_pInstance = NULL;
pthread_mutex_t OstrelGingaCommonCore::s_pSingMutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;

OstrelGingaCommonCore::OstrelGingaCommonCore() : m_pServer(NULL), m_pNotificationCallback(NULL) {}

OstrelGingaCommonCore::~OstrelGingaCommonCore() {}

OstrelGingaCommonCore* OstrelGingaCommonCore::getInstance() {
  OstrelGingaCommonCore* instance = __atomic_load_n(&s_pInstance, __ATOMIC_ACQUIRE);
  if (instance) {
    return instance;
  }
  ScopedLock lock(&s_pSingMutex);  // released even when the allocator throws
  instance = __atomic_load_n(&s_pInstance, __ATOMIC_RELAXED);
  if (!instance) {
    instance = new OstrelGingaCommonCore();
    __atomic_store_n(&s_pInstance, instance, __ATOMIC_RELEASE);
  }
  return instance;
}

int OstrelGingaCommonCore::setServer(GingaServer* server) {
  if (!server) {
    return 0;
  }
  __atomic_store_n(&m_pServer, server, __ATOMIC_RELEASE);
  return 1;
}

int OstrelGingaCommonCore::setRequestNotificationCallback(RequestNotificationCallback callback) {
  __atomic_store_n(&m_pNotificationCallback, callback, __ATOMIC_RELEASE);
  return 1;
}

GingaServer* OstrelGingaCommonCore::getServer() {
  return __atomic_load_n(&m_pServer, __ATOMIC_ACQUIRE);
}

RequestNotificationCallback OstrelGingaCommonCore::getCallback() {
  return __atomic_load_n(&m_pNotificationCallback, __ATOMIC_ACQUIRE);
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
