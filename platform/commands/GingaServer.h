#ifndef OSTREL_GINGA_SERVER_H
#define OSTREL_GINGA_SERVER_H

#include <pthread.h>

#include <vector>

#include "GingaEndPoint.h"

namespace Ostrel {

class GingaDataDestination;
class TDataRequestCommand;

// The receiver: executes commands and delivers section data to its data
// destination. Derived classes override execute.
//
// Open data requests: from TCommand::send on, an open request belongs to the
// server it was sent to. The server holds it until it calls
// closeOpenRequest, which deletes it; a request refused by execute (result 0)
// is closed at once by the command library; whatever is still held when the
// server is destroyed is deleted then. A server never deletes an open request
// with delete. All of this is thread-safe.
class GingaServer : public GingaEndPoint {
 public:
  GingaServer();
  virtual ~GingaServer();

  // Returns once no command is busy. The base server executes synchronously,
  // so it returns at once.
  virtual void waitBusyCommands();

  // Not owned. Read and written atomically.
  void setDataDestination(GingaDataDestination* destination);
  GingaDataDestination* getDataDestination() const;

  // Deletes an open request that this server holds; false, and nothing
  // deleted, when it holds no such request (already closed, or never sent here).
  bool closeOpenRequest(TDataRequestCommand* request);

  // How many open requests this server holds now.
  unsigned int getOpenRequestCount() const;

  // Called by the command library when it hands an open request over.
  void adoptOpenRequest(TDataRequestCommand* request);

 private:
  GingaServer(const GingaServer&);
  GingaServer& operator=(const GingaServer&);

  GingaDataDestination* m_pDestination;  // an atomic word (compiler builtins)
  mutable pthread_mutex_t m_mutex;
  std::vector<TDataRequestCommand*> m_vecOpenRequests;
};

}  // namespace Ostrel

#endif  // OSTREL_GINGA_SERVER_H
