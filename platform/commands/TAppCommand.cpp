#include "TAppCommand.h"

namespace Ostrel {

TAppCommand::TAppCommand(unsigned short code) : TCommand(code) {}

TAppCommand::~TAppCommand() {}

}  // namespace Ostrel
