#include "ChannelScan.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <map>
#include <utility>

#include "OstrelGingaCommonCore.h"
#include "ReceiverSimulator.h"
#include "RequestFollower.h"
#include "RequestFollowerItem.h"
#include "RequestTrace.h"
#include "ScanTables.h"
#include "SimulatorTuners.h"
#include "TLongSectionTable.h"
#include "TNITTable.h"
#include "TPATTable.h"
#include "TPMTTable.h"
#include "TSDTTable.h"
#include "TTOTTable.h"
#include "TableCatalog.h"
#include "TunerInput.h"

namespace Ostrel {

namespace {

// The tables a scan asks for first, as the catalog names them.
const TableKind& kPat = *TableKind::named("PAT");
const TableKind& kNit = *TableKind::named("NIT");
const TableKind& kSdt = *TableKind::named("SDT");
const TableKind& kTot = *TableKind::named("TOT");
const short kPatPid = static_cast<short>(kPat.pid);
const short kNitPid = static_cast<short>(kNit.pid);
const short kSdtPid = static_cast<short>(kSdt.pid);
const short kTotPid = static_cast<short>(kTot.pid);
const short kPmtTableId = TableKind::named("PMT")->tableIds[0];

// Request ids are unique in the process, so that scans may overlap.
std::atomic<unsigned int> s_uiNextRequestId(1);

// How often waitFor asks the carriage probe; a simulated tuner's end wakes it
// at once.
const std::chrono::milliseconds kProbeEvery(20);
// Beyond the receiver's filter start, for the sender to record its request.
const double kSettleMarginMs = 30;

// The request this thread is sending: an answer for it that arrives while
// requestData is still running came from the cache.
thread_local unsigned int t_uiSending = 0;

std::string hex4(unsigned short value) {
  char text[8];
  std::snprintf(text, sizeof(text), "0x%04X", value);
  return text;
}

}  // namespace

// Everything a scan knows; shared with the tickets of its requests.
struct ChannelScan::State {
  OstrelGingaCommonCore* core = nullptr;
  int tunerId = 0;
  signed char mode = 1;
  RequestTrace* trace = nullptr;
  CarriageProbe probe;
  std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();

  std::mutex mutex;  // guards every field below
  std::condition_variable cond;
  bool closed = false;
  bool inputEnded = false;  // the tuner's input ended since the last probe
  unsigned int pending = 0;
  Result result;  // the requests; what the tables said is in tables
  ScanTables tables;
  std::map<unsigned int, size_t> requestIndex;
  std::map<unsigned int, uint64_t> since;  // open request: packets played when it saw the stream

  double elapsedMs() const {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
  }

