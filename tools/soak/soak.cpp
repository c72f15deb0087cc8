// ostrel-soak: the core under load for a set time, counting everything.
//
//   ostrel-soak [--seconds N] [--requesters N] [--tuners N] [--seed N] [--quiet]
//
// Requester threads ask for tables in every mode (cache only, cache then
// server, server only), asynchronously and synchronously, with user data, on
// several tuners: tables that are delivered, tables that never come (they time
// out), keys the follower refuses. A server takes the requests and a delivery
// thread answers them through injectData, mixed with corrupt sections and
// sections nobody asked for. Notification callbacks call back into the core
// from all three kinds of thread (requester, delivery, monitor). Another thread
// destroys the request follower now and then (the next request makes a new
// one) and flushes caches, which are kept small so that they keep evicting.
//
// Every request is accounted for, and the program fails (status 1) on any
// difference: every accepted request ends exactly once (delivered, answered
// from the cache, finished synchronously, timed out, or dropped by a destroy);
// every user data is released exactly once, by the library for an accepted
// request and by its caller for a refused one, and never notified after its
// release; every table handed to a callback holds what its section carried;
// no command object is left; and the heap, once everything is torn down, is
// back where it was after a short warm-up run (no growth over the run).
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <vector>

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
#define OSTREL_SOAK_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer) || __has_feature(address_sanitizer)
#define OSTREL_SOAK_SANITIZER 1
#endif
#endif
#ifdef OSTREL_SOAK_SANITIZER
// The sanitizer's allocator counts the bytes in use, every thread included.
extern "C" size_t __sanitizer_get_current_allocated_bytes(void);
#else
#include <malloc.h>
#endif

#include "Cacher.h"
#include "OstrelGingaCommonCore.h"
#include "OstrelLogger.h"
#include "RecordingServer.h"
#include "RequestFollower.h"
#include "TCommand.h"
#include "TDataRequestCommand.h"
#include "TPATBuilder.h"
#include "TPATTable.h"
#include "TPMTBuilder.h"
#include "TPMTTable.h"
#include "TSyncDataRequestCommand.h"

using namespace Ostrel;

