#include "TReleaseKeyCommand.h"

namespace Ostrel {

TReleaseKeyCommand::TReleaseKeyCommand() : TCommand(kCode), m_uiKeyCode(0) {}

TReleaseKeyCommand::~TReleaseKeyCommand() {}

}  // namespace Ostrel
