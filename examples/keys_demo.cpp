// Binds a server to the core, reserves and releases a key and reports an
// application's status change, printing what the server receives.
#include <cstdio>

#include "GingaServer.h"
#include "OstrelGingaCommonCore.h"
#include "TNotifyStatusChange.h"
#include "TReleaseKeyCommand.h"
#include "TReserveKeyCommand.h"

namespace {

class PrintingServer : public Ostrel::GingaServer {
 public:
  int execute(Ostrel::TCommand* command, Ostrel::TCommand**) override {
    using namespace Ostrel;
    if (auto* reserve = dynamic_cast<TReserveKeyCommand*>(command)) {
      std::printf("server: reserve key 0x%X for listener '%s'\n", reserve->getKeyCode(),
                  reserve->getListenerId().c_str());
    } else if (auto* release = dynamic_cast<TReleaseKeyCommand*>(command)) {
      std::printf("server: release key 0x%X\n", release->getKeyCode());
    } else if (auto* status = dynamic_cast<TNotifyStatusChange*>(command)) {
      std::printf("server: application '%s' changed status to %u\n", status->getAppId().c_str(),
                  status->getNotificationCode());
    } else {
      std::printf("server: command 0x%X\n", command->getCode());
    }
    return 1;
  }
};

}  // namespace

int main() {
  PrintingServer server;
  Ostrel::OstrelGingaCommonCore* core = Ostrel::OstrelGingaCommonCore::getInstance();
  core->setServer(&server);
  short error = 0;
  int ok = core->reserveKey("app.menu", 0x1B, &error);
  std::printf("reserveKey -> %d (errorCode %d)\n", ok, error);
  ok = core->notifyAppStatusChange("app.menu", 1, &error);
  std::printf("notifyAppStatusChange -> %d (errorCode %d)\n", ok, error);
  ok = core->releaseKey("app.menu", 0x1B, &error);
  std::printf("releaseKey -> %d (errorCode %d)\n", ok, error);
  return 0;
}