namespace {

typedef std::chrono::steady_clock Clock;

struct Options {
  double seconds = 60;
  int requesters = 4;
  int tuners = 3;
  unsigned int seed = 1;
  bool quiet = false;
};

// ---- What is asked for ----

// Request kinds: which key, and what becomes of it.
enum Kind {
  kPat,         // PID 0: delivered
  kPmt,         // PIDs 0x100..0x103, table id 2: delivered
  kPmtMissing,  // PID 0x200: never delivered, times out after 2 s
  kEitPf,       // PID 0x12, 0x4E: followed, never parsed, times out after 6 s
  kUnfollowed,  // PID 0x300, table id 0x42: sent, then refused by the follower
  kKindCount
};

struct Key {
  int tuner;
  short pid;
  short tableId;
  short ext;
};

Key keyOf(Kind kind, int tuner, unsigned int variant) {
  switch (kind) {
    case kPat:
      return Key{tuner, 0x0000, 0x00, 0};
    case kPmt:
      return Key{tuner, static_cast<short>(0x0100 + variant % 4), 0x02,
                 static_cast<short>(1 + variant % 4)};
    case kPmtMissing:
      return Key{tuner, 0x0200, 0x02, 9};
    case kEitPf:
      return Key{tuner, 0x0012, 0x4E, 1};
    default:
      return Key{tuner, 0x0300, 0x42, 0};
  }
}

// The sections that answer: a PAT per tuner (transport stream id 0x640 plus
// the tuner) and four PMTs (programme k + 1 on PID 0x100 + k, PCR PID 0x111).
struct Sections {
  std::vector<std::vector<unsigned char>> pat;
  std::vector<std::vector<unsigned char>> pmt;
};

Sections makeSections(int tuners) {
  Sections s;
  for (int t = 0; t < tuners; ++t) {
    TPATBuilder pat;
    pat.setTransportStreamId(static_cast<unsigned short>(0x0640 + t));
    for (unsigned short k = 0; k < 4; ++k)
      pat.addProgram(static_cast<unsigned short>(k + 1), static_cast<unsigned short>(0x0100 + k));
    s.pat.push_back(pat.build());
  }
  for (unsigned short k = 0; k < 4; ++k) {
    TPMTBuilder pmt;
    pmt.setProgramNumber(static_cast<unsigned short>(k + 1)).setPcrPid(0x0111);
    for (unsigned short i = 0; i <= k; ++i)
      pmt.addStream(i % 2 ? 0x0F : 0x1B, static_cast<unsigned short>(0x0111 + i));
    s.pmt.push_back(pmt.build());
  }
  return s;
}

// ---- Tickets: one per request, the user data handed to the library ----

struct Ticket {
  Kind kind = kPat;
  bool sync = false;
  int result = -1;  // what the request operation returned; written by the owner
  short errorCode = 0;
  std::atomic<int> notified{0};
  std::atomic<int> lastStatus{-1};
  std::atomic<int> released{0};
  std::atomic<int> notifiedAfterRelease{0};
  std::atomic<bool> answeredInCall{false};
  Clock::time_point settledAt;
};

// Thread kinds, for the counts of callbacks that called back in.
enum ThreadKind { kOther, kRequester, kDelivery };
thread_local ThreadKind t_kind = kOther;
thread_local Ticket* t_pCalling = nullptr;  // the request this thread is making
thread_local int t_iDepth = 0;              // callbacks nested on this thread

struct Counters {
  std::atomic<long> requests{0}, accepted{0}, refused{0};
  std::atomic<long> refusedCode[13] = {};
  std::atomic<long> delivered{0}, fromCache{0}, timedOut{0}, dropped{0}, syncDone{0};
  std::atomic<long> eventData{0}, callbacks{0}, callbacksIn[3] = {};
  std::atomic<long> reentries[3] = {};
  std::atomic<long> injections{0}, corrupt{0}, unrelated{0}, destroys{0}, flushes{0};
  std::atomic<long> logMessages{0};
  std::atomic<long> errors{0};
};

Counters* g_pCounters = nullptr;
Options g_options;
Sections g_sections;

void fail(const char* what) {
  ++g_pCounters->errors;
  std::fprintf(stderr, "ostrel-soak: %s\n", what);
}

void releaseTicket(void* userData) {
  Ticket* t = static_cast<Ticket*>(userData);
  if (++t->released != 1)
    fail("user data released more than once");
}

// The tickets whose end is still to be checked, and the ones checked, kept a
// while before they are freed so that a late second release or notification
// would still find them (and be counted).
class Ledger {
 public:
  void add(Ticket* t) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_open.push_back(t);
  }

  // Moves every ended ticket to quarantine; frees those older than keep.
  void sweep(std::chrono::milliseconds keep, bool final) {
    std::deque<Ticket*> open;
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      open.swap(m_open);
    }
    Clock::time_point now = Clock::now();
    std::deque<Ticket*> still;
    for (Ticket* t : open) {
      if (t->released.load() == 0 && !final) {
        still.push_back(t);
        continue;
      }
      settle(t);
      t->settledAt = now;
      m_quarantine.push_back(t);
    }
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      m_open.insert(m_open.end(), still.begin(), still.end());
    }
    while (!m_quarantine.empty() && (final || now - m_quarantine.front()->settledAt > keep)) {
      Ticket* t = m_quarantine.front();
      m_quarantine.pop_front();
      if (t->released.load() != 1 || t->notifiedAfterRelease.load() != 0)
        fail("a ticket changed after it ended");
      delete t;
    }
    if (final) {
      // Their index blocks too, so that the heap at rest can be compared.
      std::deque<Ticket*>().swap(m_quarantine);
      std::lock_guard<std::mutex> lock(m_mutex);
      std::deque<Ticket*>().swap(m_open);
    }
  }

  size_t openCount() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_open.size();
  }

 private:
  // One ended request: exactly one release, at most one notification, and the
  // way it ended counted.
  void settle(Ticket* t) {
    Counters& c = *g_pCounters;
    if (t->released.load() != 1) {
      fail("a request ended without its user data released");
      return;
    }
    if (t->notifiedAfterRelease.load() != 0)
      fail("a notification came after the release of its user data");
    int notified = t->notified.load();
    if (notified > 1)
      fail("a request was notified more than once");
    if (t->result != 1)
      return;  // refused: released by its caller, checked there
    if (t->sync) {
      if (t->answeredInCall)
        ++c.fromCache;
      else if (notified == 0)
        ++c.syncDone;
      else
        fail("a synchronous request was notified by the server road");
      return;
    }
    if (t->answeredInCall)
      ++c.fromCache;
    else if (notified == 0)
      ++c.dropped;
    else if (t->lastStatus.load() == 1)
      ++c.timedOut;
    else
      ++c.delivered;
  }

  std::mutex m_mutex;
  std::deque<Ticket*> m_open;
  std::deque<Ticket*> m_quarantine;  // touched by the sweeping thread only
};

