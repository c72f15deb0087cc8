#include "TNotifyStatusChange.h"

namespace Ostrel {

TNotifyStatusChange::TNotifyStatusChange() : TAppCommand(kCode), m_ucNotificationCode(0) {}

TNotifyStatusChange::~TNotifyStatusChange() {}

}  // namespace Ostrel
