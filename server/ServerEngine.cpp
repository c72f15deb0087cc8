#include "ServerEngine.h"

#include <limits.h>

#include <algorithm>

#include "GingaDataDestination.h"
#include "OstrelLogger.h"
#include "SectionMatch.h"
#include "TDataRequestCommand.h"
#include "TGetTunerListCommand.h"
#include "TGetTunerListResponse.h"
#include "TSyncDataRequestCommand.h"

namespace Ostrel {

namespace {

const char kModule[] = "ServerEngine";
const unsigned short kPidCount = 0x2000;

}  // namespace

// What the delivery thread does with no lock held, in this order.
struct ServerEngine::CallOut {
  struct Injection {
    Key key;
    std::vector<unsigned char> section;
    std::vector<TDataRequestCommand*> answered;  // closed once the injection returns
  };
  std::vector<FilterKey> closeFilters;
  std::vector<FilterKey> openFilters;
  std::vector<Injection> injections;
  std::vector<TDataRequestCommand*> closes;  // timed out or failed
  bool empty() const {
    return closeFilters.empty() && openFilters.empty() && injections.empty() && closes.empty();
  }
};

// A synchronous request waiting on its caller's thread.
struct ServerEngine::Waiter {
  Waiter() : done(false) {}
  bool done;
  std::vector<unsigned char> section;  // empty: none came
};

bool ServerEngine::Key::operator<(const Key& other) const {
  if (tunerId != other.tunerId) {
    return tunerId < other.tunerId;
  }
  if (pid != other.pid) {
    return pid < other.pid;
  }
  if (tableId != other.tableId) {
    return tableId < other.tableId;
  }
  return tableIdExt < other.tableIdExt;
}

thread_local int ServerEngine::s_iExecuteDepth = 0;

ServerEngine::ServerEngine(SectionSource* source, const Options& options)
    : m_pSource(source),
      m_options(options),
      m_bShutdown(false),
      m_bCallingOut(false),
      m_bPlanDue(true),
      m_iExecuting(0),
      m_bWarnedNoDestination(false) {}

ServerEngine::~ServerEngine() {
  shutdown();
}

void ServerEngine::shutdown() {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_bShutdown) {
      return;
    }
    m_bShutdown = true;
  }
  m_pSource->interrupt();
  if (m_deliveryThread.joinable()) {
    m_deliveryThread.join();
  }
  m_pSource->readingStopped();
  // Nothing else calls out now: close what is still open, undelivered.
  CallOut out;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (std::map<Key, Gather>::iterator it = m_mapGathers.begin(); it != m_mapGathers.end();
         ++it) {
      for (std::list<Request>::iterator request = it->second.requests.begin();
           request != it->second.requests.end(); ++request) {
        if (request->command) {
          out.closes.push_back(request->command);
          ++m_counters.timedOut;
        } else {
          request->waiter->done = true;
        }
      }
    }
    m_mapGathers.clear();
    for (std::map<FilterKey, Filter>::iterator it = m_mapFilters.begin(); it != m_mapFilters.end();
         ++it) {
      if (it->second.open) {
        out.closeFilters.push_back(it->first);
      }
    }
    m_mapFilters.clear();
  }
  m_condIdle.notify_all();
  callOut(&out);
}

ServerEngine::Counters ServerEngine::getCounters() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_counters;
}

size_t ServerEngine::getOpenFilterCount() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  size_t count = 0;
  for (std::map<FilterKey, Filter>::const_iterator it = m_mapFilters.begin();
       it != m_mapFilters.end(); ++it) {
    count += it->second.open ? 1 : 0;
  }
  return count;
}

size_t ServerEngine::getPendingRequestCount() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  size_t count = 0;
  for (std::map<Key, Gather>::const_iterator it = m_mapGathers.begin(); it != m_mapGathers.end();
       ++it) {
    count += it->second.requests.size();
  }
  return count;
}