Ledger* g_pLedger = nullptr;

// Makes one request with a new ticket and books it.
void makeRequest(std::mt19937* random, bool fromCallback) {
  Counters& c = *g_pCounters;
  Ticket* t = new Ticket;
  t->kind = static_cast<Kind>((*random)() % kKindCount);
  t->sync = (*random)() % 10 == 0;
  const signed char modes[] = {0, 1, 2, -1};
  signed char mode = modes[(*random)() % 4];
  Key key = keyOf(t->kind, static_cast<int>((*random)() % g_options.tuners), (*random)());
  static std::atomic<unsigned int> s_nextId{1};
  unsigned int id = s_nextId++;
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();

  Ticket* outer = t_pCalling;
  t_pCalling = t;
  t->result = t->sync ? core->requestDataSync(id, mode, key.tuner, key.pid, key.tableId, key.ext, t,
                                              &releaseTicket, &t->errorCode)
                      : core->requestData(id, mode, key.tuner, key.pid, key.tableId, key.ext, t,
                                          &releaseTicket, &t->errorCode);
  t_pCalling = outer;
  ++c.requests;
  if (fromCallback)
    ++c.reentries[t_kind];
  if (t->result == 1) {
    ++c.accepted;
  } else {
    ++c.refused;
    short code = t->errorCode;
    if (code >= -12 && code <= 0)
      ++c.refusedCode[-code];
    // A refused request leaves the user data with its caller.
    if (t->released.load() != 0)
      fail("the library released the user data of a refused request");
    releaseTicket(t);
  }
  g_pLedger->add(t);
}

bool tableHoldsItsSection(TISDBTTable* table) {
  if (TPMTTable* pmt = dynamic_cast<TPMTTable*>(table)) {
    unsigned short k = static_cast<unsigned short>(pmt->getProgramNumber() - 1);
    return k < 4 && pmt->getPcrPid() == 0x0111 && pmt->getStreamCount() == k + 1u;
  }
  if (TPATTable* pat = dynamic_cast<TPATTable*>(table)) {
    unsigned short ts = pat->getTransportStreamId();
    return ts >= 0x0640 && ts < 0x0640 + g_options.tuners && pat->getProgramCount() == 4;
  }
  return false;
}

int notificationCallback(unsigned int requestId, unsigned char status, void* userData,
                         TISDBTTable* table) {
  Counters& c = *g_pCounters;
  ++c.callbacks;
  ++c.callbacksIn[t_kind];
  if (status == 2) {
    ++c.eventData;
  } else if (status > 2 || (status == 0) != (table != nullptr) || !userData || requestId == 0) {
    fail("a notification with an impossible status, table or user data");
  }
  if (table && !tableHoldsItsSection(table))
    fail("a table handed to a callback does not hold what its section carried");
  if (Ticket* t = static_cast<Ticket*>(userData)) {
    if (t->released.load() != 0)
      ++t->notifiedAfterRelease;
    if (t == t_pCalling)
      t->answeredInCall = true;
    t->lastStatus = status;
    ++t->notified;
  }
  // Now and then a request from inside the callback, one level deep.
  thread_local std::mt19937 random(
      static_cast<unsigned>(std::hash<std::thread::id>()(std::this_thread::get_id())));
  if (t_iDepth == 0 && random() % 8 == 0) {
    ++t_iDepth;
    makeRequest(&random, true);
    --t_iDepth;
  }
  return 1;
}

void logSink(int, const char*, const char*, void*) {
  ++g_pCounters->logMessages;
}

// ---- The server and its delivery thread ----

// Takes every data request: an open one is queued for the delivery thread,
// due a few milliseconds later (a filter takes a moment), and closed at once
// (by the recording server, which records nothing here); one in a hundred is
// refused. A synchronous one succeeds nineteen times in twenty.
class SoakServer : public OstrelTest::RecordingServer {
 public:
  struct Wanted {
    Key key;
    Clock::time_point due;
  };

