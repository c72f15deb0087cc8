#ifndef OSTREL_T_NOTIFY_STATUS_CHANGE_H
#define OSTREL_T_NOTIFY_STATUS_CHANGE_H

#include "TAppCommand.h"

namespace Ostrel {

// Reports a change of an application's status (0x300).
class TNotifyStatusChange : public TAppCommand {
 public:
  static const unsigned short kCode = 0x300;

  TNotifyStatusChange();
  virtual ~TNotifyStatusChange();

  void setNotificationCode(unsigned char notificationCode) {
    m_ucNotificationCode = notificationCode;
  }
  unsigned char getNotificationCode() const { return m_ucNotificationCode; }

 private:
  unsigned char m_ucNotificationCode;
};

}  // namespace Ostrel

#endif  // OSTREL_T_NOTIFY_STATUS_CHANGE_H
