#include "ReceiverSimulatorImpl.h"

#include "GingaDataDestination.h"
#include "TDataRequestCommand.h"
#include "TransportStreamSource.h"
#include "TunerInput.h"

namespace Ostrel {

namespace {

// PIDs of the service information that a receiver always reassembles, so that
// synchronous requests find them; PMT PIDs are added as PATs name them.
const unsigned short kSiPidLast = 0x001F;
const unsigned short kExtraSiPids[] = {0x0024, 0x0026};

const unsigned char kPatTableId = 0x00;

}  // namespace

ReceiverSimulator::Impl::Impl(GingaServer* server, const Options& options)
    : m_pServer(server),
      m_options(options),
      m_controls(options.screenWidth, options.screenHeight, options.sourceWidth,
                 options.sourceHeight),
      m_ePacing(StreamPacer::kAsFastAsPossible),
      m_ullBitRate(0),
      m_bStarted(false),
      m_bShutdown(false),
      m_ullNextFilterId(0),
      m_ullNextSeq(0),
      m_iExecuting(0),
      m_rng(1) {
  m_deliveryThread = std::thread(&Impl::deliveryLoop, this);
  std::lock_guard<std::mutex> lock(m_mutex);
  m_deliveryThreadId = m_deliveryThread.get_id();
}

ReceiverSimulator::Impl::~Impl() {
  stop();
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_bShutdown = true;
  }
  m_condDelivery.notify_all();
  m_deliveryThread.join();
  // Close what is still open; nothing else runs now.
  std::vector<TDataRequestCommand*> open;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (std::map<uint64_t, OpenFilter>::iterator it = m_mapFilters.begin();
         it != m_mapFilters.end(); ++it) {
      open.push_back(it->second.command);
    }
    m_counters.filtersClosed += m_mapFilters.size();
    m_counters.discarded += m_mapDeliveries.size();
    m_mapFilters.clear();
    m_mapDeliveries.clear();
    m_setPendingSeq.clear();
  }
  m_condIdle.notify_all();
  for (size_t i = 0; i < open.size(); ++i) {
    m_pServer->closeOpenRequest(open[i]);
  }
  m_vecTuners.clear();
}

int ReceiverSimulator::Impl::addTuner(std::unique_ptr<TransportStreamSource> source,
                                      unsigned char type) {
  std::lock_guard<std::mutex> lock(m_mutex);
  int id = static_cast<int>(m_vecTuners.size());
  std::unique_ptr<TunerInput> tuner(new TunerInput(id, type, std::move(source), this));
  tuner->setPacing(m_ePacing, m_ullBitRate);
  for (unsigned short pid = 0; pid <= kSiPidLast; ++pid) {
    tuner->getDemux()->enablePid(pid);
  }
  for (size_t i = 0; i < sizeof(kExtraSiPids) / sizeof(kExtraSiPids[0]); ++i) {
    tuner->getDemux()->enablePid(kExtraSiPids[i]);
  }
  if (m_bStarted) {
    tuner->start();
  }
  m_controls.addTuner(id, type);
  m_vecTuners.push_back(std::move(tuner));
  return id;
}

void ReceiverSimulator::Impl::setPacing(StreamPacer::Mode mode, uint64_t bitRate) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_ePacing = mode;
  m_ullBitRate = bitRate;
}

void ReceiverSimulator::Impl::start() {
  sleepUntilFiltersPass(-1);
  std::lock_guard<std::mutex> lock(m_mutex);
  m_bStarted = true;
  for (size_t i = 0; i < m_vecTuners.size(); ++i) {
    m_vecTuners[i]->start();
  }
}

bool ReceiverSimulator::Impl::startTuner(int tunerId) {
  TunerInput* tuner = getTuner(tunerId);
  if (!tuner) {
    return false;
  }
  sleepUntilFiltersPass(tunerId);
  return tuner->start();
}

