// Binds a server to the core, reserves and releases a key and reports an
// application's status change, then prints what the server received. The
// server is the test-support library's recording server, which accepts every
// command.
#include <cstdio>

#include "OstrelGingaCommonCore.h"
#include "RecordingServer.h"

int main() {
  OstrelTest::RecordingServer server;
  Ostrel::OstrelGingaCommonCore* core = Ostrel::OstrelGingaCommonCore::getInstance();
  core->setServer(&server);
  short error = 0;
  int ok = core->reserveKey("app.menu", 0x1B, &error);
  std::printf("reserveKey -> %d (errorCode %d)\n", ok, error);
  ok = core->notifyAppStatusChange("app.menu", 1, &error);
  std::printf("notifyAppStatusChange -> %d (errorCode %d)\n", ok, error);
  ok = core->releaseKey("app.menu", 0x1B, &error);
  std::printf("releaseKey -> %d (errorCode %d)\n", ok, error);
  for (const OstrelTest::RecordedCommand& c : server.commands()) {
    std::printf("server: command 0x%X key 0x%X listener '%s' application '%s' status %u\n", c.code,
                c.keyCode, c.listenerId.c_str(), c.appId.c_str(), c.notificationCode);
  }
  return 0;
}
