#include "TDataRequestCommand.h"

#include "GingaServer.h"

namespace Ostrel {

TDataRequestCommand::TDataRequestCommand()
    : TTableKeyCommand(kCode), m_iOpen(0), m_uiTimeOut(0), m_ucRequestCounter(0) {}

TDataRequestCommand::~TDataRequestCommand() {}

int TDataRequestCommand::send(TCommand** response) {
  if (!getOpen()) {
    return TCommand::send(response);
  }
  GingaEndPoint* endPoint = getEndPoint();
  if (!endPoint) {
    delete this;
    return 0;
  }
  GingaServer* server = dynamic_cast<GingaServer*>(endPoint);
  if (!server) {
    return endPoint->execute(this, response);  // a bare end point takes it over
  }
  server->adoptOpenRequest(this);
  int result = endPoint->execute(this, response);
  if (!result) {
    server->closeOpenRequest(this);
  }
  return result;
}

}  // namespace Ostrel
