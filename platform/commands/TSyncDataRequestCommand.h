#ifndef OSTREL_T_SYNC_DATA_REQUEST_COMMAND_H
#define OSTREL_T_SYNC_DATA_REQUEST_COMMAND_H

#include "TTableKeyCommand.h"

namespace Ostrel {

// Synchronous table request (0x601): answered before send returns.
class TSyncDataRequestCommand : public TTableKeyCommand {
 public:
  static const unsigned short kCode = 0x601;

  TSyncDataRequestCommand();
  virtual ~TSyncDataRequestCommand();
};

}  // namespace Ostrel

#endif  // OSTREL_T_SYNC_DATA_REQUEST_COMMAND_H
