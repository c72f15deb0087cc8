// Key reservation and application status: one-shot commands whose answer is
// not read.
#include "CommandDispatch.h"
#include "OstrelGingaCommonCore.h"
#include "TNotifyStatusChange.h"
#include "TReleaseKeyCommand.h"
#include "TReserveKeyCommand.h"

namespace Ostrel {

namespace {

const CommandMessages kReserveKey = {"%s: reserveKey: ERROR: Could not create command.",
                                     "%s: reserveKey: ERROR: Could not notify status change.", 0};
const CommandMessages kReleaseKey = {"%s: releaseKey: ERROR: Could not create command.",
                                     "%s: releaseKey: ERROR: Could not notify status change.", 0};
const CommandMessages kNotifyStatus = {
    "%s: notifyAppStatusChange: ERROR: Could not create command.",
    "%s: notifyAppStatusChange: ERROR: Could not notify status change.", 0};

}  // namespace

int OstrelGingaCommonCore::reserveKey(std::string listenerId, unsigned int keyCode,
                                      short* errorCode) {
  return CommandDispatch::run<TReserveKeyCommand>(
      getServer(), TReserveKeyCommand::kCode, kReserveKey,
      [&](TReserveKeyCommand* command) {
        command->setKeyCode(keyCode);
        command->setListenerId(listenerId);
      },
      CommandDispatch::IgnoreAnswer<TReserveKeyCommand>(), errorCode);
}

// The listener id is not part of the release command.
int OstrelGingaCommonCore::releaseKey(std::string /*listenerId*/, unsigned int keyCode,
                                      short* errorCode) {
  return CommandDispatch::run<TReleaseKeyCommand>(
      getServer(), TReleaseKeyCommand::kCode, kReleaseKey,
      [&](TReleaseKeyCommand* command) { command->setKeyCode(keyCode); },
      CommandDispatch::IgnoreAnswer<TReleaseKeyCommand>(), errorCode);
}

int OstrelGingaCommonCore::notifyAppStatusChange(std::string appId, unsigned char notificationCode,
                                                 short* errorCode) {
  return CommandDispatch::run<TNotifyStatusChange>(
      getServer(), TNotifyStatusChange::kCode, kNotifyStatus,
      [&](TNotifyStatusChange* command) {
        command->setAppId(appId);
        command->setNotificationCode(notificationCode);
      },
      CommandDispatch::IgnoreAnswer<TNotifyStatusChange>(), errorCode);
}

}  // namespace Ostrel
