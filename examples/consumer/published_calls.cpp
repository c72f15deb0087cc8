// Every published operation called once, the way a middleware written against
// the published headers calls them (NULL and 0 where older code passes them,
// member pointers taken without casts), in C++98. Built against the installed
// headers as C++98 and as C++11 and run once: exits non-zero when a result is
// not the documented one.
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/time.h>

#include <list>
#include <new>
#include <string>

#include <Cacher.h>
#include <CacherItem.h>
#include <GingaServer.h>
#include <OstrelGingaCommonCore.h>
#include <RequestFollower.h>
#include <RequestFollowerItem.h>
#include <TISDBTTable.h>

using namespace Ostrel;

namespace {

typedef RequestFollower::RequestFollowerItem Item;

// A server that fails every command: each operation takes its failure path.
class RefusingServer : public GingaServer {
 public:
  virtual int execute(TCommand*, TCommand**) { return 0; }
};

int s_iNotifications = 0;
int notified(unsigned int, unsigned char, void*, TISDBTTable*) {
  ++s_iNotifications;
  return 1;
}
int s_iReleased = 0;
void release(void*) {
  ++s_iReleased;
}

int s_iFailures = 0;
void expect(bool ok, const char* what) {
  if (!ok) {
    printf("FAIL: %s\n", what);
    ++s_iFailures;
  }
}

void callTheCore() {
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  RefusingServer server;
  short error = 0;
  expect(core->setServer(NULL) == 0, "setServer(NULL)");
  expect(core->setServer(&server) == 1, "setServer");
  expect(core->setRequestNotificationCallback(NULL) == 1, "setRequestNotificationCallback(NULL)");
  expect(core->setRequestNotificationCallback(notified) == 1, "setRequestNotificationCallback");
  expect(core->waitBusyCommands(NULL) == 1, "waitBusyCommands");
  expect(core->requestData(1, 2, 0, 0, 0, 0, NULL, NULL, &error) == 0 && error == -5,
         "requestData");
  expect(core->requestDataSync(1, 2, 0, 0, 0, 0, NULL, 0, &error) == 0 && error == -5,
         "requestDataSync");
  expect(OstrelGingaCommonCore::getTimeout(0x12, 0x4E, 0).tv_sec == 6, "getTimeout");
  expect(core->getFromCache(0, 0x7F0, 0x02, 0, NULL, &error) == NULL && error == -12,
         "getFromCache");
  expect(core->dispatchRequestFeedback(1, 0, NULL, NULL, NULL) == 1, "dispatchRequestFeedback");
  timeval deadline = {0, 0};
  expect(core->requestTimedOut(1, 0, 0, 0, 0, NULL, deadline, 1) == 1, "requestTimedOut");
  unsigned char junk[3] = {0, 0, 0};
  expect(core->injectData(0, 0, 0, 0, NULL, junk, 3) == 0, "injectData");
  expect(core->parseData(0, 0, 0, 0, NULL, junk, 3) == NULL, "parseData");
  TISDBTTable pat(TISDBTTable::kTypePat);
  expect(core->isCacheable(&pat) == 1 && core->isEventData(&pat) == 0, "isCacheable");
  short x = 0, y = 0;
  unsigned short w = 0, h = 0;
  expect(core->getVideoSize(0, 0, &x, &y, &w, &h, &x, &y, &w, &h, &error) == 0, "getVideoSize");
  expect(core->getDefaultVideoSize(0, 0, &x, &y, &w, &h, &x, &y, &w, &h, NULL) == 0,
         "getDefaultVideoSize");
  expect(core->getSourceVideoSize(0, 0, &w, &h, NULL) == 0, "getSourceVideoSize");
  expect(core->setVideoSize(0, 0, 0, 0, 720, 480, 0, 0, 720, 480, NULL) == 0, "setVideoSize");
  expect(core->checkVideoSize(0, 0, 0, 0, 720, 480, 0, 0, 720, 480, &x, &y, &w, &h, &x, &y, &w,
                              &h, NULL) == 0,
         "checkVideoSize");
  expect(core->reserveKey("app", 0x1B, NULL) == 0, "reserveKey");
  expect(core->releaseKey(std::string("app"), 0x1B, NULL) == 0, "releaseKey");
  expect(core->notifyAppStatusChange("app", 1, &error) == 0 && error == -5,
         "notifyAppStatusChange");
  int* ids = NULL;
  unsigned char* types = NULL;
  expect(core->getTunerList(&ids, &types, &error) == 0 && error == -4, "getTunerList");
  expect(core->getTunerList(NULL, NULL, &error) == 0 && error == -1, "getTunerList(NULL)");
}

void callTheCache() {
  Cacher* cache = Cacher::getInstance(0);
  void (Cacher::*add)(short, short, short, TISDBTTable*, unsigned int) = &Cacher::add;
  int (Cacher::*get)(short, short, short, TISDBTTable**, unsigned int*) = &Cacher::get;
  (cache->*add)(0x100, 0x02, 1, new TISDBTTable(TISDBTTable::kTypePmt), 100);
  cache->add(0x101, 0x02, 1, NULL, 100);
  TISDBTTable* table = NULL;
  unsigned int size = 0;
  expect((cache->*get)(0x100, 0, 0, &table, &size) == 1 && size == 100, "Cacher::get");
  expect(cache->get(0x100, 0, 0, NULL, &size) == 0, "Cacher::get(NULL)");
  cache->cleanUp();
  cache->flush();
  expect(cache->get(0x100, 0, 0, &table, &size) == 0, "Cacher::flush");
  expect(Cacher::s_iMaxCacheSize == 2048 && Cacher::s_pInstances.count(0) == 1, "statics");
  pthread_mutex_lock(&Cacher::s_pStaticMutex);
  pthread_mutex_unlock(&Cacher::s_pStaticMutex);

  Cacher::CacherItem item(1, 0, 0, new TISDBTTable(TISDBTTable::kTypePat), 10);
  Cacher::CacherItem later(2, 0, 0, NULL, 10);
  item.updateLastAccess();
  expect(item.getPid() == 1 && item.getData() != NULL && item.getDataSize() == 10 &&
             !(item < later),
         "CacherItem");
}

void callTheFollower() {
  expect(RequestFollower::getInstance(), "RequestFollower::getInstance");
  timeval oneMinute = {60, 0};
  expect(RequestFollower::add(7, 0, 0, 0, 0, NULL, release, oneMinute, 1), "add");
  expect(!RequestFollower::add(8, 0, 0x100, 0x42, 0, NULL, NULL, oneMinute, 1), "add refused");
  Item* pending = RequestFollower::get(7);
  expect(pending != NULL && pending->getRequestId() == 7, "get by id");
  std::list<Item*>* found = RequestFollower::get(0, 0, 0, 0);
  expect(found->size() == 1, "get by key");
  delete found;
  delete RequestFollower::remove(7);
  std::list<Item*>* taken = RequestFollower::remove(0, 0, 0, 0);
  expect(taken->empty(), "remove by key");
  delete taken;
  expect(RequestFollower::destroy() && !RequestFollower::destroy(), "destroy");

  int userData = 0;
  timeval deadline = {100, 500000};
  timeval now = {100, 500001};
  Item* a = new (std::nothrow) Item(1, 2, 3, 4, 5, &userData, release, deadline, 9);
  union {
    char bytes[sizeof(Item)];
    double align;
    void* alignPointer;
  } room;
  Item* b = new (room.bytes) Item(1, 2, 3, 4, 6, NULL, NULL, deadline, 9);
  Item::TimevalComparator earlier;
  expect(a != NULL && a->isTimedOut(now) && a->match(2, 3, 4, 5) && *a < *b && !earlier(a, b) &&
             a->getTunerId() == 2 && a->getPid() == 3 && a->getTableId() == 4 &&
             a->getTableIdExt() == 5 && a->getUserData() == &userData &&
             a->getTimeOut().tv_usec == 500000 && a->getRequestCounter() == 9,
         "RequestFollowerItem");
  delete a;
  b->~Item();
  bool (Item::*isTimedOut)(timeval) = &Item::isTimedOut;
  expect(isTimedOut != NULL && s_iReleased == 1, "released once");
}

}  // namespace

int main() {
  callTheCore();
  callTheCache();
  callTheFollower();
  printf("published calls: %s\n", s_iFailures ? "FAILED" : "all as documented");
  return s_iFailures ? 1 : 0;
}
