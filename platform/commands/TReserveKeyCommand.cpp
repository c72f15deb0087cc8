#include "TReserveKeyCommand.h"

namespace Ostrel {

TReserveKeyCommand::TReserveKeyCommand() : TCommand(kCode), m_uiKeyCode(0) {}

TReserveKeyCommand::~TReserveKeyCommand() {}

}  // namespace Ostrel
