#include "TVideoGetDefaultSize.h"

namespace Ostrel {

TVideoGetDefaultSize::TVideoGetDefaultSize() : TVideoCommand(kCode) {}

TVideoGetDefaultSize::~TVideoGetDefaultSize() {}

}  // namespace Ostrel
