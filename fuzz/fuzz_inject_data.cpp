// libFuzzer target: the core's request and injection road driven by a small
// program read from the input. Each step injects arbitrary bytes under an
// arbitrary tuner, PID, table id and extension, makes a request in any mode,
// changes how the server, the command factory and the callback answer, or
// takes a request out by id. The follower and the caches persist from input
// to input (the caches are kept small, so they fill and evict), as on a
// receiver that runs for months.
//
// After each input every request it made is accounted for, and the run
// aborts on any difference: a request accepted is notified at most once and
// its user data released exactly once, never notified after its release; a
// refused request releases nothing; no command object is left alive; a table
// handed to the callback is alive (its type is read under AddressSanitizer).
//
// Input: a sequence of steps, each an operation byte and its operands
// (see runStep); bytes missing at the end read as 0.
#include <atomic>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "Cacher.h"
#include "OstrelGingaCommonCore.h"
#include "OstrelLogger.h"
#include "RecordingServer.h"
#include "RequestFollower.h"
#include "TCommand.h"
#include "TCrc32.h"
#include "TDataRequestCommand.h"
#include "TISDBTTable.h"
#include "TableCatalog.h"

namespace {

using namespace Ostrel;

// Reads operands; past the end everything is 0.
class Input {
 public:
  Input(const uint8_t* data, size_t size) : m_p(data), m_n(size) {}
  bool empty() const { return m_n == 0; }
  size_t left() const { return m_n; }
  uint8_t u8() {
    if (m_n == 0)
      return 0;
    --m_n;
    return *m_p++;
  }
  uint16_t u16() { return static_cast<uint16_t>((u8() << 8) | u8()); }
  const uint8_t* take(size_t n) {
    const uint8_t* p = m_p;
    m_p += n;
    m_n -= n;
    return p;
  }

