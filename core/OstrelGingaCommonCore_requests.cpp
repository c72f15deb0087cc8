// Table requests and their feedback to the middleware.
#include "CommandDispatch.h"
#include "OstrelGingaCommonCore.h"
#include "OstrelLogger.h"

namespace Ostrel {

int OstrelGingaCommonCore::dispatchRequestFeedback(unsigned int requestId, unsigned char status,
                                                   void* userData, TISDBTTable* table,
                                                   short* errorCode) {
  RequestNotificationCallback callback = m_pNotificationCallback.load(std::memory_order_acquire);
  if (!callback) {
    CommandDispatch::setErrorCode(errorCode, -7);
    CommandDispatch::log("%s: dispatchRequestFeedback: No Request notification callback set!");
    return 0;
  }
  if (!callback(requestId, status, userData, table)) {
    CommandDispatch::setErrorCode(errorCode, -8);
    CommandDispatch::log("%s: dispatchRequestFeedback: Request filled notification failed!");
    return 0;
  }
  CommandDispatch::setErrorCode(errorCode, 0);
  return 1;
}

// Works on the singleton whatever object it is called on; the monitor thread
// releases the user data afterwards.
int OstrelGingaCommonCore::requestTimedOut(unsigned int requestId, int /*tunerId*/, short /*pid*/,
                                           short /*tableId*/, short /*tableIdExt*/,
                                           void* userData, timeval /*timeOut*/,
                                           unsigned int /*requestCounter*/) {
  OstrelGingaCommonCore* core = getInstance();
  if (!core) {
    CommandDispatch::log("%s: requestTimedOut: Could not get GingaCommonCore instance.");
    return 0;
  }
  RequestNotificationCallback callback =
      core->m_pNotificationCallback.load(std::memory_order_acquire);
  if (!callback) {
    CommandDispatch::log("%s: requestTimedOut: No Request notification callback set!");
    return 0;
  }
  return callback(requestId, 1, userData, 0);
}

}  // namespace Ostrel
