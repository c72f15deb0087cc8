// Table requests: answered from the tuner's cache, or sent to the server and
// followed until data or their time-out ends them; and the feedback to the
// middleware.
#include "CacheLoan.h"
#include "CommandDispatch.h"
#include "OstrelGingaCommonCore.h"
#include "RequestFollower.h"
#include "TDataRequestCommand.h"
#include "TSyncDataRequestCommand.h"
#include "TableCatalog.h"

namespace Ostrel {

namespace {

// Borrows the tuner's cached table for pid: a loan keeps it valid while it is
// delivered, whatever another thread does to the cache. Error code 0, -11 (no
// cache for the tuner) or -12 (not cached).
bool lookUpCache(int tunerId, short pid, short tableId, short tableIdExt, CacheLoan* loan,
                 short* errorCode) {
  Cacher* cache = Cacher::getInstance(tunerId);
  if (!cache) {
    CommandDispatch::setErrorCode(errorCode, -11);
    return false;
  }
  bool found = loan->borrow(cache, pid, tableId, tableIdExt);
  CommandDispatch::setErrorCode(errorCode, found ? 0 : -12);
  return found;
}

// The request modes: 0 cache only, 1 cache then server, any other server only.
bool consultsCache(signed char mode) {
  return static_cast<unsigned char>(mode) < 2;
}

// The cache step shared by both request operations. Returns true when the
// request ended here, with *result set; false when it goes on to the server.
// A cache answer leaves the caller's errorCode as it was.
bool answerFromCache(OstrelGingaCommonCore* core, unsigned int requestId, signed char mode,
                     int tunerId, short pid, short tableId, short tableIdExt, void* userData,
                     void (*release)(void*), short* errorCode, int* result) {
  if (!consultsCache(mode)) {
    return false;
  }
  short localError = 0;
  CacheLoan loan;
  if (lookUpCache(tunerId, pid, tableId, tableIdExt, &loan, &localError)) {
    *result = core->dispatchRequestFeedback(requestId, 0, userData, loan.table(), &localError);
    if (*result && userData && release) {
      release(userData);
    }
    return true;
  }
  if (mode == 0) {
    CommandDispatch::setErrorCode(errorCode, localError);
    *result = 0;
    return true;
  }
  return false;
}

}  // namespace

int OstrelGingaCommonCore::requestData(unsigned int requestId, signed char mode, int tunerId,
                                       short pid, short tableId, short tableIdExt, void* userData,
                                       void (*release)(void*), short* errorCode) {
  int result = 0;
  if (answerFromCache(this, requestId, mode, tunerId, pid, tableId, tableIdExt, userData, release,
                      errorCode, &result)) {
    return result;
  }
  TDataRequestCommand* command = CommandDispatch::create<TDataRequestCommand>(
      TDataRequestCommand::kCode, "%s: requestData: ERROR: Could not create command.", errorCode);
  if (!command) {
    return 0;
  }
  timeval timeOut = getTimeout(pid, tableId, tableIdExt);
  command->setEndPoint(CommandDispatch::endPoint(getServer()));
  command->setOpen(1);
  command->setTunerId(tunerId);
  command->setPid(pid);
  command->setTableId(tableId);
  command->setTableIdExt(tableIdExt);
  command->setTimeOut(timeOut.tv_sec ? static_cast<unsigned int>(timeOut.tv_sec) + 1 : 0);
  command->setRequestCounter(1);
  // An open request belongs to the command library from send on: never
  // touched again here, whatever send returns.
  if (!command->send(0)) {
    ostrelLog(kCoreModule, "%s: requestData: ERROR: Could not request data.");
    CommandDispatch::setErrorCode(errorCode, -5);
    return 0;
  }
  // Followed only once sent, so a failed send leaves nothing to undo.
  if (!RequestFollower::add(requestId, tunerId, pid, tableId, tableIdExt, userData, release,
                            timeOut, 1)) {
    CommandDispatch::setErrorCode(errorCode, -10);
    return 0;
  }
  CommandDispatch::setErrorCode(errorCode, 0);
  return 1;
}

int OstrelGingaCommonCore::requestDataSync(unsigned int requestId, signed char mode, int tunerId,
                                           short pid, short tableId, short tableIdExt,
                                           void* userData, void (*release)(void*),
                                           short* errorCode) {
  int result = 0;
  if (answerFromCache(this, requestId, mode, tunerId, pid, tableId, tableIdExt, userData, release,
                      errorCode, &result)) {
    return result;
  }
  TSyncDataRequestCommand* command = CommandDispatch::create<TSyncDataRequestCommand>(
      TSyncDataRequestCommand::kCode, "%s: requestDataSync: ERROR: Could not create command.",
      errorCode);
  if (!command) {
    return 0;
  }
  command->setEndPoint(CommandDispatch::endPoint(getServer()));
  command->setTunerId(tunerId);
  command->setPid(pid);
  command->setTableId(tableId);
  command->setTableIdExt(tableIdExt);
  int sent = command->send(0);
  delete command;
  if (!sent) {
    ostrelLog(kCoreModule, "%s: requestDataSync: ERROR: Could not request data.");
    CommandDispatch::setErrorCode(errorCode, -5);
    return 0;
  }
  if (userData && release) {
    release(userData);
  }
  CommandDispatch::setErrorCode(errorCode, 0);
  return 1;
}

timeval OstrelGingaCommonCore::getTimeout(short pid, short tableId, short /*tableIdExt*/) {
  const TableKind& rule = TableKind::of(pid, tableId);
  if (rule.category == TableKind::kNone) {
    ostrelLog(kCoreModule, "%s: getTimeout: Unknown pid/tableId/tableIdExt. Using 1s timeout.");
  }
  timeval timeOut;
  timeOut.tv_sec = rule.timeOutSeconds;
  timeOut.tv_usec = 0;
  return timeOut;
}

TISDBTTable* OstrelGingaCommonCore::getFromCache(int tunerId, short pid, short tableId,
                                                 short tableIdExt, void* /*userData*/,
                                                 short* errorCode) {
  CacheLoan loan;
  lookUpCache(tunerId, pid, tableId, tableIdExt, &loan, errorCode);
  return loan.table();  // the cache's own object: it stays cached when the loan ends
}

int OstrelGingaCommonCore::dispatchRequestFeedback(unsigned int requestId, unsigned char status,
                                                   void* userData, TISDBTTable* table,
                                                   short* errorCode) {
  RequestNotificationCallback callback = getCallback();
  if (!callback) {
    CommandDispatch::setErrorCode(errorCode, -7);
    ostrelLog(kCoreModule, "%s: dispatchRequestFeedback: No Request notification callback set!");
    return 0;
  }
  if (!callback(requestId, status, userData, table)) {
    CommandDispatch::setErrorCode(errorCode, -8);
    ostrelLog(kCoreModule, "%s: dispatchRequestFeedback: Request filled notification failed!");
    return 0;
  }
  CommandDispatch::setErrorCode(errorCode, 0);
  return 1;
}

// Works on the singleton whatever object it is called on; the monitor thread
// releases the user data afterwards.
int OstrelGingaCommonCore::requestTimedOut(unsigned int requestId, int /*tunerId*/, short /*pid*/,
                                           short /*tableId*/, short /*tableIdExt*/, void* userData,
                                           timeval /*timeOut*/, unsigned int /*requestCounter*/) {
  OstrelGingaCommonCore* core = getInstance();
  if (!core) {
    ostrelLog(kCoreModule, "%s: requestTimedOut: Could not get GingaCommonCore instance.");
    return 0;
  }
  RequestNotificationCallback callback = core->getCallback();
  if (!callback) {
    ostrelLog(kCoreModule, "%s: requestTimedOut: No Request notification callback set!");
    return 0;
  }
  return callback(requestId, 1, userData, 0);
}

}  // namespace Ostrel
