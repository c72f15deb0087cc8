#include "TVideoSetSize.h"

namespace Ostrel {

TVideoSetSize::TVideoSetSize() : TVideoCommand(kCode) {}

TVideoSetSize::~TVideoSetSize() {}

}  // namespace Ostrel