  SoakServer() : RecordingServer(true, true) {
    setExecuteHook([this](TCommand* command) { return decide(command); });
  }

  // The requests due by now, in order of arrival.
  std::vector<Wanted> takeDue() {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<Wanted> due;
    Clock::time_point now = Clock::now();
    while (!m_wanted.empty() && m_wanted.front().due <= now) {
      due.push_back(m_wanted.front());
      m_wanted.pop_front();
    }
    return due;
  }

  void clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_wanted.clear();
    m_wanted.shrink_to_fit();
  }

 private:
  int decide(TCommand* command) {
    std::lock_guard<std::mutex> lock(m_mutex);
    unsigned int roll = m_random() % 100;
    if (command->getCode() == TSyncDataRequestCommand::kCode)
      return roll < 95 ? 1 : 0;
    if (command->getCode() != TDataRequestCommand::kCode || roll == 0)
      return 0;
    TDataRequestCommand* request = static_cast<TDataRequestCommand*>(command);
    Wanted wanted{
        {request->getTunerId(), request->getPid(), request->getTableId(), request->getTableIdExt()},
        Clock::now() + std::chrono::microseconds(500 + m_random() % 4500)};
    m_wanted.push_back(wanted);
    return 1;
  }

  std::mutex m_mutex;
  std::mt19937 m_random{7};
  std::deque<Wanted> m_wanted;
};

void inject(const Key& key, std::vector<unsigned char> section) {
  ++g_pCounters->injections;
  OstrelGingaCommonCore::getInstance()->injectData(key.tuner, key.pid, key.tableId, key.ext,
                                                   nullptr, section.data(),
                                                   static_cast<unsigned int>(section.size()));
}

