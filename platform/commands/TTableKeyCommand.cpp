#include "TTableKeyCommand.h"

namespace Ostrel {

TTableKeyCommand::TTableKeyCommand(unsigned short code)
    : TCommand(code), m_iTunerId(0), m_sPid(0), m_sTableId(0), m_sTableIdExt(0) {}

TTableKeyCommand::~TTableKeyCommand() {}

}  // namespace Ostrel