 private:
  const uint8_t* m_p;
  size_t m_n;
};

// One request made by the input, with what happened to it.
struct Tracked {
  unsigned int requestId = 0;
  bool hasRelease = false;
  int result = 0;
  std::atomic<int> notified{0};
  std::atomic<int> released{0};
  std::atomic<int> notifiedAfterRelease{0};
};

// How the server, the factory and the callback behave; reset per input.
struct Behaviour {
  bool sendFails = false;
  bool factoryFails = false;
  bool callbackRefuses = false;
  bool echo = false;  // the server injects the last section while executing
};

Behaviour g_behaviour;
std::vector<unsigned char> g_lastSection;
int g_lastTuner = 0;
short g_lastPid = 0, g_lastTableId = 0, g_lastExt = 0;
unsigned int g_nextRequestId = 1;  // unique over the whole run
std::atomic<int> g_badNotifications{0};

const int kTuners[] = {0, 1, 2, 3, -1, 7, INT_MAX, INT_MIN};
// Every PID and table id the catalog names, then some it does not.
std::vector<unsigned short> catalogued(bool pids, std::initializer_list<unsigned short> more) {
  std::vector<unsigned short> values;
  size_t count = 0;
  const Ostrel::TableKind* rows = Ostrel::TableKind::rows(&count);
  for (size_t i = 0; i < count; ++i) {
    if (!pids) {
      values.push_back(rows[i].tableIds[0]);
      values.push_back(rows[i].tableIds[3]);
    } else if (rows[i].pid != Ostrel::TableKind::kAnyPid) {
      values.push_back(rows[i].pid);
    }
  }
  values.insert(values.end(), more);
  return values;
}
const std::vector<unsigned short> kPids =
    catalogued(true, {0x0100, 0x0101, 0x0130, 0x1FC8, 0x1FFF, 0xFFFF, 0x8000, 0x7FFF});
const std::vector<unsigned short> kTableIds = catalogued(false, {0x01, 0x3D, 0xFF, 0x03});

unsigned short pick(const std::vector<unsigned short>& values, uint8_t b) {
  return values[b % values.size()];
}

template <typename T, size_t N>
T pick(const T (&values)[N], uint8_t b) {
  return values[b % N];
}

int tunerOf(Input* in) {
  return pick(kTuners, in->u8());
}
short pidOf(Input* in) {
  uint8_t b = in->u8();
  return static_cast<short>(b & 0x80 ? in->u16() : pick(kPids, b));
}
short tableIdOf(Input* in) {
  uint8_t b = in->u8();
  return static_cast<short>(b & 0x80 ? in->u16() : pick(kTableIds, b));
}

void noLog(int, const char*, const char*, void*) {}

TCommand* factory(unsigned short code) {
  return g_behaviour.factoryFails ? nullptr : TCommand::createDefault(code);
}

int callback(unsigned int, unsigned char status, void* userData, TISDBTTable* table) {
  // A delivered table must be alive for the call (read under the sanitizers);
  // a time-out carries none.
  if ((status == 0 || status == 2) == (table == nullptr) || status > 2)
    ++g_badNotifications;
  if (table)
    (void)table->getType();
  if (Tracked* t = static_cast<Tracked*>(userData)) {
    if (t->released)
      ++t->notifiedAfterRelease;
    ++t->notified;
  }
  return g_behaviour.callbackRefuses ? 0 : 1;
}

void release(void* userData) {
  ++static_cast<Tracked*>(userData)->released;
}

// The server accepts (or refuses) every command. An open data request is
// closed at once, as by a server whose filter found nothing; with echo the
// last section is delivered first, from inside send, before the request is
// followed.
int execute(TCommand* command) {
  if (g_behaviour.sendFails)
    return 0;
  if (command->getCode() == TDataRequestCommand::kCode && g_behaviour.echo &&
      !g_lastSection.empty()) {
    TDataRequestCommand* request = static_cast<TDataRequestCommand*>(command);
    std::vector<unsigned char> copy(g_lastSection);
    OstrelGingaCommonCore::getInstance()->injectData(
        request->getTunerId(), request->getPid(), request->getTableId(), request->getTableIdExt(),
        nullptr, copy.data(), static_cast<unsigned int>(copy.size()));
  }
  return 1;
}

void setUp() {
  static bool done = false;
  if (done)
    return;
  done = true;
  ostrel_log_set_sink(&noLog, nullptr);
  Cacher::s_iMaxCacheSize = 1024;  // a few sections per tuner: the caches evict
  static OstrelTest::RecordingServer server(true, true);  // records nothing, closes requests
  server.setExecuteHook(&execute);
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  core->setServer(&server);
  core->setRequestNotificationCallback(&callback);
  TCommand::setFactoryHook(&factory);
}

void inject(Input* in) {
  int tuner = tunerOf(in);
  short pid = pidOf(in);
  short tableId = tableIdOf(in);
  short ext = static_cast<short>(in->u16());
  uint8_t flags = in->u8();
  size_t size = in->u16() % 4200;
  if (size > in->left())
    size = in->left();
  const uint8_t* bytes = in->take(size);
  // An exact-size heap block: a read past its end shows at once.
  std::vector<unsigned char> section(bytes, bytes + size);
  if ((flags & 0x01) && section.size() >= 4) {
    size_t n = section.size() - 4;
    unsigned int crc = TCrc32::compute(section.data(), static_cast<unsigned int>(n));
    for (int i = 0; i < 4; ++i)
      section[n + i] = static_cast<unsigned char>(crc >> (24 - 8 * i));
  }
  unsigned char* data = (flags & 0x02) ? nullptr : section.data();
  unsigned int dataSize = data ? static_cast<unsigned int>(section.size()) : 0;
  OstrelGingaCommonCore::getInstance()->injectData(tuner, pid, tableId, ext, nullptr, data,
                                                   dataSize);
  g_lastSection = section;
  g_lastTuner = tuner;
  g_lastPid = pid;
  g_lastTableId = tableId;
  g_lastExt = ext;
}

void request(Input* in, bool sync, std::vector<std::unique_ptr<Tracked>>* tracked) {
  signed char mode = static_cast<signed char>(in->u8());
  int tuner = tunerOf(in);
  short pid = pidOf(in);
  short tableId = tableIdOf(in);
  short ext = static_cast<short>(in->u16());
  uint8_t flags = in->u8();
  if (flags & 0x08) {  // the key of the last injection: cache hits and answers
    tuner = g_lastTuner;
    pid = g_lastPid;
    tableId = g_lastTableId;
    ext = g_lastExt;
  }
  tracked->emplace_back(new Tracked);
  Tracked* t = tracked->back().get();
  t->requestId = g_nextRequestId++;
  t->hasRelease = !(flags & 0x02);
  short errorCode = 99;
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  void* userData = (flags & 0x01) ? nullptr : t;
  void (*releaseFn)(void*) = t->hasRelease ? &release : nullptr;
  short* error = (flags & 0x04) ? nullptr : &errorCode;
  t->result = sync ? core->requestDataSync(t->requestId, mode, tuner, pid, tableId, ext, userData,
                                           releaseFn, error)
                   : core->requestData(t->requestId, mode, tuner, pid, tableId, ext, userData,
                                       releaseFn, error);
  if (!userData)
    t->hasRelease = false;  // nothing to release, nothing to count
  // Only the documented codes are ever written.
  switch (errorCode) {
    case 99:
    case 0:
    case -3:
    case -5:
    case -7:
    case -8:
    case -10:
    case -11:
    case -12:
      break;
    default:
      std::abort();
  }
}

void runStep(Input* in, std::vector<std::unique_ptr<Tracked>>* tracked) {
  switch (in->u8() % 8) {
    case 0:
    case 1:
    case 2:
      inject(in);
      break;
    case 3:
    case 4:
      request(in, false, tracked);
      break;
    case 5:
      request(in, true, tracked);
      break;
    case 6: {
      uint8_t b = in->u8();
      g_behaviour.sendFails = b & 0x01;
      g_behaviour.factoryFails = b & 0x02;
      g_behaviour.callbackRefuses = b & 0x04;
      g_behaviour.echo = b & 0x08;
      break;
    }
    case 7:
      if (!tracked->empty()) {
        Tracked* t = (*tracked)[in->u8() % tracked->size()].get();
        delete RequestFollower::remove(t->requestId);
      }
      break;
  }
}

// Every request of the input ends here: what is still followed is taken out
// (which releases it), then the counts must agree.
void settle(std::vector<std::unique_ptr<Tracked>>* tracked) {
  for (auto& t : *tracked) {
    if (t->result)
      delete RequestFollower::remove(t->requestId);
  }
  for (auto& t : *tracked) {
    int expectedReleases = (t->result && t->hasRelease) ? 1 : 0;
    if (t->released != expectedReleases || t->notified > 1 || t->notifiedAfterRelease != 0)
      std::abort();
  }
  if (g_badNotifications != 0 || TCommand::getLiveCount() != 0)
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  setUp();
  g_behaviour = Behaviour();
  g_lastSection.clear();
  std::vector<std::unique_ptr<Tracked>> tracked;
  Input in(data, size);
  while (!in.empty() && tracked.size() < 64) {
    runStep(&in, &tracked);
  }
  settle(&tracked);
  return 0;
}