// The first packet played must reach every filter opened before it.
void ReceiverSimulator::Impl::sleepUntilFiltersPass(int tunerId) {
  Clock::time_point ready = Clock::now();
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (std::map<uint64_t, OpenFilter>::const_iterator it = m_mapFilters.begin();
         it != m_mapFilters.end(); ++it) {
      if ((tunerId < 0 || it->second.filter.getTunerId() == tunerId) &&
          it->second.passFrom > ready) {
        ready = it->second.passFrom;
      }
    }
  }
  std::this_thread::sleep_until(ready);
}

void ReceiverSimulator::Impl::stop() {
  std::vector<TunerInput*> tuners;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_bStarted = false;
    for (size_t i = 0; i < m_vecTuners.size(); ++i) {
      tuners.push_back(m_vecTuners[i].get());
    }
  }
  // The readers call onSection, which takes m_mutex: join without holding it.
  for (size_t i = 0; i < tuners.size(); ++i) {
    tuners[i]->stop();
  }
}

bool ReceiverSimulator::Impl::feed(int tunerId, const unsigned char* data, size_t size) {
  TunerInput* tuner = getTuner(tunerId);
  if (!tuner) {
    return false;
  }
  tuner->feed(data, size);
  return true;
}

TunerInput* ReceiverSimulator::Impl::getTuner(int tunerId) const {
  std::lock_guard<std::mutex> lock(m_mutex);
  if (tunerId < 0 || static_cast<size_t>(tunerId) >= m_vecTuners.size()) {
    return NULL;
  }
  return m_vecTuners[tunerId].get();
}

size_t ReceiverSimulator::Impl::getTunerCount() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_vecTuners.size();
}

void ReceiverSimulator::Impl::setFaultPlan(const FaultPlan& plan) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_faults = plan;
  m_rng.seed(plan.seed);
}

ReceiverSimulator::Counters ReceiverSimulator::Impl::getCounters() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_counters;
}

size_t ReceiverSimulator::Impl::getOpenFilterCount() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_mapFilters.size();
}

std::string ReceiverSimulator::Impl::getKeyHolder(unsigned int keyCode) const {
  return m_controls.getKeyHolder(keyCode);
}

std::vector<std::pair<std::string, unsigned char>> ReceiverSimulator::Impl::getAppStatusChanges()
    const {
  return m_controls.getAppStatusChanges();
}

thread_local int ReceiverSimulator::Impl::s_iExecuteDepth = 0;

void ReceiverSimulator::Impl::beginExecute() {
  std::lock_guard<std::mutex> lock(m_mutex);
  ++m_iExecuting;
  ++s_iExecuteDepth;
}

void ReceiverSimulator::Impl::endExecute() {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    --m_iExecuting;
    --s_iExecuteDepth;
  }
  m_condIdle.notify_all();
}

void ReceiverSimulator::Impl::waitBusyCommands() {
  std::unique_lock<std::mutex> lock(m_mutex);
  const bool onDeliveryThread = std::this_thread::get_id() == m_deliveryThreadId;
  const uint64_t last = m_ullNextSeq;  // deliveries queued so far have seq < last
  const int own = s_iExecuteDepth;
  m_condIdle.wait(lock, [&] {
    if (m_iExecuting - own > 0) {
      return false;
    }
    return onDeliveryThread || m_setPendingSeq.empty() || *m_setPendingSeq.begin() >= last;
  });
}

// ---- Sections from the tuners ----