void deliveryThread(SoakServer* server, std::atomic<bool>* stop, unsigned int seed) {
  t_kind = kDelivery;
  std::mt19937 random(seed);
  Counters& c = *g_pCounters;
  while (!*stop) {
    for (const SoakServer::Wanted& w : server->takeDue()) {
      const Key& k = w.key;
      std::vector<unsigned char> section;
      if (k.pid == 0x0000)
        section = g_sections.pat[k.tuner];
      else if (k.pid >= 0x0100 && k.pid <= 0x0103)
        section = g_sections.pmt[k.pid - 0x0100];
      else
        continue;  // never carried: the request times out
      if (random() % 10 == 0) {
        section[section.size() / 2] ^= 0x20;  // corrupt: the CRC fails, nothing answers
        ++c.corrupt;
      }
      inject(k, section);
    }
    switch (random() % 8) {
      case 0: {  // a PMT nobody asked for, cached all the same
        Key k{static_cast<int>(random() % g_options.tuners), 0x0150, 0x02, 1};
        inject(k, g_sections.pmt[0]);
        ++c.unrelated;
        break;
      }
      case 1: {  // a PAT repeated by the carousel, asked for or not
        int tuner = static_cast<int>(random() % g_options.tuners);
        inject(Key{tuner, 0x0000, 0x00, 0}, g_sections.pat[tuner]);
        ++c.unrelated;
        break;
      }
      case 2:  // data on a PID that is never parsed
        inject(Key{0, 0x0012, 0x4E, 1}, g_sections.pmt[1]);
        ++c.unrelated;
        break;
      default:
        break;
    }
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
}

void requesterThread(std::atomic<bool>* stop, unsigned int seed) {
  t_kind = kRequester;
  std::mt19937 random(seed);
  while (!*stop) {
    makeRequest(&random, false);
    std::this_thread::sleep_for(std::chrono::microseconds(50 + random() % 250));
  }
}

void churnThread(std::atomic<bool>* stop, unsigned int seed) {
  std::mt19937 random(seed);
  Counters& c = *g_pCounters;
  while (!*stop) {
    Clock::time_point until = Clock::now() + std::chrono::milliseconds(300 + random() % 3000);
    while (!*stop && Clock::now() < until)
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    if (*stop)
      break;
    if (RequestFollower::destroy())
      ++c.destroys;
    if (random() % 3 == 0) {
      Cacher::getInstance(static_cast<int>(random() % g_options.tuners))->flush();
      ++c.flushes;
    }
  }
}

// ---- Memory ----

#ifndef OSTREL_SOAK_SANITIZER
// Without a sanitizer, the bytes in use are counted by the program's own
// operator new and delete, which the libraries' allocations reach too.
std::atomic<long> g_lHeapBytes{0};
#endif

size_t heapInUse() {
#ifdef OSTREL_SOAK_SANITIZER
  return __sanitizer_get_current_allocated_bytes();
#else
  return static_cast<size_t>(g_lHeapBytes.load());
#endif
}

// Everything back to its resting state: no follower, empty caches, no queue.
void tearDown(SoakServer* server) {
  RequestFollower::destroy();
  for (int t = 0; t < g_options.tuners; ++t)
    Cacher::getInstance(t)->flush();
  server->clear();
}

// ---- One run ----

struct RunResult {
  double seconds = 0;
  size_t heapPeak = 0;
};

RunResult run(SoakServer* server, double seconds, unsigned int seed, bool report) {
  RunResult result;
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < g_options.requesters; ++i)
    threads.emplace_back(requesterThread, &stop, seed * 101 + i);
  threads.emplace_back(deliveryThread, server, &stop, seed * 103);
  threads.emplace_back(churnThread, &stop, seed * 107);

  Clock::time_point start = Clock::now();
  Clock::time_point end = start + std::chrono::milliseconds(static_cast<long>(seconds * 1000));
  Clock::time_point nextReport = start + std::chrono::seconds(5);
  while (Clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    g_pLedger->sweep(std::chrono::milliseconds(8000), false);
    result.heapPeak = std::max(result.heapPeak, heapInUse());
    if (report && Clock::now() >= nextReport) {
      nextReport += std::chrono::seconds(5);
      const Counters& c = *g_pCounters;
      std::printf("  %5.0f s: %ld requests, %ld callbacks, %zu open, heap %zu KiB\n",
                  std::chrono::duration<double>(Clock::now() - start).count(), c.requests.load(),
                  c.callbacks.load(), g_pLedger->openCount(), heapInUse() / 1024);
      std::fflush(stdout);
    }
  }
  stop = true;
  for (std::thread& t : threads)
    t.join();
  tearDown(server);  // drops what is pending: each release counted once
  g_pLedger->sweep(std::chrono::milliseconds(0), true);
  result.seconds = std::chrono::duration<double>(Clock::now() - start).count();
  return result;
}

bool parse(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    auto value = [&](double* out) {
      if (i + 1 >= argc)
        return false;
      char* endp = nullptr;
      *out = std::strtod(argv[++i], &endp);
      return endp && *endp == '\0' && *out >= 0;
    };
    double v = 0;
    if (a == "--quiet") {
      g_options.quiet = true;
    } else if (a == "--seconds" && value(&v) && v > 0) {
      g_options.seconds = v;
    } else if (a == "--requesters" && value(&v) && v >= 1 && v <= 64) {
      g_options.requesters = static_cast<int>(v);
    } else if (a == "--tuners" && value(&v) && v >= 1 && v <= 16) {
      g_options.tuners = static_cast<int>(v);
    } else if (a == "--seed" && value(&v)) {
      g_options.seed = static_cast<unsigned int>(v);
    } else {
      std::fprintf(stderr,
                   "usage: %s [--seconds N] [--requesters 1..64] [--tuners 1..16] [--seed N] "
                   "[--quiet]\n",
                   argv[0]);
      return false;
    }
  }
  return true;
}

}  // namespace

#ifndef OSTREL_SOAK_SANITIZER
namespace {
void* countedNew(size_t size) {
  void* p = std::malloc(size ? size : 1);
  if (!p)
    throw std::bad_alloc();
  g_lHeapBytes += static_cast<long>(malloc_usable_size(p));
  return p;
}
void countedDelete(void* p) noexcept {
  if (p) {
    g_lHeapBytes -= static_cast<long>(malloc_usable_size(p));
    std::free(p);
  }
}
}  // namespace
void* operator new(size_t size) {
  return countedNew(size);
}
void* operator new[](size_t size) {
  return countedNew(size);
}
void operator delete(void* p) noexcept {
  countedDelete(p);
}
void operator delete[](void* p) noexcept {
  countedDelete(p);
}
void operator delete(void* p, size_t) noexcept {
  countedDelete(p);
}
void operator delete[](void* p, size_t) noexcept {
  countedDelete(p);
}
#endif

