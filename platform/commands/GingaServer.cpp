#include "GingaServer.h"

#include <algorithm>

#include "GingaDataDestination.h"
#include "TDataRequestCommand.h"

namespace Ostrel {

GingaEndPoint::~GingaEndPoint() {}

GingaDataDestination::~GingaDataDestination() {}

GingaServer::GingaServer() : m_pDestination(NULL) {
  pthread_mutex_init(&m_mutex, NULL);
}

GingaServer::~GingaServer() {
  for (size_t i = 0; i < m_vecOpenRequests.size(); ++i) {
    delete m_vecOpenRequests[i];
  }
  pthread_mutex_destroy(&m_mutex);
}

void GingaServer::waitBusyCommands() {}

void GingaServer::setDataDestination(GingaDataDestination* destination) {
  __atomic_store_n(&m_pDestination, destination, __ATOMIC_RELEASE);
}

GingaDataDestination* GingaServer::getDataDestination() const {
  return __atomic_load_n(&m_pDestination, __ATOMIC_ACQUIRE);
}

void GingaServer::adoptOpenRequest(TDataRequestCommand* request) {
  pthread_mutex_lock(&m_mutex);
  m_vecOpenRequests.push_back(request);
  pthread_mutex_unlock(&m_mutex);
}

bool GingaServer::closeOpenRequest(TDataRequestCommand* request) {
  pthread_mutex_lock(&m_mutex);
  std::vector<TDataRequestCommand*>::iterator it =
      std::find(m_vecOpenRequests.begin(), m_vecOpenRequests.end(), request);
  bool held = it != m_vecOpenRequests.end();
  if (held) {
    *it = m_vecOpenRequests.back();
    m_vecOpenRequests.pop_back();
  }
  pthread_mutex_unlock(&m_mutex);
  if (held) {
    delete request;
  }
  return held;
}

unsigned int GingaServer::getOpenRequestCount() const {
  pthread_mutex_lock(&m_mutex);
  unsigned int count = static_cast<unsigned int>(m_vecOpenRequests.size());
  pthread_mutex_unlock(&m_mutex);
  return count;
}

}  // namespace Ostrel
