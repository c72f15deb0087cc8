#include "TGetTunerListCommand.h"

namespace Ostrel {

TGetTunerListCommand::TGetTunerListCommand() : TCommand(kCode) {}

TGetTunerListCommand::~TGetTunerListCommand() {}

}  // namespace Ostrel
