#ifndef OSTREL_T_VIDEO_GET_SOURCE_VIDEO_SIZE_H
#define OSTREL_T_VIDEO_GET_SOURCE_VIDEO_SIZE_H

#include "TVideoCommand.h"

namespace Ostrel {

// Asks for the width and height of the video source (0x402).
class TVideoGetSourceVideoSize : public TVideoCommand {
 public:
  static const unsigned short kCode = 0x402;

  TVideoGetSourceVideoSize();
  virtual ~TVideoGetSourceVideoSize();
};

}  // namespace Ostrel

#endif  // OSTREL_T_VIDEO_GET_SOURCE_VIDEO_SIZE_H
