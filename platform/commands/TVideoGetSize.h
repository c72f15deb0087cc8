#ifndef OSTREL_T_VIDEO_GET_SIZE_H
#define OSTREL_T_VIDEO_GET_SIZE_H

#include "TVideoCommand.h"

namespace Ostrel {

// Asks for the present video geometry (0x400).
class TVideoGetSize : public TVideoCommand {
 public:
  static const unsigned short kCode = 0x400;

  TVideoGetSize();
  virtual ~TVideoGetSize();
};

}  // namespace Ostrel

#endif  // OSTREL_T_VIDEO_GET_SIZE_H