void ReceiverSimulator::Impl::onSection(int tunerId, unsigned short pid, const unsigned char* data,
                                        unsigned int size) {
  if (pid == 0 && data[0] == kPatTableId) {
    learnProgramPids(tunerId, data, size);
  }
  bool queued = false;
  std::unique_lock<std::mutex> lock(m_mutex);
  // A section is matched only once the deliveries before it have been made,
  // so that requests sent from their notifications see it, as they would on
  // a receiver whose sections arrive slower than it answers them. Delayed
  // deliveries (a fault) do not hold the reader back.
  if (std::this_thread::get_id() != m_deliveryThreadId) {
    m_condIdle.wait(
        lock, [this] { return m_bShutdown || m_setPendingSeq.empty() || m_faults.delayMs > 0; });
  }
  const Clock::time_point now = Clock::now();
  __remember(tunerId, pid, data, size);
  for (std::map<uint64_t, OpenFilter>::iterator it = m_mapFilters.begin(); it != m_mapFilters.end();
       ++it) {
    OpenFilter& open = it->second;
    if (now < open.passFrom || now >= open.deadline ||
        !open.filter.matches(tunerId, pid, data, size) || open.filter.hasPassed(data, size)) {
      continue;
    }
    std::vector<unsigned char> copy(data, data + size);
    if (!__applyFaults(pid, &copy)) {
      continue;  // lost: a later repetition may still pass
    }
    if (copy.size() == size && std::equal(copy.begin(), copy.end(), data)) {
      open.filter.markPassed(data, size);
    }
    Delivery delivery;
    delivery.seq = m_ullNextSeq++;
    delivery.filterId = it->first;
    delivery.tunerId = tunerId;
    delivery.pid = open.filter.getPid();
    delivery.tableId = open.filter.getTableId();
    delivery.tableIdExt = open.filter.getTableIdExt();
    delivery.data.swap(copy);
    m_setPendingSeq.insert(delivery.seq);
    Clock::time_point due = now + std::chrono::milliseconds(m_faults.delayMs);
    m_mapDeliveries.insert(std::make_pair(due, std::move(delivery)));
    queued = true;
  }
  if (queued) {
    m_condDelivery.notify_all();
  }
}

// The PAT names the PMT PIDs (and the NIT's): reassemble them from now on.
void ReceiverSimulator::Impl::learnProgramPids(int tunerId, const unsigned char* data,
                                               unsigned int size) {
  TunerInput* tuner = getTuner(tunerId);
  if (!tuner || size < 12 || (data[1] & 0x80) == 0) {
    return;
  }
  for (unsigned int i = 8; i + 4 <= size - 4; i += 4) {
    unsigned short pid = static_cast<unsigned short>(((data[i + 2] & 0x1F) << 8) | data[i + 3]);
    tuner->getDemux()->enablePid(pid);
  }
}

// REQUIRES: m_mutex held.
void ReceiverSimulator::Impl::__remember(int tunerId, unsigned short pid, const unsigned char* data,
                                         unsigned int size) {
  bool longForm = size >= 8 && (data[1] & 0x80) != 0;
  unsigned int extension = longForm ? ((data[3] << 8) | data[4]) : 0;
  unsigned int number = longForm ? data[6] : 0;
  CarriedKey key(std::make_pair(tunerId, pid), std::make_pair((data[0] << 16) | extension, number));
  std::map<CarriedKey, std::vector<unsigned char>>::iterator it = m_mapCarried.find(key);
  if (it != m_mapCarried.end()) {
    if (it->second.size() != size || !std::equal(it->second.begin(), it->second.end(), data)) {
      it->second.assign(data, data + size);
    }
    return;
  }
  size_t& count = m_mapCarriedCount[tunerId];
  if (count >= m_options.maxCarriedSections) {
    return;
  }
  ++count;
  m_mapCarried.insert(std::make_pair(key, std::vector<unsigned char>(data, data + size)));
}

// REQUIRES: m_mutex held.
bool ReceiverSimulator::Impl::__applyFaults(unsigned short pid, std::vector<unsigned char>* data) {
  if (m_faults.hiddenPids.count(pid)) {
    return false;
  }
  std::uniform_real_distribution<double> share(0.0, 1.0);
  if (m_faults.dropShare > 0.0 && share(m_rng) < m_faults.dropShare) {
    ++m_counters.faultDropped;
    return false;
  }
  if (m_faults.corruptShare > 0.0 && !data->empty() && share(m_rng) < m_faults.corruptShare) {
    data->back() ^= 0xFF;  // the last byte of the CRC_32
    ++m_counters.faultCorrupted;
  }
  return true;
}

// ---- Delivery thread ----

