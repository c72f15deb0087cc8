#include "TSyncDataRequestCommand.h"

namespace Ostrel {

TSyncDataRequestCommand::TSyncDataRequestCommand() : TTableKeyCommand(kCode) {}

TSyncDataRequestCommand::~TSyncDataRequestCommand() {}

}  // namespace Ostrel
