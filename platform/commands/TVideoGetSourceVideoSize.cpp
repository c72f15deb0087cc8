#include "TVideoGetSourceVideoSize.h"

namespace Ostrel {

TVideoGetSourceVideoSize::TVideoGetSourceVideoSize() : TVideoCommand(kCode) {}

TVideoGetSourceVideoSize::~TVideoGetSourceVideoSize() {}

}  // namespace Ostrel