// REQUIRES: m_mutex held.
ReceiverSimulator::Impl::Clock::time_point ReceiverSimulator::Impl::__nextWake() const {
  Clock::time_point wake = Clock::time_point::max();
  if (!m_mapDeliveries.empty()) {
    wake = m_mapDeliveries.begin()->first;
  }
  for (std::map<uint64_t, OpenFilter>::const_iterator it = m_mapFilters.begin();
       it != m_mapFilters.end(); ++it) {
    if (it->second.deadline < wake) {
      wake = it->second.deadline;
    }
  }
  return wake;
}

// REQUIRES: m_mutex held. Takes the first due delivery whose filter still
// lives; a due one whose filter has closed is discarded.
bool ReceiverSimulator::Impl::__takeDue(Clock::time_point now, Delivery* delivery) {
  while (!m_mapDeliveries.empty() && m_mapDeliveries.begin()->first <= now) {
    const Clock::time_point due = m_mapDeliveries.begin()->first;
    *delivery = std::move(m_mapDeliveries.begin()->second);
    m_mapDeliveries.erase(m_mapDeliveries.begin());
    std::map<uint64_t, OpenFilter>::iterator filter = m_mapFilters.find(delivery->filterId);
    if (filter != m_mapFilters.end() && due <= filter->second.deadline) {
      return true;
    }
    ++m_counters.discarded;
    m_setPendingSeq.erase(delivery->seq);
  }
  return false;
}

// REQUIRES: m_mutex held. Takes out the filters whose time-out has passed,
// but for the one whose delivery is about to be made.
void ReceiverSimulator::Impl::__takeExpired(Clock::time_point now, const uint64_t* keep,
                                            std::vector<TDataRequestCommand*>* expired) {
  for (std::map<uint64_t, OpenFilter>::iterator it = m_mapFilters.begin();
       it != m_mapFilters.end();) {
    if (it->second.deadline <= now && !(keep && *keep == it->first)) {
      expired->push_back(it->second.command);
      m_mapFilters.erase(it++);
    } else {
      ++it;
    }
  }
  m_counters.filtersClosed += expired->size();
}

// Closes the expired requests and makes the delivery, with no lock held.
// Returns whether the delivery reached a destination.
bool ReceiverSimulator::Impl::callOut(const std::vector<TDataRequestCommand*>& expired,
                                      Delivery* delivery) {
  for (size_t i = 0; i < expired.size(); ++i) {
    m_pServer->closeOpenRequest(expired[i]);
  }
  GingaDataDestination* destination = m_pServer->getDataDestination();
  if (!delivery || !destination) {
    return false;
  }
  destination->injectData(delivery->tunerId, delivery->pid, delivery->tableId, delivery->tableIdExt,
                          NULL, &delivery->data[0],
                          static_cast<unsigned int>(delivery->data.size()));
  return true;
}

void ReceiverSimulator::Impl::deliveryLoop() {
  std::unique_lock<std::mutex> lock(m_mutex);
  while (!m_bShutdown) {
    const Clock::time_point now = Clock::now();
    Delivery delivery;
    const bool haveDelivery = __takeDue(now, &delivery);
    std::vector<TDataRequestCommand*> expired;
    __takeExpired(now, haveDelivery ? &delivery.filterId : NULL, &expired);
    m_condIdle.notify_all();  // discarded deliveries count as done
    if (!haveDelivery && expired.empty()) {
      Clock::time_point wake = __nextWake();
      if (wake == Clock::time_point::max()) {
        m_condDelivery.wait(lock);
      } else {
        m_condDelivery.wait_until(lock, wake);
      }
      continue;
    }
    lock.unlock();
    const bool injected = callOut(expired, haveDelivery ? &delivery : NULL);
    lock.lock();
    if (haveDelivery) {
      ++(injected ? m_counters.deliveries : m_counters.discarded);
      m_setPendingSeq.erase(delivery.seq);
      m_condIdle.notify_all();
    }
  }
}

}  // namespace Ostrel
