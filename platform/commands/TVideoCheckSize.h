#ifndef OSTREL_T_VIDEO_CHECK_SIZE_H
#define OSTREL_T_VIDEO_CHECK_SIZE_H

#include "TVideoCommand.h"

namespace Ostrel {

// Submits a geometry; the answer is the geometry the receiver would use (0x404).
class TVideoCheckSize : public TVideoCommand {
 public:
  static const unsigned short kCode = 0x404;

  TVideoCheckSize();
  virtual ~TVideoCheckSize();
};

}  // namespace Ostrel

#endif  // OSTREL_T_VIDEO_CHECK_SIZE_H
