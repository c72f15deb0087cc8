#ifndef OSTREL_T_DATA_REQUEST_COMMAND_H
#define OSTREL_T_DATA_REQUEST_COMMAND_H

#include "TTableKeyCommand.h"

namespace Ostrel {

// Asynchronous table request (0x600). With the open flag set it stays open at
// the server until its time-out (seconds) passes: from send on it belongs to the
// command library and is never deleted by its sender (see GingaServer).
class TDataRequestCommand : public TTableKeyCommand {
 public:
  static const unsigned short kCode = 0x600;

  TDataRequestCommand();
  virtual ~TDataRequestCommand();

  // An open request goes over to the end point; see the class comment.
  virtual int send(TCommand** response);

  void setOpen(int open) { m_iOpen = open; }
  int getOpen() const { return m_iOpen; }
  void setTimeOut(unsigned int timeOut) { m_uiTimeOut = timeOut; }
  unsigned int getTimeOut() const { return m_uiTimeOut; }
  void setRequestCounter(unsigned char requestCounter) { m_ucRequestCounter = requestCounter; }
  unsigned char getRequestCounter() const { return m_ucRequestCounter; }

 private:
  int m_iOpen;
  unsigned int m_uiTimeOut;
  unsigned char m_ucRequestCounter;
};

}  // namespace Ostrel

#endif  // OSTREL_T_DATA_REQUEST_COMMAND_H