uint64_t ServerEngine::getCrcErrors(int tunerId, unsigned short pid) const {
  std::lock_guard<std::mutex> lock(m_mutex);
  std::map<FilterKey, uint64_t>::const_iterator it = m_mapCrcErrors.find(FilterKey(tunerId, pid));
  return it == m_mapCrcErrors.end() ? 0 : it->second;
}

void ServerEngine::waitBusyCommands() {
  std::unique_lock<std::mutex> lock(m_mutex);
  const bool onDeliveryThread = std::this_thread::get_id() == m_deliveryThreadId;
  const int own = s_iExecuteDepth;
  while (m_iExecuting - own > 0 || (m_bCallingOut && !onDeliveryThread)) {
    m_condIdle.wait(lock);
  }
}

// REQUIRES: m_mutex held.
bool ServerEngine::__isSettled() const {
  for (std::map<FilterKey, Filter>::const_iterator it = m_mapFilters.begin();
       it != m_mapFilters.end(); ++it) {
    const Filter& filter = it->second;
    if (filter.keys > 0 && (filter.opening || (!filter.open && !filter.failed && !filter.waited))) {
      return false;
    }
  }
  return true;
}

void ServerEngine::settle() {
  Clock::time_point ready = Clock::now();
  std::unique_lock<std::mutex> lock(m_mutex);
  while (!m_bShutdown && !__isSettled()) {
    lock.unlock();
    m_pSource->interrupt();
    lock.lock();
    // The filters may have opened while the lock was free: a wait that does
    // not look first would sleep its whole 10 ms.
    m_condIdle.wait_for(lock, std::chrono::milliseconds(10),
                        [this] { return m_bShutdown || __isSettled(); });
  }
  for (std::map<Key, Gather>::const_iterator it = m_mapGathers.begin(); it != m_mapGathers.end();
       ++it) {
    for (std::list<Request>::const_iterator request = it->second.requests.begin();
         request != it->second.requests.end(); ++request) {
      ready = std::max(ready, request->passFrom);
    }
  }
  lock.unlock();
  std::this_thread::sleep_until(ready);
}

void ServerEngine::ownRequestsRecorded() {
  const Clock::time_point now = Clock::now();
  const std::thread::id self = std::this_thread::get_id();
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (s_iExecuteDepth > 0) {
      return;  // inside an execute: the sender has not recorded it yet
    }
    for (std::map<Key, Gather>::iterator it = m_mapGathers.begin(); it != m_mapGathers.end();
         ++it) {
      for (std::list<Request>::iterator request = it->second.requests.begin();
           request != it->second.requests.end(); ++request) {
        if (request->command && request->sender == self && request->passFrom > now) {
          request->passFrom = now;
          m_bPlanDue = true;
        }
      }
    }
  }
  m_pSource->interrupt();
}

// ---- Requests ----

// REQUIRES: m_mutex held.
void ServerEngine::__attach(const Key& key, const Request& request) {
  std::map<Key, Gather>::iterator it = m_mapGathers.find(key);
  if (it == m_mapGathers.end()) {
    it = m_mapGathers.insert(std::make_pair(key, Gather())).first;
    Filter& filter = m_mapFilters[FilterKey(key.tunerId, static_cast<unsigned short>(key.pid))];
    ++filter.keys;
  }
  it->second.requests.push_back(request);
  m_bPlanDue = true;
  if (!m_deliveryThread.joinable()) {
    m_deliveryThread = std::thread(&ServerEngine::deliveryLoop, this);
    m_deliveryThreadId = m_deliveryThread.get_id();
  }
}

// REQUIRES: m_mutex held. Takes a synchronous waiter back from its key.
void ServerEngine::__forget(const Key& key, Waiter* waiter) {
  std::map<Key, Gather>::iterator it = m_mapGathers.find(key);
  if (it == m_mapGathers.end()) {
    return;
  }
  std::list<Request>& requests = it->second.requests;
  for (std::list<Request>::iterator request = requests.begin(); request != requests.end();
       ++request) {
    if (request->waiter == waiter) {
      requests.erase(request);
      m_bPlanDue = true;
      break;
    }
  }
  waiter->done = true;
}

