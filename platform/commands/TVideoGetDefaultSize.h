#ifndef OSTREL_T_VIDEO_GET_DEFAULT_SIZE_H
#define OSTREL_T_VIDEO_GET_DEFAULT_SIZE_H

#include "TVideoCommand.h"

namespace Ostrel {

// Asks for the default video geometry (0x401).
class TVideoGetDefaultSize : public TVideoCommand {
 public:
  static const unsigned short kCode = 0x401;

  TVideoGetDefaultSize();
  virtual ~TVideoGetDefaultSize();
};

}  // namespace Ostrel

#endif  // OSTREL_T_VIDEO_GET_DEFAULT_SIZE_H
