#include "TVideoGetSize.h"

namespace Ostrel {

TVideoGetSize::TVideoGetSize() : TVideoCommand(kCode) {}

TVideoGetSize::~TVideoGetSize() {}

}  // namespace Ostrel