// REQUIRES: m_mutex held. The gather goes; so does its claim on the filter.
void ServerEngine::__dropGather(std::map<Key, Gather>::iterator it) {
  const FilterKey key(it->first.tunerId, static_cast<unsigned short>(it->first.pid));
  --m_mapFilters[key].keys;
  m_mapGathers.erase(it);
}

// ---- Delivery thread ----

// REQUIRES: m_mutex held. A section from the source reaches every gather
// of its tuner and PID that it answers, once its CRC_32 holds (checked here
// unless the source did). True when a gather kept it.
bool ServerEngine::__take(SectionSource::Section* section) {
  const unsigned int size = static_cast<unsigned int>(section->data.size());
  const unsigned char* data = size ? &section->data[0] : NULL;
  if (!(section->intact && size >= 3) && !SectionMatch::isIntact(data, size)) {
    ++m_counters.crcErrors;
    ++m_mapCrcErrors[FilterKey(section->tunerId, section->pid)];
    return false;
  }
  // Each gather but the last that wants it gets a copy; the last takes the
  // bytes.
  const Key first = {section->tunerId, static_cast<short>(section->pid), SHRT_MIN, SHRT_MIN};
  std::map<Key, Gather>::iterator wanting = m_mapGathers.end();
  bool kept = false;
  for (std::map<Key, Gather>::iterator it = m_mapGathers.lower_bound(first);
       it != m_mapGathers.end() && it->first.tunerId == section->tunerId &&
       it->first.pid == first.pid;
       ++it) {
    if (!SectionMatch::matches(it->first.tableId, it->first.tableIdExt, data, size)) {
      continue;
    }
    if (wanting != m_mapGathers.end()) {
      kept = __offer(&wanting->second.gatherer, data, size, NULL) || kept;
    }
    wanting = it;
  }
  if (wanting != m_mapGathers.end()) {
    kept = __offer(&wanting->second.gatherer, data, size, &section->data) || kept;
  }
  return kept;
}

// REQUIRES: m_mutex held. One gather's offer, counted when it is a
// repetition; with owner, the gatherer takes the bytes from it.
bool ServerEngine::__offer(SectionGatherer* gatherer, const unsigned char* data, unsigned int size,
                           std::vector<unsigned char>* owner) {
  const bool kept = owner ? gatherer->offerOwned(owner) : gatherer->offer(data, size);
  if (!kept) {
    ++m_counters.repetitions;
  }
  return kept;
}

// REQUIRES: m_mutex held. Filters to close (nobody needs them), and to open
// where the tuner's demux has room; when it has none, gathers that only
// linger give theirs up.
void ServerEngine::__planFilters(CallOut* out) {
  bool toOpen = false;
  for (std::map<FilterKey, Filter>::iterator it = m_mapFilters.begin(); it != m_mapFilters.end();) {
    if (it->second.keys == 0) {
      if (it->second.open) {
        out->closeFilters.push_back(it->first);
      }
      m_mapFilters.erase(it++);
      continue;
    }
    toOpen = toOpen || (!it->second.open && !it->second.failed);
    ++it;
  }
  if (!toOpen) {
    return;  // the usual case: every filter needed is open
  }
  std::map<int, unsigned int> inUse;
  for (std::map<FilterKey, Filter>::iterator it = m_mapFilters.begin(); it != m_mapFilters.end();
       ++it) {
    inUse[it->first.first] += it->second.open ? 1 : 0;
  }
  for (std::map<FilterKey, Filter>::iterator it = m_mapFilters.begin(); it != m_mapFilters.end();
       ++it) {
    Filter& filter = it->second;
    if (filter.open || filter.failed) {
      continue;
    }
    const unsigned int limit = m_pSource->getFilterLimit(it->first.first);
    if (limit == 0 || inUse[it->first.first] < limit) {
      filter.open = true;  // until the source says otherwise
      filter.opening = true;
      ++inUse[it->first.first];
      out->openFilters.push_back(it->first);
      continue;
    }
    if (!filter.waited) {
      filter.waited = true;
      ++m_counters.filterWaits;
    }
    // A lingering gather alone on its PID frees a filter for this one; never
    // one half way through its table, whose next request is on its way (its
    // sections would pass unseen while the filter serves another).
    for (std::map<Key, Gather>::iterator gather = m_mapGathers.begin();
         gather != m_mapGathers.end(); ++gather) {
      const FilterKey other(gather->first.tunerId, static_cast<unsigned short>(gather->first.pid));
      const SectionGatherer& sections = gather->second.gatherer;
      const bool halfWay = sections.getDeliveredCount() > 0 && !sections.isComplete();
      if (other.first == it->first.first && gather->second.requests.empty() && !halfWay &&
          m_mapFilters[other].keys == 1 && m_mapFilters[other].open) {
        __dropGather(gather);
        m_bPlanDue = true;
        break;  // closed by the next plan, which opens this one
      }
    }
  }
}

