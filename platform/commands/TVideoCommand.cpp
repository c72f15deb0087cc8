#include "TVideoCommand.h"

namespace Ostrel {

TVideoCommand::TVideoCommand(unsigned short code)
    : TCommand(code),
      m_usTsId(0),
      m_usLayerId(0),
      m_sSx(0),
      m_sSy(0),
      m_usSw(0),
      m_usSh(0),
      m_sDx(0),
      m_sDy(0),
      m_usDw(0),
      m_usDh(0) {}

TVideoCommand::~TVideoCommand() {}

}  // namespace Ostrel
