#ifndef OSTREL_T_RELEASE_KEY_COMMAND_H
#define OSTREL_T_RELEASE_KEY_COMMAND_H

#include "TCommand.h"

namespace Ostrel {

// Gives a reserved remote-control key code back (0x210).
class TReleaseKeyCommand : public TCommand {
 public:
  static const unsigned short kCode = 0x210;

  TReleaseKeyCommand();
  virtual ~TReleaseKeyCommand();

  void setKeyCode(unsigned int keyCode) { m_uiKeyCode = keyCode; }
  unsigned int getKeyCode() const { return m_uiKeyCode; }

 private:
  unsigned int m_uiKeyCode;
};

}  // namespace Ostrel

#endif  // OSTREL_T_RELEASE_KEY_COMMAND_H