// REQUIRES: m_mutex held.
void ServerEngine::__plan(Clock::time_point now, CallOut* out) {
  for (std::map<Key, Gather>::iterator it = m_mapGathers.begin(); it != m_mapGathers.end();) {
    Gather& gather = it->second;
    const Filter& filter =
        m_mapFilters[FilterKey(it->first.tunerId, static_cast<unsigned short>(it->first.pid))];
    CallOut::Injection injection;
    injection.key = it->first;
    bool ready = false;
    for (std::list<Request>::iterator request = gather.requests.begin();
         request != gather.requests.end(); ++request) {
      ready = ready || request->passFrom <= now;
    }
    if (ready && gather.gatherer.hasWaiting()) {
      gather.gatherer.take(&injection.section);
    }
    Clock::duration lastTimeOut = Clock::duration::zero();
    for (std::list<Request>::iterator request = gather.requests.begin();
         request != gather.requests.end();) {
      const bool answered = !injection.section.empty() && request->passFrom <= now;
      if (!answered && !filter.failed && request->deadline > now) {
        ++request;
        continue;
      }
      if (request->command) {
        (answered ? injection.answered : out->closes).push_back(request->command);
        if (!answered) {
          ++(filter.failed ? m_counters.failed : m_counters.timedOut);
        }
      } else {
        request->waiter->done = true;
        request->waiter->section = injection.section;  // empty: none came
      }
      lastTimeOut = request->timeOut;
      gather.requests.erase(request++);
    }
    const bool complete = gather.gatherer.isComplete();
    if (!injection.section.empty()) {
      if (complete) {
        ++m_counters.tablesCompleted;
      }
      // A synchronous waiter's section is injected on its caller's thread
      // only; the delivery thread injects for open requests.
      if (!injection.answered.empty()) {
        ++m_counters.deliveries;
        out->injections.push_back(CallOut::Injection());
        CallOut::Injection& moved = out->injections.back();
        moved.key = injection.key;
        moved.section.swap(injection.section);
        moved.answered.swap(injection.answered);
      }
    }
    if (gather.requests.empty() && lastTimeOut != Clock::duration::zero()) {
      // Whole, the table lingers only for a start-up time: long enough for
      // the request its answer prompts (the next version, say), which finds
      // the filter still open and the sections that followed kept.
      gather.lingerUntil =
          now + (complete ? Clock::duration(std::chrono::milliseconds(m_options.filterStartMs))
                          : lastTimeOut);
    }
    if (gather.requests.empty() && (filter.failed || gather.lingerUntil <= now)) {
      __dropGather(it++);
      continue;
    }
    if (complete) {
      gather.gatherer.reset();  // those still waiting get the table's next repetition
    }
    ++it;
  }
  __planFilters(out);
}

