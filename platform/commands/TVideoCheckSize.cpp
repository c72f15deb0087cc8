#include "TVideoCheckSize.h"

namespace Ostrel {

TVideoCheckSize::TVideoCheckSize() : TVideoCommand(kCode) {}

TVideoCheckSize::~TVideoCheckSize() {}

}  // namespace Ostrel
