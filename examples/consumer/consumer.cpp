// A program that uses the installed library the way a middleware would: it
// binds a server, lists the tuners, reserves a key and routes the library's
// messages to its own log. Built against the installed package, through CMake
// and through pkg-config; exits non-zero when anything does not work.
#include <cstdio>
#include <cstdlib>
#include <string>

#include <Cacher.h>
#include <GingaServer.h>
#include <OstrelGingaCommonCore.h>
#include <OstrelLogger.h>
#include <TGetTunerListCommand.h>
#include <TGetTunerListResponse.h>
#include <TReserveKeyCommand.h>

namespace {

// The receiver: two tuners, and every key reservation granted.
class ConsumerServer : public Ostrel::GingaServer {
 public:
  ConsumerServer() : m_uiReservedKey(0) {}

  virtual int execute(Ostrel::TCommand* command, Ostrel::TCommand** response) {
    if (dynamic_cast<Ostrel::TGetTunerListCommand*>(command) && response) {
      Ostrel::TGetTunerListResponse* list = new Ostrel::TGetTunerListResponse();
      list->addTuner(7, 1);
      list->addTuner(9, 2);
      *response = list;
      return 1;
    }
    if (Ostrel::TReserveKeyCommand* reserve = dynamic_cast<Ostrel::TReserveKeyCommand*>(command)) {
      m_uiReservedKey = reserve->getKeyCode();
      return 1;
    }
    return 0;
  }

  unsigned int m_uiReservedKey;
};

int s_iMessages = 0;

void countMessage(int, const char*, const char* message, void*) {
  ++s_iMessages;
  std::printf("log: %s\n", message);
}

bool check(bool ok, const char* what) {
  std::printf("%s: %s\n", ok ? "ok  " : "FAIL", what);
  return ok;
}

}  // namespace

int main() {
  ostrel_log_set_sink(countMessage, 0);
  ConsumerServer server;
  Ostrel::OstrelGingaCommonCore* core = Ostrel::OstrelGingaCommonCore::getInstance();
  bool ok = check(core != 0, "getInstance gives the core");
  ok &= check(core->setServer(&server) == 1, "setServer binds the server");

  int* ids = 0;
  unsigned char* types = 0;
  short error = -99;
  const int count = core->getTunerList(&ids, &types, &error);
  ok &= check(count == 2 && error == 0, "getTunerList lists two tuners");
  ok &= check(count == 2 && ids[0] == 7 && ids[1] == 9 && types[0] == 1 && types[1] == 2,
              "tuner ids and types come through");
  std::free(ids);
  std::free(types);

  error = -99;
  ok &= check(core->reserveKey(std::string("consumer"), 0x1B, &error) == 1 && error == 0 &&
                  server.m_uiReservedKey == 0x1B,
              "reserveKey reaches the server");

  // An exported static of the cache, read and written from outside.
  const int bound = Ostrel::Cacher::s_iMaxCacheSize;
  ok &= check(bound > 0, "Cacher::s_iMaxCacheSize is visible");

  // A failure is reported through the log sink set above.
  const int before = s_iMessages;
  core->getTunerList(0, 0, &error);
  ok &= check(error == -1 && s_iMessages > before, "a bad call is logged through the sink");

  ostrel_log_set_sink(0, 0);
  std::printf("consumer: %s\n", ok ? "all checks passed" : "FAILED");
  return ok ? 0 : 1;
}