// REQUIRES: m_mutex held. When the delivery thread must act next without a
// section: a deadline, a request's first moment, the end of a linger.
ServerEngine::Clock::time_point ServerEngine::__nextWake() const {
  Clock::time_point wake = Clock::time_point::max();
  for (std::map<Key, Gather>::const_iterator it = m_mapGathers.begin(); it != m_mapGathers.end();
       ++it) {
    const Gather& gather = it->second;
    if (gather.requests.empty()) {
      wake = std::min(wake, gather.lingerUntil);
    }
    for (std::list<Request>::const_iterator request = gather.requests.begin();
         request != gather.requests.end(); ++request) {
      wake = std::min(wake, request->deadline);
      if (gather.gatherer.hasWaiting()) {
        wake = std::min(wake, request->passFrom);
      }
    }
  }
  return wake;
}

// The data destination; a server that was never given one is told once why
// its requests get no answer.
GingaDataDestination* ServerEngine::getDestination() {
  GingaDataDestination* destination = getDataDestination();
  if (!destination && !m_bWarnedNoDestination.exchange(true)) {
    ostrel_log_std_generic(4, kModule,
                           "%s: injectData: ERROR: no data destination: sections are dropped "
                           "(setDataDestination was not called)",
                           kModule);
  }
  return destination;
}

void ServerEngine::callOut(CallOut* out) {
  for (size_t i = 0; i < out->closeFilters.size(); ++i) {
    m_pSource->closeFilter(out->closeFilters[i].first, out->closeFilters[i].second);
  }
  std::vector<FilterKey> refused;
  for (size_t i = 0; i < out->openFilters.size(); ++i) {
    if (!m_pSource->openFilter(out->openFilters[i].first, out->openFilters[i].second)) {
      refused.push_back(out->openFilters[i]);
    }
  }
  for (size_t i = 0; i < out->injections.size(); ++i) {
    CallOut::Injection& injection = out->injections[i];
    GingaDataDestination* destination = getDestination();
    if (destination) {
      destination->injectData(injection.key.tunerId, injection.key.pid, injection.key.tableId,
                              injection.key.tableIdExt, NULL, &injection.section[0],
                              static_cast<unsigned int>(injection.section.size()));
    }
    for (size_t j = 0; j < injection.answered.size(); ++j) {
      closeOpenRequest(injection.answered[j]);
    }
  }
  for (size_t i = 0; i < out->closes.size(); ++i) {
    closeOpenRequest(out->closes[i]);
  }
  std::lock_guard<std::mutex> lock(m_mutex);
  m_counters.filtersOpened += out->openFilters.size() - refused.size();
  for (size_t i = 0; i < out->openFilters.size(); ++i) {
    std::map<FilterKey, Filter>::iterator it = m_mapFilters.find(out->openFilters[i]);
    if (it != m_mapFilters.end()) {
      it->second.opening = false;
    }
  }
  for (size_t i = 0; i < refused.size(); ++i) {
    std::map<FilterKey, Filter>::iterator it = m_mapFilters.find(refused[i]);
    if (it != m_mapFilters.end()) {
      it->second.open = false;
      it->second.failed = true;
    }
    m_bPlanDue = true;
  }
}

