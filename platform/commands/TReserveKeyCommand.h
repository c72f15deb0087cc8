#ifndef OSTREL_T_RESERVE_KEY_COMMAND_H
#define OSTREL_T_RESERVE_KEY_COMMAND_H

#include <string>

#include "TCommand.h"

namespace Ostrel {

// Reserves a remote-control key code for a listener (0x209).
class TReserveKeyCommand : public TCommand {
 public:
  static const unsigned short kCode = 0x209;

  TReserveKeyCommand();
  virtual ~TReserveKeyCommand();

  void setKeyCode(unsigned int keyCode) { m_uiKeyCode = keyCode; }
  unsigned int getKeyCode() const { return m_uiKeyCode; }
  void setListenerId(std::string listenerId) { m_strListenerId.swap(listenerId); }
  const std::string& getListenerId() const { return m_strListenerId; }

 private:
  unsigned int m_uiKeyCode;
  std::string m_strListenerId;
};

}  // namespace Ostrel

#endif  // OSTREL_T_RESERVE_KEY_COMMAND_H
