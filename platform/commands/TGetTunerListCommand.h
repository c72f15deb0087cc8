#ifndef OSTREL_T_GET_TUNER_LIST_COMMAND_H
#define OSTREL_T_GET_TUNER_LIST_COMMAND_H

#include "TCommand.h"

namespace Ostrel {

// Asks for the list of tuners (0x500); the answer is a TGetTunerListResponse.
class TGetTunerListCommand : public TCommand {
 public:
  static const unsigned short kCode = 0x500;

  TGetTunerListCommand();
  virtual ~TGetTunerListCommand();
};

}  // namespace Ostrel

#endif  // OSTREL_T_GET_TUNER_LIST_COMMAND_H