// Plans only when something may have changed: a request attached or taken
// back, a section a gather kept, a filter that failed, a wait that ended, or
// the moment __nextWake named. A repetition, or a section no key wants,
// costs no plan.
void ServerEngine::deliveryLoop() {
  SectionSource::Section section;
  std::unique_lock<std::mutex> lock(m_mutex);
  Clock::time_point wake = Clock::time_point::min();
  while (!m_bShutdown) {
    const Clock::time_point now = Clock::now();
    if (m_bPlanDue || now >= wake) {
      m_bPlanDue = false;
      CallOut out;
      __plan(now, &out);
      m_condIdle.notify_all();  // synchronous waiters whose answer is decided
      if (!out.empty()) {
        m_bCallingOut = true;
        lock.unlock();
        callOut(&out);
        lock.lock();
        m_bCallingOut = false;
        m_condIdle.notify_all();
        continue;
      }
      wake = __nextWake();
    }
    int timeoutMs = -1;
    if (wake != Clock::time_point::max()) {
      const long long ms =
          std::chrono::duration_cast<std::chrono::milliseconds>(wake - now).count() + 1;
      timeoutMs = static_cast<int>(std::max(0LL, std::min(ms, 60LL * 1000)));
    }
    lock.unlock();
    section.intact = false;
    const SectionSource::ReadResult result = m_pSource->readSection(timeoutMs, &section);
    lock.lock();
    if (result == SectionSource::kSection) {
      m_bPlanDue = __take(&section) || m_bPlanDue;
    } else if (result == SectionSource::kFilterFailed) {
      std::map<FilterKey, Filter>::iterator it =
          m_mapFilters.find(FilterKey(section.tunerId, section.pid));
      if (it != m_mapFilters.end()) {
        it->second.failed = true;
      }
      m_bPlanDue = true;
    } else {
      m_bPlanDue = true;  // interrupted, or the wait ended
    }
  }
}

// ---- Commands ----

bool ServerEngine::isValidKey(int tunerId, short pid) const {
  if (tunerId < 0 || tunerId >= m_pSource->getTunerCount()) {
    ostrel_log_std_generic(4, kModule, "%s: execute: ERROR: no tuner %d (%d tuners)", kModule,
                           tunerId, m_pSource->getTunerCount());
    return false;
  }
  if (static_cast<unsigned short>(pid) >= kPidCount) {
    ostrel_log_std_generic(4, kModule,
                           "%s: execute: ERROR: PID 0x%04X is not a transport-stream PID", kModule,
                           static_cast<unsigned short>(pid));
    return false;
  }
  return true;
}

void ServerEngine::beginExecute() {
  std::lock_guard<std::mutex> lock(m_mutex);
  ++m_iExecuting;
  ++s_iExecuteDepth;
}

void ServerEngine::endExecute() {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    --m_iExecuting;
    --s_iExecuteDepth;
  }
  m_condIdle.notify_all();
}

int ServerEngine::execute(TCommand* command, TCommand** response) {
  if (!command) {
    return 0;
  }
  // In flight for waitBusyCommands until it returns, on every path.
  struct Scope {
    explicit Scope(ServerEngine* engine) : m_pEngine(engine) { m_pEngine->beginExecute(); }
    ~Scope() { m_pEngine->endExecute(); }
    ServerEngine* m_pEngine;
  } scope(this);
  int result = 0;
  switch (command->getCode()) {
    case TDataRequestCommand::kCode: {
      TDataRequestCommand* request = static_cast<TDataRequestCommand*>(command);
      result = request->getOpen()
                   ? executeOpenRequest(request)
                   : executeSyncRequest(request->getTunerId(), request->getPid(),
                                        request->getTableId(), request->getTableIdExt());
      break;
    }
    case TSyncDataRequestCommand::kCode: {
      TSyncDataRequestCommand* request = static_cast<TSyncDataRequestCommand*>(command);
      result = executeSyncRequest(request->getTunerId(), request->getPid(), request->getTableId(),
                                  request->getTableIdExt());
      break;
    }
    case TGetTunerListCommand::kCode:
      result = executeTunerList(response);
      break;
    default:
      result = m_pSource->executeControl(command, response);
      break;
  }
  if (!result) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_counters.commandsRefused;
  }
  return result;
}