int main(int argc, char** argv) {
  if (!parse(argc, argv))
    return 2;
  static Counters counters;
  static Ledger ledger;
  g_pCounters = &counters;
  g_pLedger = &ledger;
  g_sections = makeSections(g_options.tuners);
  ostrel_log_set_sink(&logSink, nullptr);
  Cacher::s_iMaxCacheSize = 600;  // two or three sections per tuner: the caches evict

  static SoakServer server;
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  core->setServer(&server);
  core->setRequestNotificationCallback(&notificationCallback);

  // A short run first, so that every lasting allocation (caches, logger,
  // containers at their working size) exists before the heap is measured.
  run(&server, 2.0, g_options.seed + 1000, false);
  const size_t heapBefore = heapInUse();
  const long warmUpErrors = counters.errors;
  counters.~Counters();
  new (&counters) Counters();
  counters.errors = warmUpErrors;

  std::printf("ostrel-soak: %.0f s, %d requesters, %d tuners, seed %u\n", g_options.seconds,
              g_options.requesters, g_options.tuners, g_options.seed);
  RunResult r = run(&server, g_options.seconds, g_options.seed, !g_options.quiet);
  const size_t heapAfter = heapInUse();
  const long commandsLeft = TCommand::getLiveCount();
  core->setRequestNotificationCallback(nullptr);

  const Counters& c = counters;
  long ended = c.delivered + c.fromCache + c.timedOut + c.dropped + c.syncDone;
  std::printf(
      "requests %ld in %.1f s (%.0f/s): accepted %ld, refused %ld (-5: %ld, -8: %ld, -10: %ld, "
      "-11/-12: %ld)\n",
      c.requests.load(), r.seconds, c.requests / r.seconds, c.accepted.load(), c.refused.load(),
      c.refusedCode[5].load(), c.refusedCode[8].load(), c.refusedCode[10].load(),
      c.refusedCode[11] + c.refusedCode[12]);
  std::printf(
      "ended: delivered %ld, from the cache %ld, synchronous %ld, timed out %ld, dropped by "
      "destroy %ld\n",
      c.delivered.load(), c.fromCache.load(), c.syncDone.load(), c.timedOut.load(),
      c.dropped.load());
  std::printf(
      "callbacks %ld (requester %ld, delivery %ld, monitor %ld); called back in from requester "
      "%ld, delivery %ld, monitor %ld\n",
      c.callbacks.load(), c.callbacksIn[kRequester].load(), c.callbacksIn[kDelivery].load(),
      c.callbacksIn[kOther].load(), c.reentries[kRequester].load(), c.reentries[kDelivery].load(),
      c.reentries[kOther].load());
  std::printf(
      "injections %ld (corrupt %ld, unasked %ld), follower destroyed %ld times, caches flushed "
      "%ld times, %ld log messages\n",
      c.injections.load(), c.corrupt.load(), c.unrelated.load(), c.destroys.load(),
      c.flushes.load(), c.logMessages.load());
  long growth = static_cast<long>(heapAfter) - static_cast<long>(heapBefore);
  std::printf("heap at rest: %zu bytes before, %zu after (%+ld); peak under load %zu KiB\n",
              heapBefore, heapAfter, growth, r.heapPeak / 1024);

  if (ended != c.accepted)
    fail("accepted requests and ended requests differ");
  if (commandsLeft != 0)
    fail("command objects are left alive");
  // Containers may keep a little more capacity than after the warm-up; a
  // leak of one table or request in a thousand would show as far more.
  if (growth > 16 * 1024)
    fail("the heap grew over the run");
  if (r.seconds >= 10 &&
      (c.timedOut == 0 || c.dropped == 0 || c.delivered == 0 || c.fromCache == 0 ||
       c.reentries[kRequester] == 0 || c.reentries[kDelivery] == 0 || c.reentries[kOther] == 0))
    fail("a way of ending or of calling back in never happened");
  if (c.errors != 0) {
    std::printf("ostrel-soak: FAILED, %ld differences\n", c.errors.load());
    return 1;
  }
  std::printf("ostrel-soak: every count agrees\n");
  return 0;
}
