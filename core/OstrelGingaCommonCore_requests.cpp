// Table requests: answered from the tuner's cache, or sent to the server and
// followed until data or their time-out ends them; and the feedback to the
// middleware.
#include <memory>

#include "Cacher.h"
#include "CommandDispatch.h"
#include "OstrelGingaCommonCore.h"
#include "RequestFollower.h"
#include "TDataRequestCommand.h"
#include "TSyncDataRequestCommand.h"

namespace Ostrel {

namespace {

const unsigned short kPidPat = 0x0000;
const unsigned short kPidCat = 0x0001;
const unsigned short kPidNit = 0x0010;
const unsigned short kPidSdt = 0x0011;
const unsigned short kPidEit = 0x0012;
const unsigned short kPidTot = 0x0014;
const unsigned short kPid24 = 0x0024;
const unsigned short kPid26 = 0x0026;
const short kTableIdEitPresentFollowing = 0x4E;
const short kTableIdEitPresentFollowingOther = 0x4F;
const short kTableIdPmt = 0x02;

// The tuner's cached table for pid, held by a shared handle so that it stays
// valid while it is delivered, whatever another thread does to the cache.
void lookUpCache(int tunerId, short pid, short tableId, short tableIdExt,
                 std::shared_ptr<TISDBTTable>* table, short* errorCode) {
  Cacher* cache = Cacher::getInstance(tunerId);
  if (!cache) {
    CommandDispatch::setErrorCode(errorCode, -11);
    return;
  }
  unsigned int size = 0;
  if (cache->get(pid, tableId, tableIdExt, table, &size)) {
    CommandDispatch::setErrorCode(errorCode, 0);
  } else {
    CommandDispatch::setErrorCode(errorCode, -12);
  }
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
  std::shared_ptr<TISDBTTable> table;
  lookUpCache(tunerId, pid, tableId, tableIdExt, &table, &localError);
  if (table) {
    *result = core->dispatchRequestFeedback(requestId, 0, userData, table.get(), &localError);
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
    CommandDispatch::log("%s: requestData: ERROR: Could not request data.");
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
    CommandDispatch::log("%s: requestDataSync: ERROR: Could not request data.");
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
  timeval timeOut;
  timeOut.tv_usec = 0;
  switch (static_cast<unsigned short>(pid)) {
    case kPidPat:
      timeOut.tv_sec = 2;
      break;
    case kPidCat:
      timeOut.tv_sec = 20;
      break;
    case kPidNit:
    case kPidSdt:
    case kPid24:
      timeOut.tv_sec = 4;
      break;
    case kPidEit:
      timeOut.tv_sec =
          (tableId == kTableIdEitPresentFollowing || tableId == kTableIdEitPresentFollowingOther)
              ? 6
              : 60;
      break;
    case kPidTot:
      timeOut.tv_sec = 60;
      break;
    case kPid26:
      timeOut.tv_sec = 6;
      break;
    default:
      if (tableId == kTableIdPmt) {
        timeOut.tv_sec = 2;
      } else {
        CommandDispatch::log("%s: getTimeout: Unknown pid/tableId/tableIdExt. Using 1s timeout.");
        timeOut.tv_sec = 1;
      }
      break;
  }
  return timeOut;
}

TISDBTTable* OstrelGingaCommonCore::getFromCache(int tunerId, short pid, short tableId,
                                                 short tableIdExt, void* /*userData*/,
                                                 short* errorCode) {
  std::shared_ptr<TISDBTTable> table;
  lookUpCache(tunerId, pid, tableId, tableIdExt, &table, errorCode);
  return table.get();  // the cache's own object; the cache still holds it
}

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
                                           short /*tableId*/, short /*tableIdExt*/, void* userData,
                                           timeval /*timeOut*/, unsigned int /*requestCounter*/) {
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