  void send(const std::shared_ptr<State>& self, const std::string& what, signed char sendMode,
            short pid, short tableId, short tableIdExt);
  // Sends recorded request id; a refusal ends it as failed.
  void ask(const std::shared_ptr<State>& self, unsigned int id, const std::string& what,
           signed char sendMode, short pid, short tableId, short tableIdExt);
  void answer(const std::shared_ptr<State>& self, unsigned int requestId, unsigned char status,
              TISDBTTable* table);
  static bool answers(const Request& request, const TISDBTTable& table);
  bool read(const Request& request, TISDBTTable* table,
            std::vector<ScanTables::PatEntry>* more);  // REQUIRES: mutex held.
  // Ends open requests as not carried: every one when all, else those that
  // have seen a whole pass of the stream.
  void takeBack(bool all, const Carriage& carriage);
  void finish(unsigned int requestId);
  Result compose() const;  // REQUIRES: mutex held.
};

struct ChannelScan::Ticket {
  std::shared_ptr<State> state;
};

void ChannelScan::State::send(const std::shared_ptr<State>& self, const std::string& what,
                              signed char sendMode, short pid, short tableId, short tableIdExt) {
  const unsigned int id = s_uiNextRequestId.fetch_add(1);
  {
    std::lock_guard<std::mutex> lock(mutex);
    Request request;
    request.id = id;
    request.what = what;
    request.pid = pid;
    request.tableId = tableId;
    request.tableIdExt = tableIdExt;
    request.sentMs = elapsedMs();
    requestIndex[id] = result.requests.size();
    result.requests.push_back(request);
    ++pending;
  }
  ask(self, id, what, sendMode, pid, tableId, tableIdExt);
}

void ChannelScan::State::ask(const std::shared_ptr<State>& self, unsigned int id,
                             const std::string& what, signed char sendMode, short pid,
                             short tableId, short tableIdExt) {
  if (trace) {
    char args[64];
    std::snprintf(args, sizeof(args), "pid 0x%04X table 0x%02X ext 0x%04X",
                  static_cast<unsigned short>(pid), static_cast<unsigned short>(tableId),
                  static_cast<unsigned short>(tableIdExt));
    trace->sent(id, what, args);
  }
  Ticket* ticket = new Ticket();
  ticket->state = self;
  short error = 0;
  const unsigned int outer = t_uiSending;
  t_uiSending = id;
  int sent = core->requestData(id, sendMode, tunerId, pid, tableId, tableIdExt, ticket,
                               &ChannelScan::releaseTicket, &error);
  t_uiSending = outer;
  if (sent) {
    return;
  }
  bool failed = false;
  {
    std::lock_guard<std::mutex> lock(mutex);
    Request& request = result.requests[requestIndex[id]];
    if (request.outcome == kPending) {
      // Refused: the ticket is still ours.
      request.outcome = kFailed;
      request.errorCode = error;
      request.endedMs = elapsedMs();
      failed = true;
    }
  }
  if (failed) {
    delete ticket;
    if (trace) {
      trace->ended(id, what, "failed");
    }
    finish(id);
  }
}

void ChannelScan::State::answer(const std::shared_ptr<State>& self, unsigned int requestId,
                                unsigned char status, TISDBTTable* table) {
  std::vector<ScanTables::PatEntry> more;
  bool again = false;
  unsigned int reaskId = 0;
  Request request;
  {
    std::lock_guard<std::mutex> lock(mutex);
    std::map<unsigned int, size_t>::iterator found = requestIndex.find(requestId);
    if (closed || found == requestIndex.end()) {
      return;
    }
    Request& held = result.requests[found->second];
    if (held.outcome != kPending) {
      return;  // taken back already
    }
    since.erase(requestId);
    if (status == 0 && table && !answers(held, *table)) {
      // The cache keeps one table per PID, whatever its ids, and held another
      // table under this one: the same request goes to the receiver.
      reaskId = s_uiNextRequestId.fetch_add(1);
      requestIndex[reaskId] = found->second;
      requestIndex.erase(found);
      held.id = reaskId;
      ++pending;
      request = held;
    } else {
      held.endedMs = elapsedMs();
      if (status == 0 && table) {
        held.outcome = t_uiSending == requestId ? kFromCache : kDelivered;
        again = read(held, table, &more);
      } else {
        held.outcome = kTimedOut;
        if (held.tableId == kPmtTableId) {
          tables.endPmt(static_cast<unsigned short>(held.tableIdExt), kTimedOut);
        }
      }
      request = held;
    }
  }
  if (reaskId != 0) {
    if (trace) {
      trace->instant("cache held another table", request.what);
    }
    ask(self, reaskId, request.what, 2, request.pid, request.tableId, request.tableIdExt);
    finish(requestId);
    return;
  }
  if (trace) {
    if (request.outcome == kFromCache) {
      trace->instant("cache hit", request.what);
    }
    trace->ended(requestId, request.what, outcomeName(request.outcome));
  }
  // Follow-up requests go out before this one counts as ended, so that the
  // scan never looks finished in between. Sent from the notification, they
  // are followed before the next section can be delivered.
  for (size_t i = 0; i < more.size(); ++i) {
    send(self, "PMT " + hex4(more[i].program), mode, static_cast<short>(more[i].pid), kPmtTableId,
         static_cast<short>(more[i].program));
  }
  if (again) {
    // The cache holds the section just delivered: ask the receiver.
    std::string what = request.what.substr(0, 3) + " (more)";
    send(self, what, 2, request.pid, request.tableId, request.tableIdExt);
  }
  finish(requestId);
}

// A table answers a request when it is of the request's kind with its table
// id, and its extension where the extension selects the table.
bool ChannelScan::State::answers(const Request& request, const TISDBTTable& table) {
  const TableKind& kind = TableKind::of(request.pid, request.tableId);
  if (table.getType() != kind.typeCode) {
    return false;
  }
  const TLongSectionTable* section = dynamic_cast<const TLongSectionTable*>(&table);
  return !section ||
         (section->getTableId() == static_cast<unsigned char>(request.tableId) &&
          (!kind.extensionCompared ||
           section->getTableIdExtension() == static_cast<unsigned short>(request.tableIdExt)));
}

// REQUIRES: mutex held. Reads the table that answered request; true when
// more of its sections are to be asked for.
bool ChannelScan::State::read(const Request& request, TISDBTTable* table,
                              std::vector<ScanTables::PatEntry>* more) {
  if (const TPATTable* p = request.pid == kPatPid ? dynamic_cast<TPATTable*>(table) : NULL) {
    return tables.readPat(*p, more);
  }
  if (const TNITTable* n = request.pid == kNitPid ? dynamic_cast<TNITTable*>(table) : NULL) {
    return tables.readNit(*n);
  }
  if (const TSDTTable* d = request.pid == kSdtPid ? dynamic_cast<TSDTTable*>(table) : NULL) {
    return tables.readSdt(*d);
  }
  if (const TTOTTable* t = request.pid == kTotPid ? dynamic_cast<TTOTTable*>(table) : NULL) {
    tables.readTot(*t);
  } else if (const TPMTTable* m =
                 request.tableId == kPmtTableId ? dynamic_cast<TPMTTable*>(table) : NULL) {
    tables.readPmt(*m);
  }
  return false;
}

void ChannelScan::State::finish(unsigned int) {
  bool none = false;
  {
    std::lock_guard<std::mutex> lock(mutex);
    none = --pending == 0;
  }
  // Waiters wait for none pending (or the input's end): waking them for
  // every answer cost a switch of thread each.
  if (none) {
    cond.notify_all();
  }
}

void ChannelScan::State::takeBack(bool all, const Carriage& carriage) {
  // A section that began just before a request could see it comes whole only
  // in the next pass: allow for the longest section.
  const uint64_t kSectionPackets = 4096 / 184 + 2;
  std::vector<Request> taken;
  {
    std::lock_guard<std::mutex> lock(mutex);
    const double now = elapsedMs();
    for (size_t i = 0; i < result.requests.size(); ++i) {
      Request& request = result.requests[i];
      if (request.outcome != kPending) {
        continue;
      }
      if (!all && !carriage.ended) {
        std::map<unsigned int, uint64_t>::iterator at = since.find(request.id);
        if (at == since.end()) {
          if (now - request.sentMs >= carriage.settleMs) {
            since[request.id] = carriage.played;
          }
          continue;
        }
        if (carriage.passLength == 0 ||
            carriage.played - at->second < carriage.passLength + kSectionPackets) {
          continue;
        }
      }
      request.outcome = kNotCarried;
      request.endedMs = now;
      since.erase(request.id);
      if (request.tableId == kPmtTableId) {
        tables.endPmt(static_cast<unsigned short>(request.tableIdExt), kNotCarried);
      }
      --pending;
      taken.push_back(request);
    }
  }
  for (size_t i = 0; i < taken.size(); ++i) {
    // Null when an answer or the time-out took it first; the outcome stands.
    delete RequestFollower::remove(taken[i].id);
    if (trace) {
      trace->ended(taken[i].id, taken[i].what, outcomeName(kNotCarried));
    }
  }
  if (!taken.empty()) {
    cond.notify_all();
  }
}

// REQUIRES: mutex held.
ChannelScan::Result ChannelScan::State::compose() const {
  Result out = tables.compose();
  out.requests = result.requests;
  return out;
}
ChannelScan::ChannelScan(OstrelGingaCommonCore* core, int tunerId, signed char mode)
    : m_pState(new State()) {
  m_pState->core = core;
  m_pState->tunerId = tunerId;
  m_pState->mode = mode;
}

ChannelScan::~ChannelScan() {
  std::lock_guard<std::mutex> lock(m_pState->mutex);
  m_pState->closed = true;
}

void ChannelScan::setTrace(RequestTrace* trace) {
  m_pState->trace = trace;
}

void ChannelScan::setCarriageProbe(const CarriageProbe& probe) {
  m_pState->probe = probe;
}

ChannelScan::CarriageProbe ChannelScan::probeOf(ReceiverSimulator* sim, int tunerId) {
  return [sim, tunerId](Carriage* carriage) {
    TunerInput* tuner = SimulatorTuners::get(*sim, tunerId);
    if (!tuner) {
      return false;
    }
    const TunerInput::Progress progress = tuner->getProgress();
    // What was played before the progress was read has been delivered.
    sim->waitDelivered(std::chrono::seconds(1));
    carriage->played = progress.packets;
    carriage->passLength = progress.passPackets;
    carriage->ended = progress.ended;
    carriage->settleMs = sim->getFilterStartMs() + kSettleMarginMs;
    return true;
  };
}

void ChannelScan::releaseTicket(void* ticket) {
  delete static_cast<Ticket*>(ticket);
}

int ChannelScan::notify(unsigned int requestId, unsigned char status, void* userData,
                        TISDBTTable* table) {
  if (!userData) {
    return 1;  // event data: not asked for by a scan
  }
  Ticket* ticket = static_cast<Ticket*>(userData);
  ticket->state->answer(ticket->state, requestId, status, table);
  return 1;
}

const char* ChannelScan::outcomeName(Outcome outcome) {
  switch (outcome) {
    case kDelivered:
      return "delivered";
    case kFromCache:
      return "from cache";
    case kTimedOut:
      return "timed out";
    case kFailed:
      return "failed";
    case kNotCarried:
      return "not in the stream";
    case kPending:
    default:
      return "no answer";
  }
}

void ChannelScan::startOn(ReceiverSimulator* sim) {
  setCarriageProbe(probeOf(sim, m_pState->tunerId));
  // The end of the input ends what it did not carry at once, not at the next
  // probe.
  if (TunerInput* tuner = SimulatorTuners::get(*sim, m_pState->tunerId)) {
    std::weak_ptr<State> weak(m_pState);
    tuner->setEndListener([weak] {
      if (std::shared_ptr<State> state = weak.lock()) {
        {
          std::lock_guard<std::mutex> lock(state->mutex);
          state->inputEnded = true;
        }
        state->cond.notify_all();
      }
    });
  }
  start();
  // Sent from here and followed by the core once requestData returned: the
  // tuner need not wait for the engine's start-up time.
  sim->ownRequestsRecorded();
  sim->startTuner(m_pState->tunerId);
}

void ChannelScan::start() {
  State& state = *m_pState;
  {
    std::lock_guard<std::mutex> lock(state.mutex);
    if (!state.result.requests.empty()) {
      return;
    }
  }
  state.core->setRequestNotificationCallback(&ChannelScan::notify);
  for (const TableKind* kind : {&kPat, &kNit, &kSdt, &kTot}) {
    state.send(m_pState, kind->name, state.mode, static_cast<short>(kind->pid), kind->tableIds[0],
               0);
  }
}

bool ChannelScan::waitFor(std::chrono::milliseconds limit) {
  State& state = *m_pState;
  const auto deadline = std::chrono::steady_clock::now() + limit;
  const auto done = [&state] { return state.pending == 0; };
  std::unique_lock<std::mutex> lock(state.mutex);
  if (!state.probe) {
    return state.cond.wait_until(lock, deadline, done);
  }
  for (;;) {
    const auto poll = std::min(deadline, std::chrono::steady_clock::now() + kProbeEvery);
    state.cond.wait_until(lock, poll, [&state] { return state.pending == 0 || state.inputEnded; });
    if (state.pending == 0) {
      return true;
    }
    state.inputEnded = false;
    if (std::chrono::steady_clock::now() >= deadline) {
      return false;
    }
    lock.unlock();
    Carriage carriage;
    if (state.probe(&carriage)) {
      state.takeBack(false, carriage);
    }
    lock.lock();
  }
}

void ChannelScan::takeBackAll() {
  m_pState->takeBack(true, Carriage());
}

bool ChannelScan::run(std::chrono::milliseconds limit) {
  start();
  waitFor(limit);
  std::lock_guard<std::mutex> lock(m_pState->mutex);
  return m_pState->result.hasPat;
}

unsigned int ChannelScan::getPendingCount() const {
  std::lock_guard<std::mutex> lock(m_pState->mutex);
  return m_pState->pending;
}

ChannelScan::Result ChannelScan::getResult() const {
  std::lock_guard<std::mutex> lock(m_pState->mutex);
  return m_pState->compose();
}

}  // namespace Ostrel
