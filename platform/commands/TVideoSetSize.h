#ifndef OSTREL_T_VIDEO_SET_SIZE_H
#define OSTREL_T_VIDEO_SET_SIZE_H

#include "TVideoCommand.h"

namespace Ostrel {

// Sets the video geometry (0x403).
class TVideoSetSize : public TVideoCommand {
 public:
  static const unsigned short kCode = 0x403;

  TVideoSetSize();
  virtual ~TVideoSetSize();
};

}  // namespace Ostrel

#endif  // OSTREL_T_VIDEO_SET_SIZE_H