int ServerEngine::executeOpenRequest(TDataRequestCommand* command) {
  if (!isValidKey(command->getTunerId(), command->getPid())) {
    return 0;  // refused: the command library closes the request
  }
  const Clock::time_point now = Clock::now();
  const Key key = {command->getTunerId(), command->getPid(), command->getTableId(),
                   command->getTableIdExt()};
  Request request;
  request.command = command;
  request.waiter = NULL;
  request.timeOut = std::chrono::seconds(command->getTimeOut() ? command->getTimeOut() : 1);
  request.deadline = now + request.timeOut;
  request.sender = std::this_thread::get_id();
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_bShutdown) {
      return 0;
    }
    // Sent from a notification on the delivery thread, the request is
    // recorded before that thread can deliver again: no start-up time needed.
    const bool fromDelivery = std::this_thread::get_id() == m_deliveryThreadId;
    request.passFrom =
        fromDelivery ? now : now + std::chrono::milliseconds(m_options.filterStartMs);
    __attach(key, request);
    ++m_counters.requestsOpened;
    if (fromDelivery) {
      return 1;  // that thread plans again before it reads the source
    }
  }
  m_pSource->interrupt();
  return 1;
}

int ServerEngine::executeSyncRequest(int tunerId, short pid, short tableId, short tableIdExt) {
  std::vector<std::vector<unsigned char>> sections;
  if (isValidKey(tunerId, pid)) {
    std::vector<std::vector<unsigned char>> carried;
    m_pSource->findCarried(tunerId, static_cast<unsigned short>(pid), &carried);
    for (size_t i = 0; i < carried.size(); ++i) {
      const unsigned int size = static_cast<unsigned int>(carried[i].size());
      if (size && SectionMatch::matches(tableId, tableIdExt, &carried[i][0], size) &&
          SectionMatch::isIntact(&carried[i][0], size)) {
        sections.push_back(carried[i]);
      }
    }
    if (sections.empty() && m_options.syncWaitMs > 0) {
      sections.resize(1);
      if (!waitForSection(tunerId, pid, tableId, tableIdExt, &sections[0])) {
        sections.clear();
      }
    }
  }
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++(sections.empty() ? m_counters.syncRefused : m_counters.syncAnswered);
  }
  GingaDataDestination* destination = sections.empty() ? NULL : getDestination();
  for (size_t i = 0; destination && i < sections.size(); ++i) {
    destination->injectData(tunerId, pid, tableId, tableIdExt, NULL, &sections[i][0],
                            static_cast<unsigned int>(sections[i].size()));
  }
  return sections.empty() ? 0 : 1;
}

// On the caller's thread: the first new section of the key within
// syncWaitMs. The delivery thread cannot wait for itself.
bool ServerEngine::waitForSection(int tunerId, short pid, short tableId, short tableIdExt,
                                  std::vector<unsigned char>* section) {
  const Clock::time_point now = Clock::now();
  const Key key = {tunerId, pid, tableId, tableIdExt};
  Waiter waiter;
  Request request;
  request.command = NULL;
  request.waiter = &waiter;
  request.passFrom = now;
  request.timeOut = std::chrono::milliseconds(m_options.syncWaitMs);
  request.deadline = now + request.timeOut;
  request.sender = std::this_thread::get_id();
  std::unique_lock<std::mutex> lock(m_mutex);
  if (m_bShutdown || std::this_thread::get_id() == m_deliveryThreadId) {
    return false;
  }
  __attach(key, request);
  lock.unlock();
  m_pSource->interrupt();
  lock.lock();
  // Bounded here too: a caller on the core's monitor thread holds the
  // follower's lock, on which the delivery thread may be waiting.
  while (!waiter.done && m_condIdle.wait_until(lock, request.deadline) != std::cv_status::timeout) {
  }
  if (!waiter.done) {
    __forget(key, &waiter);
  }
  section->swap(waiter.section);
  return !section->empty();
}

int ServerEngine::executeTunerList(TCommand** response) {
  std::vector<SectionSource::Tuner> tuners;
  if (!response || !m_pSource->getTuners(&tuners)) {
    return 0;
  }
  TGetTunerListResponse* list = new TGetTunerListResponse();
  for (size_t i = 0; i < tuners.size(); ++i) {
    list->addTuner(tuners[i].id, tuners[i].type);
  }
  *response = list;
  return 1;
}

}  // namespace Ostrel
